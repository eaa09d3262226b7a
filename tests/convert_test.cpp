// Copying, filling and converting: what the tests of every element-wise operation do not reach -
// arrays across each other, planes, refusals, and the values themselves.
#include <kipx/array.h>
#include <kipx/convert.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include <gtest/gtest.h>

#include "support/conformance.h"
#include "support/environment.h"
#include "support/guarded.h"

using namespace kipx::test;

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double nan_value = std::numeric_limits<double>::quiet_NaN();

constexpr uint32_t sized_types[] = {1, 2, 3, 4, 9, 10, 11, 12, 13, 14};
constexpr uint32_t size_of_code[] = {0, 1, 2, 4, 8, 4, 8, 0};

// ---- every layout, place, mask and set ---------------------------------------------------------

using A = const Arguments &;
using F = const FlatArguments &;

std::vector<Types> of_one_type() {
    std::vector<Types> all;
    for (uint32_t type : sized_types) all.push_back({type, type});
    return all;
}

// What the four have in common.
Operation described(const char *name, uint32_t sources, bool mask,
                    std::function<int32_t(Level, A, F)> call) {
    Operation o;
    o.name = name, o.sources = sources, o.has_mask = mask, o.has_values = sources == 0;
    o.null_in_place = false, o.types = of_one_type(), o.call = std::move(call);
    o.model = [](A a, uint32_t channel, const uint64_t *bits) {
        return a.src[0] ? bits[0] : bits_of(a.types[0], a.values[channel]);
    };
    return o;
}

const Operation copy_and_fill[] = {
    described("Copy", 1, false, Levels1<>{KipxCopy, kipxa_copy, kipxa__copy}),
    described("CopyEx", 1, true,
              [](Level level, A a, F f) {
                  const FlatOperand &d = f.dst, &s = f.src[0], &m = f.mask;
                  if (level == Level::whole)
                      return KipxCopyEx(a.xe, a.flags, a.dst->arr(), a.source(0), a.mask->arr(),
                                        a.roi, a.at[0], a.mask_at);
                  if (level == Level::typed)
                      return kipxa__copy_xm(a.xe, a.flags, f.dims, f.extent, d.type, d.start,
                                            d.strides, s.type, s.start, s.strides, m.type, m.start,
                                            m.strides);
                  return kipxa_copy_xm(a.xe, a.flags, f.dims, f.extent, d.type, d.base, d.origin,
                                       d.strides, s.type, s.base, s.origin, s.strides, m.type,
                                       m.base, m.origin, m.strides);
              }),
    described("Fill", 0, false,
              [](Level level, A a, F f) {
                  const FlatOperand &d = f.dst;
                  if (level == Level::whole)
                      return KipxFill(a.xe, a.flags, a.dst->arr(), a.values.data(), a.roi);
                  if (level == Level::typed)
                      return kipxa__fill(a.xe, a.flags, f.dims, f.extent, d.type, d.start,
                                         d.strides, a.values.data());
                  return kipxa_fill(a.xe, a.flags, f.dims, f.extent, d.type, d.base, d.origin,
                                    d.strides, a.values.data());
              }),
    described("FillEx", 0, true,
              [](Level level, A a, F f) {
                  const FlatOperand &d = f.dst, &m = f.mask;
                  if (level == Level::whole)
                      return KipxFillEx(a.xe, a.flags, a.dst->arr(), a.mask->arr(), a.values.data(),
                                        a.roi, a.mask_at);
                  if (level == Level::typed)
                      return kipxa__fill_xm(a.xe, a.flags, f.dims, f.extent, d.type, d.start,
                                            d.strides, m.type, m.start, m.strides, a.values.data());
                  return kipxa_fill_xm(a.xe, a.flags, f.dims, f.extent, d.type, d.base, d.origin,
                                       d.strides, m.type, m.base, m.origin, m.strides,
                                       a.values.data());
              }),
};

// ---- conversion: conformance, and every pair at every telling value ----

constexpr double factors[] = {1, 1, 0.5, -1, 1.0 / 3, 257, 0, -2.5e-3},
                 summands[] = {0, 0, 0.5, -100, 1e6, 1.0 / 7, 3, 255};

// A shift of 0 leaves -0 as it is.
uint64_t converted(uint32_t dst, uint32_t src, uint64_t bits, double scale, double shift) {
    const double product = load_real(src, &bits) * scale;
    return bits_of(dst, shift == 0 ? product : product + shift);
}

