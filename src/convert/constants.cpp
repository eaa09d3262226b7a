// convert/constants.cpp - one number per channel as a source of a call.
#include "convert/constants.h"

#include <algorithm>
#include <cstring>

#include "convert/values.h"

namespace kipx {

Constants::Constants(uint32_t type, const double *values, const Call &call)
    : type_(type), channels_(std::min(call.channels, most_channels)) {
    uint32_t size = element_size(type);
    // Whole 64 elements a run, for one to four channels as for more.
    length_ = channels_ <= 4 && size ? room / size / channels_ : 64 / widest;
    for (uint32_t i = 0; i < channels_; ++i) store_value(type, values[i], bytes_ + i * size);
    uint64_t pixels = uint64_t{call.height} * call.width;
    size_t bytes = (std::min<uint64_t>(pixels, length_) + 1) * channels_ * size;
    for (size_t done = channels_ * size; done < bytes; done *= 2)
        std::memcpy(bytes_ + done, bytes_, std::min(done, bytes - done));
}

Operand Constants::operand() {
    uint32_t size = element_size(type_);
    return {bytes_, 0, 0, uint64_t{size} * channels_, size, type_, size, 1, length_};
}

} // namespace kipx
