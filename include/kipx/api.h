/* kipx/api.h - what every public header needs: visibility, C linkage, compile-time checks. */
#ifndef KIPX_API_H
#define KIPX_API_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define KIPX_API __attribute__((visibility("default")))
#else
#define KIPX_API
#endif

#ifdef __cplusplus
#define KIPX_BEGIN extern "C" {
#define KIPX_END }
#define KIPX_STATIC_ASSERT(condition, text) static_assert(condition, text)
#else
#define KIPX_BEGIN
#define KIPX_END
#define KIPX_STATIC_ASSERT(condition, text) _Static_assert(condition, text)
#endif

#endif
