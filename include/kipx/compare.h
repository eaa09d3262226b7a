/* kipx/compare.h - element-wise comparison: masks, and one of two values per element.
 *
 * Gives    comparisons of an array with another one of its type (KipxCompare) or with a constant per
 *          channel (KipxCompareC). They write a mask: all bits of an element where the comparison
 *          holds, 0 where it does not. The extended forms (KipxECompare, KipxECompareC) write a value
 *          per channel where it holds and another where it does not, or keep what is there.
 * Promises a comparison is made in the source's own type. With a NaN only "not equal" holds. All
 *          paths, tables included, give the same bytes.
 * Owner    everything is the caller's; scratch comes from the environment and goes back to it.
 *
 * The public functions take
 *
 *   xe      the environment; may be null: no comparison needs scratch, large ones of bytes are faster
 *           with it
 *   flags   KIPX_FLAG_*
 *   dst     result: axes, planes and channels of src1; any integer type of 8, 16 or 32 bits, and for
 *           the extended forms f32 from f32
 *   src1 or src
 *           u8, s8, s16, s32 or f32, 3 or 4 axes, 1 to 4 channels. Axes, planes and channels are
 *           judged by it
 *   src2    as many axes, or 3 against 4, then the same for every plane; as many planes or 1; as many
 *           channels; src1's type
 *   values  a constant per channel of the region, brought into the source's type: to nearest, ties to
 *           even, saturated, NaN 0; f32 keeps what it can hold. So u8 compares with 255 when told 300
 *   roi, roi_extent
 *           the region, in src1 and dst alike. With roi_extent null, roi is a kipx_site, or null for
 *           all. Otherwise roi is four origin words, or null for zeros, and roi_extent four extent
 *           words
 *   src2_origin
 *           where the region starts in src2 (null: at its origin)
 *   cmpop   the operator, in the low four bits
 *
 * and return 0, or a negative code with nothing written:
 *
 *   KIPX_EINVAL   arrays that do not fit; invalid type; operator outside 3 to 8; no values; value
 *                 pointers that are no addresses and no markers, see below; a destination that shares
 *                 bytes with a source without being that source
 *   KIPX_EEMPTY   the region is empty, also in src2
 *   KIPX_ENOTSUP  valid types without a kernel; sources of different types
 *
 * What is worked on is the smallest of what the region and the arrays leave. A source may be the
 * destination itself where their elements have one size.
 */
#ifndef KIPX_COMPARE_H
#define KIPX_COMPARE_H

#include <kipx/compare_types.inc>
#include <kipx/planes.h>
#include <kipx/prototypes.h>

KIPX_BEGIN

/* Comparison operators. 0 is none, 1 and 2 are not defined. */
typedef uint32_t kipx_cmpop;
enum {
    KIPX_CMPOP_NONE = 0,
    KIPX_CMPOP_EQUAL = 3,
    KIPX_CMPOP_LESS = 4,
    KIPX_CMPOP_LESS_OR_EQUAL = 5,
    KIPX_CMPOP_GREATER = 6,
    KIPX_CMPOP_GREATER_OR_EQUAL = 7,
    KIPX_CMPOP_NOT_EQUAL = 8
};

/* "equal-cmpop", "less-cmpop", "less-or-equal-cmpop", "greater-cmpop", "greater-or-equal-cmpop",
 * "nul-cmpop" for 0 and "unknown-cmpop" for the rest, 8 included; by the low four bits. */
KIPX_API const char *kipx_cmpop_str(kipx_cmpop cmpop);

/* ---- public ---- */

KIPX_API KIPX_PUBLIC_2R(KipxCompare, KIPX_TAIL_COMPARED);
KIPX_API KIPX_PUBLIC_CR(KipxCompareC, KIPX_TAIL_COMPARED);

/* true_values, false_values: one value per channel of the region, brought into the destination's type
 * as constants are into the source's. Pointers below 16 are markers: 0 stands for what the
 * destination holds, 1 for the source's element, which must have the destination's type code.
 *
 *   both 0                             the mask
 *   true values, and false ones or a   chosen where the comparison holds, and where it does not
 *   marker
 *   a marker, and false values         the same with the two exchanged and the operator negated: equal
 *                                      with not equal, less with greater or equal, less or equal with
 *                                      greater. A NaN is neither less nor greater nor equal, so that
 *                                      of these only "equal" writes the false value for it
 *   two markers else, or 2 to 15       KIPX_EINVAL
 *
 * Where all true values are the mask's ones and all false values 0, the mask is written: for 8 bits a
 * true value of 255 and more and a false one of 0 and less, for 16 bits 65535 and more and 0 and less.
 * That is judged on the values as 32-bit integers, to nearest even, where what lies outside of these,
 * infinities and NaN are -2^31; by the element's size, so that an s8 destination gets -1 for 255. */
