// place.h - places, sizes and parts of a picture, in pixels from its upper left corner.
#pragma once

#include <cstdint>

struct Place {
    uint32_t x = 0, y = 0;
};

struct Extent {
    uint32_t width = 0, height = 0;
};

struct Part {
    uint32_t x = 0, y = 0, width = 0, height = 0;
};
