// core/fold.cpp - rows of a call into a state per channel.
#include "core/fold.h"

#include <algorithm>

#include "core/stages.h"

namespace kipx {
namespace {

constexpr size_t widest = 8;

void *state_of(const Folding &how, uint32_t channel) {
    return static_cast<char *>(how.states) + channel * how.state_size;
}

// A row whose elements or mask do not allow the loop to read them as they lie.
void picked_row(const Call &c, const Folding &how, const char *row, const char *mask,
                Taken &taken) {
    alignas(64) char buffer[fold_length * widest];
    const Operand &s = c.src[0];
    const uint32_t size = size_index(s.size);
    for (uint32_t x = 0; x < c.width; x += fold_length) {
        size_t n = std::min(c.width - x, fold_length);
        for (uint32_t channel = 0; channel < c.channels; ++channel) {
            const char *from = row + x * s.pixel + channel * s.channel, *run = buffer;
            size_t kept = n;
            if (mask)
                kept = sift_stages_of(how.set)[size](
                    buffer, from, mask + x * c.mask.pixel + channel * c.mask.channel, n, s.pixel,
                    c.mask.pixel);
            else if (adjacent(s))
                run = from;
            else
                stages_of(how.set)[stage_pack * stage_sizes + size](buffer, from, nullptr, n,
                                                                    s.pixel);
            taken.pixels[channel] += kept;
            if (kept) how.loop({run, kept, 1, state_of(how, channel)});
        }
    }
}

bool readable_as_it_lies(const Call &c, const Folding &how) {
    const Operand &s = c.src[0];
    if (c.mask.at || (c.channels > 1 && (!how.interleaved || s.channel != s.size))) return false;
    return s.pixel == uint64_t{c.channels} * s.size;
}

} // namespace

Taken fold(Call &c, const Folding &how) {
    Taken taken{};
    const Operand &s = c.src[0];
    const bool dense = readable_as_it_lies(c, how);
    uint64_t rows = c.height, width = c.width;
    if (dense && !how.blocks && s.row == width * s.pixel) width *= rows, rows = 1;
    for (uint64_t plane = 0; plane < c.planes; ++plane) {
        const char *row = s.at + plane * s.plane;
        const char *mask = c.mask.at ? c.mask.at + plane * c.mask.plane : nullptr;
        for (uint64_t y = 0; y < rows; ++y) {
            if (dense)
                how.loop({row, width, c.channels, how.states});
            else
                picked_row(c, how, row, mask, taken);
            row += s.row;
            if (mask) mask += c.mask.row;
        }
    }
    if (dense)
        for (uint32_t i = 0; i < c.channels; ++i)
            taken.pixels[i] = uint64_t{c.planes} * c.height * c.width;
    return taken;
}

} // namespace kipx
