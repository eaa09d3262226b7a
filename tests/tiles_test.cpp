// Trees of tiles, joined along their seams, against the regions of the whole image.
#include <algorithm>
#include <vector>

#include <gtest/gtest.h>

#include <kipx/env.h>

#include "region/tiles.h"
#include "support/environment.h"
#include "support/flood_fixture.h"
#include "support/region_model.h"
#include "support/rng.h"

namespace {

using namespace kipx::test;

// Keeps what it is told, or ends everything after so many.
struct Listener final : kipx::ComponentSink {
    struct Component {
        uint32_t level, start, end, pixel;
    };
    std::vector<Component> all;
    size_t most = SIZE_MAX;
    bool close(uint32_t level, uint32_t start, uint32_t end, uint32_t pixel) override {
        all.push_back({level, start, end, pixel});
        return all.size() < most;
    }
};

kipx::FloodImage view_of(const ImageOf &image, const ModelImage &model) {
    auto plane = [](const GuardedArray &a) {
        return kipx::Plane{a.address({}), a.arr()->strides[1], a.arr()->strides[2]};
    };
    kipx::FloodImage view;
    view.source = plane(image.source);
    if (!model.mask.empty()) view.mask = plane(image.mask);
    view.height = model.height, view.width = model.width;
    view.eight = model.eight;
    kipx::settle_seed(view);
    return view;
}

// Inner components come first, and a parent is the next one whose run holds the child's.
std::vector<ModelRegion> regions_of(const std::vector<Listener::Component> &all,
                                    const std::vector<uint32_t> &order, const ModelImage &model) {
    std::vector<ModelRegion> regions;
    for (size_t i = 0; i < all.size(); ++i) {
        ModelRegion r;
        r.level = static_cast<int>(all[i].level);
        for (uint32_t k = all[i].start; k < all[i].end; ++k)
            r.pixels.push_back(order[k] - order[k] / (model.width + 1));
        uint32_t label = all[i].pixel - all[i].pixel / (model.width + 1);
        EXPECT_NE(std::find(r.pixels.begin(), r.pixels.end(), label), r.pixels.end());
        std::sort(r.pixels.begin(), r.pixels.end());
        for (size_t k = i + 1; k < all.size() && r.parent_size == 0; ++k)
            if (all[k].start <= all[i].start && all[i].end <= all[k].end)
                r.parent_size = all[k].end - all[k].start;
        regions.push_back(r);
    }
    std::sort(regions.begin(), regions.end());
    return regions;
}

// A path one pixel wide, winding inwards; walls of level 255, or lower ones.
ModelImage spiral(uint32_t side, int wall) {
    ModelImage m{side, side, std::vector<int>(side * side, wall), {}, false};
    int n = static_cast<int>(side), x = 0, y = 0, dx = 1, dy = 0;
    auto at = [&](int r, int c) -> int * {
        bool inside = r >= 0 && c >= 0 && r < n && c < n;
        return inside ? &m.level[static_cast<size_t>(r * n + c)] : nullptr;
    };
    for (int turns = 0; turns < 2;) {
        *at(y, x) = 3 + (x + y) % 2;
        int *next = at(y + dy, x + dx), *after = at(y + 2 * dy, x + 2 * dx);
        if (next && *next == wall && (!after || *after == wall)) {
            x += dx, y += dy, turns = 0;
            continue;
        }
        int turned = dx;
        dx = -dy, dy = turned, ++turns;
    }
    return m;
}

// Those that the processor has.
std::vector<kipx::Set> sets() {
    std::vector<kipx::Set> list = {kipx::Set::baseline};
    SimdSwitch best(KIPX_SIMD_BEST);
    for (int32_t set = KIPX_SIMD_AVX2; set <= kipx_simd_set(0); ++set)
        list.push_back(set == KIPX_SIMD_AVX2 ? kipx::Set::avx2 : kipx::Set::avx512);
    return list;
}

std::vector<ModelImage> images() {
    Rng rng(61);
    std::vector<ModelImage> list;
    for (int i = 0; i < 60; ++i) list.push_back(random_image(rng, i % 2 == 1).model);
    for (int level : {0, 100, 254, 255})
        list.push_back({19, 23, std::vector<int>(19 * 23, level), {}, level == 100});
    for (int wall : {9, 254, 255}) list.push_back(spiral(23, wall));
    for (bool eight : {false, true}) { // walls, pits and the highest level, everywhere
        ModelImage m{24, 25, std::vector<int>(24 * 25), {}, eight};
        for (int &v : m.level) v = rng.below(4) == 0 ? 255 : static_cast<int>(rng.below(3)) + 253;
        list.push_back(m);
        for (int &v : m.level) v = static_cast<int>(rng.below(256));
        list.push_back(m);
    }
    return list;
}

// Row loops read windows and whole vectors: what they find there beyond the border, and in the line
// that they write, may be anything.
TEST(Pits, WhatLiesBeyondTheBorderHasNoInfluence) {
    Rng rng(61);
    for (int round = 0; round < 2000; ++round) {
        const auto height = static_cast<uint32_t>(rng.between(1, 9));
        const auto width = static_cast<uint32_t>(rng.between(1, round % 10 ? 9 : 150));
        const uint32_t stride = width + 1 + static_cast<uint32_t>(rng.between(0, 2));
        std::vector<uint8_t> pixels(size_t{height} * width), first;
        for (uint8_t &level : pixels) level = static_cast<uint8_t>(rng.between(0, 4));
        for (int fill : {0, 255, 1, 3})
            for (kipx::Set set : sets()) {
                std::vector<uint8_t> memory(kipx::cells_size(height, stride, 1)), raised(pixels);
                std::vector<uint8_t> line(kipx::pit_line_size(width), static_cast<uint8_t>(fill));
                for (uint8_t &cell : memory)
                    cell = static_cast<uint8_t>(fill == 3 ? rng.between(0, 5) : fill);
                const kipx::Block<uint8_t> block{kipx::first_cell<uint8_t>(memory.data(), stride),
                                                 height, width, stride};
                for (uint32_t y = 0; y < height; ++y)
                    std::copy_n(&pixels[size_t{y} * width], width, block.at + y * stride);
                kipx::raise_pits(block, set, line.data());
                for (uint32_t y = 0; y < height; ++y)
                    std::copy_n(block.at + y * stride, width, &raised[size_t{y} * width]);
                if (first.empty()) first = raised;
                ASSERT_EQ(raised, first) << height << " x " << width << " over " << fill;
            }
    }
}

TEST(Tiles, AreTheRegionsOfTheWhole) {
    const kipx::TileSize sizes[] = {{1, 1}, {1, 2}, {2, 1}, {1, 255}, {256, 1},
                                    {3, 5}, {7, 4}, {8, 8}, {13, 16}, {256, 255}};
    Environment xe;
    for (const ModelImage &model : images()) {
        ImageOf image(model);
        kipx::FloodImage view = view_of(image, model);
        std::vector<ModelRegion> expected = model_regions(model);
        if (expected.empty()) continue;
        std::vector<uint32_t> order(view.pixels() + 2 * view.width + 4), first;
        for (kipx::TileSize size : sizes)
            for (kipx::Set set : sets()) {
                kipx::FastScratch scratch;
                ASSERT_TRUE(scratch.open(xe, kipx::tiles_scratch_size(view)));
                Listener heard;
                ASSERT_TRUE(kipx::flood_in_tiles(view, size, set, scratch, order.data(), heard));
                EXPECT_EQ(regions_of(heard.all, order, model), expected)
                    << size.height << " x " << size.width;
                if (set == kipx::Set::baseline) first = order;
                EXPECT_EQ(order, first) << "every set gives the same order";
                scratch.rewind();
                Listener deaf;
                deaf.most = heard.all.size() / 2 + 1;
                EXPECT_EQ(heard.all.size() < deaf.most,
                          kipx::flood_in_tiles(view, size, set, scratch, order.data(), deaf));
                scratch.close();
            }
    }
}

// Larger than a tile may be in both directions: the public flood, which takes this as one block, finds
// the same areas on the same levels.
TEST(Tiles, OfFullSizeAreTheRegionsOfOneBlock) {
    Rng rng(62);
    Environment xe;
    for (int smooth : {1, 3}) {
        ModelImage model{530, 520, std::vector<int>(530 * 520), {}, smooth == 3};
        for (int &v : model.level) v = static_cast<int>(rng.below(256));
        for (size_t i = 1; smooth > 1 && i < model.level.size(); ++i)
            model.level[i] = (7 * model.level[i - 1] + model.level[i]) / 8;
        ImageOf image(model);
        kipx::FloodImage view = view_of(image, model);
        std::vector<uint32_t> order(view.pixels() + 2 * view.width + 4);
        kipx::FastScratch scratch;
        ASSERT_TRUE(scratch.open(xe, kipx::tiles_scratch_size(view)));
        Listener heard;
        ASSERT_TRUE(kipx::flood_in_tiles(view, kipx::largest_tile, sets().back(), scratch,
                                         order.data(), heard));
        scratch.close();
        using Key = std::vector<uint32_t>; // level, area, least pixel of each region
        std::vector<Key> tiled, whole;
        for (const Listener::Component &c : heard.all)
            tiled.push_back({c.level, c.end - c.start,
                             *std::min_element(order.begin() + c.start, order.begin() + c.end)});
        FloodOf flood(xe, Form::fast);
        flood.context.connectivity = model.eight;
        ASSERT_EQ(flood.run(image, false), 0);
        KipxFWTSRES *store = KipxFWTSRESfrombuilder(flood.context.builder);
        std::vector<KipxFWTSRESnode *> nodes;
        kipx_fwtsr_walk(
            store,
            [](KipxFWTSRESnode *node, void *list) -> int32_t {
                static_cast<std::vector<KipxFWTSRESnode *> *>(list)->push_back(node);
                return 1;
            },
            &nodes);
        for (const KipxFWTSRESnode *n : nodes) {
            const uint32_t *run = kipx_fwtsr_run(store, &n->region);
            uint32_t area = static_cast<uint32_t>(n->region.area);
            whole.push_back(
                {static_cast<uint32_t>(n->region.level), area, *std::min_element(run, run + area)});
        }
        std::sort(tiled.begin(), tiled.end());
        std::sort(whole.begin(), whole.end());
        EXPECT_EQ(tiled, whole);
    }
}

} // namespace
