// Floods against brute force, and the rules of their road.
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

TEST_P(Floods, GoThroughPlanesOneByOne) {
    Environment xe;
    Shape shape;
    shape.naxes = 4;
    shape.planes = 3;
    shape.height = 6;
    shape.width = 7;
    GuardedArray source(shape);
    ModelImage last;
    last.height = 6;
    last.width = 7;
    Rng rng(8);
    source.for_each([&](At at) {
        int v = static_cast<int>(rng.below(9));
        source.set_integer(at, v);
        if (at.plane == 2) last.level.push_back(v);
    });
    FloodOf flood(xe, GetParam());
    ASSERT_EQ(KipxWatershed(xe, form_flags(GetParam()), source.arr(), nullptr, &flood.context), 0);
    EXPECT_EQ(flood.regions(), model_regions(last));
    // One mask of three axes serves all planes.
    Shape flat = shape;
    flat.naxes = 3;
    flat.planes = 1;
    GuardedArray mask(flat);
    last.mask.assign(42, 1);
    for (uint32_t i = 0; i < 42; ++i) last.mask[i] = rng.one_in(5) ? 0 : 1;
    for (uint32_t i = 0; i < 42; ++i) mask.set_integer({i / 7, i % 7, 0, 0}, last.mask[i]);
    ASSERT_EQ(KipxWatershedEx(xe, form_flags(GetParam()), source.arr(), mask.arr(), nullptr,
                              nullptr, &flood.context),
              0);
    EXPECT_EQ(flood.regions(), model_regions(last));
}

// Bright to dark is dark to bright of the negative, node for node.
TEST_P(Floods, PolarityIsTheNegative) {
    Rng rng(21);
    Environment xe;
    for (int round = 0; round < 100; ++round) {
        RandomImage r = random_image(rng, false);
        ImageOf image(r.model), negative(r.model, true);
        FloodOf dark(xe, GetParam()), bright(xe, GetParam());
        bright.context.polarity = 1;
        ASSERT_EQ(dark.run(image, false), 0);
        ASSERT_EQ(bright.run(negative, false), 0);
        using List = std::vector<KipxWTSregion>;
        auto list = [](KipxST *tree) {
            List all;
            KipxAGTwalk(
                tree, KIPX_POSTORDER,
                [](KipxSTnode *node, void *arg, int32_t) -> int32_t {
                    auto *region = static_cast<KipxWTSregion *>(node->data);
                    static_cast<List *>(arg)->push_back(*region);
                    return 1;
                },
                &all);
            return all;
        };
        List a = list(dark.context.output), b = list(bright.context.output);
        ASSERT_EQ(a.size(), b.size());
        for (size_t i = 0; i < a.size(); ++i) {
            EXPECT_EQ(a[i].level, b[i].level);
            EXPECT_EQ(a[i].area, b[i].area);
            EXPECT_EQ(a[i].pixel, b[i].pixel);
        }
    }
}

// ---- the road ----

// The arguments of one call, right until one of them is spoiled.
struct Call {
    kipx_arr src, mask;
    kipx_site roi;
    kipx_pos at;
    KipxWatershedContext context;
    KipxXE *xe;
};
KipxSTB builder_without_operations;

