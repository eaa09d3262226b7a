// The fixtures themselves: a fixture that misses a stray byte makes every test above it worthless.
#include "support/guarded.h"

#include <set>

#include <gtest/gtest.h>

using namespace kipx::test;

namespace {

Shape shape_of(Layout layout, uint32_t type, uint32_t width, uint32_t channels) {
    Shape s;
    s.type = type;
    s.width = width;
    s.height = 3;
    s.channels = channels;
    s.layout = layout;
    return s;
}

TEST(Guarded, ElementsAreDistinctAndHoldTheirValues) {
    Rng rng(1);
    for (Layout layout : all_layouts) {
        for (uint32_t type : all_types) {
            for (uint32_t naxes : {3u, 4u}) {
                Shape s = shape_of(layout, type, 5, 3);
                s.naxes = naxes;
                s.planes = 2;
                s.shift = rng.below(9);
                GuardedArray a(s);
                int64_t n = 0;
                a.for_each([&](At at) { a.set_integer(at, n++ % 100); });
                EXPECT_EQ(n, (naxes == 4 ? 2 : 1) * 3 * 5 * 3);
                n = 0;
                a.for_each([&](At at) { ASSERT_EQ(a.integer(at), n++ % 100) << s; });
                EXPECT_EQ(a.damage(), "");
            }
        }
    }
}

TEST(Guarded, DescriptorLeadsToTheElements) {
    for (Layout layout : all_layouts) {
        Shape s = shape_of(layout, KIPX_S16, 7, 2);
        s.offset = 24;
        GuardedArray a(s);
        const kipx_arr &d = *a.arr();
        a.for_each([&](At at) {
            const uint64_t byte = uint64_t{at.y} * d.strides[1] + uint64_t{at.x} * d.strides[2] +
                                  uint64_t{at.channel} * d.strides[3] + d.offset;
            ASSERT_EQ(reinterpret_cast<uintptr_t>(a.address(at)),
                      reinterpret_cast<uintptr_t>(d.base) + byte);
        });
    }
}

TEST(Guarded, TouchesThePageItWasAskedTo) {
    for (size_t shift : {0, 1, 5}) {
        const GuardedBytes last(100, Edge::last, shift), first(100, Edge::first, shift);
        EXPECT_EQ(last.data() + 100 + shift, last.pages() + last.pages_size());
        EXPECT_EQ(first.data(), first.pages() + shift);
    }
}

void touch(Edge edge, ptrdiff_t index) {
    const GuardedBytes bytes(100, edge);
    volatile unsigned char *data = bytes.data();
    data[index] = 1;
}

TEST(GuardedDeathTest, TheNextByteFaults) {
    touch(Edge::last, 99);
    touch(Edge::first, 0);
    EXPECT_DEATH(touch(Edge::last, 100), "");
    EXPECT_DEATH(touch(Edge::first, -1), "");
}

// Every single byte of the pages is changed in turn: one that is no element must be reported as
// damage, and one outside the region as a change.
TEST(Guarded, EveryStrayByteIsNoticed) {
    Rng rng(2);
    for (Layout layout : all_layouts) {
        GuardedArray a(shape_of(layout, KIPX_S16, 4, 2));
        a.fill(rng);
        const Snapshot before = a.snapshot();
        const kipx_site region = rectangle(1, 1, 2, 1);
        std::set<const unsigned char *> elements, inside;
        a.for_each([&](At at) {
            for (int i = 0; i < 2; i++) {
                elements.insert(a.address(at) + i);
                if (at.y == 1 && (at.x == 1 || at.x == 2)) inside.insert(a.address(at) + i);
            }
        });
        ASSERT_EQ(elements.size(), 3u * 4 * 2 * 2);
        unsigned char *end = a.address({2, 3, 1}) + 2, *first = end - before.size();
        for (unsigned char *byte = first; byte < end; byte++) {
            *byte ^= 0x10;
            ASSERT_EQ(a.canaries_intact(), elements.count(byte) != 0) << byte - first;
            ASSERT_EQ(a.changes_outside(before, region).empty(), inside.count(byte) != 0);
            ASSERT_NE(a.changes(before), "");
            *byte ^= 0x10;
        }
        EXPECT_EQ(a.changes(before), "");
    }
}

TEST(Guarded, RandomValuesReachTheExtremes) {
    Rng rng(3);
    for (uint32_t type : {1u, 2u, 3u, 9u, 10u, 11u}) {
        GuardedArray a(shape_of(Layout::packed, type, 400, 1));
        a.fill(rng);
        bool low = false, high = false;
        a.for_each([&](At at) {
            low |= a.integer(at) == lowest(type);
            high |= a.integer(at) == highest(type);
        });
        EXPECT_TRUE(low && high) << type_name(type);
        a.fill(rng, Values::nonzero);
        a.for_each([&](At at) { EXPECT_NE(a.integer(at), 0); });
    }
    EXPECT_EQ(lowest(KIPX_S16), -32768);
    EXPECT_EQ(highest(KIPX_U32), 4294967295);
}

TEST(Guarded, DifferencesAreFound) {
    Rng rng(4);
    GuardedArray a(shape_of(Layout::planar, KIPX_U8, 9, 3));
    GuardedArray b(shape_of(Layout::padded_pixels, KIPX_F32, 9, 3));
    a.fill(rng);
    b.copy_from(a);
    EXPECT_EQ(difference(a, b), "");
    b.set_integer({2, 8, 2}, a.integer({2, 8, 2}) + 1);
    EXPECT_NE(difference(a, b), "");
    const kipx_site elsewhere = rectangle(0, 0, 8, 3);
    EXPECT_EQ(difference(a, b, &elsewhere), "");
}

} // namespace
