/* kipx/kipx.h - the whole public interface. */
#ifndef KIPX_KIPX_H
#define KIPX_KIPX_H

#include <kipx/arith.h>
#include <kipx/array.h>
#include <kipx/compare.h>
#include <kipx/convert.h>
#include <kipx/env.h>
#include <kipx/error.h>
#include <kipx/filter.h>
#include <kipx/firefly.h>
#include <kipx/geometry.h>
#include <kipx/logic.h>
#include <kipx/matrix.h>
#include <kipx/morph.h>
#include <kipx/muladd.h>
#include <kipx/region.h>
#include <kipx/resize.h>
#include <kipx/sepfilter.h>
#include <kipx/shape.h>
#include <kipx/sort.h>
#include <kipx/stats.h>
#include <kipx/threshold.h>
#include <kipx/types.h>
#include <kipx/unary.h>
#include <kipx/version.h>

#endif
