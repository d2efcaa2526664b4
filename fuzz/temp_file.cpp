#include "temp_file.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "fuzz_check.h"

namespace zulfuzz {

const std::string& scratchPath() {
    static const std::string path = [] {
        const char* folder = std::getenv("TMPDIR");
        std::string p = (folder && *folder) ? folder : "/tmp";
        p += "/zul-fuzz-" + std::to_string(getpid()) + ".zul";
        std::atexit([] { std::remove(scratchPath().c_str()); });
        return p;
    }();
    return path;
}

void writeScratch(const uint8_t* data, size_t size) {
    std::FILE* file = std::fopen(scratchPath().c_str(), "wb");
    FUZZ_CHECK(file != nullptr);
    FUZZ_CHECK(size == 0 || std::fwrite(data, 1, size, file) == size);
    FUZZ_CHECK(std::fclose(file) == 0);
}

}  // namespace zulfuzz
