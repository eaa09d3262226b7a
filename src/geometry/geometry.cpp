// geometry/geometry.cpp - the exported functions: every row of the list in every form.
#include <kipx/geometry.h>

#include "geometry/affine.h"
#include "geometry/circle.h"
#include "geometry/clip.h"
#include "geometry/ellipse.h"
#include "geometry/hull.h"
#include "geometry/points.h"
#include "geometry/polygon.h"
#include "geometry/rects.h"

#define KIPX_FIGURE(name, parameters, arguments)                                                   \
    int32_t KIPX_OF_FORM(name) parameters {                                                        \
        return kipx::geometry::name<kipx::geometry::KIPX_FORM_TYPES> arguments;                    \
    }
#define KIPX_FORM_TYPES KIPX_OF(Form_, KIPX_FORM)
#define KIPX_FORM r2d
#include <kipx/geometry_ops.inc>
#define KIPX_FORM f2d
#include <kipx/geometry_ops.inc>
#define KIPX_FORM 2d
#include <kipx/geometry_ops.inc>