// The numbers come from the scale that is drawn: an index into the tables, and on by channel.
Operation conversion(bool by_channel) {
    Operation o = described(by_channel ? "VConvert" : "Convert", 1, false, {});
    o.types.clear();
    for (uint32_t d : all_types)
        for (uint32_t s : all_types) o.types.push_back({d, s});
    o.scales = {0, 1, 2, 3, 4, 5, 6, 7};
    o.model = [=](A a, uint32_t channel, const uint64_t *bits) {
        const uint32_t i = (static_cast<uint32_t>(a.scale) + channel * by_channel) & 7;
        if (!by_channel && i < 2 && a.types[0] == a.types[1]) return bits[0]; // a copy
        return converted(a.types[0], a.types[1], bits[0], factors[i], summands[i]);
    };
    o.call = [=](Level level, A a, F f) {
        const uint32_t i = static_cast<uint32_t>(a.scale);
        double scales[4], shifts[4];
        for (uint32_t k = 0; k < 4; k++)
            scales[k] = factors[(i + k) & 7], shifts[k] = summands[(i + k) & 7];
        using Numbers = Levels1<const double *, const double *>;
        const Numbers all{KipxVConvert, kipxa_vconvert, kipxa__vconvert};
        const Levels1<double, double> one{KipxConvert, kipxa_convert, kipxa__convert};
        return by_channel ? all(level, a, f, scales, shifts) : one(level, a, f, *scales, *shifts);
    };
    return o;
}

std::string wrong_conversion(const GuardedArray &src, uint32_t dst_type, double scale, double shift,
                             int32_t set) {
    const uint32_t src_type = src.shape().type;
    const bool copy = dst_type == src_type && scale == 1 && shift == 0;
    SimdSwitch form(set);
    Shape shape = src.shape();
    shape.type = dst_type;
    GuardedArray dst(shape);
    if (KipxConvert(nullptr, 0, dst.arr(), src.arr(), nullptr, nullptr, scale, shift))
        return "refused";
    std::string wrong;
    dst.for_each([&](At at) {
        const uint64_t from = src.bits(at);
        if (dst.bits(at) != (copy ? from : converted(dst_type, src_type, from, scale, shift)))
            wrong = std::to_string(src.real(at)) + " becomes " + std::to_string(dst.real(at));
    });
    return wrong;
}

TEST(Conversion, TakesEveryPairAtEveryTellingValue) {
    std::vector<double> values = {0,         -0.0,     0.5,       1.5,    2.5,   -0.5,     -1.5,
                                  nan_value, infinity, -infinity, 1e-310, 1e300, 16777217, 0x1p53};
    for (uint32_t type : all_types)
        for (double end : {static_cast<double>(is_real(type) ? 0 : lowest(type)),
                           is_real(type) ? 0x1p24 : static_cast<double>(highest(type))})
            for (double off : {-1.0, -0.75, -0.5, -0.25, 0.0, 0.25, 0.5, 0.75, 1.0})
                for (double sign : {1.0, -1.0}) values.push_back(sign * end + off);
    // Results lie where these do, in as many rows as make a table pay; 13 and 255 times the numbers with
    // 24 in their exponents next to the middle of two neighbours of binary32.
    const double numbers[][2] = {{1, 0},
                                 {0.7, 20},
                                 {0.5, 0},
                                 {1.0 / 257, 0},
                                 {(1 + 0x21p-24) / 13, 0},
                                 {(1 + 0x3p-24) / 255, 0},
                                 {-0.1, 3.375},
                                 {1e-9, -7},
                                 {255, 0},
                                 {infinity, 1}};
    for (const auto &pair : numbers)
        for (uint32_t src_type : all_types)
            for (uint32_t dst_type : all_types) {
                const double scale = pair[0], shift = pair[1];
                const Shape shape{.type = src_type,
                                  .width = static_cast<uint32_t>(values.size()),
                                  .height = size_of_code[src_type & 7] == 1 ? 16u : 1u};
                GuardedArray src(shape);
                src.for_each([&](At at) { // integers that the source's type has
                    src.set_bits(at, bits_of(src_type, (values[at.x] - shift) / scale));
                });
                for (int32_t set : all_sets())
                    ASSERT_EQ(wrong_conversion(src, dst_type, scale, shift, set), "")
                        << type_name(src_type) << " to " << type_name(dst_type) << " x " << scale
                        << " + " << shift << " on set " << set;
            }
    GuardedArray wide({.type = KIPX_U64, .width = 3}), narrow({.type = KIPX_U8, .width = 3});
    EXPECT_EQ(KipxConvert(nullptr, 0, narrow.arr(), wide.arr(), nullptr, nullptr, 1, 0),
              KIPX_ENOTSUP);
    wide.arr()->type = 7;
    EXPECT_EQ(KipxConvert(nullptr, 0, narrow.arr(), wide.arr(), nullptr, nullptr, 1, 0),
              KIPX_EINVAL);
}

