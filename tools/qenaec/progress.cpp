// Redraws one line with a carriage return whenever the whole percentage changes.
#include "progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace qtool {

namespace {

constexpr double kMinimumSeconds = 5.0;
constexpr int kWidth = 40;

}  // namespace

ProgressBar::ProgressBar(bool allowed, double seconds, size_t total)
    : enabled_(allowed && total > 0 && seconds > kMinimumSeconds && isatty(STDERR_FILENO) != 0),
      seconds_(seconds),
      total_(total) {}

ProgressBar::ProgressBar(bool allowed, size_t total, std::string unit)
    : enabled_(allowed && total > 0 && isatty(STDERR_FILENO) != 0),
      total_(total),
      unit_(std::move(unit)) {}

ProgressBar::~ProgressBar() {
    if (enabled_ && last_percent_ >= 0) {
        std::fprintf(stderr, "\r%*s\r", kWidth + 40, "");
    }
}

void ProgressBar::update(size_t done) {
    if (!enabled_) {
        return;
    }
    done = std::min(done, total_);
    const int percent = static_cast<int>(100 * done / total_);
    if (percent == last_percent_) {
        return;
    }
    last_percent_ = percent;
    const int filled = percent * kWidth / 100;
    const std::string bar = std::string(filled, '#') + std::string(kWidth - filled, '.');
    if (unit_.empty()) {
        std::fprintf(stderr, "\r[%s] %3d%%  %.1f / %.1f s", bar.c_str(), percent,
                     seconds_ * static_cast<double>(done) / static_cast<double>(total_), seconds_);
    } else {
        std::fprintf(stderr, "\r[%s] %3d%%  %zu / %zu %s", bar.c_str(), percent, done, total_,
                     unit_.c_str());
    }
    std::fflush(stderr);
}

}  // namespace qtool
