// terminal.cpp - see terminal.h.
#include "report/terminal.h"

#include <algorithm>
#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

struct Colour {
    uint32_t red, green, blue;
};

// The mean of the picture's pixels from x0, y0 up to x1, y1.
Colour mean_colour(const Image &picture, uint32_t x0, uint32_t y0, uint32_t x1, uint32_t y1) {
    uint64_t sums[3] = {}, count = 0;
    const uint32_t channels = picture.channels();
    for (uint32_t y = y0; y < std::max(y1, y0 + 1); ++y)
        for (uint32_t x = x0; x < std::max(x1, x0 + 1); ++x, ++count) {
            const uint8_t *pixel = picture.row(y) + size_t(x) * channels;
            for (uint32_t c = 0; c < 3; ++c) sums[c] += pixel[channels < 3 ? 0 : c];
        }
    return {uint32_t(sums[0] / count), uint32_t(sums[1] / count), uint32_t(sums[2] / count)};
}

} // namespace

bool is_terminal() { return isatty(STDOUT_FILENO); }

void show(const Image &picture) {
    if (!is_terminal() || picture.type() != KIPX_U8) return;
    winsize window = {};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &window) != 0 || window.ws_col == 0) window.ws_col = 80;
    uint32_t columns = std::min<uint32_t>(window.ws_col - 1u, picture.width());
    uint32_t lines = uint32_t(uint64_t(columns) * picture.height() / picture.width() / 2);
    if (lines > 40) {
        lines = 40;
        columns = uint32_t(
            std::max<uint64_t>(uint64_t(lines) * 2 * picture.width() / picture.height(), 1));
    }
    columns = std::max(columns, 1u);
    lines = std::max(lines, 1u);
    const auto x_of = [&](uint32_t i) { return uint32_t(uint64_t(picture.width()) * i / columns); };
    const auto y_of = [&](uint32_t i) {
        return uint32_t(uint64_t(picture.height()) * i / (lines * 2));
    };
    for (uint32_t line = 0; line < lines; ++line) {
        for (uint32_t i = 0; i < columns; ++i) {
            const uint32_t y = line * 2;
            const Colour upper = mean_colour(picture, x_of(i), y_of(y), x_of(i + 1), y_of(y + 1));
            const Colour lower =
                mean_colour(picture, x_of(i), y_of(y + 1), x_of(i + 1), y_of(y + 2));
            std::printf("\033[38;2;%u;%u;%um\033[48;2;%u;%u;%um\u2580", upper.red, upper.green,
                        upper.blue, lower.red, lower.green, lower.blue);
        }
        std::printf("\033[0m\n");
    }
}

void Steps::head() const {
    if (!quiet_) std::printf("%-24s %10s %10s  %s\n", "step", "time", "Mpixel/s", "");
}

void Steps::row(const std::string &name, double seconds, uint64_t pixels,
                const std::string &note) const {
    if (quiet_) return;
    std::string rate = "-";
    if (pixels > 0 && seconds > 0) {
        char text[32];
        std::snprintf(text, sizeof text, "%.0f", double(pixels) / seconds / 1e6);
        rate = text;
    }
    std::printf("%-24s %7.2f ms %10s  %s\n", name.c_str(), seconds * 1e3, rate.c_str(),
                note.c_str());
    std::fflush(stdout);
}
