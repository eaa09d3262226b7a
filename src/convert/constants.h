// convert/constants.h - one number per channel as a source of a call.
//
// Gives    Constants: an operand whose every pixel is the same, so that the loops of two arrays
//          serve a constant as well.
// Promises values are converted once, as values.h says. Runs of any start and of whole 64 elements
//          can be read from it.
// Costs    at most 3 KiB written, and no more than the call's own elements; for loops that repeat
//          for themselves pattern_length pixels at most.
// Owner    holds the elements: it must outlive the work.
#pragma once

#include "core/call.h"

namespace kipx {

class Constants {
public:
    Constants() = default;
    // One value per channel of the call, of which there are at least one.
    Constants(uint32_t type, const double *values, const Call &call);
    Operand operand();
    // For loops that repeat for themselves: one element per channel, of which there are 1 to 4, as
    // it is to stand in memory; of 4 bytes at most.
    Operand repeating(uint32_t type, const void *elements, const Call &call);

private:
    void spread(const Call &call);
    void spread_words(size_t pixel, size_t bytes);
    static constexpr uint32_t room = 3072, most_channels = 15, widest = 8;
    uint32_t type_, channels_, length_; // length_: pixels that any run may take
    alignas(64) char bytes_[room + most_channels * widest];
};

} // namespace kipx
