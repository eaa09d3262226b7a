// support/photograph.h - a real photograph to time with, from a package that ships one.
//
// Gives    the first of a few known pictures that is installed, as grey bytes, mirrored out to any
//          size. Without libpng, or where none is installed, there is none.
#ifndef KIPX_BENCH_SUPPORT_PHOTOGRAPH_H
#define KIPX_BENCH_SUPPORT_PHOTOGRAPH_H

#include <cstdint>
#include <vector>

#include "support/images.h"

namespace kipx::bench {

bool have_photograph();
std::vector<uint8_t> photograph(Size size);

} // namespace kipx::bench

#endif