class Conformance : public testing::TestWithParam<Operation> {};
TEST_P(Conformance, Holds) { EXPECT_EQ(conform(GetParam(), 3, 20), ""); }
const auto name_of = [](const auto &p) { return p.param.name; };
INSTANTIATE_TEST_SUITE_P(Of, Conformance, testing::ValuesIn(copy_and_fill), name_of);
INSTANTIATE_TEST_SUITE_P(Conversion, Conformance,
                         testing::Values(conversion(false), conversion(true)), name_of);

// ---- arrays across each other -------------------------------------------------------------------

// An array at any place of a block of bytes, with strides that a caller might have.
kipx_arr draw_array(Rng &rng, unsigned char *base, uint32_t type, const uint32_t (&extent)[4],
                    uint32_t axes) {
    kipx_arr a{};
    const uint32_t size = size_of_code[type & 7];
    a.base = base, a.type = type, a.naxes = static_cast<uint16_t>(axes);
    a.offset = static_cast<uint32_t>(rng.below(40));
    for (int i = 0; i < 4; i++) a.volume[i] = extent[i];
    a.strides[3] = size * (1 + static_cast<uint32_t>(rng.one_in(5)));
    a.strides[2] = a.strides[3] * extent[3] + static_cast<uint32_t>(rng.one_in(4));
    a.strides[1] = a.strides[2] * extent[2] + static_cast<uint32_t>(rng.below(4));
    a.strides[0] = a.strides[1] * extent[1] + static_cast<uint32_t>(rng.below(3));
    if (rng.one_in(6)) { // planar
        a.strides[2] = size, a.strides[1] = size * extent[2];
        a.strides[3] = a.strides[1] * extent[1], a.strides[0] = a.strides[3] * extent[3];
    }
    return a;
}

template<class F> void each_position(const uint32_t (&extent)[4], F &&f) {
    kipx_pos p{};
    for (p.at[0] = 0; p.at[0] < extent[0]; p.at[0]++)
        for (p.at[1] = 0; p.at[1] < extent[1]; p.at[1]++)
            for (p.at[2] = 0; p.at[2] < extent[2]; p.at[2]++)
                for (p.at[3] = 0; p.at[3] < extent[3]; p.at[3]++) f(p);
}

unsigned char *element(const kipx_arr &a, const kipx_pos &p) {
    return static_cast<unsigned char *>(kipx_arr_at(&a, &p));
}

TEST(Copy, AcrossItselfIsACopyOfWhatWasThere) {
    Rng rng(1);
    Environment xe;
    GuardedBytes room(8192), model(8192);
    int by_rows = 0;
    for (int trial = 0; trial < 3000; trial++) {
        const uint32_t axes = rng.one_in(4) ? 4 : 3, type = rng.pick(sized_types);
        const uint32_t extent[4] = {axes == 4 ? 1 + static_cast<uint32_t>(rng.below(3)) : 1,
                                    1 + static_cast<uint32_t>(rng.below(4)),
                                    1 + static_cast<uint32_t>(rng.below(9)),
                                    1 + static_cast<uint32_t>(rng.below(4))};
        const kipx_arr dst = draw_array(rng, room.data(), type, extent, axes);
        kipx_arr src = draw_array(rng, room.data(), type, extent, axes);
        if (rng.one_in(2)) { // the same lattice elsewhere
            const uint32_t offset = src.offset;
            src = dst, src.offset = offset;
        }
        const bool masked = rng.one_in(3);
        GuardedArray mask(
            {.width = extent[2], .height = extent[1], .channels = rng.one_in(2) ? 1 : extent[3]});
        mask.for_each([&](At at) { mask.set_integer(at, rng.one_in(2) ? rng.next() & 255 : 0); });

        for (size_t i = 0; i < room.size(); i++)
            model.data()[i] = room.data()[i] = static_cast<unsigned char>(rng.next());
        each_position(extent, [&](const kipx_pos &p) {
            const At at{p.at[1], p.at[2], mask.shape().channels == 1 ? 0 : p.at[3]};
            if (masked && mask.integer(at) == 0) return;
            std::memcpy(model.data() + (element(dst, p) - room.data()), element(src, p),
                        size_of_code[type & 7]);
        });
        const int32_t code =
            masked ? KipxCopyEx(xe, 0, &dst, &src, mask.arr(), nullptr, nullptr, nullptr)
                   : KipxCopy(xe, 0, &dst, &src, nullptr, nullptr);
        ASSERT_EQ(code, 0);
        ASSERT_EQ(std::memcmp(room.data(), model.data(), room.size()), 0)
            << "type " << type << " axes " << axes << (masked ? " masked" : "") << " offsets "
            << dst.offset << " " << src.offset;
        ASSERT_TRUE(room.canaries_intact());
        // Shifted rows of adjacent pixels need no environment.
        const bool dense = dst.strides[3] == size_of_code[type & 7] &&
                           dst.strides[2] == extent[3] * dst.strides[3];
        if (masked || !dense || src.strides[1] != dst.strides[1] ||
            src.strides[2] != dst.strides[2] || src.strides[3] != dst.strides[3] ||
            src.strides[0] != dst.strides[0])
            continue;
        by_rows++;
        ASSERT_EQ(KipxCopy(nullptr, 0, &dst, &src, nullptr, nullptr), 0);
    }
    EXPECT_GT(by_rows, 150);
}

