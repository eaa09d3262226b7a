// Element types, extents, strides, addresses and regions of interest: against wide integers and
// against sets of pixels.
#include <kipx/array.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "support/guarded.h"

using namespace kipx::test;

namespace {

using Wide = __int128;

TEST(ElementTypes, SizesAndValidityOfEveryCode) {
    const uint32_t sizes[16] = {0, 1, 2, 4, 8, 0, 0, 0, 0, 1, 2, 4, 8, 4, 8, 0};
    for (uint32_t code = 0; code < 300; code++) {
        const bool valid = (code >= 1 && code <= 4) || (code >= 9 && code <= 15);
        EXPECT_EQ(kipx_eltype_valid(code), valid) << code;
        EXPECT_EQ(kipx_elsize(code), code < 16 ? sizes[code] : 0) << code;
    }
    for (uint32_t code : {0x101u, 0x80000001u, 0xffffffffu, 0x10000u}) {
        EXPECT_EQ(kipx_eltype_valid(code), 0);
        EXPECT_EQ(kipx_elsize(code), 0u);
    }
}

TEST(ElementTypes, ChannelCodes) {
    const uint32_t channels[16] = {0, 1, 2, 3, 4, 5, 6, 7, 1, 2, 3, 4, 5, 6, 7, 8};
    for (uint32_t code = 0; code < 64; code++) EXPECT_EQ(kipx_nchannels(code), channels[code % 16]);
}

TEST(ErrorProcedures, ReturnTheirCodes) {
    EXPECT_EQ(kipxa_proc_einval(), -65514);
    EXPECT_EQ(kipxa_proc_enotsup(), -65511);
    EXPECT_EQ(kipxa_proc_enotimp(), -65496);
}

// ---- accessors --------------------------------------------------------------------------------

// One vector of each kind, right-aligned in four slots; both forms of an accessor are asked.
struct Vectors {
    uint32_t volume[4], strides[4];
    uint32_t n;
    const uint32_t *v() const { return volume + 4 - n; }
    const uint32_t *s() const { return strides + 4 - n; }
    // Bits above the low four must not matter.
    kipx_dims dims() const { return n | (4 - n) << 4 | 1u << 10 | 0xffff0000u; }
};

template<class T, class F, class G> void both(T expected, F plain, G packed, const Vectors &x) {
    EXPECT_EQ(expected, plain(x.n)) << x.n << " axes";
    EXPECT_EQ(expected, packed(x.dims())) << x.n << " axes";
}
#define BOTH(expected, name, ...)                                                                  \
    both(                                                                                          \
        expected, [&](uint32_t d) { return kipx__##name(d __VA_OPT__(, ) __VA_ARGS__); },          \
        [&](uint32_t d) { return kipx_##name(d __VA_OPT__(, ) __VA_ARGS__); }, x)
#define BOTH_VOLUME(expected, name)                                                                \
    both(                                                                                          \
        expected, [&](uint32_t d) { return kipx_volume__##name(d, x.v()); },                       \
        [&](uint32_t d) { return kipx_volume_##name(d, x.v()); }, x)

void check_accessors(const Vectors &x) {
    const uint32_t n = x.n, *v = x.volume, *s = x.strides;
    const bool rows = n > 2, pixels = n > 1, channels = n > 0;
    const uint64_t width = pixels ? v[2] : 0, pixel = pixels ? s[2] : 0,
                   element = channels ? s[3] : 0;
    const uint64_t count = channels ? (v[3] & 7) + (v[3] >> 3 & 1) : 0;
    const uint64_t row = rows ? s[1] : 0;
    BOTH(static_cast<uint32_t>(row), rowstride, x.s());
    BOTH(static_cast<uint32_t>(rows ? row : width * pixel), rowstride2, x.v(), x.s());
    BOTH(static_cast<uint32_t>(pixel), pixstride, x.s());
    BOTH(static_cast<uint32_t>(element), elstride, x.s());
    BOTH(static_cast<int64_t>(row - width * pixel), rowpadding, x.v(), x.s());
    BOTH(static_cast<int64_t>(pixel - count * element), pixpadding, x.v(), x.s());
    BOTH(int64_t{0}, elpadding);
    BOTH_VOLUME(rows ? v[1] : 1, height);
    BOTH_VOLUME(static_cast<uint32_t>(width), width);
    BOTH_VOLUME(static_cast<uint32_t>(count), nchannels);
    unsigned __int128 cap = channels ? 1 : 0;
    bool empty = n == 0, zero = false;
    for (uint32_t i = 4 - n; i < 4; i++) {
        empty |= v[i] == 0 || v[i] > INT32_MAX;
        zero |= i < 3 && v[i] == 0;
        if (i < 3) cap *= v[i]; // three factors of 32 bits
    }
    BOTH_VOLUME(static_cast<uint32_t>(cap), pixcap);
    cap *= count;
    if (zero) cap = 0;
    BOTH_VOLUME(static_cast<uint32_t>(cap), capacity);
    BOTH_VOLUME(cap > UINT64_MAX ? UINT64_MAX : static_cast<uint64_t>(cap), capacity_$Q);
    BOTH_VOLUME(int32_t{empty}, empty);
}

TEST(Accessors, OfRandomVectors) {
    const uint32_t entries[] = {0,  1,   2,     3,     7,          8,          9,         15,
                                16, 640, 65535, 65536, 0x7fffffff, 0x80000000, 0xffffffff};
    Rng rng(1);
    for (int i = 0; i < 4000; i++) {
        Vectors x;
        for (uint32_t &entry : x.volume) entry = rng.pick(entries);
        for (uint32_t &entry : x.strides) entry = rng.pick(entries);
        if (rng.one_in(2)) x.volume[3] = static_cast<uint32_t>(rng.below(16));
        for (x.n = 0; x.n <= 4; x.n++) check_accessors(x);
    }
}

// ---- memory of an array -----------------------------------------------------------------------

// Counts up the bytes axis by axis in 128 bits; 0 where that must be refused.
uint64_t model_memsize(uint32_t n, uint32_t type, const uint32_t *volume, uint32_t align,
                       uint64_t *strides) {
    if (n < 1 || n > 4 || kipx_elsize(type) == 0 || (align & (align - 1))) return 0;
    Wide bytes = kipx_elsize(type);
    for (uint32_t i = n; i-- > 0;) {
        strides[i] = static_cast<uint64_t>(bytes);
        const bool is_channels = i == n - 1, is_row = n > 1 && i == n - 2;
        if (volume[i] == 0 || volume[i] > INT32_MAX) return 0;
        bytes *= is_channels ? (volume[i] & 7) + (volume[i] >> 3 & 1) : volume[i];
        if (is_row && align) bytes = (bytes + align - 1) / align * align;
        if (bytes > UINT32_MAX) return 0;
    }
    return static_cast<uint64_t>(bytes);
}

TEST(MemorySize, IsTheModelsOrNothing) {
    const uint32_t entries[] = {0,    1,     2,     3,      5,          17,        100,
                                4096, 65535, 65536, 100000, 0x7fffffff, 0x80000000};
    const uint32_t aligns[] = {0, 1, 2, 4, 16, 64, 4096, 0x80000000, 3, 48};
    Rng rng(2);
    int some = 0, none = 0;
    for (int i = 0; i < 40000; i++) {
        uint32_t volume[4], strides[6];
        uint64_t expected[4] = {};
        for (uint32_t &v : volume)
            v = rng.one_in(3) ? rng.pick(entries) : 1 + static_cast<uint32_t>(rng.below(40));
        for (uint32_t &s : strides) s = 77;
        const uint32_t n = static_cast<uint32_t>(rng.below(6)),
                       type = static_cast<uint32_t>(rng.below(17));
        const uint32_t align = rng.pick(aligns);
        const uint64_t must = model_memsize(n, type, volume, align, expected);
        ASSERT_EQ(kipx_vmemsize(n | type << 4, volume, strides, align), must) << n << " " << type;
        for (uint32_t k = 0; k < 6; k++) ASSERT_EQ(strides[k], must && k < n ? expected[k] : 77);
        (must ? some : none)++;
    }
    EXPECT_GT(some, 3000);
    EXPECT_GT(none, 3000);
    const uint32_t volume[3] = {65535, 65537, 1};
    uint32_t strides[3];
    EXPECT_EQ(kipx_vmemsize(3 | 1 << 4, volume, strides, 0), 0xffffffffu);
    EXPECT_EQ(kipx_vmemsize(3 | 1 << 4, volume, strides, 2), 0u);
    EXPECT_EQ(kipx_vmemsize(3 | 2 << 4, volume, strides, 0), 0u);
    EXPECT_EQ(kipx_vmemsize(3 | 0x11 << 4, volume, strides, 0), 0u); // not u8
    EXPECT_EQ(kipx_vmemsize(3 | 1 << 4, nullptr, strides, 0), 0u);
    EXPECT_EQ(kipx_vmemsize(3 | 1 << 4, volume, nullptr, 0), 0u);
}

// ---- vectors and addresses --------------------------------------------------------------------

TEST(Vectors, CoverTheLeadingSlotsOnlyWhereTheyAreAsked) {
    for (uint32_t n = 1; n <= 4; n++) {
        const kipx_dims dims = n | (4 - n) << 4 | 1u << 10;
        const uint32_t source[6] = {90, 1, 2, 3, 4, 95};
        for (bool leading : {false, true}) {
            uint32_t target[6] = {70, 71, 72, 73, 74, 75}, filled[6] = {70, 71, 72, 73, 74, 75};
            uint32_t *to = target + 5 - n, *fill = filled + 5 - n;
            const uint32_t *from = source + 5 - n;
            leading ? kipx_vec_assign_$L(dims, to, from) : kipx_vec_assign(dims, to, from);
            leading ? kipx_vec_dup_$L(dims, fill, 8) : kipx_vec_dup(dims, fill, 8);
            for (uint32_t i = 0; i < 6; i++) {
                const bool covered = i >= 1 && i <= 4 && (leading || i >= 5 - n);
                EXPECT_EQ(target[i], covered ? source[i] : 70 + i) << n << " axes, slot " << i;
                EXPECT_EQ(filled[i], covered ? 8 : 70 + i);
            }
        }
        const uint32_t position[4] = {1000, 200, 30, 4},
                       strides[4] = {0x80000003, 0x40000007, 101, 3};
        const uint32_t *p = position + 4 - n, *s = strides + 4 - n;
        uint32_t inner = 0, all = 0;
        for (uint32_t i = 0; i < 4; i++) {
            all += position[i] * strides[i];
            if (i >= 4 - n) inner += position[i] * strides[i];
        }
        EXPECT_EQ(kipx_vec_mkloff(dims, p, s), inner);
        EXPECT_EQ(kipx_vec_mkloff_$LS(dims, p, s), all);
        EXPECT_EQ(kipx_vec_mkloff_$LS(dims, nullptr, s), 0u);
        uint32_t offset = 7, origin[4] = {1000, 200, 30, 4};
        kipx_vec_update_loff(dims, &offset, origin + 4 - n, s);
        EXPECT_EQ(offset, inner + 7);
        for (uint32_t i = 0; i < 4; i++) EXPECT_EQ(origin[i], i >= 4 - n ? 0 : position[i]);
    }
}

TEST(Addresses, OfElements) {
    Rng rng(3);
    for (uint32_t naxes : {3u, 4u}) {
        Shape s;
        s.type = KIPX_S16, s.width = 6, s.height = 3, s.channels = 2, s.naxes = naxes, s.planes = 2;
        s.layout = Layout::odd_pixels, s.offset = 10;
        GuardedArray a(s);
        EXPECT_EQ(kipx_arr_base(a.arr()), a.address({}));
        EXPECT_EQ(kipx_arr_at(a.arr(), nullptr), a.address({}));
        a.for_each([&](At at) {
            // The plane of a 3-axis array is not looked at: its stride is a trap.
            const kipx_pos p = {{naxes == 4 ? at.plane : 5, at.y, at.x, at.channel}};
            EXPECT_EQ(kipx_arr_at(a.arr(), &p), a.address(at));
        });
    }
    kipx_arr none{};
    EXPECT_EQ(kipx_arr_base(nullptr), nullptr);
    EXPECT_EQ(kipx_arr_base(&none), nullptr);
    EXPECT_EQ(kipx_arr_at(&none, nullptr), nullptr);
    EXPECT_EQ(kipx_arr_at(nullptr, nullptr), nullptr);
    char bytes[1];
    EXPECT_EQ(reinterpret_cast<uintptr_t>(kipx_advance_ptr(bytes, 0xffffffff)),
              reinterpret_cast<uintptr_t>(bytes) + 0xffffffff);
}

// ---- regions ----------------------------------------------------------------------------------

uint32_t random_entry(Rng &rng) {
    const uint32_t corners[] = {0,          1,          2,          0x7fffffff, 0x7ffffffe,
                                0x80000000, 0x80000001, 0xffffffff, 0xfffffffe};
    if (rng.one_in(3)) return rng.pick(corners);
    if (rng.one_in(2)) return static_cast<uint32_t>(rng.between(-20, 20));
    return static_cast<uint32_t>(rng.next());
}
Wide number(uint32_t entry) { return static_cast<int32_t>(entry); }

TEST(Intersection, IsThatOfWideIntegers) {
    Rng rng(4);
    int some = 0;
    for (int i = 0; i < 200000; i++) {
        const int32_t n = static_cast<int32_t>(rng.between(-1, 4));
        kipx_site a, b;
        for (int k = 0; k < 4; k++) {
            a.origin[k] = random_entry(rng), a.extent[k] = random_entry(rng);
            b.origin[k] = random_entry(rng), b.extent[k] = random_entry(rng);
        }
        kipx_site packed = a;
        const kipx_site before = a, other = b;
        bool all = n >= 1;
        const int32_t is = kipx__intersecI(n, a.origin, a.extent, b.origin, b.extent);
        for (int k = 0; k < 4; k++) {
            const Wide from = std::max(number(before.origin[k]), number(b.origin[k]));
            const Wide to = std::min(number(before.origin[k]) + number(before.extent[k]),
                                     number(b.origin[k]) + number(b.extent[k]));
            if (k >= n) {
                ASSERT_EQ(a.origin[k], before.origin[k]);
                ASSERT_EQ(a.extent[k], before.extent[k]);
                continue;
            }
            all &= to - from >= 1;
            ASSERT_TRUE(number(a.origin[k]) == from);
            ASSERT_EQ(number(a.extent[k]) >= 1, to - from >= 1);
            ASSERT_TRUE(to - from < INT32_MIN || number(a.extent[k]) == to - from);
        }
        ASSERT_EQ(is, all);
        some += is;
        if (n >= 0) {
            const kipx_dims dims = static_cast<kipx_dims>(n) | 0xfff0u;
            ASSERT_EQ(kipx_intersecI(dims, packed.origin, packed.extent, b.origin, b.extent), is);
            ASSERT_EQ(memcmp(&packed, &a, sizeof a), 0);
        }
        ASSERT_EQ(memcmp(&b, &other, sizeof b), 0);
    }
    EXPECT_GT(some, 1000);
}

kipx_arr array_of(uint32_t planes, uint32_t height, uint32_t width, uint32_t channels) {
    kipx_arr arr{};
    const uint32_t volume[4] = {planes, height, width, channels};
    memcpy(arr.volume, volume, sizeof volume);
    arr.naxes = 4, arr.type = 1;
    return arr;
}

// Nothing to be had from null.
TEST(Regions, OfNullAreFalse) {
    const kipx_arr arr = array_of(1, 1, 1, 1);
    kipx_site site = rectangle(0, 0, 1, 1), other = site;
    EXPECT_EQ(kipx_arr_adjorgetRoi(nullptr, &site, nullptr), 0);
    EXPECT_EQ(kipx_arr_adjorgetRoi(&arr, nullptr, &site), 0);
    EXPECT_EQ(kipx_arr_adjustRoi(nullptr, &site), 0);
    EXPECT_EQ(kipx_arr_adjustRoi(&arr, nullptr), 0);
    EXPECT_EQ(kipx_arr__adjustRoi_$I(site.origin, site.extent, nullptr), 0);
    EXPECT_EQ(kipx_arr_negotiateRoi(nullptr, &arr, &site, &other, nullptr, nullptr, 3), 0);
    EXPECT_EQ(kipx_arr_negotiateRoi(&arr, nullptr, &site, &other, nullptr, nullptr, 3), 0);
    EXPECT_EQ(kipx_arr_negotiateRoi(&arr, &arr, nullptr, &other, nullptr, nullptr, 3), 0);
    kipx_arr_siteof(nullptr, &site);
    kipx_arr_siteof(&arr, nullptr);
}

// Elements that touch and elements apart, of one and two bytes, nearly all of them alike.
TEST(Elements, TheFirstThatDiffersIsFound) {
    Rng rng(4);
    const uint8_t value[] = {255, 255};
    for (int i = 0; i < 4000; ++i) {
        uint8_t bytes[160];
        for (uint8_t &byte : bytes) byte = rng.one_in(24) ? 254 : 255;
        const uint32_t size = 1 + rng.below(2), stride = size + rng.below(3),
                       width = 1 + rng.below(6), rows = rng.below(4),
                       row_stride = width * stride + rng.below(3);
        const uint8_t *first = nullptr, *base = bytes + 8;
        for (uint32_t y = 0; y < rows; ++y)
            for (uint32_t x = 0; x < width && !first; ++x)
                if (std::memcmp(base + y * row_stride + x * stride, value, size))
                    first = base + y * row_stride + x * stride;
        ASSERT_EQ(kipx_memcelem2dS(base, rows, row_stride, width, stride, size, value), first);
    }
}

// The cells of one axis that a region covers.
std::set<int64_t> cells(int64_t volume, const Wide *from, const Wide *extent) {
    std::set<int64_t> set;
    for (int64_t i = 0; i < volume; i++)
        if (!from || (i >= *from && i < *from + *extent)) set.insert(i);
    return set;
}

size_t cells_of_code(uint32_t code) { return (code & 7) + (code >> 3 & 1); }

// The whole array, the part in a region, the part from a position on, and what two arrays share.
TEST(Regions, LeaveWhatTheCellsLeave) {
    Rng rng(5);
    int outcomes[2] = {};
    for (int i = 0; i < 40000; ++i) {
        const auto some = [&] {
            const auto size = [&](uint64_t most) { return static_cast<uint32_t>(rng.below(most)); };
            kipx_arr arr = array_of(size(4), size(7), size(7), size(16));
            if (rng.one_in(9)) arr.volume[rng.below(3)] = 1u << 31;
            return arr;
        };
        const kipx_arr dst = some(), src = some();
        kipx_site roi, d, s, part, rest, clipped;
        kipx_pos at;
        for (int k = 0; k < 4; ++k) {
            roi.origin[k] = static_cast<uint32_t>(rng.between(-3, 4));
            roi.extent[k] = static_cast<uint32_t>(rng.between(-1, 9));
            at.at[k] = static_cast<uint32_t>(rng.between(-2, 4));
        }
        const bool has_roi = rng.one_in(2), has_at = rng.one_in(2);
        const int32_t n = static_cast<int32_t>(rng.between(-1, 5)),
                      slots = n >= 1 && n <= 3 ? n : 3;
        const kipx_site *const in = has_roi ? &roi : nullptr;
        const kipx_pos *const from = has_at ? &at : nullptr;
        const int32_t is = kipx_arr_negotiateRoi(&dst, &src, &d, &s, in, from, n);
        const intptr_t met = kipx_arr_adjorgetRoi(&dst, &part, in);
        clipped = roi;
        const int32_t left = kipx_arr__adjustRoi_$I(clipped.origin, clipped.extent, &dst);
        kipx_arr__siteofAt(&src, static_cast<uint32_t>(slots), rest.origin, rest.extent, from);
        kipx_arr__siteofAt(nullptr, 3, rest.origin, rest.extent, from); // nothing, and no crash
        bool all = true, meets = true;
        for (int k = 0; k < 4; ++k) {
            const bool channel = k == 3;
            const Wide start = number(roi.origin[k]), extent = number(roi.extent[k]);
            const Wide begin = number(at.at[k]), whole = number(src.volume[k]);
            const auto volume = [&](const kipx_arr &arr) {
                return channel ? static_cast<int64_t>(cells_of_code(arr.volume[k]))
                               : static_cast<int32_t>(arr.volume[k]);
            };
            const auto to = cells(volume(dst), in ? &start : nullptr, &extent);
            const auto of = cells(volume(src), from && !channel ? &begin : nullptr, &whole);
            meets &= !to.empty();
            if (channel || k < slots) all &= !to.empty() && (channel || !of.empty());
            if (!to.empty()) {
                ASSERT_EQ(part.origin[k], *to.begin());
                ASSERT_EQ(part.extent[k], to.size());
                ASSERT_TRUE(!in ||
                            (clipped.origin[k] == *to.begin() && clipped.extent[k] == to.size()));
            }
            if (k < slots && from) {
                ASSERT_EQ(rest.extent[k], of.size());
            } else {
                ASSERT_TRUE(rest.origin[k] == 0 && rest.extent[k] == src.volume[k]);
            }
            if (!all || to.empty() || of.empty()) continue;
            const size_t common = k < slots ? std::min(to.size(), of.size()) : 0;
            ASSERT_EQ(d.origin[k], *to.begin());
            ASSERT_EQ(s.origin[k], *of.begin());
            ASSERT_EQ(d.extent[k], common ? common : to.size());
            ASSERT_EQ(s.extent[k], common ? common : of.size());
        }
        ASSERT_EQ(is, all) << "trial " << i;
        ASSERT_EQ(met, in ? meets : reinterpret_cast<intptr_t>(&part));
        ASSERT_TRUE(!in || left == meets);
        ASSERT_TRUE(in || kipx_arr_adjustRoi(&dst, &part) == meets);
        ++outcomes[is];
    }
    EXPECT_TRUE(outcomes[0] > 3000 && outcomes[1] > 3000) << outcomes[1];
}

} // namespace