struct Bad {
    const char *what;
    int32_t code;
    void (*spoil)(Call &c);
    bool needs_mask = false;
};
#define SPOIL(...) [](Call &c) { __VA_ARGS__; }
const Bad bad_calls[] = {
    {"no environment", KIPX_EINVAL, SPOIL(c.xe = nullptr)},
    {"two axes", KIPX_EINVAL, SPOIL(c.src.naxes = 2)},
    {"five axes", KIPX_EINVAL, SPOIL(c.src.naxes = 5)},
    {"no base", KIPX_EINVAL, SPOIL(c.src.base = nullptr)},
    {"no planes", KIPX_EINVAL, SPOIL(c.src.volume[0] = 0)},
    {"no rows", KIPX_EINVAL, SPOIL(c.src.volume[1] = 0)},
    {"no columns", KIPX_EINVAL, SPOIL(c.src.volume[2] = 0)},
    {"no channels", KIPX_EINVAL, SPOIL(c.src.volume[3] = 0)},
    {"2^31 rows", KIPX_EEMPTY, SPOIL(c.src.volume[1] = 0x80000000u)},
    {"region outside", KIPX_EEMPTY, SPOIL(c.roi.origin[1] = 90)},
    {"region of no width", KIPX_EEMPTY, SPOIL(c.roi.extent[2] = 0)},
    {"region of no channel", KIPX_EEMPTY, SPOIL(c.roi.extent[3] = 0)},
    {"type 0", KIPX_EINVAL, SPOIL(c.src.type = 0)},
    {"type 5", KIPX_EINVAL, SPOIL(c.src.type = 5)},
    {"type 17", KIPX_EINVAL, SPOIL(c.src.type = 17)},
    {"type u16", KIPX_ENOTSUP, SPOIL(c.src.type = KIPX_U16)},
    {"type f32", KIPX_ENOTSUP, SPOIL(c.src.type = KIPX_F32)},
    {"type 15", KIPX_ENOTSUP, SPOIL(c.src.type = 15)},
    {"2 channels", KIPX_ENOTSUP, SPOIL(c.src.volume[3] = 2)},
    {"3 channels", KIPX_EINVAL, SPOIL(c.src.volume[3] = 3)},
    {"4 channels", KIPX_ENOTSUP, SPOIL(c.src.volume[3] = 4)},
    {"5 channels", KIPX_EINVAL, SPOIL(c.src.volume[3] = 5)},
    {"6 channels", KIPX_EINVAL, SPOIL(c.src.volume[3] = 6)},
    {"7 channels", KIPX_EINVAL, SPOIL(c.src.volume[3] = 7)},
    {"8 channels", KIPX_ENOTSUP, SPOIL(c.src.volume[3] = 15)},
    {"u16 and 2 channels", KIPX_EINVAL, SPOIL(c.src.type = KIPX_U16, c.src.volume[3] = 2)},
    {"no builder", KIPX_EINVAL, SPOIL(c.context.builder = nullptr)},
    {"no level-set context", KIPX_EINVAL, SPOIL(c.context.levelset = nullptr)},
    {"a builder without operations", KIPX_EINVAL,
     SPOIL(c.context.builder = &builder_without_operations)},
    {"seed row outside", KIPX_EINVAL, SPOIL(c.context.seed_row = 5)},
    {"seed column outside", KIPX_EINVAL, SPOIL(c.context.seed_column = 6)},
    {"offsets past 2^32", KIPX_EINVAL, SPOIL(c.src.strides[1] = 0xf0000000u)},
    {"65537 columns", KIPX_EINVAL,
     SPOIL(c.src.volume[2] = c.mask.volume[2] = c.roi.extent[2] = 65537, c.src.strides[1] = 1)},
    {"65537 rows", KIPX_EINVAL,
     SPOIL(c.src.volume[1] = c.mask.volume[1] = c.roi.extent[1] = 65537)},
    {"mask of another type", KIPX_EINVAL, SPOIL(c.mask.type = KIPX_S8), true},
    {"mask without base", KIPX_EINVAL, SPOIL(c.mask.base = nullptr), true},
    {"mask of more axes", KIPX_EINVAL, SPOIL(c.mask.naxes = 4), true},
    {"mask of other channels", KIPX_EINVAL, SPOIL(c.mask.volume[3] = 2), true},
    {"mask of 3 channels for as many", KIPX_EINVAL, SPOIL(c.mask.volume[3] = c.src.volume[3] = 3),
     true},
    {"mask past its end", KIPX_EEMPTY, SPOIL(c.at.at[1] = 9), true},
    {"mask of zeros", KIPX_EEMPTY, SPOIL(c.mask.strides[1] = c.mask.strides[2] = 0), true},
};
#undef SPOIL

