// A progress bar on standard error. By default it is drawn only when standard error is a
// terminal, not silenced, and the work takes more than about a second; --progress draws it from
// the start whatever standard error is, --no-progress never.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace zulconvert {

enum class ProgressMode { Auto, Always, Never };

class ProgressBar {
public:
    ProgressBar(std::string label, uint64_t total, bool quiet);
    ~ProgressBar();  // clears the bar
    // Reports `done` of the total; cheap enough to call for every point.
    void update(uint64_t done) {
        if (enabled_ && ++calls_ % 4096 == 0) draw(done, false);
    }
    // The work is done: a bar that was shown ends at 100% and is cleared, so that a summary line
    // can follow.
    void finish();

    // The mode for every bar of the run (the command line's choice).
    static void setMode(ProgressMode mode);

private:
    void draw(uint64_t done, bool now);
    void clear();

    std::string label_;
    uint64_t total_;
    bool enabled_;
    bool shown_ = false;
    uint64_t calls_ = 0;
    std::chrono::steady_clock::time_point start_, lastDraw_;
};

}  // namespace zulconvert
