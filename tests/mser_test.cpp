// Stable regions: detection against a recursive model, generation against brute force, golden
// lists.
#include <algorithm>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

#include <kipx/mser.h>
#include <kipx/watershed.h>

#include "support/environment.h"
#include "support/flood_fixture.h"
#include "support/guarded.h"
#include "support/region_model.h"
#include "support/rng.h"
#include "support/stable_model.h"

namespace {

using namespace kipx::test;

KipxMSERContext settings(Rng &rng, const ModelImage &m) {
    KipxMSERContext c{};
    c.delta = static_cast<int32_t>(rng.between(1, 6));
    c.min_area_fraction = rng.one_in(2) ? 0 : static_cast<float>(rng.below(30)) / 100;
    c.max_area_fraction = static_cast<float>(rng.between(30, 110)) / 100;
    c.max_variation = static_cast<float>(rng.below(100)) / 100;
    c.min_diversity = static_cast<float>(rng.below(100)) / 120;
    c.min_area_pixels = static_cast<int32_t>(rng.between(-2, 25));
    c.polarity = static_cast<uint16_t>(rng.below(4));
    c.connectivity = m.eight;
    c.seed_row = static_cast<uint32_t>(rng.below(m.height));
    c.seed_column = static_cast<uint32_t>(rng.below(m.width));
    return c;
}

ModelImage blobs(Rng &rng, bool masked) {
    ModelImage m;
    m.height = static_cast<uint32_t>(rng.between(1, 16));
    m.width = static_cast<uint32_t>(rng.between(1, 16));
    m.eight = rng.one_in(2);
    m.level.assign(m.height * m.width, 128);
    for (int i = 0; i < 5; ++i) {
        int cy = static_cast<int>(rng.below(m.height)), cx = static_cast<int>(rng.below(m.width));
        int radius = static_cast<int>(rng.between(1, 7)),
            step = static_cast<int>(rng.between(-30, 30));
        for (uint32_t p = 0; p < m.level.size(); ++p) {
            int dy = static_cast<int>(p / m.width) - cy, dx = static_cast<int>(p % m.width) - cx;
            if (dy * dy + dx * dx <= radius * radius)
                m.level[p] = std::clamp(m.level[p] + step, 0, 255);
        }
    }
    for (int &v : m.level) v = std::clamp(v + static_cast<int>(rng.below(4)), 0, 255);
    if (masked)
        for (uint32_t p = 0; p < m.level.size(); ++p) m.mask.push_back(rng.one_in(9) ? 0 : 1);
    return m;
}

using Found = std::vector<std::pair<int, std::vector<uint32_t>>>; // level, sorted pixels

// The stable regions of one polarity by the two models together.
Found model_stable(ModelImage m, bool bright, const KipxMSERContext &c) {
    if (bright)
        for (int &v : m.level) v = 255 - v;
    std::vector<ModelRegion> regions = model_regions(m);
    std::vector<StableNode> nodes(regions.size());
    StableNode *root = nullptr;
    for (uint32_t i = 0; i < regions.size(); ++i) {
        nodes[i].level = regions[i].level;
        nodes[i].area = static_cast<int>(regions[i].pixels.size());
        nodes[i].name = i;
        if (regions[i].parent_size == 0) root = &nodes[i];
        for (uint32_t k = 0; k < regions.size(); ++k)
            if (regions[k].pixels.size() == regions[i].parent_size &&
                std::binary_search(regions[k].pixels.begin(), regions[k].pixels.end(),
                                   regions[i].pixels[0])) {
                nodes[i].parent = &nodes[k];
                nodes[k].children.push_back(&nodes[i]);
            }
    }
    float pixels = static_cast<float>(m.level.size());
    KipxMSERparms p{c.delta, static_cast<int32_t>(pixels * c.min_area_fraction),
                    static_cast<int32_t>(pixels * c.max_area_fraction), c.max_variation,
                    c.min_diversity};
    if (p.min_area == 0) p.min_area = c.min_area_pixels > 0 ? c.min_area_pixels : 9;
    Found found;
    for (StableNode *n : model_list(root, p))
        found.push_back({bright ? 255 - n->level : n->level, regions[n->name].pixels});
    std::sort(found.begin(), found.end());
    return found;
}

class Generation : public testing::TestWithParam<Form> {
protected:
    static int32_t generate(KipxXE *xe, const ImageOf &image, bool masked, KipxMSERContext *c) {
        auto run = GetParam() == Form::fast ? KipxGenerateFMSERsEx : KipxGenerateMSERsEx;
        uint64_t flags = GetParam() == Form::general ? KIPX_FLAG_GENERAL_BUILDER : 0;
        return run(xe, flags, image.source.arr(), masked ? image.mask.arr() : nullptr, nullptr,
                   nullptr, c);
    }
};

TEST_P(Generation, AgreesWithBruteForce) {
    Rng rng(11);
    Environment xe;
    size_t total = 0;
    for (int round = 0; round < 1500; ++round) {
        bool masked = round % 3 == 0;
        ModelImage m = blobs(rng, masked);
        if (model_regions(m).empty()) continue;
        KipxWTSFDs feature;
        KipxWTSPFinitFeatureDs(&feature, nullptr);
        KipxMSERContext c = settings(rng, m);
        c.levelset.descriptors = &feature;
        c.levelset.count = 1;
        c.gather = static_cast<uint32_t>(rng.below(2));
        ASSERT_EQ(generate(xe, ImageOf(m), masked, &c), 0) << round;
        ASSERT_EQ(c.list.count, uint64_t{c.dark_count} + c.bright_count);
        if (c.list.count > 0) {
            ASSERT_EQ(c.dark, c.list.entries);
            ASSERT_EQ(c.bright, c.dark + c.dark_count);
        }
        EXPECT_EQ(c.dark_builder != nullptr, c.polarity != 1);
        EXPECT_EQ(c.bright_builder != nullptr, c.polarity != 0);
        for (bool bright : {false, true}) {
            KipxSTB *builder = bright ? c.bright_builder : c.dark_builder;
            uint32_t count = bright ? c.bright_count : c.dark_count;
            if (!builder) {
                EXPECT_EQ(count, 0u);
                continue;
            }
            Found found;
            for (uint32_t i = 0; i < count; ++i) {
                KipxWTSregion *region = (bright ? c.bright : c.dark)[i];
                EXPECT_EQ(region->kept, 1u);
                if (GetParam() == Form::fast && c.gather) {
                    EXPECT_NE(feature.isgathered(reinterpret_cast<char *>(region) + 24), 0);
                }
                found.push_back({region->level,
                                 gathered_pixels(builder, region, feature.state_offset, m.width)});
            }
            total += found.size();
            std::sort(found.begin(), found.end());
            ASSERT_EQ(found, model_stable(m, bright, c)) << round << (bright ? " bright" : " dark");
        }
        KipxMSERrelease(&c);
        ASSERT_EQ(c.dark_builder, nullptr);
        ASSERT_EQ(c.list.entries, nullptr);
    }
    EXPECT_GT(total, 300u) << "most images should have had something to find";
}

// Dark and bright disks of several sizes on a slope, with a little noise, all in integers.
ModelImage golden_image() {
    ModelImage m;
    m.height = 40;
    m.width = 56;
    Rng rng(2024);
    for (int y = 0; y < 40; ++y)
        for (int x = 0; x < 56; ++x) {
            int v = 110 + x / 2 + y / 3;
            const int disks[][4] = {{9, 9, 6, 40},   {9, 30, 4, 60},   {28, 12, 8, 200},
                                    {30, 40, 7, 30}, {30, 40, 3, 220}, {10, 47, 5, 230}};
            for (const int *d : disks) {
                int distance = (y - d[0]) * (y - d[0]) + (x - d[1]) * (x - d[1]);
                if (distance <= d[2] * d[2]) v = d[3] + distance / 4;
            }
            m.level.push_back(v + static_cast<int>(rng.below(3)));
        }
    return m;
}

struct GoldenEntry {
    int level, area;
    uint32_t pixel;
    bool operator==(const GoldenEntry &) const = default;
    friend std::ostream &operator<<(std::ostream &out, const GoldenEntry &e) {
        return out << '{' << e.level << ", " << e.area << ", " << e.pixel << '}';
    }
};
const std::vector<GoldenEntry> golden_standard = {
    {44, 120, 1328}, {62, 24, 421},    {66, 49, 758},  {51, 113, 849},
    {220, 29, 1665}, {201, 197, 1580}, {234, 47, 721}, {230, 81, 551}};
const std::vector<GoldenEntry> golden_fast = {{44, 120, 1713}, {62, 24, 420},   {66, 49, 538},
                                              {51, 113, 849},  {220, 29, 1664}, {201, 197, 1693},
                                              {234, 47, 721},  {230, 81, 550}};

// The list is part of the interface: same image, same list, same order.
TEST_P(Generation, GoldenList) {
    Environment xe;
    ModelImage m = golden_image();
    KipxMSERContext c{};
    c.delta = 5;
    c.max_area_fraction = 0.5f;
    c.max_variation = 0.25f;
    c.min_diversity = 0.2f;
    c.polarity = 2;
    c.seed_row = 3;
    c.seed_column = 5;
    ASSERT_EQ(generate(xe, ImageOf(m), false, &c), 0);
    std::vector<GoldenEntry> found;
    for (uint64_t i = 0; i < c.list.count; ++i) {
        const KipxWTSregion &r = *c.list.entries[i];
        found.push_back({r.level, r.area, r.pixel});
    }
    EXPECT_EQ(found, GetParam() == Form::fast ? golden_fast : golden_standard);
    KipxMSERrelease(&c);
}

TEST_P(Generation, FractionsSaturate) {
    Environment xe;
    ModelImage m = golden_image();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    struct Row {
        float least, most;
        bool any;
    };
    for (Row row : {Row{0, 1e30f, true}, Row{1e30f, 1e30f, false}, Row{-1e30f, 1, true},
                    Row{nan, 1, true}, Row{0, nan, false}, Row{0, -1, false}, Row{0, 0, false},
                    Row{-std::numeric_limits<float>::infinity(), 1, true}}) {
        KipxMSERContext c{};
        c.delta = 5;
        c.min_area_fraction = row.least;
        c.max_area_fraction = row.most;
        c.max_variation = 0.25f;
        c.polarity = 2;
        ASSERT_EQ(generate(xe, ImageOf(m), false, &c), 0);
        EXPECT_EQ(c.list.count > 0, row.any) << row.least << ' ' << row.most;
        KipxMSERrelease(&c);
        c.max_variation = nan; // passes nothing
        ASSERT_EQ(generate(xe, ImageOf(m), false, &c), 0);
        EXPECT_EQ(c.list.count, 0u);
        KipxMSERrelease(&c);
    }
}

// Builders closed in either order, a thousand times over, give everything back.
TEST_P(Generation, MemoryStaysConstant) {
    Environment xe;
    ModelImage m = golden_image();
    ImageOf image(m);
    size_t drawn = 0;
    for (int round = 0; round < 1000; ++round) {
        KipxMSERContext c{};
        c.delta = 5;
        c.max_area_fraction = 1;
        c.max_variation = 1;
        c.polarity = 2;
        ASSERT_EQ(generate(xe, image, false, &c), 0);
        // Scratch is to be had at once, below the builders or not.
        void *scratch = KipxXEalloca(xe, 100000, 0);
        ASSERT_NE(scratch, nullptr);
        KipxSTB *builders[] = {c.dark_builder, c.bright_builder};
        KipxSTBclose(builders[round % 2], 0);
        KipxXEfreea(xe, scratch);
        KipxSTBclose(builders[1 - round % 2], 0);
        _ZuMfree(c.list.entries);
        size_t now = ZuSMEMSTGdrawn(xe.stack());
        if (round == 1) drawn = now;
        if (round > 1) {
            ASSERT_LE(now, drawn) << round;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Forms, Generation, testing::ValuesIn(all_forms),
                         [](const auto &param) { return form_name(param.param); });

} // namespace
