#include "peak_memory.h"

#include <fstream>
#include <sstream>
#include <string>

namespace {

// A "Name:   123 kB" line of /proc/self/status, in bytes.
int64_t statusField(const std::string& name) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.compare(0, name.size(), name) != 0) continue;
        std::istringstream fields(line.substr(name.size()));
        int64_t kilobytes = 0;
        fields >> kilobytes;
        return kilobytes * 1024;
    }
    return 0;
}

}  // namespace

int64_t residentBytes() { return statusField("VmRSS:"); }

int64_t peakResidentBytes() { return statusField("VmHWM:"); }

bool resetPeakResidentBytes() {
    std::ofstream clear("/proc/self/clear_refs");
    clear << "5";
    clear.close();
    return !clear.fail();
}
