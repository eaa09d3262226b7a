/* kipx/region.h - region analysis: component trees, region features, floods, stable regions. */
#ifndef KIPX_REGION_H
#define KIPX_REGION_H

#include <kipx/features.h>
#include <kipx/tree.h>

#endif