// One picture into every plane, and plane by plane; regions, masks and positions with planes.
TEST(Copy, GoesThroughPlanes) {
    Rng rng(2);
    for (uint32_t source_axes : {3u, 4u}) {
        GuardedArray dst({.type = KIPX_S16,
                          .width = 9,
                          .height = 6,
                          .channels = 3,
                          .layout = Layout::odd_rows,
                          .naxes = 4,
                          .planes = 5});
        GuardedArray src({.type = KIPX_S16,
                          .width = 11,
                          .height = 8,
                          .channels = 3,
                          .naxes = source_axes,
                          .planes = source_axes == 4 ? 5u : 1u});
        GuardedArray mask({.width = 9, .height = 6, .naxes = 3});
        dst.fill(rng), src.fill(rng);
        mask.for_each([&](At at) { mask.set_integer(at, static_cast<int64_t>(rng.below(2))); });
        const kipx_site roi = {{1, 2, 3, 1}, {3, 3, 4, 2}}; // planes 1-3, channels 1 and 2
        const kipx_pos src_at = position(5, 1, source_axes == 4 ? 2 : 0), mask_at = position(2, 1);
        const Snapshot before = dst.snapshot();
        GuardedArray old(dst.shape());
        dst.for_each([&](At at) { old.set_integer(at, dst.integer(at)); });
        ASSERT_EQ(KipxCopyEx(nullptr, 0, dst.arr(), src.arr(), mask.arr(), &roi, &src_at, &mask_at),
                  0);
        dst.for_each([&](At at) {
            int64_t must = old.integer(at);
            if (contains(roi, at) && mask.integer({at.y - 1, at.x - 1}))
                must = src.integer(
                    {at.y - 1, at.x + 2, at.channel, source_axes == 4 ? at.plane + 1 : 0});
            ASSERT_EQ(dst.integer(at), must) << at.plane << " " << at.y << " " << at.x;
        });
        EXPECT_EQ(dst.changes_outside(before, roi), "");

        const double values[] = {7.5, -70000, nan_value};
        ASSERT_EQ(KipxFill(nullptr, 0, dst.arr(), values, nullptr), 0);
        const int64_t stored[] = {8, -32768, 0};
        dst.for_each([&](At at) { ASSERT_EQ(dst.integer(at), stored[at.channel]); });
        EXPECT_TRUE(dst.canaries_intact());
    }
}

// Long enough that stores go past the cache, at odd places.
TEST(Copy, MovesLargeArrays) {
    Rng rng(3);
    const uint32_t width = 4099, height = 2100;
    std::vector<unsigned char> from(size_t{width} * height + 64), to(from.size());
    for (size_t i = 0; i < from.size(); i++) from[i] = static_cast<unsigned char>(rng.next());
    for (int32_t simd : {0, 1}) {
        SimdSwitch form(simd);
        kipx_arr src{};
        src.volume[0] = src.volume[3] = 1, src.volume[1] = height, src.volume[2] = width;
        src.strides[1] = width, src.strides[2] = src.strides[3] = 1, src.naxes = 3;
        src.type = KIPX_U8, src.base = from.data(), src.offset = 5;
        kipx_arr dst = src;
        dst.base = to.data(), dst.offset = 3;
        std::fill(to.begin(), to.end(), static_cast<unsigned char>(0));
        ASSERT_EQ(KipxCopy(nullptr, 0, &dst, &src, nullptr, nullptr), 0);
        EXPECT_EQ(std::memcmp(to.data() + 3, from.data() + 5, size_t{width} * height), 0);
        const double values[] = {77};
        ASSERT_EQ(KipxFill(nullptr, 0, &dst, values, nullptr), 0);
        EXPECT_TRUE(std::all_of(to.begin() + 3, to.begin() + 3 + size_t{width} * height,
                                [](unsigned char byte) { return byte == 77; }));
        EXPECT_EQ(to[2], 0);
        EXPECT_EQ(to[3 + size_t{width} * height], 0);
    }
}

// ---- borders ------------------------------------------------------------------------------------

