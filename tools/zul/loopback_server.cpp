// The server behind `zul view`: reads a request head, answers from a file with the range it asks,
// and closes. Paths with ".." or a NUL never reach the routes.
#include "loopback_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <thread>
#include <vector>

namespace zultool {

namespace {

const char* contentType(const std::string& path) {
    const size_t dot = path.rfind('.');
    const std::string ext = dot == std::string::npos ? "" : path.substr(dot);
    if (ext == ".html") return "text/html; charset=utf-8";
    if (ext == ".js") return "text/javascript; charset=utf-8";
    if (ext == ".css") return "text/css; charset=utf-8";
    if (ext == ".json") return "application/json";
    if (ext == ".wasm") return "application/wasm";
    return "application/octet-stream";
}

bool sendAll(int connection, const char* data, size_t size) {
    while (size > 0) {
        const ssize_t sent = ::send(connection, data, size, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent <= 0) return false;
        data += sent;
        size -= static_cast<size_t>(sent);
    }
    return true;
}

void sendStatus(int connection, const char* status, const std::string& extra = "") {
    const std::string head = std::string("HTTP/1.1 ") + status +
                             "\r\nContent-Length: 0\r\nConnection: close\r\n" + extra + "\r\n";
    sendAll(connection, head.data(), head.size());
}

// The value of header `name` (lower case) in a request head, or "".
std::string headerValue(const std::string& head, const std::string& name) {
    size_t at = head.find("\r\n");
    while (at != std::string::npos && at + 2 < head.size()) {
        const size_t end = head.find("\r\n", at + 2);
        const std::string line =
            head.substr(at + 2, end == std::string::npos ? std::string::npos : end - at - 2);
        const size_t colon = line.find(':');
        if (colon != std::string::npos) {
            std::string key = line.substr(0, colon);
            for (char& c : key) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
            if (key == name) {
                const size_t start = line.find_first_not_of(" \t", colon + 1);
                return start == std::string::npos ? "" : line.substr(start);
            }
        }
        at = end;
    }
    return "";
}

bool parseNumber(const std::string& text, long long& value) {
    if (text.empty() || text.size() > 18 ||
        text.find_first_not_of("0123456789") != std::string::npos)
        return false;
    value = std::stoll(text);
    return true;
}

}  // namespace

ByteRange parseRange(const std::string& header, long long size) {
    ByteRange range;
    if (header.rfind("bytes=", 0) != 0 || header.find(',') != std::string::npos) return range;
    const std::string bounds = header.substr(6);
    const size_t dash = bounds.find('-');
    if (dash == std::string::npos) return range;
    long long first = 0, last = 0;
    const std::string a = bounds.substr(0, dash), b = bounds.substr(dash + 1);
    if (a.empty()) {  // the last N bytes
        if (!parseNumber(b, last)) return range;
        if (last == 0 || size == 0) return ByteRange{ByteRange::Kind::Unsatisfiable, 0, 0};
        return ByteRange{ByteRange::Kind::Part, last >= size ? 0 : size - last, size - 1};
    }
    if (!parseNumber(a, first) || (!b.empty() && !parseNumber(b, last))) return range;
    if (b.empty() || last >= size) last = size - 1;
    if (first >= size) return ByteRange{ByteRange::Kind::Unsatisfiable, 0, 0};
    if (last < first) return range;
    return ByteRange{ByteRange::Kind::Part, first, last};
}

LoopbackServer::~LoopbackServer() {
    if (socket_ >= 0) ::close(socket_);
}

void LoopbackServer::listen(int port) {
    socket_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (socket_ < 0)
        throw std::runtime_error(std::string("cannot open a socket: ") + std::strerror(errno));
    const int on = 1;
    ::setsockopt(socket_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    if (::bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(socket_, 64) != 0) {
        throw std::runtime_error("cannot listen on 127.0.0.1:" + std::to_string(port) + ": " +
                                 std::strerror(errno));
    }
    socklen_t length = sizeof address;
    ::getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
}

void LoopbackServer::run() {
    for (;;) {
        const int connection = ::accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0) continue;
        std::thread([this, connection] {
            serve(connection);
            ::close(connection);
        }).detach();
    }
}

void LoopbackServer::serve(int connection) const {
    timeval timeout = {30, 0};
    ::setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    std::string head;
    char buffer[4096];
    while (head.find("\r\n\r\n") == std::string::npos) {
        const ssize_t got = ::recv(connection, buffer, sizeof buffer, 0);
        if (got <= 0) return;
        head.append(buffer, static_cast<size_t>(got));
        if (head.size() > 32768)
            return sendStatus(connection, "431 Request Header Fields Too Large");
    }
    const size_t space1 = head.find(' ');
    const size_t space2 = head.find(' ', space1 + 1);
    if (space1 == std::string::npos || space2 == std::string::npos)
        return sendStatus(connection, "400 Bad Request");
    const std::string method = head.substr(0, space1);
    std::string path = head.substr(space1 + 1, space2 - space1 - 1);
    path = path.substr(0, path.find('?'));
    if (method != "GET" && method != "HEAD")
        return sendStatus(connection, "405 Method Not Allowed", "Allow: GET, HEAD\r\n");
    if (path.find("..") != std::string::npos || path.find('%') != std::string::npos ||
        path.empty() || path[0] != '/')
        return sendStatus(connection, "404 Not Found");
    const std::string location = routes_.redirect ? routes_.redirect(path) : "";
    if (!location.empty())
        return sendStatus(connection, "302 Found", "Location: " + location + "\r\n");
    const std::string file = routes_.file(path);
    std::ifstream in(file, std::ios::binary | std::ios::ate);
    if (file.empty() || !in) return sendStatus(connection, "404 Not Found");
    const long long size = static_cast<long long>(in.tellg());
    const ByteRange range = parseRange(headerValue(head, "range"), size);
    if (range.kind == ByteRange::Kind::Unsatisfiable)
        return sendStatus(connection, "416 Range Not Satisfiable",
                          "Content-Range: bytes */" + std::to_string(size) + "\r\n");
    const bool part = range.kind == ByteRange::Kind::Part;
    const long long first = part ? range.first : 0;
    const long long count = part ? range.last - range.first + 1 : size;
    std::string reply =
        std::string("HTTP/1.1 ") + (part ? "206 Partial Content" : "200 OK") +
        "\r\nContent-Type: " + contentType(file) + "\r\nContent-Length: " + std::to_string(count) +
        "\r\nAccept-Ranges: bytes\r\nCache-Control: no-store\r\n" + "Connection: close\r\n";
    if (part)
        reply += "Content-Range: bytes " + std::to_string(first) + "-" +
                 std::to_string(range.last) + "/" + std::to_string(size) + "\r\n";
    reply += "\r\n";
    if (!sendAll(connection, reply.data(), reply.size()) || method == "HEAD") return;
    in.seekg(first);
    std::vector<char> chunk(1 << 16);
    for (long long left = count; left > 0;) {
        const std::streamsize want = static_cast<std::streamsize>(
            std::min<long long>(left, static_cast<long long>(chunk.size())));
        in.read(chunk.data(), want);
        if (in.gcount() != want || !sendAll(connection, chunk.data(), static_cast<size_t>(want)))
            return;
        left -= want;
    }
}

}  // namespace zultool