TEST_P(Floods, RefuseWithTheRightCode) {
    Environment environment;
    ModelImage m{5, 6, std::vector<int>(30, 3), std::vector<uint8_t>(30, 1), false};
    m.mask[0] = 0;
    ImageOf image(m);
    for (const Bad &bad : bad_calls)
        for (bool masked : {false, true}) {
            if (bad.needs_mask && !masked) continue;
            FloodOf flood(environment, GetParam());
            // A tree that is there must stay there.
            ASSERT_EQ(flood.run(image, false), 0);
            KipxST *tree = flood.context.output;
            KipxSTnode *root = tree->root;
            Call c{*image.source.arr(), *image.mask.arr(), {{0, 0, 0, 0}, {1, 5, 6, 8}}, {},
                   flood.context,       environment};
            bad.spoil(c);
            EXPECT_EQ(KipxWatershedEx(c.xe, form_flags(GetParam()), &c.src,
                                      masked ? &c.mask : nullptr, &c.roi, &c.at, &c.context),
                      bad.code)
                << bad.what << (masked ? ", masked" : "");
            EXPECT_EQ(tree->root, root) << bad.what;
        }
    KipxWatershedContext none{};
    EXPECT_EQ(KipxWatershed(environment, 0, nullptr, nullptr, &none), KIPX_EINVAL);
    EXPECT_EQ(KipxWatershed(environment, 0, nullptr, nullptr, nullptr), KIPX_EINVAL);
}

TEST_P(Floods, ProbeAndPrepareTouchNothing) {
    Environment xe;
    ModelImage m{4, 5, std::vector<int>(20, 1), {}, false};
    ImageOf image(m);
    FloodOf flood(xe, GetParam());
    uint64_t flags = form_flags(GetParam());
    const kipx_arr *src = image.source.arr();
    EXPECT_EQ(KipxWatershed(xe, flags | KIPX_FLAG_PROBE, src, nullptr, &flood.context),
              KIPX_EAGAIN);
    EXPECT_EQ(KipxWatershed(xe, flags | KIPX_FLAG_PREPARE, src, nullptr, &flood.context), 0);
    EXPECT_EQ(flood.context.output, nullptr);
    flood.context.seed_row = 4;
    EXPECT_EQ(KipxWatershed(xe, flags | KIPX_FLAG_PROBE, src, nullptr, &flood.context),
              KIPX_EINVAL);
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

TEST(Planes, FirstNegativeCodeEnds) {
    uint8_t pixels[24] = {};
    kipx_arr arr{};
    const uint32_t volume[4] = {4, 2, 3, 1}, strides[4] = {6, 3, 1, 1};
    std::memcpy(arr.volume, volume, sizeof volume);
    std::memcpy(arr.strides, strides, sizeof strides);
    arr.naxes = 4;
    arr.type = KIPX_U8;
    arr.base = pixels;
    kipx_site site{{1, 0, 0, 0}, {3, 2, 3, 1}};
    std::vector<const void *> bases;
    kipx_pack pack;
    ASSERT_EQ(kipxa_genpackL(&pack, KIPX_CODE_WTSH, &arr, &site, &bases), &pack);
    auto note = [](KipxXE *, uint64_t flags, const kipx_pack *slice) -> int32_t {
        auto *list = static_cast<std::vector<const void *> *>(slice->context);
        EXPECT_EQ(slice->operand[0].origin[0], 0u);
        list->push_back(slice->operand[0].base);
        return list->size() == flags ? -7 : 5;
    };
    EXPECT_EQ(kipxa_call(nullptr, 0, &pack, note), 0);
    EXPECT_EQ(bases, (std::vector<const void *>{pixels + 6, pixels + 12, pixels + 18}));
    bases.clear();
    EXPECT_EQ(kipxa_call(nullptr, 2, &pack, note), -7);
    EXPECT_EQ(bases.size(), 2u);
}

} // namespace
