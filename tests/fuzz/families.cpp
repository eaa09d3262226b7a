// families.cpp - the operations on arrays: bytes choose one of the family and its arguments.
#include <cmath>

#include "fuzz/regions.h"
#include "fuzz/targets.h"
#include "fuzz/trial.h"

namespace kipx::fuzz {

namespace {

template<class Function> struct Row {
    const char *name;
    Function call;
};

void two_arrays(Trial &t, const Row<decltype(&KipxAdd)> &row) {
    t.run(row.name, [&](KipxXE *xe) {
        return row.call(xe, t.flags, t.dst, t.src[0], t.src[1], t.roi, t.at[0], t.at[1], t.scale,
                        t.aux);
    });
}
void array_and_numbers(Trial &t, const Row<decltype(&KipxAddC)> &row, Values values) {
    const double *numbers = t.numbers(values);
    t.run(row.name, [&](KipxXE *xe) {
        return row.call(xe, t.flags, t.dst, t.src[0], numbers, t.roi, t.at[0], t.scale, t.aux);
    });
}

void arithmetic(const uint8_t *data, size_t size, Values values, bool divides) {
#define ROW(op, Name, ...) {"Kipx" #Name, Kipx##Name},
#define ROW_C(op, Name, ...) {"Kipx" #Name "C", Kipx##Name##C},
    static constexpr Row<decltype(&KipxAdd)> arrays[] = {KIPX_BINARY_OPS(ROW)
                                                             KIPX_BINARY_SIGNED_OPS(ROW)};
    static constexpr Row<decltype(&KipxAddC)> constants[] = {KIPX_BINARY_OPS(ROW_C)
                                                                 KIPX_BINARY_SIGNED_OPS(ROW_C)};
    Trial t(data, size, values);
    const uint32_t k = t.bytes.below(uint32_t(std::size(arrays)));
    if (std::strstr(arrays[k].name, "Div") && !divides) return;
    if (t.bytes.one_in(2))
        two_arrays(t, arrays[k]);
    else
        array_and_numbers(t, constants[k], values);
}
void sums(const uint8_t *data, size_t size) { arithmetic(data, size, Values::any, false); }
void quotients(const uint8_t *data, size_t size) { arithmetic(data, size, Values::divisors, true); }

void products(const uint8_t *data, size_t size) {
    Trial t(data, size);
    static constexpr Row<decltype(&KipxMulAdd)> arrays[] = {
        {"KipxMulAdd", KipxMulAdd}, {"KipxMulSub", KipxMulSub}, {"KipxMulRSub", KipxMulRSub}};
    static constexpr Row<decltype(&KipxMulAddC)> one[] = {
        {"KipxMulAddC", KipxMulAddC}, {"KipxMulSubC", KipxMulSubC}, {"KipxMulRSubC", KipxMulRSubC}};
    static constexpr Row<decltype(&KipxMulAddCC)> both[] = {{"KipxMulAddCC", KipxMulAddCC},
                                                            {"KipxMulSubCC", KipxMulSubCC},
                                                            {"KipxMulRSubCC", KipxMulRSubCC}};
    const uint32_t k = t.bytes.below(3), form = t.bytes.below(5);
    const double *a = t.numbers(), *b = t.numbers();
    if (form >= 3) t.take_all_channels();
    if (form == 3 && k) t.roi = nullptr; // it would count matrices of the destination
    if (form == 0)
        t.run(arrays[k].name, [&](KipxXE *xe) {
            return arrays[k].call(xe, t.flags, t.dst, t.src[0], t.src[1], t.src[2], t.roi, t.at[0],
                                  t.at[1], t.at[2], t.scale, t.aux);
        });
    else if (form == 1)
        t.run(one[k].name, [&](KipxXE *xe) {
            return one[k].call(xe, t.flags, t.dst, t.src[0], t.src[1], a, t.roi, t.at[0], t.at[1],
                               t.scale, t.aux);
        });
    else if (form == 2)
        t.run(both[k].name, [&](KipxXE *xe) {
            return both[k].call(xe, t.flags, t.dst, t.src[0], a, b, t.roi, t.at[0], t.scale, t.aux);
        });
    else if (form == 3)
        t.run("KipxMulMM, KipxMulMV", [&](KipxXE *xe) {
            return k ? KipxMulMM(xe, t.flags, t.dst, t.src[0], t.src[1], t.roi, t.at[0], t.at[1],
                                 t.scale, uint32_t(t.aux))
                     : KipxMulMV(xe, t.flags, t.dst, t.src[0], t.src[1], t.roi, t.at[0], t.at[1],
                                 t.scale, t.aux);
        });
    else
        t.run("KipxMulMV_n", [&](KipxXE *xe) {
            return KipxMulMV_n(xe, t.flags, t.dst, t.src[0], a, b, t.roi, t.at[0], t.scale, t.aux);
        });
}

void logic_and_functions(const uint8_t *data, size_t size) {
    Trial t(data, size);
    static constexpr Row<decltype(&KipxAnd)> arrays[] = {
        {"KipxAnd", KipxAnd}, {"KipxOrr", KipxOrr}, {"KipxXor", KipxXor}};
    static constexpr Row<decltype(&KipxAndC)> constants[] = {
        {"KipxAndC", KipxAndC}, {"KipxOrrC", KipxOrrC}, {"KipxXorC", KipxXorC}};
    static constexpr Row<decltype(&KipxExp)> functions[] = {{"KipxNegate", KipxNegate},
                                                            {"KipxNegateq", KipxNegateq},
                                                            {"KipxExp", KipxExp},
                                                            {"KipxLn", KipxLn}};
    const uint32_t form = t.bytes.below(5), k = t.bytes.below(form < 2 ? 3 : 4);
    const double *numbers = t.numbers();
    if (form == 0)
        t.run(arrays[k].name, [&](KipxXE *xe) {
            return arrays[k].call(xe, t.flags, t.dst, t.src[0], t.src[1], t.roi, t.at[0], t.at[1]);
        });
    else if (form == 1)
        t.run(constants[k].name, [&](KipxXE *xe) {
            return constants[k].call(xe, t.flags, t.dst, t.src[0], numbers, t.roi, t.at[0]);
        });
    else if (form == 2)
        t.run("KipxNot",
              [&](KipxXE *xe) { return KipxNot(xe, t.flags, t.dst, t.src[0], t.roi, t.at[0]); });
    else if (form == 3)
        array_and_numbers(t, {"KipxSigmoidAlpha", KipxSigmoidAlpha}, Values::any);
    else
        t.run(functions[k].name, [&](KipxXE *xe) {
            return functions[k].call(xe, t.flags, t.dst, t.src[0], t.roi, t.at[0], t.scale, t.aux);
        });
}

// A number for each channel, none, or the mark that stands for the source's element.
const double *choice(Trial &t) {
    const uint32_t mark = t.bytes.below(18);
    return mark < 16 ? t.numbers() : reinterpret_cast<const double *>(uintptr_t{mark - 16});
}

void comparisons(const uint8_t *data, size_t size) {
    Trial t(data, size);
    const uint32_t op = t.bytes.one_in(16) ? t.bytes.number() : t.bytes.below(10),
                   form = t.bytes.below(4);
    const double *values = t.numbers(), *yes = choice(t), *no = choice(t);
    t.run("KipxCompare and its forms", [&](KipxXE *xe) {
        switch (form) {
        case 0:
            return KipxCompare(xe, t.flags, t.dst, t.src[0], t.src[1], t.roi, nullptr, t.at[1], op);
        case 1:
            return KipxCompareC(xe, t.flags, t.dst, t.src[0], values, t.roi, nullptr, op);
        case 2:
            return KipxECompare(xe, t.flags, t.dst, t.src[0], t.src[1], t.roi, nullptr, t.at[1], op,
                                yes, no);
        default:
            return KipxECompareC(xe, t.flags, t.dst, t.src[0], values, t.roi, nullptr, op, yes, no);
        }
    });
}

void thresholds(const uint8_t *data, size_t size) {
    Trial t(data, size);
    KipxThresholdContext context{};
    context.method = t.bytes.one_in(16) ? t.bytes.number() : t.bytes.below(6);
    context.cmpop = t.bytes.one_in(2) ? 0 : t.bytes.below(10);
    const double *given = t.numbers(), *yes = choice(t), *no = choice(t), *ends = t.numbers();
    kipx_vrange ranges[16];
    int32_t bins[16];
    for (int i = 0; i < 16; ++i) {
        ranges[i] = {ends ? ends[i] : 0, ends ? ends[(i + 1) % 16] : 255};
        bins[i] = int32_t(t.bytes.below(700)) - 2;
    }
    if (t.bytes.one_in(2)) context.ranges = ranges;
    if (t.bytes.one_in(2)) context.bins = bins;
    context.local.height = t.bytes.below(12), context.local.width = t.bytes.below(12);
    if (t.bytes.one_in(16)) context.local.width = t.bytes.number();
    const bool found = t.bytes.one_in(4);
    t.run("KipxThreshold, KipxComputeThresholdByOtsu", [&](KipxXE *xe) {
        auto *results = t.out<double>();
        if (found)
            return KipxComputeThresholdByOtsu(xe, t.flags, t.src[0], t.roi, nullptr, results,
                                              context.ranges, context.bins);
        KipxThresholdContext one = context;
        const bool finds =
            (context.method & 15) == KIPX_THH_OTSU || (context.method & 15) == KIPX_THH_USTO;
        one.thresholds = finds ? results : const_cast<double *>(given);
        return KipxThreshold(xe, t.flags, t.dst, t.src[0], t.roi, nullptr, &one, yes, no);
    });
}

void conversions(const uint8_t *data, size_t size) {
    Trial t(data, size);
    const double *a = t.numbers(), *b = t.numbers();
    const kipx_seshape lower = t.window(), upper = t.window();
    kipx_brparm border{};
    for (int axis = 0; axis < 4; ++axis)
        border.lower[axis] = int32_t(0u - uint32_t(lower.volume[axis])),
        border.upper[axis] = upper.volume[axis];
    const auto kind = int32_t(t.bytes.one_in(16) ? t.bytes.number() : t.bytes.below(9));
    const uint32_t form = t.bytes.below(10);
    const kipx_brparm *sides = form == 9 ? nullptr : &border;
    t.run("KipxFill, KipxCopy, KipxConvert, KipxResize and their forms", [&](KipxXE *xe) {
        switch (form) {
        case 0:
            return KipxFill(xe, t.flags, t.dst, a, t.roi);
        case 1:
            return KipxFillEx(xe, t.flags, t.dst, t.mask, a, t.roi, t.at[3]);
        case 2:
            return KipxCopy(xe, t.flags, t.dst, t.src[0], t.roi, t.at[0]);
        case 3:
            return KipxCopyEx(xe, t.flags, t.dst, t.src[0], t.mask, t.roi, t.at[0], t.at[3]);
        case 4:
            return KipxConvert(xe, t.flags, t.dst, t.src[0], t.roi, t.at[0], a ? a[0] : 1,
                               b ? b[0] : 0);
        case 5:
            return KipxVConvert(xe, t.flags, t.dst, t.src[0], t.roi, t.at[0], a, b);
        case 6:
            return KipxResize(xe, t.flags, t.dst, t.src[0], t.roi, nullptr);
        case 7:
            return KipxEResize(xe, t.flags, t.dst, t.src[0], t.mask, t.roi, t.roi, t.at[3]);
        case 8:
            return KipxCopyRMkb(xe, t.flags, t.dst, t.src[0], t.roi, t.at[0], &border, kind, a);
        default:
            return KipxCopyMkb(xe, t.flags, t.dst, t.src[0], t.roi, t.at[0], sides, kind, a);
        }
    });
}

void statistics(const uint8_t *data, size_t size) {
    Trial t(data, size);
    const uint32_t form = t.bytes.below(5), boxes = t.bytes.below(4);
    const auto relation = int32_t(t.bytes.one_in(16) ? t.bytes.number() : t.bytes.below(10));
    const double *values = t.numbers();
    kipx_site box[4]{};
    for (kipx_site &one : box)
        for (int axis = 0; axis < 4; ++axis)
            one.origin[axis] = t.bytes.one_in(12) ? t.bytes.number() : t.bytes.below(9) - 2,
            one.extent[axis] = t.bytes.one_in(12) ? t.bytes.number() : t.bytes.below(20);
    static uint32_t counts[16][64];
    t.run("KipxMinmax, KipxSum, KipxMean, KipxCountRelBox, KipxHistogram", [&](KipxXE *xe) {
        switch (form) {
        case 0:
            return KipxMinmax(xe, t.flags, t.src[0], t.mask, t.roi, t.at[3], t.out<kipx_vrange>());
        case 1:
            return KipxSum(xe, t.flags, t.src[0], t.mask, t.roi, t.at[3], t.out<double>());
        case 2:
            return KipxMean(xe, t.flags, t.src[0], t.mask, t.roi, t.at[3], t.out<double>(),
                            t.out<double>() + 16);
        case 3:
            return KipxCountRelBox(xe, t.flags, t.src[0], t.mask, t.roi, t.at[3], relation, values,
                                   boxes ? box : nullptr, boxes ? boxes : 1, t.out<uint64_t>());
        default:
            kipx_histogram histograms[16];
            std::memset(counts, 0, sizeof counts);
            for (int i = 0; i < 16; ++i)
                histograms[i] = {values ? float(values[i]) : 0, 1.5f, int32_t(boxes), 64,
                                 counts[i]};
            const int32_t code =
                KipxHistogram(xe, t.flags, t.src[0], t.mask, t.roi, t.at[3], nullptr, histograms);
            t.tell(counts);
            return code;
        }
    });
}

void windows(const uint8_t *data, size_t size) {
    Trial t(data, size);
    const kipx_seshape shape = t.window(), *given = t.bytes.one_in(12) ? nullptr : &shape;
    const double *a = t.numbers(), *b = t.numbers();
    const uint32_t form = t.bytes.below(6);
    static constexpr uint32_t kinds[] = {0, 3, 4, 5, 6, 105, 106, 107, 108, 109};
    const uint32_t kind = t.bytes.one_in(16) ? t.bytes.number() : t.bytes.pick(kinds);
    const uint64_t flags = t.flags | KIPX_FLAG_BORDER(t.bytes.below(9));
    static double weights[2][64];
    for (auto &list : weights)
        for (double &weight : list) weight = t.bytes.below(9) / 8.0 - 0.5;
    kipx_sepkernel kernel = {shape, {weights[0], weights[0], weights[1]}};
    static uint8_t members[16][16];
    for (auto &row : members)
        for (uint8_t &member : row) member = t.bytes.one_in(3) ? 0 : 255;
    for (int axis = 1; axis < 3; ++axis) { // as many weights and members as there are
        if (kernel.shape.volume[axis] > 15) kernel.shape.volume[axis] = 15;
    }
    kipx_strel element{};
    std::memcpy(element.anchor, kernel.shape.anchor, sizeof element.anchor);
    const auto side = [&](int axis) { return uint32_t(kernel.shape.volume[axis]); };
    element.mask = {{1, side(1), side(2), 1}, {}, {256, 16, 1, 1}, 3, 0, KIPX_U8, 0, 0, members};
    const uint32_t op = t.bytes.one_in(16) ? t.bytes.number() : t.bytes.below(11);
    t.run("KipxFilter, KipxSepFilter, KipxGaussianFilter, KipxFirefly, KipxMorphop",
          [&](KipxXE *xe) {
              switch (form) {
              case 0:
                  return KipxFilter(xe, flags, t.src[0], t.dst, t.mask, t.roi, kind, given);
              case 1:
                  return KipxSepFilter(xe, flags, t.src[0], t.dst, t.mask, t.roi, &kernel);
              case 2:
                  return KipxGaussianFilter(xe, flags, t.src[0], t.dst, t.mask, t.roi, given, a);
              case 3:
                  return KipxFirefly(xe, flags, t.src[0], t.dst, t.roi, given, a ? a[0] : 5);
              case 4:
                  return KipxFireflyEx(xe, flags, t.src[0], t.dst, t.mask, t.roi, given, a, b);
              default:
                  return KipxMorphop(xe, flags, t.src[0], t.dst, t.mask, t.roi, op,
                                     given ? &element : nullptr);
              }
          });
}

} // namespace

std::span<const Target> targets() {
    static constexpr Target list[] = {
        {"sums", sums},
        {"quotients", quotients},
        {"products", products},
        {"logic", logic_and_functions},
        {"comparisons", comparisons},
        {"thresholds", thresholds},
        {"conversions", conversions},
        {"statistics", statistics},
        {"windows", windows},
        {"floods", floods},
        {"stable", stable_regions},
        {"storage", storage},
        {"sorting", sorting},
    };
    return list;
}

} // namespace kipx::fuzz
