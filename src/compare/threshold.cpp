// compare/threshold.cpp - thresholds applied: one or two of them, for all elements or for each.
//
// Gives    what kipx/threshold.h declares but for finding Otsu's threshold.
// Costs    one threshold for all elements is a comparison with a constant. Two, and those of
//          neighbourhoods, are decided row by row in scratch, which then chooses what is written.
#include <kipx/convert.h>
#include <kipx/threshold.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "compare/compare_rows.h"
#include "compare/local.h"
#include "compare/otsu.h"
#include "compare/roi.h"
#include "compare/tables.h"
#include "compare/typed_compare.h"
#include "core/planes.h"
#include "core/stamp.h"

namespace kipx {
namespace {

constexpr uint32_t most_channels = 4;

enum class Origin { given, found, local };

// A threshold as any of the functions is given it.
struct Thresholding {
    Origin origin;
    const double *thresholds[2]; // where they are given
    OtsuGiven otsu;              // where they are found; thresholds may be null
    LocalRule rule;              // how many comparisons, their operators; neighbourhoods
    const double *true_values, *false_values;
};

bool orders(kipx_cmpop cmpop) {
    return operator_of(cmpop) >= KIPX_CMPOP_LESS &&
           operator_of(cmpop) <= KIPX_CMPOP_GREATER_OR_EQUAL;
}

// ---- a number as an element --------------------------------------------------------------------

// A comparison with an element that holds for the same elements as one with a number does.
struct Bound {
    kipx_cmpop cmpop;
    double value; // an element of the source's type
};

// The elements that lie above t are those above the greatest element that does not, and so on.
Bound f32_bound(kipx_cmpop cmpop, double t, bool downwards) {
    constexpr double most = std::numeric_limits<float>::max();
    if (std::isnan(t) || std::isinf(t)) return {cmpop, t};
    float value = static_cast<float>(std::fmin(std::fmax(t, -most), most));
    constexpr float infinity = std::numeric_limits<float>::infinity();
    if (downwards && static_cast<double>(value) > t) value = std::nextafter(value, -infinity);
    if (!downwards && static_cast<double>(value) < t) value = std::nextafter(value, infinity);
    return {cmpop, static_cast<double>(value)};
}

Bound bound_of(uint32_t type, kipx_cmpop cmpop, double t) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    const uint32_t op = operator_of(cmpop);
    const bool downwards = op == KIPX_CMPOP_GREATER || op == KIPX_CMPOP_LESS_OR_EQUAL;
    if (type == KIPX_F32) return f32_bound(cmpop, t, downwards);
    kipx_vrange held{-infinity, infinity};
    kipx_vrng_saturate(&held, type);
    const Bound all{KIPX_CMPOP_GREATER_OR_EQUAL, held.low}, none{KIPX_CMPOP_LESS, held.low};
    if (std::isnan(t)) return none;
    if (downwards && t < held.low) return op == KIPX_CMPOP_GREATER ? all : none;
    if (!downwards && t > held.high) return op == KIPX_CMPOP_LESS ? all : none;
    return {cmpop,
            downwards ? std::fmin(std::floor(t), held.high) : std::fmax(std::ceil(t), held.low)};
}

const void *shifted(const void *values, size_t bytes) {
    return is_address(values) ? static_cast<const char *>(values) + bytes : values;
}

// Channels of one operator together, others each by itself. k: but for its operator and values.
void compare_with(const Call &call, Chosen k, kipx_cmpop cmpop, const double *thresholds) {
    Bound bounds[most_channels] = {};
    double numbers[most_channels] = {};
    alignas(16) char values[16];
    bool alike = true;
    for (uint32_t c = 0; c < call.channels; ++c) {
        bounds[c] = bound_of(call.src[0].type, cmpop, thresholds[c]);
        numbers[c] = bounds[c].value;
        alike &= bounds[c].cmpop == bounds[0].cmpop;
    }
    kipx_mkifillvalv16(values, call.src[0].type, numbers, call.channels);
    Call c = call;
    if (alike) {
        k.cmpop = bounds[0].cmpop, k.values = values;
        work_chosen(c, k);
        return;
    }
    for (uint32_t i = 0; i < call.channels; ++i) {
        c = call, c.channels = 1;
        c.src[0].at += i * c.src[0].channel, c.dst.at += i * c.dst.channel;
        Chosen one = k;
        one.cmpop = bounds[i].cmpop, one.values = values + i * c.src[0].size;
        one.true_values = shifted(k.true_values, i * c.dst.size);
        one.false_values = shifted(k.false_values, i * c.dst.size);
        work_chosen(c, one);
    }
}

// ---- row by row --------------------------------------------------------------------------------

// The kernel of a destination of the same size from bytes.
uint32_t pair_from_bytes(uint32_t dst_type) {
    uint32_t pair = compare_s32u8; // f32 goes by its bits
    if (dst_type != KIPX_F32) find_compare(dst_type, KIPX_U8, Result::mask, pair);
    return pair;
}

// Writes a row by what passes.
void deliver(const Call &row, const Chosen &k, const Operand &passes) {
    static constexpr uint8_t zeros[most_channels] = {};
    Call c = row;
    c.src[0] = passes;
    Chosen by_passes = k;
    by_passes.pair = pair_from_bytes(c.dst.type), by_passes.values = zeros;
    compare(c, by_passes, row.src[0]);
}

Call row_of(const Call &plane, uint32_t y) {
    Call row = plane;
    row.height = 1, row.src[0].at += y * row.src[0].row, row.dst.at += y * row.dst.row;
    return row;
}

int32_t mark_band(const Call &plane, const Chosen &k, const Thresholding &t, char *scratch) {
    const uint64_t length = uint64_t{plane.width} * plane.channels;
    Operand passes[2];
    for (uint32_t i = 0; i < 2; ++i)
        passes[i] = {scratch + i * length, 0, length, plane.channels, 1, KIPX_U8, 1, 0, 0};
    Chosen mask{0, 0, false, Form::constant, Result::mask, nullptr, nullptr, nullptr};
    find_compare(KIPX_U8, plane.src[0].type, Result::mask, mask.pair);
    for (uint32_t y = 0; y < plane.height; ++y) {
        const Call row = row_of(plane, y);
        for (uint32_t i = 0; i < 2; ++i) {
            Call part = row;
            part.dst = passes[i];
            compare_with(part, mask, t.rule.cmpop[i], t.thresholds[i]);
        }
        for (uint64_t x = 0; x < length; ++x) passes[0].at[x] &= passes[1].at[x];
        deliver(row, k, passes[0]);
    }
    return 0;
}

int32_t mark_local(const Call &plane, const Chosen &k, const Thresholding &t, char *scratch) {
    LocalSums sums(plane, t.rule, active_set(plane.flags), scratch);
    char *at = scratch + LocalSums::scratch_bytes(plane);
    const Operand passes{at, 0, 0, 1, plane.width, KIPX_U8, 1, 0, 0};
    // What passes is the mask itself.
    const bool lies_there = k.result == Result::mask && plane.channels == 1 &&
                            plane.dst.size == 1 && plane.dst.pixel == 1;
    for (uint32_t y = 0; y < plane.height; ++y) {
        const Call row = row_of(plane, y);
        sums.next_row(reinterpret_cast<uint8_t *>(lies_there ? row.dst.at : at));
        if (!lies_there) deliver(row, k, passes);
    }
    return 0;
}

int32_t mark_rows(const Call &c, const Chosen &k, const Thresholding &t) {
    const bool local = t.origin == Origin::local;
    const uint64_t length = uint64_t{c.width} * c.channels;
    const uint64_t bytes = local ? LocalSums::scratch_bytes(c) + length : 2 * length;
    auto *scratch = static_cast<char *>(KipxXEalloca(c.xe, bytes, 64));
    if (!scratch) return KIPX_ENOMEM;
    int32_t code = each_plane(c, [&](const Call &plane) {
        return local ? mark_local(plane, k, t, scratch) : mark_band(plane, k, t, scratch);
    });
    KipxXEfreea(c.xe, scratch);
    return code;
}

// ---- the worker --------------------------------------------------------------------------------

int32_t mark_found(const Call &c, const Chosen &k, const Thresholding &t, kipx_cmpop cmpop) {
    double found[most_channels] = {};
    OtsuGiven otsu = t.otsu;
    otsu.thresholds = found;
    if (int32_t code = find_otsu(c, otsu)) return code;
    if (t.otsu.thresholds) std::memcpy(t.otsu.thresholds, found, c.channels * sizeof *found);
    compare_with(c, k, cmpop, found);
    return 0;
}

// What is wrong with what is given besides arrays and values, for types that have a kernel.
int32_t admit_rule(const Call &c, const Thresholding &t) {
    if (t.origin == Origin::local)
        if (int32_t code = admit_local(t.rule, c.src[0].type)) return code;
    if (t.origin == Origin::found)
        if (int32_t code = admit_otsu(c)) return code;
    if (c.channels < 1 || c.channels > most_channels) return KIPX_EINVAL;
    for (uint32_t i = 0; i < t.rule.count; ++i)
        if (!orders(t.rule.cmpop[i]) || (t.origin == Origin::given && !is_address(t.thresholds[i])))
            return KIPX_EINVAL;
    const bool plain = t.origin == Origin::given && t.rule.count == 1;
    if (!plain && !c.xe) return KIPX_EINVAL;
    return t.origin == Origin::local && c.dst.at && c.dst.at == c.src[0].at ? KIPX_EINVAL : 0;
}

int32_t work_threshold(Call &c) {
    const auto &t = *static_cast<const Thresholding *>(c.params);
    c.flags &= ~uint64_t{0xf0}; // no channel is left out
    const bool masks = !t.true_values && !t.false_values;
    Chosen k{};
    k.result = masks ? Result::mask : Result::chosen, k.form = Form::constant;
    k.same_elements = c.dst.type == c.src[0].type;
    if (int32_t code = find_compare(c.dst.type, c.src[0].type, k.result, k.pair)) return code;
    if (int32_t code = admit_rule(c, t)) return code;
    const bool by_rows = t.origin == Origin::local || t.rule.count > 1;
    k.cmpop = t.rule.cmpop[0];
    if (by_rows) k.cmpop = KIPX_CMPOP_NOT_EQUAL;
    Vectors room;
    if (!masks) {
        const Comparison values{k.cmpop, nullptr, t.true_values, t.false_values};
        if (int32_t code = settle_result(values, c, k, room)) return code;
        // The marker for the source's element was judged there; others are none.
        if (k.result == Result::chosen && !is_address(k.false_values) &&
            marker_of(k.false_values) > source_value)
            return KIPX_EINVAL;
    }
    if (no_work_asked(c)) return no_work_answer(c);
    if (c.height == 0 || c.width == 0) return 0;
    if (!c.dst.at || !c.src[0].at) return KIPX_EINVAL;
    if (by_rows) return mark_rows(c, k, t);
    if (t.origin == Origin::found) return mark_found(c, k, t, k.cmpop);
    compare_with(c, k, k.cmpop, t.thresholds[0]);
    return 0;
}

// ---- from the arguments to the record ----------------------------------------------------------

Thresholding two_given(const double *first, kipx_cmpop cmpop, const double *second,
                       kipx_cmpop cmpop2, uint32_t count) {
    Thresholding t{};
    t.origin = Origin::given, t.thresholds[0] = first, t.thresholds[1] = second;
    t.rule.count = count, t.rule.cmpop[0] = cmpop, t.rule.cmpop[1] = cmpop2;
    return t;
}

Thresholding from_local(const kipx_thhlocal *local, kipx_cmpop cmpop, kipx_cmpop cmpop2,
                        uint32_t count) {
    Thresholding t{};
    t.origin = Origin::local;
    if (local) t.rule.local = *local; // without one it has no elements, and is refused
    t.rule.formula = t.rule.local.range > 0 ? Formula::relative_deviation : Formula::deviation;
    t.rule.count = count, t.rule.cmpop[0] = cmpop, t.rule.cmpop[1] = cmpop2;
    return t;
}

// False for a method that there is not.
bool from_context(const KipxThresholdContext *context, kipx_thhmethod method, Thresholding &t) {
    if (!context) return false;
    const KipxThresholdContext &x = *context;
    kipx_cmpop cmpop = x.cmpop;
    if (operator_of(cmpop) == KIPX_CMPOP_NONE) cmpop = KIPX_CMPOP_GREATER;
    switch (method & 15) {
    case KIPX_THH_IMMEDIATE:
        t = two_given(x.thresholds, cmpop, nullptr, 0, 1);
        return true;
    case KIPX_THH_OTSU:
    case KIPX_THH_USTO:
        t = two_given(nullptr, (method & 15) == KIPX_THH_OTSU ? cmpop : negated(cmpop), nullptr, 0,
                      1);
        t.origin = Origin::found, t.otsu = {x.thresholds, x.ranges, x.bins};
        return true;
    case KIPX_THH_BLUR:
        t = from_local(&x.local, cmpop, 0, 1);
        t.rule.formula = Formula::mean, t.rule.offsets = x.thresholds;
        return true;
    default:
        return false;
    }
}

} // namespace
} // namespace kipx

