// A progress bar on standard error for work that takes more than about a second, drawn only when
// standard error is a terminal and not silenced.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace zultool {

class ProgressBar {
public:
    ProgressBar(std::string label, uint64_t total, bool quiet);
    ~ProgressBar();  // clears the bar
    // Reports `done` of the total; cheap enough to call for every point.
    void update(uint64_t done) {
        if (enabled_ && ++calls_ % 4096 == 0) draw(done);
    }

private:
    void draw(uint64_t done);

    std::string label_;
    uint64_t total_;
    bool enabled_;
    bool shown_ = false;
    uint64_t calls_ = 0;
    std::chrono::steady_clock::time_point start_, lastDraw_;
};

}  // namespace zultool
