/* kipx/region.h - region analysis: component trees, region features, floods, stable regions. */
#ifndef KIPX_REGION_H
#define KIPX_REGION_H

#include <kipx/fast_regions.h>
#include <kipx/features.h>
#include <kipx/mser.h>
#include <kipx/planes.h>
#include <kipx/tree.h>
#include <kipx/watershed.h>

#endif
