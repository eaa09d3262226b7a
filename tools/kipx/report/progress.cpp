// progress.cpp - see progress.h.
#include "report/progress.h"

#include "report/terminal.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace {

// "1:02:03" or "2:03" into a text of 32 characters.
void clock_text(double seconds, char *text) {
    const auto whole = static_cast<long>(std::ceil(seconds));
    if (whole >= 3600)
        std::snprintf(text, 32, "%ld:%02ld:%02ld", whole / 3600, whole / 60 % 60, whole % 60);
    else
        std::snprintf(text, 32, "%ld:%02ld", whole / 60, whole % 60);
}

} // namespace

Progress::Progress(size_t total, bool quiet)
    : total_(total), on_(!quiet && total > 1 && takes_escapes(STDERR_FILENO)) {}

void Progress::step(bool worked) {
    ++done_;
    worked_ += worked;
}

void Progress::show() {
    if (!on_ || done_ >= total_) return;
    char left[32] = "?", count[96], bar[32] = "";
    if (worked_ > 0) {
        const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start_;
        clock_text(spent.count() / double(worked_) * double(total_ - done_), left);
    }
    std::snprintf(count, sizeof count, "%zu of %zu, %s left", done_, total_, left);
    const int columns = int(terminal_size(STDERR_FILENO).width) - 1;
    const int room = columns - int(std::strlen(count)) - 3;
    if (room >= 5) {
        const size_t width = size_t(std::min(room, 30));
        std::memset(bar, '.', width);
        std::memset(bar, '#', width * done_ / total_);
        bar[width] = 0;
        std::fprintf(stderr, "\r\033[K[%s] %s", bar, count);
    } else {
        std::fprintf(stderr, "\r\033[K%.*s", std::max(columns, 0), count);
    }
    shown_ = true;
}

void Progress::hide() {
    if (shown_) std::fprintf(stderr, "\r\033[K");
    shown_ = false;
}