// By going back and forth at the edges, one step at a time.
int64_t unfolded(int32_t kind, int64_t i, int64_t n) {
    while (i < 0 || i >= n) {
        if (kind == KIPX_BORDER_NONE || kind == KIPX_BORDER_CONST) return -1;
        if (kind == KIPX_BORDER_REPLICATE) i = i < 0 ? i + 1 : i - 1;
        if (kind == KIPX_BORDER_WRAP) i = i < 0 ? i + n : i - n;
        if (kind == KIPX_BORDER_REFLECT) i = i < 0 ? -1 - i : 2 * n - 1 - i;
        if (kind == KIPX_BORDER_REFLECT101) i = n == 1 ? 0 : i < 0 ? -i : 2 * n - 2 - i;
    }
    return i;
}

constexpr int32_t border_kinds[] = {0, 3, 4, 5, 6, 7};
enum class Way { part, whole, in_place, typed, array };

// One call: what every element of the region must be, from the arrays as they were.
struct BorderTrial {
    Rng &rng;
    const Way way;
    const int32_t kind = rng.pick(border_kinds);
    const uint32_t type = rng.pick(sized_types),
                   axes = way != Way::typed && way != Way::array && rng.one_in(3) ? 4 : 3;
    const uint32_t planes = axes == 4 ? 1 + static_cast<uint32_t>(rng.below(3)) : 1;
    kipx_brshape border{};
    Shape inner, outer;
    kipx_pos at{};
    double values[4];

    BorderTrial(Rng &random, Way w) : rng(random), way(w) {
        constexpr uint64_t near[] = {3, 7, 7}, far[] = {6, 40, 300};
        for (int i = axes == 4 ? 0 : 1; i < 3; i++)
            border.lower[i] = -static_cast<int32_t>(rng.below((rng.one_in(9) ? far : near)[i])),
            border.upper[i] = static_cast<int32_t>(rng.below(near[i]));
        inner = {.type = type,
                 .width = 1 + static_cast<uint32_t>(rng.below(rng.one_in(2) ? 9 : 40)),
                 .height = 1 + static_cast<uint32_t>(rng.below(4)),
                 .channels = 1 + static_cast<uint32_t>(rng.below(4)),
                 .layout = rng.pick(all_layouts),
                 .naxes = axes,
                 .planes = planes};
        outer = inner, outer.layout = rng.pick(all_layouts);
        const auto room = [](int32_t lower, int32_t upper) {
            return static_cast<uint32_t>(upper - lower);
        };
        outer.width += room(border.lower[2], border.upper[2]),
            outer.height += room(border.lower[1], border.upper[1]);
        if (axes == 4) outer.planes += room(border.lower[0], border.upper[0]);
        for (double &v : values) v = static_cast<double>(rng.between(-5, 300));
    }

    std::string run() {
        const uint32_t extent[3] = {planes, inner.height, inner.width};
        Shape around = inner; // the source has more than its part
        if (way == Way::part || way == Way::whole) {
            at = position(static_cast<int32_t>(rng.below(4)), static_cast<int32_t>(rng.below(3)),
                          axes == 4 && rng.one_in(2));
            around.planes += at.at[0],
                around.height += at.at[1] + static_cast<uint32_t>(rng.below(3)),
                around.width += at.at[2] + static_cast<uint32_t>(rng.below(3));
        }
        GuardedArray dst(outer), src(around);
        dst.fill(rng), src.fill(rng);
        kipx_pos middle{};
        for (int i = 0; i < 3; i++) middle.at[i] = static_cast<uint32_t>(-border.lower[i]);
        kipx_arr inside = *dst.arr(); // the middle of the destination
        inside.base = kipx_arr_at(dst.arr(), &middle), inside.offset = 0;
        for (int i = 0; i < 3; i++) inside.volume[i] = extent[i];
        if (way == Way::in_place)
            src.for_each([&](At a) {
                src.set_bits(a, dst.bits({a.y + middle.at[1], a.x + middle.at[2], a.channel,
                                          a.plane + middle.at[0]}));
            });
        std::vector<uint64_t> must;
        dst.for_each([&](At a) {
            const uint32_t coordinate[3] = {a.plane, a.y, a.x};
            int64_t from[3];
            bool there = true;
            for (int i = 0; i < 3; i++) {
                const int64_t k = int64_t{coordinate[i]} - middle.at[i];
                const uint32_t whole[3] = {src.planes(), around.height, around.width};
                from[i] = way == Way::whole ? unfolded(kind, k + at.at[i], whole[i])
                                            : unfolded(kind, k, extent[i]);
                there &= from[i] >= 0;
                if (way != Way::whole) from[i] += at.at[i];
            }
            must.push_back(
                there ? src.bits({static_cast<uint32_t>(from[1]), static_cast<uint32_t>(from[2]),
                                  a.channel, static_cast<uint32_t>(from[0])})
                : kind == KIPX_BORDER_CONST ? bits_of(type, values[a.channel])
                                            : dst.bits(a));
        });
        if (int32_t code = call(dst, src, inside)) return "returned " + std::to_string(code);
        size_t k = 0;
        std::string wrong;
        dst.for_each([&](At a) {
            if (dst.bits(a) != must[k++] && wrong.empty())
                wrong = "plane " + std::to_string(a.plane) + " row " + std::to_string(a.y) +
                        " pixel " + std::to_string(a.x);
        });
        return wrong.empty() ? dst.damage() : wrong;
    }

