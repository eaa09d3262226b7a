/* kipx/prototypes.h - the argument lists of the operations, each written once.
 *
 * An operation has up to three levels of entry, which differ only in how operands are given:
 *
 *   public  KipxAdd     array descriptors, a region of interest, positions of the sources
 *   array   kipxa_add   type, base address, origin, strides per operand; vectors of as many entries
 *                       as dims counts, preceded by the unused leading slots that it names; a null
 *                       origin is zero
 *   typed   kipxa__add  type, element address, strides per operand; 2 or 3 axes
 *
 * KIPX_PUBLIC_x, KIPX_ARRAY_x and KIPX_TYPED_x are the prototypes for the shape x:
 *
 *   2   two source arrays                      0   no source array, a value per channel
 *   C   one source array, a value per channel  0M  the same under a mask
 *   1   one source array                       R   one source array that is only read, and a mask,
 *   1M  the same under a mask                      which may be null
 *   3   three source arrays                    2C  two source arrays, a value per channel
 *   1CC one source array, two values per channel
 *
 * What follows the operands comes last: KIPX_TAIL_NONE, or another tail, which brings its own comma.
 * KIPX_DECLARE_SHAPE declares all three levels. The mask of a flat level is of type u8; its channel
 * stride is 0 where one byte stands for all channels.
 */
#ifndef KIPX_PROTOTYPES_H
#define KIPX_PROTOTYPES_H

#include <kipx/env.h>
#include <kipx/types.h>

#define KIPX_TAIL_NONE
#define KIPX_TAIL_SCALED , int32_t scale, int32_t aux
#define KIPX_TAIL_COMPARED , uint32_t cmpop
#define KIPX_TAIL_CHOSEN , uint32_t cmpop, const double *true_values, const double *false_values

#define KIPX_PUBLIC_2(name, ...)                                                                   \
    int32_t name(KipxXE *xe, uint64_t flags, const kipx_arr *dst, const kipx_arr *src1,            \
                 const kipx_arr *src2, const kipx_site *roi, const kipx_pos *src1At,               \
                 const kipx_pos *src2At __VA_ARGS__)
#define KIPX_PUBLIC_C(name, ...)                                                                   \
    int32_t name(KipxXE *xe, uint64_t flags, const kipx_arr *dst, const kipx_arr *src,             \
                 const double *values, const kipx_site *roi, const kipx_pos *srcAt __VA_ARGS__)
#define KIPX_PUBLIC_1(name, ...)                                                                   \
    int32_t name(KipxXE *xe, uint64_t flags, const kipx_arr *dst, const kipx_arr *src,             \
                 const kipx_site *roi, const kipx_pos *srcAt __VA_ARGS__)

#define KIPX_PUBLIC_1M(name, ...)                                                                  \
    int32_t name(KipxXE *xe, uint64_t flags, const kipx_arr *dst, const kipx_arr *src,             \
                 const kipx_arr *mask, const kipx_site *roi, const kipx_pos *srcAt,                \
                 const kipx_pos *maskAt __VA_ARGS__)
#define KIPX_PUBLIC_0(name, ...)                                                                   \
    int32_t name(KipxXE *xe, uint64_t flags, const kipx_arr *dst, const double *values,            \
                 const kipx_site *roi __VA_ARGS__)
#define KIPX_PUBLIC_0M(name, ...)                                                                  \
    int32_t name(KipxXE *xe, uint64_t flags, const kipx_arr *dst, const kipx_arr *mask,            \
                 const double *values, const kipx_site *roi, const kipx_pos *maskAt __VA_ARGS__)
#define KIPX_PUBLIC_R(name, ...)                                                                   \
    int32_t name(KipxXE *xe, uint64_t flags, const kipx_arr *src, const kipx_arr *mask,            \
                 const kipx_site *roi, const kipx_pos *maskAt __VA_ARGS__)

#define KIPX_PUBLIC_3(name, ...)                                                                   \
    int32_t name(KipxXE *xe, uint64_t flags, const kipx_arr *dst, const kipx_arr *src1,            \
                 const kipx_arr *src2, const kipx_arr *src3, const kipx_site *roi,                 \
                 const kipx_pos *src1At, const kipx_pos *src2At,                                   \
                 const kipx_pos *src3At __VA_ARGS__)
#define KIPX_PUBLIC_2C(name, ...)                                                                  \
    int32_t name(KipxXE *xe, uint64_t flags, const kipx_arr *dst, const kipx_arr *src1,            \
                 const kipx_arr *src2, const double *values, const kipx_site *roi,                 \
                 const kipx_pos *src1At, const kipx_pos *src2At __VA_ARGS__)
