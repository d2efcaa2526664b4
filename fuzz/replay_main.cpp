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

namespace {

void replay(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(in),
                                  std::istreambuf_iterator<char>()};
    // A copy of exactly the file's size, so that AddressSanitizer sees a read past its end.
    std::vector<uint8_t> input(bytes.begin(), bytes.end());
    uint8_t* data = input.empty() ? nullptr : input.data();
    LLVMFuzzerTestOneInput(data, input.size());
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<fs::path> files;
    for (int i = 1; i < argc; ++i) {
        const fs::path path = argv[i];
        if (fs::is_directory(path)) {
            for (const auto& entry : fs::directory_iterator(path)) {
                if (entry.is_regular_file()) files.push_back(entry.path());
            }
        } else if (fs::is_regular_file(path)) {
            files.push_back(path);
        } else {
            std::fprintf(stderr, "replay: no such file or folder: %s\n", argv[i]);
            return 2;
        }
    }
    if (files.empty()) {
        std::fprintf(stderr, "replay: nothing to replay\n");
        return 2;
    }
    std::sort(files.begin(), files.end());
    for (const fs::path& file : files) replay(file);
    std::printf("replayed %zu inputs\n", files.size());
    return 0;
}