    int32_t call(GuardedArray &dst, GuardedArray &src, const kipx_arr &inside) {
        const kipx_arr &d = *dst.arr(), &s = *src.arr();
        const uint32_t zero[4] = {};
        // Upper bits of a kind do not count.
        switch (way) {
        case Way::part:
            return KipxCopyMkb(nullptr, 0, &d, &s, nullptr, &at, &border, kind | 0x30, values);
        case Way::whole:
            return KipxCopyRMkb(nullptr, 0, &d, &s, nullptr, &at, &border, kind, values);
        case Way::in_place:
            return KipxCopyMkb(nullptr, 0, &d, &inside, nullptr, nullptr, &border, kind, values);
        case Way::typed:
            return kipxa__copymkb(nullptr, 0, 3, s.volume + 1, type, dst.address({}), d.strides + 1,
                                  type, src.address({}), s.strides + 1, &border, kind, values);
        default:
            return kipxa_copymkb(nullptr, 0, 3, s.volume + 1, type, dst.address({}), zero,
                                 d.strides + 1, type, src.address({}), zero, s.strides + 1, &border,
                                 kind, values);
        }
    }
};

TEST(Border, ContinuesTheArrayInEveryWay) {
    Rng rng(4);
    for (Way way : {Way::part, Way::whole, Way::in_place, Way::typed, Way::array})
        for (int trial = 0; trial < 200; trial++) {
            BorderTrial t(rng, way);
            ASSERT_EQ(t.run(), "") << "way " << static_cast<int>(way) << " kind " << t.kind << "\n"
                                   << t.outer << "\n"
                                   << t.inner;
        }
}

TEST(Border, LeavesWhatLiesOutsideTheRegionAndShrinksToTheSource) {
    GuardedArray dst({.width = 20, .height = 12}), src({.width = 4, .height = 3});
    dst.fill_integer(9), src.fill_integer(1);
    kipx_brshape border = {{0, -1, -2, 0}, {0, 2, 1, 0}};
    const kipx_site roi = rectangle(3, 2, 15, 9), made = rectangle(3, 2, 4 + 3, 3 + 3);
    const Snapshot before = dst.snapshot();
    ASSERT_EQ(KipxCopyMkb(nullptr, 0, dst.arr(), src.arr(), &roi, nullptr, &border,
                          KIPX_BORDER_WRAP, nullptr),
              0);
    EXPECT_EQ(dst.changes_outside(before, made), "");
    dst.for_each([&](At at) { ASSERT_EQ(dst.integer(at), contains(made, at) ? 1 : 9); });

    const auto answer = [&](const kipx_brshape *b, int32_t kind, const kipx_arr *from, auto *call) {
        return call(nullptr, 0, dst.arr(), from, &roi, nullptr, b, kind, nullptr);
    };
    for (auto *call : {KipxCopyMkb, KipxCopyRMkb}) {
        for (int32_t kind : {1, 2, 8, 15})
            EXPECT_EQ(answer(&border, kind, src.arr(), call), KIPX_EINVAL);
        EXPECT_EQ(answer(nullptr, 4, src.arr(), call), KIPX_EINVAL);
        EXPECT_EQ(answer(&border, 4, nullptr, call), KIPX_EINVAL);
        for (kipx_brshape wrong : {kipx_brshape{{0, 1, 0, 0}, {}}, kipx_brshape{{}, {0, 0, -1, 0}}})
            EXPECT_EQ(answer(&wrong, 4, src.arr(), call), KIPX_EINVAL);
        kipx_brshape wide = {{0, 0, INT32_MIN, 0}, {0, 0, INT32_MAX, 0}};
        EXPECT_EQ(answer(&wide, 4, src.arr(), call), KIPX_EEMPTY);
    }
    // Elsewhere in the destination: copied first, or refused.
    EXPECT_EQ(answer(&border, 4, dst.arr(), KipxCopyMkb), 0);
    EXPECT_EQ(answer(&border, 4, dst.arr(), KipxCopyRMkb), KIPX_EINVAL);
}

