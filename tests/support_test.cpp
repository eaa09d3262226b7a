// The fixtures themselves: a fixture that misses a stray byte makes every test above it worthless.
#include "support/guarded.h"

#include <set>

#include <gtest/gtest.h>

using namespace kipx::test;

namespace {

Shape shape_of(Layout layout, uint32_t type, uint32_t width, uint32_t channels) {
    Shape s;
    s.type = type, s.width = width, s.height = 3, s.channels = channels, s.layout = layout;
    return s;
}

// Elements lie where the descriptor says, and hold what they were given.
TEST(Guarded, ElementsAreDistinct) {
    for (Layout layout : all_layouts)
        for (uint32_t type : all_types) {
            Shape s = shape_of(layout, type, 5, 3);
            s.naxes = 4, s.planes = 2, s.shift = type % 9, s.offset = 24;
            GuardedArray a(s);
            int64_t n = 0, again = 0;
            a.for_each([&](At at) { a.set_integer(at, n++ % 100); });
            EXPECT_EQ(n, 2 * 3 * 5 * 3);
            const uint32_t *step = a.arr()->strides;
            a.for_each([&](At at) {
                ASSERT_EQ(a.integer(at), again++ % 100) << s;
                uint64_t byte = uint64_t{at.plane} * step[0] + uint64_t{at.y} * step[1] +
                                uint64_t{at.x} * step[2] + uint64_t{at.channel} * step[3] + 24;
                ASSERT_EQ(reinterpret_cast<uintptr_t>(a.address(at)),
                          reinterpret_cast<uintptr_t>(a.arr()->base) + byte);
            });
            EXPECT_EQ(a.damage(), "");
        }
}

void touch(Edge edge, ptrdiff_t index) {
    const GuardedBytes bytes(100, edge);
    volatile unsigned char *data = bytes.data();
    data[index] = 1;
}

TEST(GuardedDeathTest, TheNextByteFaults) {
    for (size_t shift : {0, 1, 5}) {
        const GuardedBytes last(100, Edge::last, shift), first(100, Edge::first, shift);
        EXPECT_EQ(last.data() + 100 + shift, last.pages() + last.pages_size());
        EXPECT_EQ(first.data(), first.pages() + shift);
    }
    touch(Edge::last, 99), touch(Edge::first, 0);
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
            for (int i = 0; i < 2; ++i) {
                elements.insert(a.address(at) + i);
                if (at.y == 1 && (at.x == 1 || at.x == 2)) inside.insert(a.address(at) + i);
            }
        });
        unsigned char *end = a.address({2, 3, 1}) + 2, *first = end - before.size();
        for (unsigned char *byte = first; byte < end; ++byte) {
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
        std::set<int64_t> seen;
        auto look = [&](At at) { seen.insert(a.integer(at)); };
        a.fill(rng), a.for_each(look);
        int64_t values = int64_t{1} << 8 * element_size(type);
        int64_t low = type < 8 ? 0 : -values / 2, high = low + values - 1;
        EXPECT_TRUE(*seen.begin() == low && *seen.rbegin() == high) << type_name(type);
        seen.clear(), a.fill(rng, Values::nonzero), a.for_each(look);
        EXPECT_EQ(seen.count(0), 0u);
    }
}

} // namespace
