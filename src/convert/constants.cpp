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
    spread(call);
}

// The first pixel over as many as a run may take, and one more for runs that start within a pixel.
void Constants::spread(const Call &call) {
    size_t pixel = size_t{channels_} * element_size(type_);
    uint64_t pixels = uint64_t{call.height} * call.width;
    size_t bytes = (std::min<uint64_t>(pixels, length_) + 1) * pixel;
    if (pixel && widest % pixel == 0) return spread_words(pixel, bytes);
    for (size_t done = pixel; done < bytes; done *= 2)
        std::memcpy(bytes_ + done, bytes_, std::min(done, bytes - done));
}

// A pixel that divides a word: words of it, the last one perhaps past the end.
void Constants::spread_words(size_t pixel, size_t bytes) {
    uint64_t word;
    for (size_t done = pixel; done < sizeof word; done *= 2)
        std::memcpy(bytes_ + done, bytes_, done);
    std::memcpy(&word, bytes_, sizeof word);
    for (size_t done = sizeof word; done < bytes; done += sizeof word)
        std::memcpy(bytes_ + done, &word, sizeof word);
}

Operand Constants::repeating(uint32_t type, const void *elements, const Call &call) {
    type_ = type, channels_ = call.channels, length_ = pattern_length;
    std::memcpy(bytes_, elements, size_t{channels_} * element_size(type));
    spread(call);
    return operand();
}

Operand Constants::operand() {
    uint32_t size = element_size(type_);
    return {bytes_, 0, 0, uint64_t{size} * channels_, size, type_, size, 1, length_};
}

} // namespace kipx
