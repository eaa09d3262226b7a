// compare/compare.cpp - comparisons from the public functions down to the named kernels.
//
// Gives    what kipx/compare.h declares per form and per pair of types, made from the list; the work
//          itself is typed_compare.cpp's and the row loops'.
#include <kipx/array.h>
#include <kipx/compare.h>

#include <iterator>

#include "compare/compare_rows.h"
#include "compare/roi.h"
#include "compare/tables.h"
#include "compare/typed_compare.h"
#include "core/planes.h"
#include "core/stamp.h"

using namespace kipx;

namespace {

// The first source leads; the destination's region is its own, the second source's has a place.
constexpr Shape two_arrays{
    .anchor = slot_src1,
    .sources = 2,
    .partners = 2,
    .partner = {{slot_dst, Fit::same, Meet::rest, true}, {slot_src2, Fit::like, Meet::box}},
    .stands_in = slot_count,
    .planes = true,
    .overlap = false,
    .most_channels = 4,
    .no_rows = KIPX_EEMPTY};

// ---- slices ----

// Operands are the sources, then the result.
template<Form form, Result result>
int32_t slice_compare(KipxXE *xe, uint64_t flags, const kipx_pack *slice) {
    constexpr uint32_t sources = form == Form::array ? 2 : 1;
    if (!slice || slice->count != sources + 1 || !slice->context) return KIPX_EINVAL;
    const auto &context = *static_cast<const KipxCompareContext *>(slice->context);
    const Comparison given{context.cmpop, context.values, context.true_values,
                           context.false_values};
    Call call{};
    call.xe = xe, call.flags = flags, call.sources = sources, call.planes = 1;
    call.height = slice->extent[1], call.width = slice->extent[2], call.channels = slice->extent[3];
    for (uint32_t i = 0; i < sources; ++i) call.src[i] = slice_operand(slice->operand[i]);
    call.dst = slice_operand(slice->operand[sources]);
    call.params = &given;
    return work_compare<form, result>(call);
}

// ---- tables ----

struct MaskKernels {
    kipx_compare_kernel array;
    kipx_compareC_kernel constant;
};
struct ChoiceKernels {
    kipx_ecompare_kernel array;
    kipx_ecompareC_kernel constant;
};
#define KIPX_MASK_ROW(D, S) {_kipxa__compare_##D##S, _kipxa__compareC_##D##S},
#define KIPX_CHOICE_ROW(D, S) {_kipxa__ecompare_##D##S, _kipxa__ecompareC_##D##S},
constexpr MaskKernels mask_kernels[] = {KIPX_COMPARE_PAIRS(KIPX_MASK_ROW)};
constexpr ChoiceKernels choice_kernels[] = {KIPX_COMPARE_CHOSEN_PAIRS(KIPX_CHOICE_ROW)};

template<Result result, class Kernels, class Kernel>
Kernel table_answer(const Kernels *kernels, Kernel Kernels::*form, uint32_t dst_type,
                    uint32_t src_type, int32_t *status) {
    uint32_t pair = 0;
    int32_t code = find_compare(dst_type, src_type, result, pair);
    if (status) *status = code;
    // f32 from f32 shares its row loops with another pair and stands last.
    if (code == 0) return kernels[dst_type == KIPX_F32 ? compare_pair_count : pair].*form;
    // The procedures take no notice of their arguments, whatever shape they are called in.
    auto *procedure = code == KIPX_ENOTSUP ? kipxa_proc_enotsup : kipxa_proc_einval;
    return reinterpret_cast<Kernel>(reinterpret_cast<void *>(procedure));
}

// ---- kernels ----

// Elements of one size, and both integers or both floating.
constexpr bool same_elements(uint32_t dst_type, uint32_t src_type) {
    return element_size(dst_type) == element_size(src_type) &&
           (dst_type == KIPX_F32) == (src_type == KIPX_F32);
}

int32_t enter_kernel(const Chosen &k, KipxXE *xe, uint64_t flags, kipx_dims dims,
                     const uint32_t *extent, const Flat &dst, const Flat &src1, const Flat &src2) {
    const Flat sources[] = {src1, src2};
    Call call;
    int32_t code = flat_call(call, xe, flags, dims, extent,
                             {&dst, sources, k.form == Form::array ? 2u : 1u, {}});
    return code < 0 ? code : work_chosen(call, k);
}

} // namespace

