// terminal.cpp - see terminal.h.
#include "report/terminal.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

struct TerminalColour {
    uint32_t red, green, blue;
};

// The mean of the picture's pixels from x0, y0 up to x1, y1.
TerminalColour mean_colour(const Image &picture, uint32_t x0, uint32_t y0, uint32_t x1,
                           uint32_t y1) {
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

bool takes_escapes(int descriptor) {
    const char *kind = std::getenv("TERM");
    return isatty(descriptor) && kind && std::strcmp(kind, "dumb") != 0;
}

bool takes_colours(int descriptor) {
    const char *refused = std::getenv("NO_COLOR");
    return takes_escapes(descriptor) && !(refused && *refused);
}

Extent terminal_size(int descriptor) {
    winsize window = {};
    if (ioctl(descriptor, TIOCGWINSZ, &window) != 0) return {80, 24};
    return {window.ws_col ? window.ws_col : 80u, window.ws_row ? window.ws_row : 24u};
}

void show(const Image &picture, uint32_t lines_above) {
    if (!takes_colours(STDOUT_FILENO) || picture.type() != KIPX_U8) return;
    const Extent room = terminal_size(STDOUT_FILENO);
    const uint32_t most =
        room.height > lines_above + 1 ? std::min(room.height - lines_above - 1, 40u) : 0;
    if (most < 4) return; // nothing could be made out
    uint32_t columns = std::min(room.width - 1u, picture.width());
    uint32_t lines = uint32_t(uint64_t(columns) * picture.height() / picture.width() / 2);
    if (lines > most) {
        lines = most;
        columns = uint32_t(uint64_t(lines) * 2 * picture.width() / picture.height());
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
            const TerminalColour upper =
                mean_colour(picture, x_of(i), y_of(y), x_of(i + 1), y_of(y + 1));
            const TerminalColour lower =
                mean_colour(picture, x_of(i), y_of(y + 1), x_of(i + 1), y_of(y + 2));
            fmt::print("\033[38;2;{};{};{}m\033[48;2;{};{};{}m\u2580", upper.red, upper.green,
                       upper.blue, lower.red, lower.green, lower.blue);
        }
        std::printf("\033[0m\n");
    }
}

void Steps::say(const std::string &line) {
    if (quiet_) return;
    fmt::print("{}\n", line);
    const uint32_t width = terminal_size(STDOUT_FILENO).width;
    lines_ += line.empty() ? 1 : (uint32_t(line.size()) + width - 1) / width;
    std::fflush(stdout);
}

void Steps::row(const std::string &name, double seconds, uint64_t pixels, const std::string &note) {
    if (lines_ == 0) say(fmt::format("{:<24} {:>10} {:>10}", "step", "time", "Mpixel/s"));
    const bool rated = pixels > 0 && seconds > 0;
    const std::string rate = rated ? fmt::format("{:.0f}", double(pixels) / seconds / 1e6) : "-";
    say(fmt::format("{:<24} {:7.2f} ms {:>10}  {}", name, seconds * 1e3, rate, note));
}
