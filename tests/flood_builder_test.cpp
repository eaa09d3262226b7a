// What the standard flood tells a builder, and what it leaves behind when memory is short.
#include <algorithm>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include <kipx/watershed.h>

#include "support/environment.h"
#include "support/flood_fixture.h"
#include "support/region_model.h"
#include "support/rng.h"

namespace {

using namespace kipx::test;

// A builder that notes what a flood tells it. Its regions remember every pixel; the first chain's
// configure replaces it by the second.
struct Listener {
    struct Region {
        KipxWTSregion header;
        KipxSTnode node;
        std::vector<uint32_t> pixels; // those of absorbed regions included
        size_t inside = 0;            // regions merged into it
    };
    KipxSTB builder{};
    std::vector<std::unique_ptr<Region>> regions;
    size_t largest = 0, smallest = SIZE_MAX;
    size_t configured = 0, finished = 0;
    uint32_t entries = 0, width = 0;

    static Listener *of(KipxSTB *builder) { return reinterpret_cast<Listener *>(builder); }
    Listener() { KipxSTBinit(&builder, first_chain(), 0, nullptr, nullptr, nullptr); }
    ~Listener() { KipxSTBfini(&builder, 0); }

    static int32_t configure(KipxSTB *b, KipxWTSLSC *levelset, uint64_t, const void *) {
        of(b)->configured++;
        of(b)->width = levelset->volume[2];
        b->interface_chain = second_chain();
        return 0;
    }
    static int32_t finish(KipxSTB *b, KipxWTSLSC *, KipxST **output, uint32_t entries) {
        of(b)->finished++;
        of(b)->entries = entries;
        *output = b->tree;
        return 0;
    }
    static KipxWTSregion *newregion(void *a, KipxSTB *b, KipxWTSLSC *, void *c) {
        EXPECT_EQ(a, nullptr);
        EXPECT_EQ(c, nullptr);
        of(b)->regions.push_back(std::make_unique<Region>());
        Region &r = *of(b)->regions.back();
        KipxDGTnodeData(&r.node, &r.header);
        return &r.header;
    }
    static void update2D(KipxSTB *b, KipxWTSLSC *, KipxWTSregion *region, const uint32_t *pairs,
                         uint32_t count) {
        auto *r = reinterpret_cast<Region *>(region);
        for (uint32_t i = 0; i < count; ++i)
            r->pixels.push_back(pairs[2 * i] * of(b)->width + pairs[2 * i + 1]);
        r->header.area += static_cast<int32_t>(count);
        of(b)->largest = std::max<size_t>(of(b)->largest, count);
        of(b)->smallest = std::min<size_t>(of(b)->smallest, count);
    }
    static void merge(KipxSTB *b, KipxWTSLSC *, KipxWTSregion *parent, KipxWTSregion *child) {
        auto *p = reinterpret_cast<Region *>(parent), *c = reinterpret_cast<Region *>(child);
        EXPECT_GT(parent->level, child->level);
        p->pixels.insert(p->pixels.end(), c->pixels.begin(), c->pixels.end());
        parent->area += child->area;
        p->inside += c->inside + 1;
        KipxAGTaddchild(&p->node, &c->node);
        __KipxSTBrootnode(b, &p->node);
    }
    struct Chain {
        KipxWTSIF wtsl;
        KipxIFrecord end;
    };
    static const Chain *first_chain() {
        static const Chain chain = {{KIPX_TAG_WTSL, sizeof(KipxWTSIF), nullptr, configure, nullptr,
                                     newregion, nullptr, nullptr, nullptr, refuse_update, merge,
                                     nullptr},
                                    {0, 0}};
        return &chain;
    }
    static const Chain *second_chain() {
        static const Chain chain = {{KIPX_TAG_WTSL, sizeof(KipxWTSIF), nullptr, configure, finish,
                                     newregion, nullptr, nullptr, nullptr, update2D, merge,
                                     nullptr},
                                    {0, 0}};
        return &chain;
    }
    static void refuse_update(KipxSTB *, KipxWTSLSC *, KipxWTSregion *, const uint32_t *,
                              uint32_t) {
        ADD_FAILURE() << "called through the chain that configure had replaced";
    }
};

TEST(StandardFlood, TellsABuilderEverythingOnce) {
    Rng rng(31);
    Environment xe;
    for (int round = 0; round < 500; ++round) {
        RandomImage r = random_image(rng, round % 3 == 0);
        std::vector<ModelRegion> expected = model_regions(r.model);
        if (expected.empty()) continue;
        ImageOf image(r.model);
        Listener listener;
        KipxWTSLSC levelset{};
        KipxWatershedContext context{};
        context.builder = &listener.builder;
        context.levelset = &levelset;
        context.connectivity = r.model.eight;
        context.seed_row = r.seed_row;
        context.seed_column = r.seed_column;
        ASSERT_EQ(KipxWatershedEx(xe, 0, image.source.arr(), image.mask.arr(), nullptr, nullptr,
                                  &context),
                  0);
        EXPECT_EQ(listener.configured, 1u);
        EXPECT_EQ(listener.finished, 1u);
        EXPECT_EQ(listener.entries, 2u) << "the bottom and what has become the root";
        EXPECT_LE(listener.largest, 16u);
        EXPECT_GE(listener.smallest, 1u);
        EXPECT_EQ(levelset.volume[1], r.model.height);
        EXPECT_EQ(levelset.volume[2], r.model.width);
        // The bottom is the first region and stays alone.
        const auto &bottom = *listener.regions.front();
        EXPECT_EQ(bottom.header.pixel, 0xffffffffu);
        EXPECT_EQ(bottom.header.level, 0x7fffffff);
        EXPECT_TRUE(bottom.pixels.empty());
        EXPECT_EQ(bottom.node.child, nullptr);
        EXPECT_EQ(listener.regions.size(), expected.size() + 1);
        std::vector<ModelRegion> found;
        for (size_t i = 1; i < listener.regions.size(); ++i) {
            const Listener::Region &g = *listener.regions[i];
            ModelRegion region{g.header.level, g.pixels, 0};
            if (g.node.parent)
                region.parent_size =
                    static_cast<size_t>(static_cast<KipxWTSregion *>(g.node.parent->data)->area);
            std::sort(region.pixels.begin(), region.pixels.end());
            found.push_back(region);
        }
        std::sort(found.begin(), found.end());
        ASSERT_EQ(found, expected);
        ASSERT_EQ(context.output->root->parent, nullptr);
    }
}

// Nobody listens, an idle feature listens, an operation listens: the same tree, to the last link.
TEST(StandardFlood, LeavesOneTreeWhoeverListens) {
    struct Listening {
        KipxSTBIF stbl;
        KipxWTSIF wtsl;
        KipxIFrecord end;
    };
    static auto ours = *static_cast<const Listening *>(KipxWTSTBxinterface());
    static uint64_t heard;
    Listening listening = ours;
    listening.wtsl.configure = nullptr; // ours would take our own chain
    listening.wtsl.update2D = [](KipxSTB *b, KipxWTSLSC *levelset, KipxWTSregion *region,
                                 const uint32_t *pairs, uint32_t count) {
        heard += count;
        ours.wtsl.update2D(b, levelset, region, pairs, count);
    };
    Rng rng(33);
    Environment xe;
    for (int round = 0; round < 500; ++round) {
        RandomImage r = random_image(rng, round % 3 == 0);
        ImageOf image(r.model);
        KipxWTSFDs idle{};
        std::vector<int64_t> trees[3];
        for (int way = 0; way < 3; ++way) {
            heard = 0;
            KipxWTSLSC levelset{&idle, way == 1, 0, {}, {}};
            KipxSTB *builder = KipxWTSTBopen(nullptr, nullptr, nullptr, KipxXEmmstack(xe));
            if (way == 2) builder->interface_chain = &listening;
            KipxWatershedContext context{builder, &levelset,  round % 2 == 0, r.model.eight,
                                         0,       r.seed_row, r.seed_column,  nullptr};
            int32_t code = KipxWatershedEx(xe, 0, image.source.arr(), image.mask.arr(), nullptr,
                                           nullptr, &context);
            trees[way].push_back(code);
            if (code == 0) {
                auto note = [](KipxSTnode *node, void *arg, int32_t) {
                    const auto *g = static_cast<KipxWTSregion *>(node->data);
                    for (int64_t word : {int64_t{g->pixel}, int64_t{g->level}, int64_t{g->area},
                                         int64_t{g->kept}, int64_t{KipxAGTcountChildren(node, 0)}})
                        static_cast<std::vector<int64_t> *>(arg)->push_back(word);
                    return 1;
                };
                KipxAGTwalk(context.output, KIPX_PREORDER, note, &trees[way]);
                auto *root = static_cast<KipxWTSregion *>(context.output->root->data);
                EXPECT_EQ(heard, way == 2 ? static_cast<uint64_t>(root->area) : 0);
            }
            KipxSTBclose(builder, 0);
        }
        ASSERT_EQ(trees[0], trees[1]) << round;
        ASSERT_EQ(trees[0], trees[2]) << round;
    }
}

// A flood that ends for want of memory gives what it made back to the builder's storage.
TEST(StandardFlood, FailedFloodsLeaveTheStorageAsItWas) {
    Rng rng(32);
    Environment xe;
    ModelImage m{40, 40, {}, {}, false};
    for (int i = 0; i < 1600; ++i) m.level.push_back(static_cast<int>(rng.below(256)));
    ImageOf image(m);
    KipxWTSFDs large{};
    large.state_size = 20000;
    for (uint64_t flags : {uint64_t{0}, KIPX_FLAG_GENERAL_BUILDER}) {
        ZuSMEMSTG *storage = ZuSMEMSTGopen(nullptr, 0, 0);
        ZuSMEMSTGsetlimit(storage, 1 << 20);
        KipxWTSLSC levelset{&large, 1, 0, {}, {}};
        KipxWatershedContext context{};
        context.builder = KipxWTSTBopen(nullptr, nullptr, storage, nullptr);
        context.levelset = &levelset;
        for (int round = 0; round < 3; ++round) {
            void *most = ZuSMEMSTGaalloc(storage, 400000, 8, 0);
            EXPECT_NE(most, nullptr) << round;
            ZuSMEMSTGfree(storage, most);
            ASSERT_EQ(KipxWatershed(xe, flags, image.source.arr(), nullptr, &context), KIPX_ENOMEM);
            EXPECT_EQ(context.builder->tree->root, nullptr);
        }
        ZuMEMSTGclose(storage);
    }
}

} // namespace
