// Floods against brute force.
#include <algorithm>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include <kipx/array.h>
#include <kipx/fast_regions.h>
#include <kipx/watershed.h>

#include "support/environment.h"
#include "support/flood_fixture.h"
#include "support/guarded.h"
#include "support/region_model.h"
#include "support/rng.h"

namespace {

using namespace kipx::test;

std::string show(const std::vector<ModelRegion> &regions) {
    std::ostringstream out;
    for (const ModelRegion &r : regions) out << "  " << r << '\n';
    return out.str();
}

class Floods : public testing::TestWithParam<Form> {};

TEST_P(Floods, AgreeWithBruteForce) {
    Rng rng(static_cast<uint64_t>(GetParam()) + 1);
    Environment xe;
    for (int round = 0; round < 3000; ++round) {
        bool masked = round % 2 != 0, inverted = rng.one_in(2);
        RandomImage r = random_image(rng, masked);
        ImageOf image(r.model, inverted);
        FloodOf flood(xe, GetParam());
        flood.context.polarity = inverted ? 1 : static_cast<uint16_t>(2 * rng.below(2));
        flood.context.connectivity = r.model.eight ? static_cast<uint16_t>(rng.between(1, 9)) : 0;
        flood.context.seed_row = r.seed_row;
        flood.context.seed_column = r.seed_column;
        if (GetParam() == Form::fast && rng.one_in(3)) {
            constexpr uint32_t shifts[] = {1, 3, 7, 8, 31, 32, 33, 0xffffffffu};
            uint32_t shift = flood.context.shift = shifts[rng.below(std::size(shifts))];
            for (int &level : r.model.level) level = shift < 32 ? level >> shift : 0;
        }
        int32_t code = flood.run(image, masked);
        std::vector<ModelRegion> expected = model_regions(r.model);
        if (expected.empty()) {
            ASSERT_EQ(code, KIPX_EEMPTY) << round;
            continue;
        }
        ASSERT_EQ(code, 0) << round;
        std::vector<ModelRegion> found = flood.regions();
        ASSERT_EQ(found, expected)
            << "round " << round << ", " << r.model.height << " x " << r.model.width
            << (r.model.eight ? ", 8" : ", 4") << "\nfound\n"
            << show(found) << "expected\n"
            << show(expected);
    }
}

// The same image in every place and layout: strides, guard pages, regions of larger arrays, planes.
TEST_P(Floods, ReadTheRegionOnly) {
    Rng rng(5);
    Environment xe;
    for (Layout layout : {Layout::packed, Layout::padded_rows, Layout::padded_pixels})
        for (Edge edge : {Edge::first, Edge::last})
            for (int round = 0; round < 40; ++round) {
                RandomImage r = random_image(rng, round % 2 != 0);
                if (model_regions(r.model).empty()) continue;
                ModelImage &m = r.model;
                uint32_t top = static_cast<uint32_t>(rng.below(3)), left = top ? 2 : 0;
                Shape shape;
                shape.height = top + m.height + left;
                shape.width = left + m.width + top;
                shape.layout = layout;
                shape.edge = edge;
                shape.naxes = rng.one_in(2) ? 3 : 4;
                GuardedArray source(shape), mask(shape);
                source.fill(rng);
                mask.fill(rng);
                for (uint32_t i = 0; i < m.level.size(); ++i) {
                    At at{top + i / m.width, left + i % m.width, 0, 0};
                    source.set_integer(at, m.level[i]);
                    mask.set_integer(at, m.mask.empty() ? 1 : m.mask[i]);
                }
                FloodOf flood(xe, GetParam());
                flood.context.connectivity = m.eight;
                flood.context.seed_row = r.seed_row;
                flood.context.seed_column = r.seed_column;
                kipx_site roi{{0, top, left, 0}, {1, m.height, m.width, 1}};
                kipx_pos at{{0, top, left, 0}};
                ASSERT_EQ(KipxWatershedEx(xe, form_flags(GetParam()), source.arr(), mask.arr(),
                                          &roi, &at, &flood.context),
                          0);
                ASSERT_EQ(flood.regions(), model_regions(m)) << round;
            }
}

// Components of exactly 16 pixels have a node, of 15 none, 15 and 1 that meet have one.
TEST_P(Floods, SixteenPixelsMakeARegion) {
    Environment xe;
    struct Row {
        std::vector<int> level;
        std::vector<ModelRegion> regions; // without pixels
    };
    auto run = [](int value, int n) { return std::vector<int>(static_cast<size_t>(n), value); };
    auto join = [](std::vector<std::vector<int>> parts) {
        std::vector<int> all;
        for (auto &p : parts) all.insert(all.end(), p.begin(), p.end());
        return all;
    };
    const Row rows[] = {
        {run(7, 5), {{7, {}, 0}}},
        {join({run(3, 15), run(9, 1)}), {{9, {}, 0}}},
        {join({run(3, 16), run(9, 1)}), {{3, {}, 17}, {9, {}, 0}}},
        {join({run(3, 15), run(5, 1), run(9, 1)}), {{5, {}, 17}, {9, {}, 0}}},
        {join({run(3, 8), run(5, 1), run(4, 7), run(9, 1)}), {{5, {}, 17}, {9, {}, 0}}},
        {join({run(3, 16), run(9, 1), run(3, 16)}), {{3, {}, 33}, {3, {}, 33}, {9, {}, 0}}},
    };
    for (const Row &row : rows)
        for (uint32_t seed = 0; seed < row.level.size(); ++seed) {
            ModelImage m;
            m.height = 1;
            m.width = static_cast<uint32_t>(row.level.size());
            m.level = row.level;
            FloodOf flood(xe, GetParam());
            flood.context.seed_column = seed;
            ASSERT_EQ(flood.run(ImageOf(m), false), 0);
            std::vector<ModelRegion> found = flood.regions();
            for (ModelRegion &r : found) r.pixels.clear();
            ASSERT_EQ(found, row.regions) << "seed " << seed;
        }
}

// The array and typed levels take plain addresses, and images of two axes are one row.
TEST_P(Floods, LowerLevels) {
    Environment xe;
    Rng rng(77);
    uint8_t pixels[7 * 9];
    ModelImage m{5, 6, {}, {}, false}, row{1, 30, {}, {}, false};
    for (uint8_t &p : pixels) p = static_cast<uint8_t>(rng.below(5));
    for (uint32_t i = 0; i < 30; ++i) m.level.push_back(pixels[(i / 6 + 1) * 9 + i % 6 + 2]);
    for (uint32_t i = 0; i < 30; ++i) row.level.push_back(pixels[i]);
    bool fast = GetParam() == Form::fast;
    const uint32_t extent[3] = {5, 6, 1}, origin[3] = {1, 2, 0}, strides[3] = {9, 1, 1};
    FloodOf flood(xe, GetParam());
    auto array = fast ? kipxa_fwatershed : kipxa_watershed;
    ASSERT_EQ(array(xe, 0, 3, extent, KIPX_U8, pixels, origin, strides, &flood.context), 0);
    EXPECT_EQ(flood.regions(), model_regions(m));
    auto typed = fast ? kipxa__fwatershed : kipxa__watershed;
    ASSERT_EQ(typed(xe, 0, 2, extent + 1, KIPX_U8, pixels, strides + 1, &flood.context), 0);
    const uint32_t wide[2] = {30, 1};
    ASSERT_EQ(typed(xe, 0, 2, wide, KIPX_U8, pixels, strides + 1, &flood.context), 0);
    EXPECT_EQ(flood.regions(), model_regions(row));
    if (!fast) return;
    ASSERT_EQ(__kipxa__fwatershed_c1_u8(xe, 0, 2, wide, pixels, strides + 1, &flood.context), 0);
    EXPECT_EQ(flood.regions(), model_regions(row));
    ASSERT_EQ(__kipxa__fwatershed_xm_c1_u8(xe, 0, 2, wide, pixels, strides + 1, pixels, strides + 1,
                                           &flood.context),
              0);
    for (int v : row.level) row.mask.push_back(static_cast<uint8_t>(v));
    EXPECT_EQ(flood.regions(), model_regions(row));
}

// What the comparison with the model would say to a flood that is wrong.
TEST(Model, NoticesPlantedFaults) {
    Rng rng(9);
    Environment xe;
    int smaller = 0, larger = 0, connected = 0, lifted = 0;
    for (int round = 0; round < 200; ++round) {
        RandomImage r = random_image(rng, false);
        FloodOf flood(xe, Form::fast);
        flood.context.connectivity = r.model.eight;
        ASSERT_EQ(flood.run(ImageOf(r.model), false), 0);
        std::vector<ModelRegion> found = flood.regions();
        smaller += found != model_regions(r.model, 15);
        larger += found != model_regions(r.model, 17);
        ModelImage other = r.model;
        other.eight = !other.eight;
        connected += found != model_regions(other);
        other = r.model;
        other.level[rng.below(other.level.size())] ^= 1;
        lifted += found != model_regions(other);
    }
    EXPECT_GT(smaller, 5);
    EXPECT_GT(larger, 5);
    EXPECT_GT(connected, 20);
    EXPECT_GT(lifted, 20);
}

INSTANTIATE_TEST_SUITE_P(Forms, Floods, testing::ValuesIn(all_forms),
                         [](const auto &param) { return form_name(param.param); });

// ---- going through planes ----

// The mask starts at a plane of its own.
TEST(Planes, FirstNegativeCodeEnds) {
    uint8_t pixels[24] = {};
    kipx_arr arr{};
    const uint32_t volume[4] = {4, 2, 3, 1}, strides[4] = {6, 3, 1, 1};
    std::memcpy(arr.volume, volume, sizeof volume);
    std::memcpy(arr.strides, strides, sizeof strides);
    arr.naxes = 4;
    arr.type = KIPX_U8;
    arr.base = pixels;
    kipx_site site{{1, 0, 0, 0}, {2, 1, 3, 1}};
    std::vector<const void *> bases;
    kipx_pack pack;
    kipx_site mask_site{{2, 1, 0, 0}, {2, 1, 3, 1}};
    ASSERT_EQ(kipxa_mappackL(&pack, KIPX_CODE_WTSH, &arr, &site, &arr, &mask_site, &bases), &pack);
    auto note = [](KipxXE *, uint64_t flags, const kipx_pack *slice) -> int32_t {
        auto *list = static_cast<std::vector<const void *> *>(slice->context);
        EXPECT_EQ(slice->operand[0].origin[0] + slice->operand[1].origin[0], 0u);
        EXPECT_EQ(slice->operand[1].origin[1], 1u);
        EXPECT_EQ(static_cast<char *>(slice->operand[0].base),
                  static_cast<char *>(slice->operand[1].base) - 6);
        list->push_back(slice->operand[0].base);
        return list->size() == flags ? -7 : 5;
    };
    EXPECT_EQ(kipxa_call(nullptr, 0, &pack, note), 0);
    EXPECT_EQ(bases, (std::vector<const void *>{pixels + 6, pixels + 12}));
    bases.clear();
    EXPECT_EQ(kipxa_call(nullptr, 1, &pack, note), -7);
    EXPECT_EQ(bases.size(), 1u);
}

} // namespace
