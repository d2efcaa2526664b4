#include "commands/progress_bar.h"

#include <unistd.h>

#include <cstdio>

namespace zulconvert {

namespace {

ProgressMode mode = ProgressMode::Auto;

}  // namespace

void ProgressBar::setMode(ProgressMode chosen) { mode = chosen; }

ProgressBar::ProgressBar(std::string label, uint64_t total, bool quiet)
    : label_(std::move(label)),
      total_(total),
      enabled_(mode == ProgressMode::Always ||
               (mode == ProgressMode::Auto && !quiet && total > 0 && ::isatty(STDERR_FILENO) == 1)),
      start_(std::chrono::steady_clock::now()),
      lastDraw_(start_) {
    if (enabled_ && mode == ProgressMode::Always) draw(0, true);
}

ProgressBar::~ProgressBar() { clear(); }

void ProgressBar::finish() {
    if (total_ == 0) total_ = 1;  // work of unknown size is done too
    if (shown_) draw(total_, true);
    clear();
}

void ProgressBar::clear() {
    if (shown_) std::fprintf(stderr, "\r\033[K");
    std::fflush(stderr);
    shown_ = false;
}

void ProgressBar::draw(uint64_t done, bool now) {
    const auto time = std::chrono::steady_clock::now();
    if (!now && ((mode == ProgressMode::Auto && time - start_ < std::chrono::seconds(1)) ||
                 time - lastDraw_ < std::chrono::milliseconds(100))) {
        return;
    }
    lastDraw_ = time;
    shown_ = true;
    const double fraction = total_ == 0      ? 0.0
                            : done >= total_ ? 1.0
                                             : static_cast<double>(done) / total_;
    const int width = 40, filled = static_cast<int>(fraction * width);
    std::string bar(filled, '#');
    bar.append(width - filled, '.');
    std::fprintf(stderr, "\r%s [%s] %3d%%", label_.c_str(), bar.c_str(),
                 static_cast<int>(fraction * 100));
    std::fflush(stderr);
}

}  // namespace zulconvert