KIPX_API KIPX_PUBLIC_2R(KipxECompare, KIPX_TAIL_CHOSEN);
KIPX_API KIPX_PUBLIC_CR(KipxECompareC, KIPX_TAIL_CHOSEN);

/* ---- one slice ---- */

#define KIPX_CODE_COMP UINT32_C(0x636F6D70)
#define KIPX_CODE_CMPC UINT32_C(0x636D7043)
#define KIPX_CODE_ECMP UINT32_C(0x65636D70)
#define KIPX_CODE_ECMC UINT32_C(0x65636D43)

/* The context of a pack. */
typedef struct KipxCompareContext {
    kipx_cmpop cmpop;
    uint32_t reserved;          /* 0 */
    const double *values;       /* constant forms */
    const double *true_values;  /* extended forms */
    const double *false_values; /* extended forms */
} KipxCompareContext;

/* Operands of the slice: the source, or the two sources, then the result. */
KIPX_API KIPX_SLICE(KipxTGAcompare);
KIPX_API KIPX_SLICE(KipxTGAcompareC);
KIPX_API KIPX_SLICE(KipxTGAecompare);
KIPX_API KIPX_SLICE(KipxTGAecompareC);

/* ---- array level, typed level: 1 to 4 channels, 2 or 3 axes ---- */

#define KIPX_DECLARE_COMPARE(x, op, tail)                                                          \
    KIPX_API KIPX_ARRAY_##x(kipxa_##op, tail);                                                     \
    KIPX_API KIPX_TYPED_##x(kipxa__##op, tail)
KIPX_DECLARE_COMPARE(2, compare, KIPX_TAIL_COMPARED);
KIPX_DECLARE_COMPARE(C, compareC, KIPX_TAIL_COMPARED);
KIPX_DECLARE_COMPARE(2, ecompare, KIPX_TAIL_CHOSEN);
KIPX_DECLARE_COMPARE(C, ecompareC, KIPX_TAIL_CHOSEN);
#undef KIPX_DECLARE_COMPARE

/* ---- kernels ----
 *
 * Element addresses and strides, as at the typed level; the extent vector's channel entry is their
 * number, 1 to 4. Constants are elements of the source's type, true and false values elements of the
 * destination's, one per channel, adjacent. true_values are an address; false_values an address or a
 * marker, of which 1 needs a kernel whose destination takes the source's elements as they are (u8u8,
 * u8s8, s16s16, s32s32, f32f32). 0, or KIPX_EINVAL. */

#define KIPX_KERNEL_HEAD                                                                           \
    KipxXE *xe, uint64_t flags, kipx_dims n, const uint32_t *extent, void *dst,                    \
        const uint32_t *dst_strides
#define KIPX_KERNEL_SOURCE(src) const void *src, const uint32_t *src##_strides
#define KIPX_COMPARE_ARGUMENTS                                                                     \
    KIPX_KERNEL_HEAD, KIPX_KERNEL_SOURCE(src1), KIPX_KERNEL_SOURCE(src2), kipx_cmpop cmpop
#define KIPX_COMPAREC_ARGUMENTS                                                                    \
    KIPX_KERNEL_HEAD, KIPX_KERNEL_SOURCE(src), const void *values, kipx_cmpop cmpop
#define KIPX_CHOICE_ARGUMENTS , const void *true_values, const void *false_values
typedef int32_t (*kipx_compare_kernel)(KIPX_COMPARE_ARGUMENTS);
typedef int32_t (*kipx_compareC_kernel)(KIPX_COMPAREC_ARGUMENTS);
typedef int32_t (*kipx_ecompare_kernel)(KIPX_COMPARE_ARGUMENTS KIPX_CHOICE_ARGUMENTS);
typedef int32_t (*kipx_ecompareC_kernel)(KIPX_COMPAREC_ARGUMENTS KIPX_CHOICE_ARGUMENTS);

#define KIPX_DECLARE_MASK_KERNELS(D, S)                                                            \
    KIPX_API int32_t _kipxa__compare_##D##S(KIPX_COMPARE_ARGUMENTS);                               \
    KIPX_API int32_t _kipxa__compareC_##D##S(KIPX_COMPAREC_ARGUMENTS);
#define KIPX_DECLARE_CHOICE_KERNELS(D, S)                                                          \
    KIPX_API int32_t _kipxa__ecompare_##D##S(KIPX_COMPARE_ARGUMENTS KIPX_CHOICE_ARGUMENTS);        \
    KIPX_API int32_t _kipxa__ecompareC_##D##S(KIPX_COMPAREC_ARGUMENTS KIPX_CHOICE_ARGUMENTS);
KIPX_COMPARE_PAIRS(KIPX_DECLARE_MASK_KERNELS)
KIPX_COMPARE_CHOSEN_PAIRS(KIPX_DECLARE_CHOICE_KERNELS)
#undef KIPX_DECLARE_MASK_KERNELS
#undef KIPX_DECLARE_CHOICE_KERNELS