#define KIPX_PUBLIC_1CC(name, ...)                                                                 \
    int32_t name(KipxXE *xe, uint64_t flags, const kipx_arr *dst, const kipx_arr *src,             \
                 const double *factors, const double *addends, const kipx_site *roi,               \
                 const kipx_pos *srcAt __VA_ARGS__)

/* R: roi names the region of the first source and of the destination alike. It is a kipx_site where
 * roi_extent is null; otherwise roi is four origin words (null: zeros), roi_extent four extent words. */
#define KIPX_PUBLIC_2R(name, ...)                                                                  \
    int32_t name(KipxXE *xe, uint64_t flags, const kipx_arr *dst, const kipx_arr *src1,            \
                 const kipx_arr *src2, const void *roi, const uint32_t *roi_extent,                \
                 const kipx_pos *src2_origin __VA_ARGS__)
#define KIPX_PUBLIC_CR(name, ...)                                                                  \
    int32_t name(KipxXE *xe, uint64_t flags, const kipx_arr *dst, const kipx_arr *src,             \
                 const double *values, const void *roi, const uint32_t *roi_extent __VA_ARGS__)

/* The operands of the flat levels. */
#define KIPX_ARRAY_READ KipxXE *xe, uint64_t flags, kipx_dims dims, const uint32_t *extent
#define KIPX_TYPED_READ KipxXE *xe, uint64_t flags, kipx_dims n, const uint32_t *extent
#define KIPX_ARRAY_HEAD                                                                            \
    KipxXE *xe, uint64_t flags, kipx_dims dims, const uint32_t *extent, uint32_t dst_type,         \
        void *dst, const uint32_t *dst_origin, const uint32_t *dst_strides
#define KIPX_ARRAY_SOURCE(src)                                                                     \
    uint32_t src##_type, const void *src, const uint32_t *src##_origin,                            \
        const uint32_t *src##_strides
#define KIPX_TYPED_HEAD                                                                            \
    KipxXE *xe, uint64_t flags, kipx_dims n, const uint32_t *extent, uint32_t dst_type, void *dst, \
        const uint32_t *dst_strides
#define KIPX_TYPED_SOURCE(src) uint32_t src##_type, const void *src, const uint32_t *src##_strides

#define KIPX_ARRAY_2(name, ...)                                                                    \
    int32_t name(KIPX_ARRAY_HEAD, KIPX_ARRAY_SOURCE(src1), KIPX_ARRAY_SOURCE(src2) __VA_ARGS__)
#define KIPX_ARRAY_C(name, ...)                                                                    \
    int32_t name(KIPX_ARRAY_HEAD, KIPX_ARRAY_SOURCE(src), const double *values __VA_ARGS__)
#define KIPX_ARRAY_1(name, ...) int32_t name(KIPX_ARRAY_HEAD, KIPX_ARRAY_SOURCE(src) __VA_ARGS__)
#define KIPX_ARRAY_1M(name, ...)                                                                   \
    int32_t name(KIPX_ARRAY_HEAD, KIPX_ARRAY_SOURCE(src), KIPX_ARRAY_SOURCE(mask) __VA_ARGS__)
#define KIPX_ARRAY_3(name, ...)                                                                    \
    int32_t name(KIPX_ARRAY_HEAD, KIPX_ARRAY_SOURCE(src1), KIPX_ARRAY_SOURCE(src2),                \
                 KIPX_ARRAY_SOURCE(src3) __VA_ARGS__)
#define KIPX_ARRAY_2C(name, ...)                                                                   \
    int32_t name(KIPX_ARRAY_HEAD, KIPX_ARRAY_SOURCE(src1), KIPX_ARRAY_SOURCE(src2),                \
                 const double *values __VA_ARGS__)
#define KIPX_ARRAY_1CC(name, ...)                                                                  \
    int32_t name(KIPX_ARRAY_HEAD, KIPX_ARRAY_SOURCE(src), const double *factors,                   \
                 const double *addends __VA_ARGS__)
#define KIPX_ARRAY_0(name, ...) int32_t name(KIPX_ARRAY_HEAD, const double *values __VA_ARGS__)
#define KIPX_ARRAY_0M(name, ...)                                                                   \
    int32_t name(KIPX_ARRAY_HEAD, KIPX_ARRAY_SOURCE(mask), const double *values __VA_ARGS__)
#define KIPX_ARRAY_R(name, ...)                                                                    \
    int32_t name(KIPX_ARRAY_READ, KIPX_ARRAY_SOURCE(src), KIPX_ARRAY_SOURCE(mask) __VA_ARGS__)

