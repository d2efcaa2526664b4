#include "progress_bar.h"

#include <unistd.h>

#include <cstdio>

namespace zultool {

ProgressBar::ProgressBar(std::string label, uint64_t total, bool quiet)
    : label_(std::move(label)),
      total_(total),
      enabled_(!quiet && total > 0 && ::isatty(STDERR_FILENO) == 1),
      start_(std::chrono::steady_clock::now()),
      lastDraw_(start_) {}

ProgressBar::~ProgressBar() {
    if (shown_) std::fprintf(stderr, "\r\033[K");
}

void ProgressBar::draw(uint64_t done) {
    const auto now = std::chrono::steady_clock::now();
    if (now - start_ < std::chrono::seconds(1) ||
        now - lastDraw_ < std::chrono::milliseconds(100)) {
        return;
    }
    lastDraw_ = now;
    shown_ = true;
    const double fraction = done >= total_ ? 1.0 : static_cast<double>(done) / total_;
    const int width = 40, filled = static_cast<int>(fraction * width);
    std::string bar(filled, '#');
    bar.append(width - filled, '.');
    std::fprintf(stderr, "\r%s [%s] %3d%%", label_.c_str(), bar.c_str(),
                 static_cast<int>(fraction * 100));
    std::fflush(stderr);
}

}  // namespace zultool