TEST(Border, HasNames) {
    const char *names[] = {"nul-border",     "unknown-border",   "unknown-border",
                           "const-border",   "replicate-border", "wrap-border",
                           "reflect-border", "reflect101-border"};
    for (int32_t kind = 0; kind < 16; kind++) {
        EXPECT_STREQ(kipx_border_str(kind), kind < 8 ? names[kind] : "unknown-border");
        EXPECT_STREQ(kipx_border_str(kind | -32), kipx_border_str(kind));
    }
}

// ---- refusals -----------------------------------------------------------------------------------

struct Refusal {
    const char *what;
    int32_t copy, fill; // what the masked copy and the masked fill answer
    void (*spoil)(kipx_arr &dst, kipx_arr &src, kipx_arr &mask);
};
using R = kipx_arr;
const Refusal refusals[] = {
    {"nothing wrong", 0, 0, [](R &, R &, R &) {}},
    {"other type", KIPX_ENOTSUP, 0, [](R &, R &s, R &) { s.type = KIPX_S8; }},
    {"invalid type", KIPX_EINVAL, KIPX_EINVAL, [](R &d, R &, R &) { d.type = 5; }},
    {"invalid source type", KIPX_EINVAL, 0, [](R &, R &s, R &) { s.type = 0; }},
    {"no size", KIPX_ENOTSUP, KIPX_ENOTSUP, [](R &d, R &s, R &) { d.type = s.type = 15; }},
    {"two axes", KIPX_EINVAL, KIPX_EINVAL, [](R &d, R &, R &) { d.naxes = 2; }},
    {"channels", KIPX_EINVAL, KIPX_EINVAL, [](R &d, R &s, R &) { d.volume[3] = s.volume[3] = 5; }},
    {"other channels", KIPX_EINVAL, 0, [](R &, R &s, R &) { s.volume[3] = 2; }},
    {"mask of s16", KIPX_EINVAL, KIPX_EINVAL, [](R &, R &, R &m) { m.type = KIPX_S16; }},
    {"mask channels", KIPX_EINVAL, KIPX_EINVAL, [](R &, R &, R &m) { m.volume[3] = 2; }},
    {"no base", KIPX_EINVAL, KIPX_EINVAL, [](R &d, R &, R &) { d.base = nullptr; }},
    {"no rows", KIPX_EEMPTY, KIPX_EEMPTY, [](R &d, R &, R &) { d.volume[1] = 0; }},
    {"far away", KIPX_EINVAL, KIPX_EINVAL, [](R &d, R &, R &) { d.strides[1] = UINT32_MAX; }},
    {"onto itself", KIPX_EINVAL, KIPX_EINVAL, [](R &d, R &, R &) { d.strides[1] = 1; }},
    {"its own mask", KIPX_EINVAL, KIPX_EINVAL,
     [](R &d, R &, R &m) {
         m.base = d.base;
         m.offset = 1;
     }},
};

TEST(CopyAndFill, RefuseWithoutWriting) {
    Environment xe;
    for (const Refusal &r : refusals) {
        SCOPED_TRACE(r.what);
        GuardedArray dst({.width = 5, .height = 4, .channels = 3}), src(dst.shape()),
            mask({.width = 5, .height = 4});
        dst.fill_integer(1), src.fill_integer(2), mask.fill_integer(255);
        r.spoil(*dst.arr(), *src.arr(), *mask.arr());
        const Snapshot before = dst.snapshot();
        const double values[] = {3, 3, 3, 3, 3};
        auto copy = [&](uint64_t flags) {
            return KipxCopyEx(xe, flags, dst.arr(), src.arr(), mask.arr(), nullptr, nullptr,
                              nullptr);
        };
        auto fill = [&](uint64_t flags) {
            return KipxFillEx(xe, flags, dst.arr(), mask.arr(), values, nullptr, nullptr);
        };
        EXPECT_EQ(copy(KIPX_FLAG_PREPARE), r.copy);
        EXPECT_EQ(fill(KIPX_FLAG_PREPARE), r.fill);
        EXPECT_EQ(copy(KIPX_FLAG_PROBE), r.copy ? r.copy : KIPX_EAGAIN);
        EXPECT_EQ(fill(KIPX_FLAG_PROBE), r.fill ? r.fill : KIPX_EAGAIN);
        EXPECT_EQ(dst.changes(before), "");
        EXPECT_EQ(copy(0), r.copy);
        if (r.copy) {
            EXPECT_EQ(dst.changes(before), "");
        }
        EXPECT_EQ(fill(0), r.fill);
    }
    GuardedArray a({.width = 5, .height = 4, .channels = 3});
    EXPECT_EQ(KipxFill(xe, 0, a.arr(), nullptr, nullptr), KIPX_EINVAL);
    EXPECT_EQ(KipxFill(xe, 0, nullptr, nullptr, nullptr), KIPX_EINVAL);
    EXPECT_EQ(KipxCopy(xe, 0, a.arr(), nullptr, nullptr, nullptr), KIPX_EINVAL);
    // Scratch is needed, and there is no environment, or one without room.
    kipx_arr turned = *a.arr();
    turned.strides[2] = 4, turned.strides[1] = 20, a.arr()->volume[1] = turned.volume[1] = 2;
    const Snapshot before = a.snapshot();
    EXPECT_EQ(KipxCopy(nullptr, 0, &turned, a.arr(), nullptr, nullptr), KIPX_EINVAL);
    ZuSMEMSTGsetlimit(xe.stack(), 1);
    EXPECT_EQ(KipxCopy(xe, 0, &turned, a.arr(), nullptr, nullptr), KIPX_ENOMEM);
    EXPECT_EQ(a.changes(before), "");
}

