// SHA-256 of byte strings for tests that pin down exact output, through OpenSSL.
#pragma once

#include <openssl/evp.h>

#include <cstdio>
#include <string>

class Sha256 {
public:
    Sha256() : context_(EVP_MD_CTX_new()) { EVP_DigestInit_ex(context_, EVP_sha256(), nullptr); }
    ~Sha256() { EVP_MD_CTX_free(context_); }
    Sha256(const Sha256&) = delete;
    Sha256& operator=(const Sha256&) = delete;

    void add(const void* bytes, size_t size) { EVP_DigestUpdate(context_, bytes, size); }
    void add(const std::string& bytes) { add(bytes.data(), bytes.size()); }

    // Lower-case hex of the digest; the object takes no more bytes after this.
    std::string hex() {
        unsigned char digest[EVP_MAX_MD_SIZE];
        unsigned int size = 0;
        EVP_DigestFinal_ex(context_, digest, &size);
        std::string text;
        char pair[3];
        for (unsigned int i = 0; i < size; ++i) {
            std::snprintf(pair, sizeof pair, "%02x", digest[i]);
            text += pair;
        }
        return text;
    }

private:
    EVP_MD_CTX* context_;
};