using namespace kipx;

extern "C" {

const char *kipx_thhmethod_str(kipx_thhmethod method) {
    switch (method & 15) {
    case KIPX_THH_IMMEDIATE:
        return "null(immediate)-threshold-method";
    case KIPX_THH_OTSU:
        return "otsu-threshold-method";
    case KIPX_THH_USTO:
        return "usto-threshold-method";
    case KIPX_THH_BLUR:
        return "blur-threshold-method";
    default:
        return "unknown-threshold-method";
    }
}

int32_t KipxThreshold(KipxXE *xe, uint64_t flags, const kipx_arr *dst, const kipx_arr *src,
                      const void *roi, const uint32_t *roi_extent,
                      const KipxThresholdContext *context, const double *true_values,
                      const double *false_values) {
    Thresholding t;
    if (!from_context(context, context ? context->method : 0, t)) return KIPX_EINVAL;
    t.true_values = true_values, t.false_values = false_values;
    kipx_site room;
    return travel(source_and_result, {xe, flags, {dst, src}, region_of(roi, roi_extent, room), {}},
                  &t, work_threshold);
}

// The flat operands of an array level into a Call; the expression is what is done.
#define KIPX_ARRAY_THRESHOLD(name, tail, record)                                                   \
    KIPX_ARRAY_1(name, KIPX_UNPACK tail) {                                                         \
        const Flat result{dst_type, start_of(dims, dst, dst_origin, dst_strides), dst_strides};    \
        const Flat source{src_type, start_of(dims, src, src_origin, src_strides), src_strides};    \
        Thresholding t{};                                                                          \
        if (!(record)) return KIPX_EINVAL;                                                         \
        KIPX_MARKS;                                                                                \
        Call call;                                                                                 \
        int32_t code = flat_call(call, xe, flags, dims, extent, {&result, &source, 1, {}});        \
        if (code < 0) return code;                                                                 \
        call.params = &t;                                                                          \
        return work_threshold(call);                                                               \
    }

#define KIPX_MARKS
KIPX_ARRAY_THRESHOLD(kipxa_threshold, (KIPX_TAIL_METHOD),
                     from_context(context, context ? context->method : 0, t))
#undef KIPX_MARKS
#define KIPX_MARKS t.true_values = true_values, t.false_values = false_values
KIPX_ARRAY_THRESHOLD(kipxa_ethreshold, (KIPX_TAIL_METHOD KIPX_TAIL_MARKED),
                     from_context(context, context ? context->method : 0, t))
KIPX_ARRAY_THRESHOLD(kipxa_ethreshold_otsu, (KIPX_TAIL_METHOD KIPX_TAIL_MARKED),
                     from_context(context, KIPX_THH_OTSU, t))
KIPX_ARRAY_THRESHOLD(kipxa_ethreshold_usto, (KIPX_TAIL_METHOD KIPX_TAIL_MARKED),
                     from_context(context, KIPX_THH_USTO, t))
KIPX_ARRAY_THRESHOLD(kipxa_ethreshold_blur, (KIPX_TAIL_METHOD KIPX_TAIL_MARKED),
                     from_context(context, KIPX_THH_BLUR, t))
KIPX_ARRAY_THRESHOLD(kipxa_sheer_threshold_n1,
                     (, const double *thresholds, kipx_cmpop cmpop KIPX_TAIL_MARKED),
                     (t = two_given(thresholds, cmpop, nullptr, 0, 1), true))
KIPX_ARRAY_THRESHOLD(kipxa_sheer_threshold_n2,
                     (, const double *thresholds, kipx_cmpop cmpop, const double *thresholds2,
                      kipx_cmpop cmpop2 KIPX_TAIL_MARKED),
                     (t = two_given(thresholds, cmpop, thresholds2, cmpop2, 2), true))
KIPX_ARRAY_THRESHOLD(kipxa_adaptive_threshold_n1,
                     (, const kipx_thhlocal *local, kipx_cmpop cmpop KIPX_TAIL_MARKED),
                     (t = from_local(local, cmpop, 0, 1), true))
KIPX_ARRAY_THRESHOLD(kipxa_adaptive_threshold_n2,
                     (, const kipx_thhlocal *local, kipx_cmpop cmpop,
                      kipx_cmpop cmpop2 KIPX_TAIL_MARKED),
                     (t = from_local(local, cmpop, cmpop2, 2), true))
}
