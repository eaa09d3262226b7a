// convert/constants.h - one number per channel as a source of a call.
//
// Gives    Constants: an operand whose every pixel is the same, so that the loops of two arrays
//          serve a constant as well.
// Promises values are converted once, as values.h says. Runs of any start and of whole 64 elements
//          can be read from it.
// Costs    at most 3 KiB written, and no more than the call's own elements.
// Owner    holds the elements: it must outlive the work.
#pragma once

#include "core/call.h"

namespace kipx {

class Constants {
public:
    // One value per channel of the call, of which there are at least one.
    Constants(uint32_t type, const double *values, const Call &call);
    Operand operand();

private:
    static constexpr uint32_t room = 3072, most_channels = 15, widest = 8;
    uint32_t type_, channels_, length_; // length_: pixels that any run may take
    alignas(64) char bytes_[room + most_channels * widest];
};

} // namespace kipx
