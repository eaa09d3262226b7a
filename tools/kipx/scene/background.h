// background.h - the light behind the objects, estimated from the picture alone.
#pragma once

#include "image/image.h"

// A smooth u8 background of a u8 picture, channel by channel: in every tile the most frequent
// value, which is that of the background wherever it shows; freed of outliers among neighbouring
// tiles, and drawn out between their centres. Integer arithmetic only.
Image estimated_background(const Image &picture);
