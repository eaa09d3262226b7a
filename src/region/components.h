// region/components.h - how the steps of the fast flood tell each other of components.
#pragma once

#include <cstdint>

namespace kipx {

inline constexpr uint32_t smallest_region = 16; // pixels of a region of the tree

// Is told of components, inner ones before those around them.
struct ComponentSink {
    // The component of that level is the run start .. end of the order of pixels; pixel is one of
    // its pixels. False ends everything: no memory.
    virtual bool close(uint32_t level, uint32_t start, uint32_t end, uint32_t pixel) = 0;

protected:
    ~ComponentSink() = default;
};

} // namespace kipx
