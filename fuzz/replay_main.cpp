// A plain main() for the fuzz targets: runs LLVMFuzzerTestOneInput once on each file named on the
// command line, or on each file of a named folder, so that a corpus replays as an ordinary test
// with any compiler and without libFuzzer. A failed check aborts, and fails the test.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace fs = std::filesystem;

int main(int argc, char** argv) {
    std::vector<fs::path> files;
    for (int i = 1; i < argc; ++i) {
        if (!fs::is_directory(argv[i])) files.push_back(argv[i]);
        if (fs::is_directory(argv[i]))
            for (const auto& entry : fs::directory_iterator(argv[i])) files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    for (const fs::path& file : files) {
        std::ifstream in(file, std::ios::binary);
        // A copy of exactly the file's size, so that AddressSanitizer sees a read past its end.
        const std::vector<uint8_t> input{std::istreambuf_iterator<char>(in), {}};
        if (!in) {
            std::fprintf(stderr, "replay: cannot read %s\n", file.c_str());
            return 2;
        }
        LLVMFuzzerTestOneInput(input.empty() ? nullptr : input.data(), input.size());
    }
    std::printf("replayed %zu inputs\n", files.size());
    return files.empty() ? 2 : 0;
}
