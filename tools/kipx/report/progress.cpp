// progress.cpp - see progress.h.
#include "report/progress.h"

#include <cmath>
#include <cstdio>
#include <string>
#include <unistd.h>

namespace {

std::string clock_text(double seconds) {
    const auto whole = static_cast<long>(std::ceil(seconds));
    char text[32];
    if (whole >= 3600)
        std::snprintf(text, sizeof text, "%ld:%02ld:%02ld", whole / 3600, whole / 60 % 60,
                      whole % 60);
    else
        std::snprintf(text, sizeof text, "%ld:%02ld", whole / 60, whole % 60);
    return text;
}

} // namespace

Progress::Progress(size_t total, bool quiet)
    : total_(total), on_(!quiet && total > 1 && isatty(STDERR_FILENO)) {}

void Progress::step(bool worked) {
    ++done_;
    worked_ += worked;
}

void Progress::show() {
    if (!on_ || done_ >= total_) return;
    constexpr size_t width = 30;
    const size_t full = width * done_ / total_;
    const std::string bar = std::string(full, '#') + std::string(width - full, '.');
    std::string left = "?";
    if (worked_ > 0) {
        const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start_;
        left = clock_text(spent.count() / double(worked_) * double(total_ - done_));
    }
    std::fprintf(stderr, "\r\033[K[%s] %zu of %zu, %s left", bar.c_str(), done_, total_,
                 left.c_str());
    shown_ = true;
}

void Progress::hide() {
    if (shown_) std::fprintf(stderr, "\r\033[K");
    shown_ = false;
}