/* What the kernels of bytes with constants do: more than 16384 elements of a plane, channels counted,
 * go through a table of 256 entries per channel, for which the environment gives the memory; fewer,
 * or without that memory, or where false values are marker 0, are compared one by one. */
KIPX_API int32_t __kipxa__compareC_u8u8(KIPX_COMPAREC_ARGUMENTS);
KIPX_API int32_t __kipxa__compareC_u8s8(KIPX_COMPAREC_ARGUMENTS);
KIPX_API int32_t __kipxa__ecompareC_u8u8(KIPX_COMPAREC_ARGUMENTS KIPX_CHOICE_ARGUMENTS);
KIPX_API int32_t __kipxa__ecompareC_u8s8(KIPX_COMPAREC_ARGUMENTS KIPX_CHOICE_ARGUMENTS);

/* The kernel for a destination, by its element size, and a source, by its type; never null. status,
 * when given, receives 0; or -65514 when a code is invalid (valid are 1 to 4 and 9 to 12 for a
 * destination, 1 to 4 and 9 to 15 for a source), or -65511 when there is no such kernel, and the result
 * is then kipxa_proc_einval or kipxa_proc_enotsup. The extended forms have f32 from f32 besides. */
KIPX_API kipx_compare_kernel kipxa__cmpfun_imp(uint32_t dst_type, uint32_t src_type,
                                               int32_t *status);
KIPX_API kipx_compareC_kernel kipxa__cmpcfun_imp(uint32_t dst_type, uint32_t src_type,
                                                 int32_t *status);
KIPX_API kipx_ecompare_kernel kipxa__ecmpfun_imp(uint32_t dst_type, uint32_t src_type,
                                                 int32_t *status);
KIPX_API kipx_ecompareC_kernel kipxa__ecmpcfun_imp(uint32_t dst_type, uint32_t src_type,
                                                   int32_t *status);

/* Look the kernel up and call it with the other arguments. */
KIPX_API int32_t __kipxa__swcompare(uint32_t dst_type, uint32_t src_type, KIPX_COMPARE_ARGUMENTS);
KIPX_API int32_t __kipxa__swcompareC(uint32_t dst_type, uint32_t src_type, KIPX_COMPAREC_ARGUMENTS);
KIPX_API int32_t __kipxa__swecompare(uint32_t dst_type, uint32_t src_type,
                                     KIPX_COMPARE_ARGUMENTS KIPX_CHOICE_ARGUMENTS);
KIPX_API int32_t __kipxa__swecompareC(uint32_t dst_type, uint32_t src_type,
                                      KIPX_COMPAREC_ARGUMENTS KIPX_CHOICE_ARGUMENTS);

/* ---- tables of bytes ----
 *
 * One table of 256 bytes per channel, 1 to 4, one after the other. An entry is the channel's true
 * value where its index compares as the operator says, else its false value; a marker, 0 or 1, in place
 * of one of the two lets the index pass. Both 0: 255 and 0. 0, or KIPX_EINVAL: a null pointer, an
 * operator outside 3 to 8, two markers else, a marker above 1, other channel counts; or the code of
 * kipx_mkifillvalv16, which brings the constants to u8. Nothing is written then. */
KIPX_API int32_t kipx_mkcmpxlatab(uint8_t *tables, kipx_cmpop cmpop, const double *values,
                                  const uint8_t *true_values, const uint8_t *false_values,
                                  uint32_t channels);
/* Both comparisons must hold. */
KIPX_API int32_t kipx_mkcmpxlatab2(uint8_t *tables, kipx_cmpop cmpop1, kipx_cmpop cmpop2,
                                   const double *values1, const double *values2,
                                   const uint8_t *true_values, const uint8_t *false_values,
                                   uint32_t channels);
/* Constants that are u8 already. */
KIPX_API int32_t kipx__mkcmpxlatab(uint8_t *tables, kipx_cmpop cmpop, const uint8_t *values,
                                   const uint8_t *true_values, const uint8_t *false_values,
                                   uint32_t channels);
KIPX_API int32_t kipx__mkcmpxlatab2(uint8_t *tables, kipx_cmpop cmpop1, kipx_cmpop cmpop2,
                                    const uint8_t *values1, const uint8_t *values2,
                                    const uint8_t *true_values, const uint8_t *false_values,
                                    uint32_t channels);

/* dst = tables[channel][src] over height rows of width pixels. Strides are bytes between rows, pixels
 * and channels. dst may be src, with the same strides. 0, or KIPX_EINVAL for a null pointer or a
 * channel count other than 1 to 4. */
KIPX_API int32_t kipx_xlat2d_u8(const uint8_t *tables, uint8_t *dst, const uint32_t *dst_strides,
                                const uint8_t *src, const uint32_t *src_strides, uint32_t width,
                                uint32_t height, uint32_t channels);

KIPX_END

#endif
