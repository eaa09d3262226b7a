// Which bytes an operation may work on: shared ones are found as by listing every byte, and offsets
// reach to 32 bits.
#include <kipx/arith.h>
#include <kipx/convert.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <sstream>

#include <gtest/gtest.h>

#include "support/arith_model.h"
#include "support/environment.h"
#include "support/guarded.h"

using namespace kipx::test;

namespace {

// Every byte that a region of an array occupies, with the element that it belongs to.
using Bytes = std::map<uint64_t, uint32_t>;
struct Small {
    kipx_arr arr{};
    Bytes bytes;
    bool overlaps_itself = false;
    std::vector<uint64_t> order; // the elements' addresses, in the order of their positions

    Small(Rng &rng, void *base, uint32_t type, const uint32_t (&extent)[3]) {
        arr.volume[0] = 1, arr.naxes = 3, arr.type = type, arr.base = base;
        arr.offset = static_cast<uint32_t>(rng.below(40));
        for (int i = 0; i < 3; i++) {
            arr.volume[i + 1] = extent[i];
            arr.strides[i + 1] = static_cast<uint32_t>(rng.below(i == 0 ? 14 : 6));
        }
        // Mostly such as real images have.
        const uint32_t size = element_size(type);
        if (!rng.one_in(4)) {
            arr.strides[3] = size * (1 + static_cast<uint32_t>(rng.below(2)));
            arr.strides[2] = arr.strides[3] * extent[2] + static_cast<uint32_t>(rng.below(3));
            arr.strides[1] = arr.strides[2] * extent[1] + static_cast<uint32_t>(rng.below(9));
        }
        count();
    }
    void count() {
        const uint32_t *n = arr.volume + 1, *s = arr.strides + 1;
        uint32_t element = 0;
        bytes.clear(), order.clear(), overlaps_itself = false;
        for (uint32_t y = 0; y < n[0]; y++)
            for (uint32_t x = 0; x < n[1]; x++)
                for (uint32_t c = 0; c < n[2]; c++, element++) {
                    order.push_back(arr.offset + uint64_t{y} * s[0] + x * s[1] + c * s[2]);
                    for (uint32_t i = 0; i < element_size(arr.type); i++)
                        overlaps_itself |= !bytes.emplace(order.back() + i, element).second;
                }
    }
    bool nests() const { // strides from the outermost in, over axes that count
        uint64_t span = element_size(arr.type);
        std::vector<std::pair<uint64_t, uint64_t>> axes;
        for (int i = 1; i < 4; i++)
            if (arr.volume[i] > 1) axes.push_back({arr.strides[i], arr.volume[i]});
        std::sort(axes.begin(), axes.end());
        for (auto [stride, n] : axes) {
            if (stride < span) return false;
            span += stride * (n - 1);
        }
        return true;
    }
    bool meets(const Small &other) const {
        for (const auto &[byte, element] : bytes)
            if (other.bytes.count(byte)) return true;
        return false;
    }
    bool is_same_as(const Small &other) const {
        return order == other.order && element_size(arr.type) == element_size(other.arr.type);
    }
    bool agrees(const Small &other) const {
        return std::equal(arr.strides + 1, arr.strides + 4, other.arr.strides + 1) &&
               element_size(arr.type) == element_size(other.arr.type);
    }
    bool ranges_meet(const Small &other) const {
        return bytes.begin()->first <= other.bytes.rbegin()->first &&
               other.bytes.begin()->first <= bytes.rbegin()->first;
    }
};

// What the call must answer; -1 where the address ranges meet without a shared byte and the strides
// differ, or a destination's rows interleave: such calls may be refused.
int32_t must_answer(const Small &dst, const Small &a, const Small &b) {
    if (dst.overlaps_itself) return KIPX_EINVAL;
    for (const Small *s : {&a, &b})
        if (!s->is_same_as(dst) && s->meets(dst)) return KIPX_EINVAL;
    if (!dst.nests()) return -1;
    for (const Small *s : {&a, &b})
        if (!s->is_same_as(dst) && s->ranges_meet(dst) && !s->agrees(dst)) return -1;
    return 0;
}

TEST(SharedBytes, AreFoundExactly) {
    Rng rng(33);
    Environment xe;
    std::vector<unsigned char> store(1024), before;
    int refused = 0, accepted = 0, same = 0, open = 0;
    for (int i = 0; i < 60000; i++) {
        const uint32_t extent[3] = {1 + static_cast<uint32_t>(rng.below(3)),
                                    1 + static_cast<uint32_t>(rng.below(4)),
                                    1 + static_cast<uint32_t>(rng.below(3))};
        const uint32_t type = rng.one_in(3) ? 10 : 1;
        Small dst(rng, store.data(), type, extent);
        Small a(rng, store.data() + rng.below(2) * 256, type, extent);
        if (a.arr.base != store.data()) a.arr.base = store.data(), a.arr.offset += 256, a.count();
        Small b(rng, store.data(), rng.one_in(2) ? 1 : type, extent);
        b.arr.offset += 512, b.count();
        if (rng.one_in(3)) { // a view of the same kind nearby
            const uint32_t offset = a.arr.offset;
            a.arr = dst.arr, a.arr.offset = rng.one_in(2) ? dst.arr.offset : offset;
            if (rng.one_in(3)) std::swap(a.arr.strides[1 + rng.below(3)], a.arr.strides[2]);
            a.count();
        }
        for (unsigned char &byte : store) byte = static_cast<unsigned char>(rng.next());
        before = store;
        const int32_t must = must_answer(dst, a, b);
        const int32_t is =
            KipxAdd(xe, 0, &dst.arr, &a.arr, &b.arr, nullptr, nullptr, nullptr, 0, 0);
        const auto what = [&] {
            std::ostringstream text;
            text << "trial " << i;
            for (const Small *one : {&dst, &a, &b}) {
                text << "\n  extent and stride of every axis";
                for (int k = 1; k < 4; k++)
                    text << " " << one->arr.volume[k] << " " << one->arr.strides[k];
                text << ", offset " << one->arr.offset << ", type " << one->arr.type;
            }
            return text.str();
        };
        if (must == -1) {
            ASSERT_TRUE(is == 0 || is == KIPX_EINVAL) << what();
            open++;
        } else {
            ASSERT_EQ(is, must) << what();
            (is ? refused : accepted)++;
            same += is == 0 && a.is_same_as(dst);
        }
        if (is) {
            ASSERT_EQ(store, before) << what();
            continue;
        }
        for (size_t k = 0; k < dst.order.size(); k++) {
            uint64_t x = load_bits(type, before.data() + a.order[k]);
            uint64_t y = load_bits(b.arr.type, before.data() + b.order[k]);
            ASSERT_EQ(
                load_bits(type, store.data() + dst.order[k]),
                model_element(route_of(all_functions()[0], {type, type, b.arr.type}), 0, x, y))
                << what();
        }
    }
    EXPECT_GT(refused, 5000);
    EXPECT_GT(accepted, 5000);
    EXPECT_GT(same, 1000);
    EXPECT_LT(open, 20000);
}

TEST(SharedBytes, HalvesOfOneImageAndWorkInPlace) {
    Shape s;
    s.width = 100, s.height = 6, s.channels = 3;
    GuardedArray image(s);
    image.fill_integer(3);
    const kipx_arr *all = image.arr();
    kipx_arr left = *all, right = *all, top = *all, even = *all, odd = *all, red = *all,
             blue = *all;
    left.volume[2] = right.volume[2] = 50, right.offset += 150;
    kipx_arr shifted = left;
    shifted.offset += 147;
    top.volume[1] = even.volume[1] = odd.volume[1] = 3;
    even.strides[1] = odd.strides[1] = 600, odd.offset += 300;
    red.volume[3] = blue.volume[3] = 1, blue.offset += 2;
    const auto add = [](const kipx_arr &dst, const kipx_arr *a, const kipx_arr &b,
                        const kipx_site *roi = nullptr, const kipx_pos *at1 = nullptr,
                        const kipx_pos *at2 = nullptr) {
        return KipxAdd(nullptr, 0, &dst, a, &b, roi, at1, at2, 0, 0);
    };
    EXPECT_EQ(add(left, &left, right), 0);
    EXPECT_EQ(add(right, &left, left), 0);
    EXPECT_EQ(add(even, &odd, odd), 0);
    EXPECT_EQ(add(red, &blue, blue), 0);
    EXPECT_EQ(add(*all, nullptr, *all), 0);
    EXPECT_EQ(add(left, &shifted, right), KIPX_EINVAL);
    EXPECT_EQ(add(left, &top, right), 0);
    EXPECT_EQ(add(red, &red, left), KIPX_EINVAL);
    const kipx_site middle = rectangle(30, 2, 20, 2);
    const kipx_pos there = position(30, 2), beside = position(50, 2), onto = position(49, 2);
    EXPECT_EQ(add(*all, nullptr, *all, &middle, nullptr, &there), 0);
    EXPECT_EQ(add(*all, all, *all, &middle, &there, &there), 0);
    EXPECT_EQ(add(*all, nullptr, *all, &middle, nullptr, &beside), 0);
    EXPECT_EQ(add(*all, nullptr, *all, &middle, &beside, &beside), 0);
    EXPECT_EQ(add(*all, nullptr, *all, &middle, nullptr, &onto), KIPX_EINVAL);
    // A first source that is named, not left out, starts at its own origin.
    EXPECT_EQ(add(*all, all, *all, &middle, nullptr, &there), 0);
    const kipx_site corner = rectangle(1, 1, 20, 2);
    EXPECT_EQ(add(*all, all, *all, &corner, nullptr, &there), KIPX_EINVAL);
    // Planes that the mask has not are no part of it: nothing lies across, and no scratch is needed.
    std::vector<unsigned char> planes(70, 1);
    const kipx_arr src{{5, 1, 10, 1}, {}, {10, 10, 1, 1}, 4, 0, KIPX_U8, 0, 0, planes.data()};
    std::vector<unsigned char> marks(20, 255);
    kipx_arr dst = src, mask = src;
    dst.offset = 20, mask.volume[0] = 2, mask.base = marks.data();
    EXPECT_EQ(KipxCopyEx(nullptr, 0, &dst, &src, &mask, nullptr, nullptr, nullptr), 0);
}

// The last element of a region may end at the last byte that 32 bits reach, and no further; nothing
// there is touched, since the call is only prepared.
TEST(Offsets, OfTheLastElementKeepTo32Bits) {
    struct {
        uint32_t height, row, offset, type;
        bool fits;
    } const cases[] = {
        {2, 0xffffff00, 0xf0, KIPX_U8, true},   {2, 0xffffff00, 0xff, KIPX_U8, true},
        {2, 0xffffff00, 0x100, KIPX_U8, false}, {2, 0xffffff00, 0xfe, KIPX_S16, true},
        {2, 0xffffff00, 0xff, KIPX_S16, true},  {2, 0xffffff00, 0x100, KIPX_S16, false},
        {65538, 65535, 0, KIPX_U8, true},       {65538, 65535, 1, KIPX_U8, false},
        {3, 0x80000000, 0, KIPX_U8, false},     {0x7fffffff, 2, 3, KIPX_U8, true},
        {0x7fffffff, 3, 0, KIPX_U8, false},     {0x7fffffff, 0xffffffff, 0, KIPX_U8, false}};
    for (const auto &c : cases)
        for (int which : {0, 1, 2}) {
            kipx_arr arrays[3] = {};
            for (int i = 0; i < 3; i++) {
                const uint32_t volume[4] = {1, c.height, 1, 1};
                const uint32_t strides[4] = {0, i == which ? c.row : i == 0 ? 2u : 0u, 2, 2};
                memcpy(arrays[i].volume, volume, sizeof volume);
                memcpy(arrays[i].strides, strides, sizeof strides);
                arrays[i].naxes = 3, arrays[i].type = c.type;
                arrays[i].offset = i == which ? c.offset : 0;
                arrays[i].base = reinterpret_cast<void *>((uintptr_t{1} + i) << 40);
            }
            EXPECT_EQ(KipxAdd(nullptr, KIPX_FLAG_PREPARE, arrays, arrays + 1, arrays + 2, nullptr,
                              nullptr, nullptr, 0, 0),
                      c.fits ? 0 : KIPX_EINVAL)
                << c.height << " rows of " << c.row << ", operand " << which;
            // A region that ends in time is fine.
            const kipx_site start = rectangle(0, 0, 1, 1);
            EXPECT_EQ(KipxAdd(nullptr, KIPX_FLAG_PREPARE, arrays, arrays + 1, arrays + 2, &start,
                              nullptr, nullptr, 0, 0),
                      0);
        }
}

} // namespace
