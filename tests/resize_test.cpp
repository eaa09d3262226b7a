// Nearest-neighbour resizing against a search for the nearest centre, at every level, in every layout, on
// every instruction set.
#include <kipx/array.h>
#include <kipx/resize.h>

#include <cstring>

#include <gtest/gtest.h>

#include "support/conformance.h"
#include "support/environment.h"
#include "support/guarded.h"

using namespace kipx::test;

namespace {

// Of w centres (2 j + 1) / 2w the nearest to (2 x + 1) / 2W, the later one of two.
uint32_t nearest(uint32_t x, uint32_t to, uint32_t from) {
    uint32_t best = 0;
    uint64_t least = UINT64_MAX;
    for (uint32_t j = 0; j < from; j++) {
        const int64_t apart = (2 * int64_t{j} + 1) * to - (2 * int64_t{x} + 1) * from;
        const auto distance = static_cast<uint64_t>(apart < 0 ? -apart : apart);
        if (distance <= least) least = distance, best = j;
    }
    return best;
}

kipx_arr bytes_of(void *base, uint32_t height, uint32_t width, uint32_t channels = 1) {
    return {{1, height, width, channels},
            {},
            {0, width * channels, channels, 1},
            3,
            0,
            KIPX_U8,
            0,
            0,
            base};
}

TEST(Resize, TakesTheNearestCentreInEveryRatio) {
    for (int32_t set : all_sets())
        for (uint32_t to = 1; to <= 64; to++)
            for (uint32_t from = 1; from <= 64; from++) {
                SimdSwitch form(set);
                // Wide enough for vectors: pixels of four bytes, and rows of a picture as well.
                unsigned char src[64 * 64 * 4], dst[64 * 64 * 4];
                for (uint32_t i = 0; i < from * from; i++) {
                    const auto x = static_cast<unsigned char>(i % from);
                    const auto y = static_cast<unsigned char>(i / from);
                    const unsigned char pixel[4] = {x, y, static_cast<unsigned char>(x + y), 7};
                    std::memcpy(src + 4 * i, pixel, 4);
                }
                const kipx_arr d = bytes_of(dst, to, to, 4), s = bytes_of(src, from, from, 4);
                ASSERT_EQ(KipxResize(nullptr, 0, &d, &s, nullptr, nullptr), 0);
                for (uint32_t y = 0; y < to; y++)
                    for (uint32_t x = 0; x < to; x++) {
                        const uint32_t i = nearest(x, to, from), j = nearest(y, to, from);
                        const unsigned char *at = dst + 4 * (y * to + x);
                        ASSERT_TRUE(at[0] == i && at[1] == j && at[2] == i + j && at[3] == 7)
                            << from << " to " << to << " at " << x << ", " << y << ", set " << set;
                    }
            }
}

Shape random_shape(Rng &rng, uint32_t type, uint32_t channels, bool wide) {
    Shape s;
    s.type = type, s.channels = channels;
    s.width = std::max(1u, wide ? rng.pick(all_widths) : uint32_t(rng.below(40)));
    s.height = 1 + uint32_t(rng.below(9));
    s.layout = rng.one_in(2) ? Layout::packed : rng.pick(all_layouts);
    s.edge = rng.one_in(2) ? Edge::last : Edge::first;
    s.shift = rng.below(3) ? 0 : rng.below(64);
    s.offset = static_cast<uint32_t>(rng.below(3)) * 8;
    return s;
}

// A region inside, at least one pixel of all channels.
kipx_site region_in(Rng &rng, const Shape &s) {
    const auto x = int32_t(rng.below(s.width)), y = int32_t(rng.below(s.height));
    return rectangle(x, y, int32_t(rng.between(1, s.width - x)),
                     int32_t(rng.between(1, s.height - y)));
}

// One call drawn at random: empty, or what went wrong.
std::string resize_once(Rng &rng, uint32_t type) {
    const auto channels = static_cast<uint32_t>(rng.between(1, 4));
    const bool up = rng.one_in(2), masked = rng.one_in(3);
    GuardedArray dst(random_shape(rng, type, channels, up || rng.one_in(2)));
    GuardedArray src(random_shape(rng, type, channels, !up || rng.one_in(2)));
    Shape m = random_shape(rng, KIPX_U8, rng.one_in(2) ? 1 : channels, false);
    m.width = dst.shape().width, m.height = dst.shape().height;
    GuardedArray mask(m);
    for (GuardedArray *a : {&dst, &src, &mask}) a->fill(rng, Values::any);
    mask.for_each([&](At at) {
        if (rng.one_in(2)) mask.set_integer(at, 0);
    });
    const kipx_site to = region_in(rng, dst.shape()), from = region_in(rng, src.shape());
    const kipx_pos mask_at = position(int32_t(to.origin[2]), int32_t(to.origin[1]));
    const uint32_t level = static_cast<uint32_t>(rng.below(3));
    const uint32_t extent[2][4] = {{1, to.extent[1], to.extent[2], channels},
                                   {1, from.extent[1], from.extent[2], 99}};
    uint32_t mask_strides[4] = {};
    std::copy(mask.arr()->strides + 1, mask.arr()->strides + 4, mask_strides + 1);
    if (m.channels == 1) mask_strides[3] = 0;
    const auto start = [](const GuardedArray &a, const kipx_site &r) {
        return a.address({r.origin[1], r.origin[2]});
    };
    const auto call = [&](uint64_t flags) {
        const kipx_arr &d = *dst.arr(), &s = *src.arr();
        if (level == 0 && masked)
            return KipxEResize(nullptr, flags, &d, &s, mask.arr(), &to, &from, &mask_at);
        if (level == 0) return KipxResize(nullptr, flags, &d, &s, &to, &from);
        if (level == 1)
            return kipxa_eresize(nullptr, flags, 3 | 1 << 4, extent[0] + 1, type, kipx_arr_base(&d),
                                 to.origin + 1, d.strides + 1, extent[1] + 1, type,
                                 kipx_arr_base(&s), from.origin + 1, s.strides + 1, KIPX_U8,
                                 masked ? kipx_arr_base(mask.arr()) : nullptr, mask_at.at + 1,
                                 mask_strides + 1);
        return kipxa__eresize(nullptr, flags, 3, extent[0] + 1, type, start(dst, to), d.strides + 1,
                              extent[1] + 1, type, start(src, from), s.strides + 1, KIPX_U8,
                              masked ? start(mask, to) : nullptr, mask_strides + 1);
    };
    // What every byte must be afterwards.
    const Snapshot before = dst.snapshot(), source = src.snapshot();
    for (uint32_t y = 0; y < to.extent[1]; y++)
        for (uint32_t x = 0; x < to.extent[2]; x++)
            for (uint32_t c = 0; c < channels; c++) {
                const At at = {to.origin[1] + y, to.origin[2] + x, c};
                const At there = {from.origin[1] + nearest(y, to.extent[1], from.extent[1]),
                                  from.origin[2] + nearest(x, to.extent[2], from.extent[2]), c};
                if (!masked || mask.integer({at.y, at.x, c % m.channels}))
                    std::memcpy(dst.address(at), src.address(there), element_size(type));
            }
    const Snapshot right = dst.snapshot();
    for (int32_t set : all_sets())
        for (uint64_t flags : {KIPX_FLAG_PROBE, KIPX_FLAG_PREPARE, uint64_t{0}}) {
            SimdSwitch form(set);
            dst.restore(before);
            const int32_t code = call(flags);
            const std::string wrong = dst.snapshot() == (flags ? before : right) ? "" : "wrong";
            if (code != (flags == KIPX_FLAG_PROBE ? KIPX_EAGAIN : 0) || !wrong.empty())
                return describe(src.shape()) + " to " + describe(dst.shape()) + ", set " +
                       std::to_string(set) + ", returned " + std::to_string(code) + ' ' + wrong;
            if (src.snapshot() != source) return "the source has changed";
        }
    return {};
}

TEST(Resize, MovesElementsOfRegionsInAnyLayout) {
    Rng rng(21);
    for (uint32_t type : {1u, 2u, 3u, 4u, 9u, 10u, 11u, 12u, 13u, 14u})
        for (int i = 0; i < 150; i++) ASSERT_EQ(resize_once(rng, type), "") << i;
}

// Enough bytes for the result to be written past the cache; several stretches a row.
TEST(Resize, LargePicturesAreTheSameInEveryForm) {
    Rng rng(5);
    for (uint32_t channels : {1u, 3u, 4u})
        for (uint32_t from : {1000u, 2560u, 9000u}) {
            const uint32_t to = 5120, rows = 20480 / channels / 5;
            std::vector<unsigned char> src(size_t{from} * 900 * channels);
            for (unsigned char &b : src) b = static_cast<unsigned char>(rng.next());
            std::vector<unsigned char> dst[2];
            for (int form = 0; form < 2; form++) {
                dst[form].resize(size_t{to} * rows * channels + 64);
                auto *at = dst[form].data() + (-reinterpret_cast<uintptr_t>(dst[form].data()) & 63);
                const kipx_arr d = bytes_of(at, rows, to, channels);
                const kipx_arr s = bytes_of(src.data(), 900, from, channels);
                ASSERT_EQ(KipxResize(nullptr, form ? 0 : KIPX_FLAG_PLAIN, &d, &s, nullptr, nullptr),
                          0);
                dst[form].erase(dst[form].begin(), dst[form].begin() + (at - dst[form].data()));
                dst[form].resize(size_t{to} * rows * channels);
            }
            ASSERT_TRUE(dst[0] == dst[1]) << from << ", " << channels;
        }
}

TEST(Resize, PlanesChannelsAndWhatIsRefused) {
    unsigned char bytes[64] = {}, out[64] = {};
    for (unsigned char i = 0; i < 64; i++) bytes[i] = i;
    // Two planes of one picture each, and one for both.
    kipx_arr d = bytes_of(out, 2, 2), s = bytes_of(bytes, 4, 4);
    d.naxes = s.naxes = 4, d.volume[0] = s.volume[0] = 2, d.strides[0] = 4, s.strides[0] = 16;
    ASSERT_EQ(KipxResize(nullptr, 0, &d, &s, nullptr, nullptr), 0);
    EXPECT_EQ(std::memcmp(out, "\5\7\15\17\25\27\35\37", 9), 0);
    s.naxes = 3, s.volume[0] = 1;
    ASSERT_EQ(KipxResize(nullptr, 0, &d, &s, nullptr, nullptr), 0);
    EXPECT_EQ(std::memcmp(out, "\5\7\15\17\5\7\15\17", 9), 0);
    // The second channel of three, into it.
    const kipx_arr d3 = bytes_of(out, 1, 2, 3), s3 = bytes_of(bytes, 1, 4, 3);
    std::memset(out, 99, sizeof out);
    const kipx_site second = rectangle(0, 0, 4, 1, 1, 1);
    ASSERT_EQ(KipxResize(nullptr, 0, &d3, &s3, &second, &second), 0);
    EXPECT_EQ(std::memcmp(out, "\143\4\143\143\12\143", 6), 0);

    const kipx_arr good = bytes_of(out, 4, 4), source = bytes_of(bytes, 4, 4);
    const kipx_site nothing = rectangle(4, 0, 1, 1), left = rectangle(0, 0, 2, 4),
                    right = rectangle(2, 0, 2, 4), over = rectangle(1, 0, 2, 4);
    kipx_arr other = source, sizeless = good, empty = source, baseless = source, planes = source;
    other.type = KIPX_S8, sizeless.type = 15, empty.volume[1] = 0, baseless.base = nullptr;
    planes.volume[0] = 2;
    const struct {
        const kipx_arr *dst, *src;
        const kipx_site *roi, *src_roi;
        int32_t code;
    } cases[] = {{nullptr, &source, nullptr, nullptr, KIPX_EINVAL},
                 {&good, nullptr, nullptr, nullptr, KIPX_EINVAL},
                 {&good, &baseless, &nothing, nullptr, KIPX_EINVAL},
                 {&good, &s3, nullptr, nullptr, KIPX_EINVAL},
                 {&good, &planes, nullptr, nullptr, KIPX_EINVAL},
                 {&good, &d, nullptr, nullptr, KIPX_EINVAL}, // 4 axes
                 {&good, &empty, nullptr, nullptr, KIPX_EEMPTY},
                 {&good, &source, &nothing, nullptr, KIPX_EEMPTY},
                 {&good, &source, nullptr, &nothing, KIPX_EEMPTY},
                 {&good, &other, nullptr, nullptr, KIPX_ENOTSUP},
                 {&sizeless, &source, nullptr, nullptr, KIPX_ENOTSUP},
                 {&good, &good, nullptr, nullptr, KIPX_EINVAL},
                 {&good, &good, &left, &over, KIPX_EINVAL},
                 {&good, &good, &left, &right, 0}};
    for (const auto &c : cases)
        EXPECT_EQ(KipxResize(nullptr, 0, c.dst, c.src, c.roi, c.src_roi), c.code) << &c - cases;
}

} // namespace
