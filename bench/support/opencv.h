// support/opencv.h - the images of the pool as OpenCV sees them. Empty where it is not installed.
#ifndef KIPX_BENCH_SUPPORT_OPENCV_H
#define KIPX_BENCH_SUPPORT_OPENCV_H

#if defined(KIPX_BENCH_OPENCV)

#include <opencv2/core.hpp>

#include <kipx/types.h>

namespace kipx::bench {

// Of the types that it has: no u32.
inline int depth_of(uint32_t type) {
    switch (type) {
    case KIPX_U8:
        return CV_8U;
    case KIPX_S8:
        return CV_8S;
    case KIPX_U16:
        return CV_16U;
    case KIPX_S16:
        return CV_16S;
    case KIPX_S32:
        return CV_32S;
    case KIPX_F32:
        return CV_32F;
    default:
        return CV_64F;
    }
}

inline cv::Mat mat_of(const kipx_arr *a) {
    return cv::Mat(static_cast<int>(a->volume[1]), static_cast<int>(a->volume[2]),
                   CV_MAKETYPE(depth_of(a->type), static_cast<int>(a->volume[3])), a->base,
                   a->strides[1]);
}

} // namespace kipx::bench

#endif
#endif
