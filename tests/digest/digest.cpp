// digest.cpp - every operation's results on generated images, as one stream of bytes.
//
// Gives    on standard output a record a call: a line "OPERATION ARGUMENTS STATUS SIZE", then SIZE
//          bytes, the destination or what was found. The argument is a value for kipx_set_simd.
// Promises the stream is a function of the library's results alone. Calls are made over the public
//          functions, refused combinations of types included; a refused call that wrote brings the
//          bytes that it should have left.
//          Left out by name: integer division by zero, which the processor answers with a fault.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <type_traits>
#include <vector>

#include <kipx/kipx.h>

#include "support/rng.h"

using kipx::test::Rng;

namespace {

struct Type {
    const char *name;
    uint32_t code, size;
    bool floating;
};
constexpr Type types[] = {{"u8", KIPX_U8, 1, false},   {"u16", KIPX_U16, 2, false},
                          {"u32", KIPX_U32, 4, false}, {"s8", KIPX_S8, 1, false},
                          {"s16", KIPX_S16, 2, false}, {"s32", KIPX_S32, 4, false},
                          {"f32", KIPX_F32, 4, true},  {"f64", KIPX_F64, 8, true}};

constexpr uint32_t height = 5, width = 83;
constexpr double numbers[4] = {3, -2.5, 200.25, 1}, wholes[4] = {3, 7, 100, 1}, zeros[4] = {},
                 others[4] = {90, 7, 255, 0};
constexpr int32_t bins[4] = {256, 100, 7, 1};

KipxXE environment;

struct Picture {
    kipx_arr arr{};
    std::vector<uint8_t> bytes;
    Picture(const Type &type, uint32_t h, uint32_t w, uint32_t channels)
        : bytes(size_t{h} * w * channels * type.size, 0xa5) {
        arr.volume[0] = 1, arr.volume[1] = h, arr.volume[2] = w, arr.volume[3] = channels;
        arr.strides[3] = type.size, arr.strides[2] = type.size * channels;
        arr.strides[1] = arr.strides[2] * w, arr.strides[0] = arr.strides[1] * h;
        arr.naxes = 3, arr.type = type.code, arr.base = bytes.data();
    }
    Picture(Picture &&) = default; // the bytes stay where they are
};

// Numbers that reach the ends of the types and numbers near zero, NaN and infinities among the real
// ones; no integer is 0 or an end of its type when it is to be divided by.
template<class T> void draw_numbers(Picture &picture, Rng &rng, bool divides) {
    for (size_t i = 0; i < picture.bytes.size() / sizeof(T); ++i) {
        const uint64_t bits = rng.next();
        T value;
        if constexpr (std::is_floating_point_v<T>) {
            value = static_cast<T>(rng.between(-40000, 40000)) / 128;
            if (bits % 4 == 0) std::memcpy(&value, &bits, sizeof value);
        } else {
            value = static_cast<T>(rng.between(-300, 300));
            if (bits % 4 == 0) std::memcpy(&value, &bits, sizeof value);
            if (divides) value = static_cast<T>(value / 2 | 1);
        }
        std::memcpy(picture.bytes.data() + i * sizeof(T), &value, sizeof value);
    }
}

Picture drawn(const Type &type, uint32_t h, uint32_t w, uint32_t channels, uint64_t seed,
              bool divides = false) {
    Picture picture(type, h, w, channels);
    Rng rng(seed);
    switch (type.code) {
#define KIPX_DRAW(CODE, T)                                                                         \
    case CODE:                                                                                     \
        draw_numbers<T>(picture, rng, divides);                                                    \
        break;
        KIPX_DRAW(KIPX_U8, uint8_t)
        KIPX_DRAW(KIPX_U16, uint16_t)
        KIPX_DRAW(KIPX_U32, uint32_t)
        KIPX_DRAW(KIPX_S8, int8_t)
        KIPX_DRAW(KIPX_S16, int16_t)
        KIPX_DRAW(KIPX_S32, int32_t)
        KIPX_DRAW(KIPX_F32, float)
        KIPX_DRAW(KIPX_F64, double)
#undef KIPX_DRAW
    }
    return picture;
}

void tell(const std::string &call, int32_t status, const void *data, size_t size) {
    std::printf("%s %d %zu\n", call.c_str(), status, size);
    std::fwrite(data, 1, size, stdout);
}

using Call = std::function<int32_t(const kipx_arr *dst)>;

void make(const std::string &name, const Type &type, uint32_t channels, const Call &call,
          uint32_t h = height, uint32_t w = width) {
    Picture dst(type, h, w, channels);
    const std::vector<uint8_t> before = dst.bytes;
    const int32_t status = call(&dst.arr);
    const bool silent = status < 0 && dst.bytes == before;
    tell(name, status, dst.bytes.data(), silent ? 0 : dst.bytes.size());
}

std::string named(const std::string &operation, std::initializer_list<const Type *> list,
                  int32_t more = 0) {
    std::string name = operation + " ";
    for (const Type *type : list) name += std::string(type->name) + ",";
    return name + std::to_string(more);
}

// ---- element by element --------------------------------------------------------------------------

void arithmetic() {
    struct Row {
        const char *name;
        decltype(&KipxAdd) arrays;
        decltype(&KipxAddC) constants;
    };
#define KIPX_ROW(op, Name, triples, code, mirror) {#op, Kipx##Name, Kipx##Name##C},
#define KIPX_SIGNED_ROW(op, Name, base, code) {#op, Kipx##Name, Kipx##Name##C},
    constexpr Row rows[] = {KIPX_BINARY_OPS(KIPX_ROW) KIPX_BINARY_SIGNED_OPS(KIPX_SIGNED_ROW)};
    for (const Row &row : rows)
        for (const Type &d : types)
            for (const Type &a : types) {
                const bool divides = std::strstr(row.name, "div");
                const Picture x = drawn(a, height, width, 3, 1, divides);
                for (int32_t scale : {0, -3, 2}) {
                    for (const Type &b : types) {
                        const Picture y = drawn(b, height, width, 3, 2, divides);
                        make(named(row.name, {&d, &a, &b}, scale), d, 3, [&](const kipx_arr *dst) {
                            return row.arrays(&environment, 0, dst, &x.arr, &y.arr, nullptr,
                                              nullptr, nullptr, scale, 0);
                        });
                    }
                    for (const double *constants : {numbers, wholes})
                        make(named(std::string(row.name) + "C", {&d, &a}, scale), d, 3,
                             [&](const kipx_arr *dst) {
                                 return row.constants(&environment, 0, dst, &x.arr, constants,
                                                      nullptr, nullptr, scale, 0);
                             });
                }
            }
}

void sums_of_products() {
    struct Row {
        const char *name;
        decltype(&KipxMulAdd) arrays;
        decltype(&KipxMulAddC) added;
        decltype(&KipxMulAddCC) both;
    };
    constexpr Row rows[] = {{"muladd", KipxMulAdd, KipxMulAddC, KipxMulAddCC},
                            {"mulsub", KipxMulSub, KipxMulSubC, KipxMulSubCC},
                            {"mulrsub", KipxMulRSub, KipxMulRSubC, KipxMulRSubCC}};
    for (const Row &row : rows)
        for (const Type &d : types)
            for (const Type &a : types) {
                const Picture x = drawn(a, height, width, 3, 3);
                for (int32_t scale : {0, -3}) {
                    for (const Type &b : types) {
                        const Picture y = drawn(b, height, width, 3, 4);
                        make(named(row.name, {&d, &a, &b}, scale), d, 3, [&](const kipx_arr *dst) {
                            return row.arrays(&environment, 0, dst, &x.arr, &y.arr, &x.arr, nullptr,
                                              nullptr, nullptr, nullptr, scale, 0);
                        });
                        make(named(std::string(row.name) + "C", {&d, &a, &b}, scale), d, 3,
                             [&](const kipx_arr *dst) {
                                 return row.added(&environment, 0, dst, &x.arr, &y.arr, numbers,
                                                  nullptr, nullptr, nullptr, scale, 0);
                             });
                    }
                    make(named(std::string(row.name) + "CC", {&d, &a}, scale), d, 3,
                         [&](const kipx_arr *dst) {
                             return row.both(&environment, 0, dst, &x.arr, numbers, others, nullptr,
                                             nullptr, scale, 0);
                         });
                }
            }
}

void logic_and_comparison() {
    struct Row {
        const char *name;
        decltype(&KipxAnd) arrays;
        decltype(&KipxAndC) constants;
    };
    constexpr Row rows[] = {
        {"and", KipxAnd, KipxAndC}, {"orr", KipxOrr, KipxOrrC}, {"xor", KipxXor, KipxXorC}};
    for (const Type &d : types)
        for (const Type &a : types) {
            const Picture x = drawn(a, height, width, 3, 5), y = drawn(a, height, width, 3, 6);
            for (const Row &row : rows) {
                make(named(row.name, {&d, &a}), d, 3, [&](const kipx_arr *dst) {
                    return row.arrays(&environment, 0, dst, &x.arr, &y.arr, nullptr, nullptr,
                                      nullptr);
                });
                make(named(std::string(row.name) + "C", {&d, &a}), d, 3, [&](const kipx_arr *dst) {
                    return row.constants(&environment, 0, dst, &x.arr, numbers, nullptr, nullptr);
                });
            }
            make(named("not", {&d, &a}), d, 3, [&](const kipx_arr *dst) {
                return KipxNot(&environment, 0, dst, &x.arr, nullptr, nullptr);
            });
            for (uint32_t op = 0; op < 16; ++op) {
                const auto name = [&](const char *form) { return named(form, {&d, &a}, int(op)); };
                make(name("compare"), d, 3, [&](const kipx_arr *dst) {
                    return KipxCompare(&environment, 0, dst, &x.arr, &y.arr, nullptr, nullptr,
                                       nullptr, op);
                });
                make(name("compareC"), d, 3, [&](const kipx_arr *dst) {
                    return KipxCompareC(&environment, 0, dst, &x.arr, numbers, nullptr, nullptr,
                                        op);
                });
                make(name("ecompare"), d, 3, [&](const kipx_arr *dst) {
                    return KipxECompare(&environment, 0, dst, &x.arr, &y.arr, nullptr, nullptr,
                                        nullptr, op, numbers, others);
                });
                make(name("ecompareC"), d, 3, [&](const kipx_arr *dst) {
                    return KipxECompareC(&environment, 0, dst, &x.arr, zeros, nullptr, nullptr, op,
                                         numbers, others);
                });
            }
        }
}

void functions_of_one() {
    struct Row {
        const char *name;
        decltype(&KipxExp) call;
    };
    constexpr Row rows[] = {
        {"negate", KipxNegate}, {"negateq", KipxNegateq}, {"exp", KipxExp}, {"ln", KipxLn}};
    constexpr double matrix[12] = {.25, .5, -1, 2, .125, .75, 1, 1, 1, -.5, 0, 3};
    for (const Type &d : types)
        for (const Type &a : types) {
            const Picture x = drawn(a, height, width, 3, 7), four = drawn(a, height, width, 4, 8);
            for (int32_t scale : {0, -2}) {
                for (const Row &row : rows)
                    make(named(row.name, {&d, &a}, scale), d, 3, [&](const kipx_arr *dst) {
                        return row.call(&environment, 0, dst, &x.arr, nullptr, nullptr, scale, 0);
                    });
                make(named("sigmoidalpha", {&d, &a}, scale), d, 3, [&](const kipx_arr *dst) {
                    return KipxSigmoidAlpha(&environment, 0, dst, &x.arr, numbers, nullptr, nullptr,
                                            scale, 0);
                });
                make(named("mulmv_n", {&d, &a}, scale), d, 3, [&](const kipx_arr *dst) {
                    return KipxMulMV_n(&environment, 0, dst, &x.arr, matrix, numbers, nullptr,
                                       nullptr, scale, 0);
                });
                make(named("mulmm", {&d, &a}, scale), d, 4, [&](const kipx_arr *dst) {
                    return KipxMulMM(&environment, 0, dst, &four.arr, &four.arr, nullptr, nullptr,
                                     nullptr, scale, 0);
                });
            }
            for (double factor : {1.0, 0.37})
                make(named("convert", {&d, &a}, factor < 1), d, 3, [&](const kipx_arr *dst) {
                    return KipxConvert(&environment, 0, dst, &x.arr, nullptr, nullptr, factor,
                                       factor < 1 ? -5.25 : 0);
                });
            make(named("vconvert", {&d, &a}), d, 3, [&](const kipx_arr *dst) {
                return KipxVConvert(&environment, 0, dst, &x.arr, nullptr, nullptr, numbers,
                                    others);
            });
        }
}

// ---- thresholds, statistics ----------------------------------------------------------------------

void values() {
    static const Type byte = types[0];
    const Picture mask = drawn(byte, height, width, 1, 9);
    constexpr kipx_vrange ranges[4] = {{0, 255}, {-100, 100}, {-3, 4}, {0, 1}};
    for (const Type &a : types) {
        const Picture x = drawn(a, height, width, 3, 10);
        const auto found = [&](const char *name, auto &&result, auto &&call) {
            const int32_t status = call(result.data());
            tell(named(name, {&a}), status, result.data(), result.size() * sizeof result[0]);
        };
        found("minmax", std::vector<kipx_vrange>(3, {7, 7}), [&](kipx_vrange *out) {
            return KipxMinmax(&environment, 0, &x.arr, &mask.arr, nullptr, nullptr, out);
        });
        found("sum", std::vector<double>(3, 7), [&](double *out) {
            return KipxSum(&environment, 0, &x.arr, &mask.arr, nullptr, nullptr, out);
        });
        found("mean", std::vector<double>(6, 7), [&](double *out) {
            return KipxMean(&environment, 0, &x.arr, &mask.arr, nullptr, nullptr, out, out + 3);
        });
        const kipx_site boxes[2] = {{{0, 0, 0, 0}, {1, 3, 40, 3}}, {{0, 2, 5, 0}, {1, 2, 70, 3}}};
        found("countrelbox", std::vector<uint64_t>(6, 7), [&](uint64_t *out) {
            return KipxCountRelBox(&environment, 0, &x.arr, nullptr, nullptr, nullptr,
                                   KIPX_CMPOP_LESS, numbers, boxes, 2, out);
        });
        kipx_histogram histograms[3] = {};
        int32_t status = __kipx_histogram__$n$xe(histograms, 3, ranges, bins, a.code, &environment);
        if (status >= 0) {
            status = KipxHistogram(&environment, 0, &x.arr, &mask.arr, nullptr, nullptr, ranges,
                                   histograms);
            for (const kipx_histogram &h : histograms) {
                tell(named("histogram", {&a}), status, h.counts, size_t(h.bins) * 4);
                const double least[2] = {kipxa_calculate_threshold_otsu_f(&h),
                                         kipxa_calculate_threshold_otsu_i(&h)};
                tell(named("otsu", {&a}), 0, least, sizeof least);
            }
            kipx_hist_fini_$n$xe(histograms, 3, &environment);
        }
        for (const Type &d : types)
            for (uint32_t method :
                 {KIPX_THH_IMMEDIATE, KIPX_THH_OTSU, KIPX_THH_USTO, KIPX_THH_BLUR}) {
                double given[4] = {3, 90, 0, 1};
                const KipxThresholdContext context = {method,  0,       given,
                                                      nullptr, nullptr, {5, 9, {0, 0}, 0}};
                make(named("threshold", {&d, &a}, int(method)), d, 3, [&](const kipx_arr *dst) {
                    return KipxThreshold(&environment, 0, dst, &x.arr, nullptr, nullptr, &context,
                                         nullptr, nullptr);
                });
            }
    }
}

// ---- copies, sizes -------------------------------------------------------------------------------

void copies() {
    const Picture mask = drawn(types[0], height, width, 3, 11);
    for (const Type &a : types) {
        const Picture x = drawn(a, height, width, 3, 12);
        make(named("fill_xm", {&a}), a, 3, [&](const kipx_arr *dst) {
            return KipxFillEx(&environment, 0, dst, &mask.arr, numbers, nullptr, nullptr);
        });
        make(named("copy_xm", {&a}), a, 3, [&](const kipx_arr *dst) {
            return KipxCopyEx(&environment, 0, dst, &x.arr, &mask.arr, nullptr, nullptr, nullptr);
        });
        for (int32_t kind = 0; kind < 8; ++kind) {
            const kipx_brparm border = {{0, -7, -30, 0}, {0, 9, 41, 0}};
            make(
                named("copymkb", {&a}, kind), a, 3,
                [&](const kipx_arr *dst) {
                    return KipxCopyMkb(&environment, 0, dst, &x.arr, nullptr, nullptr, &border,
                                       kind, numbers);
                },
                height + 16, width + 71);
        }
        for (uint32_t w : {1u, 40u, 83u, 166u, 301u})
            make(
                named("resize", {&a}, int(w)), a, 3,
                [&](const kipx_arr *dst) {
                    return KipxResize(&environment, 0, dst, &x.arr, nullptr, nullptr);
                },
                1 + w / 10, w);
    }
}

// ---- windows -------------------------------------------------------------------------------------

kipx_seshape window(int32_t h, int32_t w, int32_t row, int32_t column) {
    return {{0, row, column, 0}, {1, h, w, 1}};
}

void windows() {
    constexpr uint32_t high = 40;
    const kipx_seshape shapes[] = {window(1, 2, 0, 0), window(3, 3, 1, 1), window(5, 4, 4, 0),
                                   window(16, 31, 3, 20), window(90, 7, 45, 3)};
    std::vector<double> weights;
    for (int i = 0; i < 90; ++i) weights.push_back((i % 7 - 2) / 8.0);
    for (const Type &a : types)
        for (uint32_t channels : {1u, 3u}) {
            const Picture x = drawn(a, high, width, channels, 13);
            const auto filtered = [&](const char *name, int more, const Call &call) {
                make(named(name, {&a}, more * 10 + int(channels)), a, channels, call, high, width);
            };
            for (size_t i = 0; i < std::size(shapes); ++i) {
                const kipx_seshape &shape = shapes[i];
                for (uint32_t kind : {3, 4, 5, 6, 105, 106, 107, 108})
                    filtered("filter", int(kind * 10 + i), [&](const kipx_arr *dst) {
                        return KipxFilter(&environment, 0, &x.arr, dst, nullptr, nullptr, kind,
                                          &shape);
                    });
                for (uint64_t border : {0, 4, 5, 6, 7}) {
                    const int more = int(border * 10 + i);
                    const uint64_t flags = KIPX_FLAG_BORDER(border);
                    const kipx_sepkernel kernel = {shape,
                                                   {nullptr, weights.data(), weights.data()}};
                    filtered("sepfilter", more, [&](const kipx_arr *dst) {
                        return KipxSepFilter(&environment, flags, &x.arr, dst, nullptr, nullptr,
                                             &kernel);
                    });
                    filtered("gauss", more, [&](const kipx_arr *dst) {
                        return KipxGaussianFilter(&environment, flags, &x.arr, dst, nullptr,
                                                  nullptr, &shape, nullptr);
                    });
                }
                filtered("firefly", int(i), [&](const kipx_arr *dst) {
                    return KipxFireflyEx(&environment, 0, &x.arr, dst, nullptr, nullptr, &shape,
                                         others, others);
                });
                Picture members = drawn(types[0], uint32_t(shape.volume[1]),
                                        uint32_t(shape.volume[2]), 1, 14 + i);
                for (uint8_t &member : members.bytes) member = member % 3 ? 255 : 0;
                kipx_strel element = {};
                std::memcpy(element.anchor, shape.anchor, sizeof element.anchor);
                element.mask = members.arr;
                for (uint32_t op = 3; op < 10; ++op)
                    filtered("morphop", int(op * 10 + i), [&](const kipx_arr *dst) {
                        return KipxMorphop(&environment, 0, &x.arr, dst, nullptr, nullptr, op,
                                           &element);
                    });
            }
        }
}

// ---- regions -------------------------------------------------------------------------------------

void regions() {
    Picture scene(types[0], 120, 160, 1);
    Rng rng(15);
    for (uint32_t y = 0; y < 120; ++y)
        for (uint32_t x = 0; x < 160; ++x) {
            uint32_t value = 110 + x / 8 + y / 10;
            for (uint32_t i = 0; i < 12; ++i) {
                const int dx = int(x) - int(i * 53 % 150), dy = int(y) - int(i * 37 % 110);
                if (dx * dx + dy * dy < int(20 + i * i * 3)) value = i % 2 ? 40 + i : 220 - i;
            }
            scene.bytes[y * 160 + x] = uint8_t(value + rng.below(9));
        }
    const Picture mask = drawn(types[0], 120, 160, 1, 16);
    for (bool fast : {false, true})
        for (bool masked : {false, true})
            for (uint16_t polarity : {0, 1, 2})
                for (uint16_t eight : {0, 1}) {
                    KipxWTSFDs features[2]; // moments, and pixels in their order
                    KipxWTSMFinitFeatureDs(&features[0], nullptr);
                    KipxWTSPFinitFeatureDs(&features[1], nullptr);
                    KipxMSERContext context = {};
                    context.delta = 8, context.min_area_pixels = 30;
                    context.max_area_fraction = 0.5f, context.max_variation = 0.5f;
                    context.min_diversity = 0.2f, context.gather = 1;
                    context.polarity = polarity, context.connectivity = eight;
                    context.levelset.descriptors = features, context.levelset.count = 2;
                    const auto generate = fast ? KipxGenerateFMSERsEx : KipxGenerateMSERsEx;
                    const int32_t status =
                        generate(&environment, 0, &scene.arr, masked ? &mask.arr : nullptr, nullptr,
                                 nullptr, &context);
                    std::vector<double> list;
                    for (uint64_t i = 0; i < context.list.count; ++i) {
                        const KipxWTSregion *r = context.list.entries[i];
                        list.insert(list.end(), {double(r->level), double(r->area)});
                        if (!fast) continue;
                        const char *at = reinterpret_cast<const char *>(r);
                        const auto *m =
                            reinterpret_cast<const KipxWTSMF *>(at + features[0].state_offset);
                        const auto *p =
                            reinterpret_cast<const KipxWTSPF *>(at + features[1].state_offset);
                        list.insert(list.end(), {kipx_mf_mx(m), kipx_mf_my(m), kipx_mf_theta(m)});
                        for (uint64_t k = 0; k < p->count; ++k)
                            list.push_back(p->entries[k].row * 160.0 + p->entries[k].column);
                    }
                    tell(named(fast ? "fmser" : "mser", {}, polarity * 4 + eight * 2 + masked),
                         status, list.data(), list.size() * sizeof list[0]);
                    KipxMSERrelease(&context);
                }
}

} // namespace

int main(int count, char **arguments) {
    kipx_set_simd(count > 1 ? std::atoi(arguments[1]) : KIPX_SIMD_BEST);
    KipxXEinit(&environment, nullptr);
    arithmetic();
    sums_of_products();
    logic_and_comparison();
    functions_of_one();
    values();
    copies();
    windows();
    regions();
    KipxXEfini(&environment);
}