#define KIPX_TYPED_2(name, ...)                                                                    \
    int32_t name(KIPX_TYPED_HEAD, KIPX_TYPED_SOURCE(src1), KIPX_TYPED_SOURCE(src2) __VA_ARGS__)
#define KIPX_TYPED_C(name, ...)                                                                    \
    int32_t name(KIPX_TYPED_HEAD, KIPX_TYPED_SOURCE(src), const double *values __VA_ARGS__)
#define KIPX_TYPED_1(name, ...) int32_t name(KIPX_TYPED_HEAD, KIPX_TYPED_SOURCE(src) __VA_ARGS__)
#define KIPX_TYPED_1M(name, ...)                                                                   \
    int32_t name(KIPX_TYPED_HEAD, KIPX_TYPED_SOURCE(src), KIPX_TYPED_SOURCE(mask) __VA_ARGS__)
#define KIPX_TYPED_3(name, ...)                                                                    \
    int32_t name(KIPX_TYPED_HEAD, KIPX_TYPED_SOURCE(src1), KIPX_TYPED_SOURCE(src2),                \
                 KIPX_TYPED_SOURCE(src3) __VA_ARGS__)
#define KIPX_TYPED_2C(name, ...)                                                                   \
    int32_t name(KIPX_TYPED_HEAD, KIPX_TYPED_SOURCE(src1), KIPX_TYPED_SOURCE(src2),                \
                 const double *values __VA_ARGS__)
#define KIPX_TYPED_1CC(name, ...)                                                                  \
    int32_t name(KIPX_TYPED_HEAD, KIPX_TYPED_SOURCE(src), const double *factors,                   \
                 const double *addends __VA_ARGS__)
#define KIPX_TYPED_0(name, ...) int32_t name(KIPX_TYPED_HEAD, const double *values __VA_ARGS__)
#define KIPX_TYPED_0M(name, ...)                                                                   \
    int32_t name(KIPX_TYPED_HEAD, KIPX_TYPED_SOURCE(mask), const double *values __VA_ARGS__)
#define KIPX_TYPED_R(name, ...)                                                                    \
    int32_t name(KIPX_TYPED_READ, KIPX_TYPED_SOURCE(src), KIPX_TYPED_SOURCE(mask) __VA_ARGS__)

/* x: one of the shapes above. */
#define KIPX_DECLARE_SHAPE(x, op, Name, ...)                                                       \
    KIPX_API KIPX_PUBLIC_##x(Kipx##Name, __VA_ARGS__);                                             \
    KIPX_API KIPX_ARRAY_##x(kipxa_##op, __VA_ARGS__);                                              \
    KIPX_API KIPX_TYPED_##x(kipxa__##op, __VA_ARGS__)

/* Floods of one array, M: inside a mask. The tail is a pointer to the operation's context. Their
 * flat levels name the source's operands without a prefix. */
#define KIPX_PUBLIC_FLOOD(name, Context)                                                           \
    int32_t name(KipxXE *xe, uint64_t flags, const kipx_arr *src, const kipx_site *roi,            \
                 Context *context)
#define KIPX_PUBLIC_FLOOD_M(name, Context)                                                         \
    int32_t name(KipxXE *xe, uint64_t flags, const kipx_arr *src, const kipx_arr *mask,            \
                 const kipx_site *roi, const kipx_pos *maskAt, Context *context)
#define KIPX_SLICE(name) int32_t name(KipxXE *xe, uint64_t flags, const kipx_pack *slice)
#define KIPX_FLOOD_HEAD                                                                            \
    KipxXE *xe, uint64_t flags, kipx_dims dims, const uint32_t *extent, uint32_t type,             \
        const void *src
#define KIPX_ARRAY_FLOOD(name, Context)                                                            \
    int32_t name(KIPX_FLOOD_HEAD, const uint32_t *origin, const uint32_t *strides, Context *context)
#define KIPX_ARRAY_FLOOD_M(name, Context)                                                          \
    int32_t name(KIPX_FLOOD_HEAD, const uint32_t *origin, const uint32_t *strides,                 \
                 KIPX_ARRAY_SOURCE(mask), Context *context)
#define KIPX_TYPED_FLOOD(name, Context)                                                            \
    int32_t name(KIPX_FLOOD_HEAD, const uint32_t *strides, Context *context)
#define KIPX_TYPED_FLOOD_M(name, Context)                                                          \
    int32_t name(KIPX_FLOOD_HEAD, const uint32_t *strides, KIPX_TYPED_SOURCE(mask),                \
                 Context *context)

#endif
