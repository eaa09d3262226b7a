// The fast flood's result store: its nodes, its pixels, its life, its features.
#include <algorithm>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include <kipx/fast_regions.h>
#include <kipx/watershed.h>

#include "support/environment.h"
#include "support/flood_fixture.h"
#include "support/region_model.h"
#include "support/rng.h"

namespace {

using namespace kipx::test;

TEST(FastStore, KeepsItsPixelsAndIsAnOrdinaryTree) {
    Rng rng(41);
    Environment xe;
    FloodOf flood(xe, Form::fast);
    KipxFWTSRES *store = KipxFWTSRESfrombuilder(flood.context.builder);
    ASSERT_NE(store, nullptr);
    EXPECT_EQ(kipx_fwtsr_count(store), 0u);
    const uint32_t *buffer = nullptr;
    for (int round = 0; round < 50; ++round) {
        RandomImage r = random_image(rng, false);
        if (round == 0) r.model = {20, 20, std::vector<int>(400, 0), {}, false};
        if (round == 20) {
            KipxSTBclear(&store->builder, 1); // takes the pixels too
            EXPECT_EQ(kipx_fwtsr_count(store), 0u);
        }
        flood.context.connectivity = r.model.eight;
        ASSERT_EQ(flood.run(ImageOf(r.model), false), 0);
        ASSERT_EQ(flood.regions(), model_regions(r.model));
        if (round > 0 && round < 20) {
            EXPECT_EQ(store->pixels, buffer) << "a smaller image needs no new buffer";
        }
        buffer = store->pixels;
        struct Walk {
            KipxFWTSRES *store;
            uint32_t next;
        } walk{store, 0};
        kipx_fwtsr_walk(
            store,
            [](KipxFWTSRESnode *node, void *arg) -> int32_t {
                auto *w = static_cast<Walk *>(arg);
                EXPECT_EQ(node->index, w->next++);
                EXPECT_EQ(kipx_fwtsr_node(&node->region), node);
                for (KipxSTnode *c = node->node.child; c; c = c->next) {
                    auto *inner = kipx_fwtsr_node(static_cast<KipxWTSregion *>(c->data));
                    EXPECT_LT(inner->index, node->index);
                    EXPECT_GE(inner->start, node->start);
                    EXPECT_LE(inner->start + static_cast<uint32_t>(inner->region.area),
                              node->start + static_cast<uint32_t>(node->region.area));
                }
                return 1;
            },
            &walk);
        EXPECT_EQ(walk.next, kipx_fwtsr_count(store));
    }
    KipxWTSregion *root = static_cast<KipxWTSregion *>(flood.context.output->root->data);
    uint32_t area = static_cast<uint32_t>(root->area), pairs[4] = {9, 9, 9, 9};
    EXPECT_EQ(kipx_fwtsr_fetch2D(store, root, area, 1, pairs), 0u);
    EXPECT_EQ(kipx_fwtsr_fetch2D(store, root, area - 1, 2, pairs), 1u);
    EXPECT_EQ(pairs[2], 9u);
    uint32_t seen = 0;
    kipx_fwtsr_walkPixels(
        store, root,
        [](uint32_t, uint32_t, void *arg) -> int32_t {
            return ++*static_cast<uint32_t *>(arg) < 3 ? 1 : 0;
        },
        &seen);
    EXPECT_EQ(seen, std::min(area, 3u));
    EXPECT_EQ(KipxFWTSRESfrombuilder(nullptr), nullptr);
}

// A tree whose owner makes it anew is let go without a word. What the builder's clearing then rolls
// back is no longer the store's: later blocks and regions do not share a byte.
TEST(FastStore, LetsGoOfATreeMadeAnew) {
    Environment xe;
    Rng rng(44);
    RandomImage first = random_image(rng, false), second = random_image(rng, false);
    first.model = {20, 20, std::vector<int>(400, 0), {}, false};
    FloodOf flood(xe, Form::fast);
    KipxST tree{};
    KipxSTsetbuilder(&tree, flood.context.builder);
    ASSERT_EQ(flood.run(ImageOf(first.model), false), 0);
    KipxSTinit(&tree, nullptr);
    KipxSTBclear(flood.context.builder, 1);
    void *block = ZuSMEMSTGaalloc(flood.context.builder->storage, 4096, 8, 0);
    std::memset(block, 0x55, 4096);
    flood.context.connectivity = second.model.eight;
    ASSERT_EQ(flood.run(ImageOf(second.model), false), 0);
    std::memset(block, 0xaa, 4096);
    EXPECT_EQ(flood.regions(), model_regions(second.model));
}

// States gathered from runs agree with the pixels, in any order of the list and with parts
// complete.
TEST(FastStore, GathersFeaturesOnce) {
    Rng rng(43);
    Environment xe;
    for (int round = 0; round < 200; ++round) {
        RandomImage r = random_image(rng, false);
        KipxWTSFDs features[2];
        KipxWTSMFinitFeatureDs(&features[0], nullptr);
        KipxWTSPFinitFeatureDs(&features[1], nullptr);
        FloodOf flood(xe, Form::fast);
        flood.context.levelset->descriptors = features;
        flood.context.levelset->count = 2;
        ASSERT_EQ(flood.run(ImageOf(r.model), false), 0);
        std::vector<KipxWTSregion *> list;
        kipx_fwtsr_walk(
            KipxFWTSRESfrombuilder(flood.context.builder),
            [](KipxFWTSRESnode *node, void *arg) -> int32_t {
                static_cast<std::vector<KipxWTSregion *> *>(arg)->push_back(&node->region);
                return 1;
            },
            &list);
        for (size_t i = list.size(); i > 1 && round % 2; --i)
            std::swap(list[i - 1], list[rng.below(i)]);
        size_t half = list.size() / 2;
        ASSERT_EQ(KipxGatherMSERsFeatures(flood.context.builder, list.data(), half), 0);
        ASSERT_EQ(KipxGatherMSERsFeatures(flood.context.builder, list.data(), list.size()), 0);
        for (KipxWTSregion *region : list) {
            std::vector<uint32_t> expected(static_cast<size_t>(region->area)), found;
            kipx_fwtsr_fetch(KipxFWTSRESfrombuilder(flood.context.builder), region, 0, ~0u,
                             expected.data());
            double rows = 0, squares = 0;
            for (uint32_t p : expected) {
                rows += p / r.model.width;
                squares += (p % r.model.width) * (p % r.model.width);
            }
            auto *state = reinterpret_cast<const char *>(region);
            auto *moments = reinterpret_cast<const KipxWTSMF *>(state + features[0].state_offset);
            auto *pixels = reinterpret_cast<const KipxWTSPF *>(state + features[1].state_offset);
            EXPECT_EQ(moments->count, region->area);
            EXPECT_EQ(moments->row, rows);
            EXPECT_EQ(moments->column_column, squares);
            for (uint64_t i = 0; i < pixels->count; ++i)
                found.push_back(pixels->entries[i].row * r.model.width + pixels->entries[i].column);
            std::sort(expected.begin(), expected.end());
            std::sort(found.begin(), found.end());
            EXPECT_EQ(found, expected);
        }
    }
}

} // namespace
