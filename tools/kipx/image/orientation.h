// orientation.h - which way up a picture is meant to be seen.
//
// Gives    the orientation that an EXIF block asks for, and pictures turned and mirrored by it.
// Promises orientations are 1 to 8 as EXIF and TIFF count them; 1 is as stored. A block that is cut
//          or lies gives 1.
#pragma once

#include "image/image.h"

// data: a TIFF header with its directory, as EXIF blocks have it.
uint32_t exif_orientation(const uint8_t *data, size_t size);
Image turned(const Image &image, uint32_t orientation);
// "turned right" and so on: what was done to a picture of that orientation.
const char *turn_name(uint32_t orientation);