// ---- single values ------------------------------------------------------------------------------

TEST(Values, BecomeElementsToNearestEvenAndSaturated) {
    const struct {
        uint32_t type;
        double value, stored;
    } cases[] = {
        {KIPX_U8, 2.5, 2},
        {KIPX_U8, 3.5, 4},
        {KIPX_U8, -1, 0},
        {KIPX_U8, 1e30, 255},
        {KIPX_U8, nan_value, 0},
        {KIPX_S8, -128.5, -128},
        {KIPX_U16, 65535.5, 65535},
        {KIPX_S16, -infinity, -32768},
        {KIPX_U32, 4294967295.5, 4294967295},
        {KIPX_U32, 2147483648.5, 2147483648},
        {KIPX_S32, 2147483647.5, 2147483647},
        {KIPX_S32, nan_value, 0},
        {KIPX_F32, 0.1, 0.1f},
        {KIPX_F32, 1e300, infinity},
        {KIPX_F64, 0.1, 0.1},
    };
    for (const auto &c : cases) {
        alignas(8) unsigned char vector[16];
        ASSERT_EQ(kipx_mkifillvalv16(vector, c.type, &c.value, 1), 0);
        EXPECT_EQ(load_real(c.type, vector), c.stored) << type_name(c.type) << " " << c.value;
    }
    unsigned char vector[17] = {};
    vector[16] = 99;
    double values[17] = {1, 2, 3, 4};
    for (uint32_t type = 0; type < 32; type++)
        for (uint32_t channels : {0u, 1u, 2u, 3u, 4u, 16u, 17u}) {
            const uint32_t size = size_of_code[type & 7];
            const bool valid = (type >= 1 && type <= 4) || (type >= 9 && type <= 15);
            const bool fits = size && channels * size <= 16;
            const int32_t must = !valid || !channels ? KIPX_EINVAL : fits ? 0 : KIPX_ENOTSUP;
            EXPECT_EQ(kipx_mkifillvalv16(vector, type, values, channels), must) << type;
        }
    EXPECT_EQ(vector[16], 99);
}

TEST(Values, RangesAreCutToAType) {
    const struct {
        uint32_t type;
        kipx_vrange range, cut;
    } cases[] = {
        {KIPX_U8, {-5, 300}, {0, 255}},
        {KIPX_U8, {2.5, 7.25}, {2.5, 7.25}},
        {KIPX_U8, {300, -5}, {255, 0}},
        {KIPX_S16, {-infinity, infinity}, {-32768, 32767}},
        {KIPX_U32, {-1, 5e9}, {0, 4294967295}},
        {KIPX_F64, {-infinity, infinity}, {-infinity, infinity}},
        {KIPX_F32,
         {-1e39, infinity},
         {-std::numeric_limits<float>::max(), std::numeric_limits<float>::max()}},
    };
    for (const auto &c : cases) {
        kipx_vrange range = c.range;
        ASSERT_EQ(kipx_vrng_saturate(&range, c.type), 0);
        EXPECT_EQ(range.low, c.cut.low);
        EXPECT_EQ(range.high, c.cut.high);
    }
    kipx_vrange range = {nan_value, 1};
    EXPECT_EQ(kipx_vrng_saturate(&range, KIPX_U8), 0);
    EXPECT_TRUE(std::isnan(range.low));
    EXPECT_EQ(kipx_vrng_saturate(&range, 8), KIPX_EINVAL);
    EXPECT_EQ(kipx_vrng_saturate(nullptr, KIPX_U8), KIPX_EINVAL);
    EXPECT_EQ(kipx_vrng_saturate(&range, 15), KIPX_ENOTSUP);
}

} // namespace