extern "C" {

const char *kipx_cmpop_str(kipx_cmpop cmpop) {
    static const char *const texts[] = {"nul-cmpop",     nullptr,
                                        nullptr,         "equal-cmpop",
                                        "less-cmpop",    "less-or-equal-cmpop",
                                        "greater-cmpop", "greater-or-equal-cmpop"};
    const uint32_t op = operator_of(cmpop);
    return op < std::size(texts) && texts[op] ? texts[op] : "unknown-cmpop";
}

// ---- public functions, slices, array and typed levels ----

#define KIPX_MASK_OF(values) (Comparison{cmpop, values, nullptr, nullptr})
#define KIPX_CHOICE_OF(values) (Comparison{cmpop, values, true_values, false_values})

#define KIPX_LEVELS_2(op, Name, tail, record, result)                                              \
    KIPX_PUBLIC_2R(Kipx##Name, tail) {                                                             \
        const Comparison given = record(nullptr);                                                  \
        kipx_site room;                                                                            \
        const kipx_site *region = region_of(roi, roi_extent, room);                                \
        return travel(two_arrays,                                                                  \
                      {xe, flags, {dst, src1, src2}, region, {nullptr, nullptr, src2_origin}},     \
                      &given, work_compare<Form::array, result>);                                  \
    }                                                                                              \
    KIPX_SLICE(KipxTGA##op) { return slice_compare<Form::array, result>(xe, flags, slice); }
#define KIPX_LEVELS_C(op, Name, tail, record, result)                                              \
    KIPX_PUBLIC_CR(Kipx##Name, tail) {                                                             \
        const Comparison given = record(values);                                                   \
        kipx_site room;                                                                            \
        return travel(source_and_result,                                                           \
                      {xe, flags, {dst, src}, region_of(roi, roi_extent, room), {}}, &given,       \
                      work_compare<Form::constant, result>);                                       \
    }                                                                                              \
    KIPX_SLICE(KipxTGA##op) { return slice_compare<Form::constant, result>(xe, flags, slice); }

KIPX_LEVELS_2(compare, Compare, KIPX_TAIL_COMPARED, KIPX_MASK_OF, Result::mask)
KIPX_LEVELS_C(compareC, CompareC, KIPX_TAIL_COMPARED, KIPX_MASK_OF, Result::mask)
KIPX_LEVELS_2(ecompare, ECompare, KIPX_TAIL_CHOSEN, KIPX_CHOICE_OF, Result::chosen)
KIPX_LEVELS_C(ecompareC, ECompareC, KIPX_TAIL_CHOSEN, KIPX_CHOICE_OF, Result::chosen)

KIPX_STAMP_FLAT_2(compare, KIPX_TAIL_COMPARED, KIPX_MASK_OF(nullptr),
                  (work_compare<Form::array, Result::mask>))
KIPX_STAMP_FLAT_C(compareC, KIPX_TAIL_COMPARED, KIPX_MASK_OF(values),
                  (work_compare<Form::constant, Result::mask>))
KIPX_STAMP_FLAT_2(ecompare, KIPX_TAIL_CHOSEN, KIPX_CHOICE_OF(nullptr),
                  (work_compare<Form::array, Result::chosen>))
KIPX_STAMP_FLAT_C(ecompareC, KIPX_TAIL_CHOSEN, KIPX_CHOICE_OF(values),
                  (work_compare<Form::constant, Result::chosen>))

// ---- kernels and tables ----

#define KIPX_CHOSEN(D, S, form, result, values, yes, no)                                           \
    (Chosen{compare_##D##S, cmpop, same_elements(KIPX_CODE_##D, KIPX_CODE_##S), Form::form,        \
            Result::result, values, yes, no})
#define KIPX_ENTER_2(D, S, result, yes, no)                                                        \
    return enter_kernel(KIPX_CHOSEN(D, S, array, result, nullptr, yes, no), xe, flags, n, extent,  \
                        {KIPX_CODE_##D, dst, dst_strides}, {KIPX_CODE_##S, src1, src1_strides},    \
                        {KIPX_CODE_##S, src2, src2_strides})
#define KIPX_ENTER_C(D, S, result, yes, no)                                                        \
    return enter_kernel(KIPX_CHOSEN(D, S, constant, result, values, yes, no), xe, flags, n,        \
                        extent, {KIPX_CODE_##D, dst, dst_strides},                                 \
                        {KIPX_CODE_##S, src, src_strides}, {})

#define KIPX_MASK_KERNELS(D, S)                                                                    \
    int32_t _kipxa__compare_##D##S(KIPX_COMPARE_ARGUMENTS) {                                       \
        KIPX_ENTER_2(D, S, mask, nullptr, nullptr);                                                \
    }                                                                                              \
    int32_t _kipxa__compareC_##D##S(KIPX_COMPAREC_ARGUMENTS) {                                     \
        KIPX_ENTER_C(D, S, mask, nullptr, nullptr);                                                \
    }
#define KIPX_CHOICE_KERNELS(D, S)                                                                  \
    int32_t _kipxa__ecompare_##D##S(KIPX_COMPARE_ARGUMENTS KIPX_CHOICE_ARGUMENTS) {                \
        KIPX_ENTER_2(D, S, chosen, true_values, false_values);                                     \
    }                                                                                              \
    int32_t _kipxa__ecompareC_##D##S(KIPX_COMPAREC_ARGUMENTS KIPX_CHOICE_ARGUMENTS) {              \
        KIPX_ENTER_C(D, S, chosen, true_values, false_values);                                     \
    }
KIPX_COMPARE_PAIRS(KIPX_MASK_KERNELS)
KIPX_COMPARE_CHOSEN_PAIRS(KIPX_CHOICE_KERNELS)

#define KIPX_TABLE_FRONTS(D, S)                                                                    \
    int32_t __kipxa__compareC_##D##S(KIPX_COMPAREC_ARGUMENTS) {                                    \
        return _kipxa__compareC_##D##S(xe, flags, n, extent, dst, dst_strides, src, src_strides,   \
                                       values, cmpop);                                             \
    }                                                                                              \
    int32_t __kipxa__ecompareC_##D##S(KIPX_COMPAREC_ARGUMENTS KIPX_CHOICE_ARGUMENTS) {             \
        return _kipxa__ecompareC_##D##S(xe, flags, n, extent, dst, dst_strides, src, src_strides,  \
                                        values, cmpop, true_values, false_values);                 \
    }
KIPX_TABLE_FRONTS(u8, u8)
KIPX_TABLE_FRONTS(u8, s8)

kipx_compare_kernel kipxa__cmpfun_imp(uint32_t dst_type, uint32_t src_type, int32_t *status) {
    return table_answer<Result::mask>(mask_kernels, &MaskKernels::array, dst_type, src_type,
                                      status);
}
kipx_compareC_kernel kipxa__cmpcfun_imp(uint32_t dst_type, uint32_t src_type, int32_t *status) {
    return table_answer<Result::mask>(mask_kernels, &MaskKernels::constant, dst_type, src_type,
                                      status);
}
kipx_ecompare_kernel kipxa__ecmpfun_imp(uint32_t dst_type, uint32_t src_type, int32_t *status) {
    return table_answer<Result::chosen>(choice_kernels, &ChoiceKernels::array, dst_type, src_type,
                                        status);
}
kipx_ecompareC_kernel kipxa__ecmpcfun_imp(uint32_t dst_type, uint32_t src_type, int32_t *status) {
    return table_answer<Result::chosen>(choice_kernels, &ChoiceKernels::constant, dst_type,
                                        src_type, status);
}

int32_t __kipxa__swcompare(uint32_t dst_type, uint32_t src_type, KIPX_COMPARE_ARGUMENTS) {
    return kipxa__cmpfun_imp(dst_type, src_type, nullptr)(
        xe, flags, n, extent, dst, dst_strides, src1, src1_strides, src2, src2_strides, cmpop);
}
int32_t __kipxa__swcompareC(uint32_t dst_type, uint32_t src_type, KIPX_COMPAREC_ARGUMENTS) {
    return kipxa__cmpcfun_imp(dst_type, src_type, nullptr)(xe, flags, n, extent, dst, dst_strides,
                                                           src, src_strides, values, cmpop);
}
int32_t __kipxa__swecompare(uint32_t dst_type, uint32_t src_type,
                            KIPX_COMPARE_ARGUMENTS KIPX_CHOICE_ARGUMENTS) {
    return kipxa__ecmpfun_imp(dst_type, src_type, nullptr)(xe, flags, n, extent, dst, dst_strides,
                                                           src1, src1_strides, src2, src2_strides,
                                                           cmpop, true_values, false_values);
}
int32_t __kipxa__swecompareC(uint32_t dst_type, uint32_t src_type,
                             KIPX_COMPAREC_ARGUMENTS KIPX_CHOICE_ARGUMENTS) {
    return kipxa__ecmpcfun_imp(dst_type, src_type, nullptr)(xe, flags, n, extent, dst, dst_strides,
                                                            src, src_strides, values, cmpop,
                                                            true_values, false_values);
}
}
