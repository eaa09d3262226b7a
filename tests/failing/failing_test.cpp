// failing_test.cpp - whatever takes memory, with every request for it refused in turn.
//
// A case is a row: its name, how much of what it asks for it needs, the failures expected at least,
// and a function that sets up, makes its call through trial.call, and looks at what came out. The
// driver refuses the k-th request, for every k; then all from the k-th on; then it leaves ever more
// room on the stack. In each the call gives 0 or the code for short memory, and in that case leaves
// stack, storages, heap and arrays as they were; at the end of each trial nothing is left.
#include <kipx/fast_regions.h>
#include <kipx/mser.h>
#include <kipx/watershed.h>

#include <cstdio>
#include <span>

#include "operations.h"

namespace kipx::test {
namespace {

int32_t had(const void *what) { return what ? 0 : KIPX_ENOMEM; }

// ---- trees --------------------------------------------------------------------------------------

// Moments and pixel lists.
struct Features {
    KipxWTSFDs list[2];
    KipxWTSLSC context{};
    Features() {
        KipxWTSMFinitFeatureDs(list, nullptr);
        KipxWTSPFinitFeatureDs(list + 1, nullptr);
        KipxWTSLSCinit2D(&context, list, 2, 100, 100, 100);
    }
    template<class State> const State &state(int feature, const KipxWTSregion *region) const {
        auto *record = reinterpret_cast<const char *>(region);
        return *reinterpret_cast<const State *>(record + list[feature].state_offset);
    }
};

const KipxWTSIF *operations(const KipxSTB *builder) {
    return reinterpret_cast<const KipxWTSIF *>(
        static_cast<const KipxSTBIF *>(builder->interface_chain) + 1);
}

// Eight regions of 20 pixels, each above the one before, and one that no node leads to; then all are
// gathered. A region that is not to be had ends the building, as it ends a flood.
int32_t build_and_gather(KipxSTB *builder, uint64_t flags) {
    Features features;
    KipxWTSLSC *context = &features.context;
    operations(builder)->configure(builder, context, flags, nullptr);
    const KipxWTSIF *wtsl = operations(builder);
    std::vector<KipxWTSregion *> regions;
    for (uint32_t i = 0; i < 9; ++i) {
        KipxWTSregion *region = wtsl->newregion(nullptr, builder, context, nullptr);
        if (!region) break;
        if (i && i < 8) wtsl->merge(builder, context, region, regions.back());
        for (uint32_t p = 0; p < 20; ++p) {
            const uint32_t pair[2] = {i, p};
            wtsl->update2D(builder, context, region, pair, 1);
        }
        regions.push_back(region);
        if (i < 8) __KipxSTBrootnode(builder, region->node);
    }
    int32_t code = regions.size() < 9 ? KIPX_ENOMEM : 0;
    if (code == 0) {
        KipxSTnode *loose = regions[8]->node;
        regions[8]->node = nullptr;
        wtsl->finish(builder, context, nullptr, 2);
        code = KipxGatherMSERsFeatures(builder, regions.data(), regions.size());
        bool whole = true;
        for (size_t i = 0; i < regions.size(); ++i) {
            const KipxWTSregion *region = regions[i];
            int32_t area = i < 8 ? static_cast<int32_t>(20 * (i + 1)) : 20;
            EXPECT_EQ(region->area, area);
            EXPECT_EQ(features.state<KipxWTSMF>(0, region).count, area);
            EXPECT_EQ(region->kept, 0) << "the mark of the listed";
            const auto &pixels = features.state<KipxWTSPF>(1, region);
            EXPECT_TRUE(code || pixels.capacity & KIPX_WTSPF_GATHERED) << i;
            whole &= pixels.count == static_cast<uint64_t>(area);
        }
        EXPECT_EQ(whole, code == 0) << "lost pixels are reported";
        wtsl->destroyfeatures(builder, context, regions[8]);
        regions[8]->node = loose;
    }
    KipxSTBclear(builder, 1); // while the descriptors live
    return code;
}

template<uint64_t flags> void gathering(Trial &trial) {
    trial.call([&] {
        KipxSTB *builder = KipxWTSTBopen(nullptr, nullptr, nullptr, trial.stack());
        int32_t code = builder ? build_and_gather(builder, flags) : KIPX_ENOMEM;
        KipxSTBclose(builder, 0);
        return code;
    });
}

// ---- floods -------------------------------------------------------------------------------------

// An image with many levels and many regions, so that stacks, lists and node blocks grow.
struct Picture {
    static constexpr uint32_t side = 28;
    GuardedArray pixels{shape()}, mask{shape()};

    Picture() {
        Rng rng(7);
        pixels.for_each([&](At at) {
            pixels.set_integer(at, at.x * 8 + (at.y % 7) * (at.y % 7) + rng.below(9));
            mask.set_integer(at, at.y != 20); // two parts
        });
    }
    static Shape shape() {
        Shape s;
        s.width = s.height = side;
        return s;
    }
};

template<bool fast, bool masked> void flood(Trial &trial) {
    Picture picture;
    Features features;
    KipxWatershedContext w{};
    w.levelset = &features.context;
    w.builder = fast ? &KipxFWTSRESopen(nullptr, nullptr, nullptr, trial.stack())->builder
                     : KipxWTSTBopen(nullptr, nullptr, nullptr, trial.stack());
    auto call = [&] {
        return KipxWatershedEx(trial.xe(), fast ? KIPX_FLAG_FAST : 0, picture.pixels.arr(),
                               masked ? picture.mask.arr() : nullptr, nullptr, nullptr, &w);
    };
    if (!fast) trial.keeps(w.builder->storage); // a store keeps its blocks for the next flood
    if (trial.call(call)) {
        EXPECT_EQ(w.output, nullptr);
        EXPECT_TRUE(!w.builder->tree || !w.builder->tree->root);
        EXPECT_TRUE(!fast || kipx_fwtsr_count(KipxFWTSRESfrombuilder(w.builder)) == 0);
    }
    // The builder then works as ever.
    ASSERT_EQ(call(), 0);
    auto *root = static_cast<KipxWTSregion *>(w.output->root->data);
    EXPECT_EQ(root->area, masked ? 27 * 28 : 28 * 28);
    KipxSTBclose(w.builder, 0);
}

// The owner makes the tree anew, which the store cannot see, and attaches it: the storage is rolled
// back, and what the store held there belongs to others.
void remade_tree(Trial &trial) {
    Picture picture;
    KipxWTSLSC levelset{}; // no states: those of the forgotten tree would be lost with it
    KipxST tree{};
    KipxWatershedContext w{};
    w.levelset = &levelset;
    w.builder = &KipxFWTSRESopen(nullptr, &tree, nullptr, trial.stack())->builder;
    auto call = [&] {
        return KipxWatershed(trial.xe(), KIPX_FLAG_FAST, picture.pixels.arr(), nullptr, &w);
    };
    EXPECT_EQ(call(), 0);
    KipxSTinit(&tree, nullptr);
    KipxSTBxtrntree(w.builder, &tree);
    std::string others(20000, 'x');
    void *block = ZuSMEMSTGaalloc(w.builder->storage, others.size(), 0, 0);
    memcpy(block, others.data(), others.size());
    trial.call(call);
    EXPECT_EQ(memcmp(block, others.data(), others.size()), 0);
    ASSERT_EQ(call(), 0);
    EXPECT_EQ(static_cast<KipxWTSregion *>(tree.root->data)->area, 28 * 28);
    KipxSTBclose(w.builder, 1);
}

// The entry stack of a tiny image grows at once; where it cannot, the push is dropped and the flood
// goes on with what is below.
template<uint32_t width> void tiny_flood(Trial &trial) {
    Picture picture;
    Features features;
    kipx_arr *line = picture.pixels.arr();
    line->volume[1] = 1, line->volume[2] = width;
    KipxWatershedContext w{};
    w.levelset = &features.context;
    w.builder = KipxWTSTBopen(nullptr, nullptr, nullptr, trial.stack());
    w.seed_column = width - 1;
    trial.keeps(w.builder->storage);
    trial.call([&] { return KipxWatershed(trial.xe(), 0, line, nullptr, &w); });
    KipxSTBclose(w.builder, 0);
}

template<bool fast, bool masked> void stable_regions(Trial &trial) {
    Picture picture;
    KipxWTSFDs pixels;
    KipxWTSPFinitFeatureDs(&pixels, nullptr);
    KipxMSERContext m{};
    m.delta = 4;
    m.max_area_fraction = m.max_variation = 0.5f;
    m.polarity = 2;
    m.gather = 1;
    m.levelset.descriptors = &pixels;
    m.levelset.count = 1;
    auto run = fast ? KipxGenerateFMSERsEx : KipxGenerateMSERsEx;
    int32_t code = trial.call([&] {
        return run(trial.xe(), 0, picture.pixels.arr(), masked ? picture.mask.arr() : nullptr,
                   nullptr, nullptr, &m);
    });
    EXPECT_EQ(m.dark_builder != nullptr, code == 0);
    EXPECT_EQ(m.bright_builder != nullptr, code == 0);
    EXPECT_EQ(m.list.count, uint64_t{m.dark_count} + m.bright_count);
    EXPECT_TRUE(!code || (!m.list.entries && !m.list.count && !m.list.capacity));
    EXPECT_TRUE(trial.was_refused() || m.list.count >= 4);
    KipxMSERrelease(&m);
}

// ---- the table ----------------------------------------------------------------------------------

const Case objects[] = {
    {"an environment on a stack of its own", Needs::all, 2,
     [](Trial &trial) {
         trial.call([] {
             KipxXE *xe = KipxXEopen(nullptr, nullptr, 0);
             KipxXEclose(xe);
             return had(xe);
         });
     }},
    {"a tree builder on a storage of its own", Needs::all, 3,
     [](Trial &trial) {
         trial.call([] {
             KipxSTB *builder = KipxWTSTBopen(nullptr, nullptr, nullptr, nullptr);
             int32_t code = had(builder ? KipxSTBnewnode(builder) : nullptr);
             KipxSTBclose(builder, 0);
             return code;
         });
     }},
    {"a tree builder in the caller's storage", Needs::all, 1,
     [](Trial &trial) {
         trial.call([&] {
             KipxSTB *builder = KipxWTSTBopen(nullptr, nullptr, trial.stack(), nullptr);
             KipxSTBclose(builder, 0);
             return had(builder);
         });
     }},
    {"a tree builder that opens its storage late", Needs::all, 2,
     [](Trial &trial) {
         KipxSTB builder{};
         KipxSTBinit(&builder, nullptr, 0, nullptr, nullptr, trial.stack());
         trial.call([&] {
             int32_t code = had(KipxSTBnewnode(&builder));
             if (code) KipxSTBfini(&builder, 0);
             return code;
         });
         KipxSTBinit(&builder, nullptr, 0, nullptr, nullptr, trial.stack());
         EXPECT_NE(KipxSTBnewnode(&builder), nullptr);
         KipxSTBfini(&builder, 0);
     }},
    {"a region with a separate node", Needs::all, 4,
     [](Trial &trial) {
         trial.call([&] {
             Features features;
             KipxSTB *builder = KipxWTSTBopen(nullptr, nullptr, nullptr, trial.stack());
             int32_t code = had(
                 builder ? __KipxWTSTBnewregionNode(nullptr, builder, &features.context) : nullptr);
             KipxSTBclose(builder, 0);
             return code;
         });
     }},
    {"gathering", Needs::most, 10, gathering<0>},
    {"gathering, general chain", Needs::most, 10, gathering<KIPX_FLAG_GENERAL_BUILDER>},
    {"flood", Needs::most, 5, flood<false, false>},
    {"flood, masked", Needs::most, 5, flood<false, true>},
    {"fast flood", Needs::all, 4, flood<true, false>},
    {"fast flood, masked", Needs::all, 4, flood<true, true>},
    {"fast flood, tree made anew", Needs::all, 2, remade_tree},
    {"flood of 1 pixel", Needs::most, 3, tiny_flood<1>},
    {"flood of 2 pixels", Needs::most, 3, tiny_flood<2>},
    {"flood of 20 pixels", Needs::most, 3, tiny_flood<20>},
    {"stable regions", Needs::most, 8, stable_regions<false, false>},
    {"stable regions, masked", Needs::most, 8, stable_regions<false, true>},
    {"fast stable regions", Needs::most, 8, stable_regions<true, false>},
    {"fast stable regions, masked", Needs::most, 8, stable_regions<true, true>},
};

// The first requests one by one, where scratch, builders and lists are taken; then a sample.
long next(long k) { return k < 80 ? k + 1 : k + 1 + k / 12; }

// Gives the number of trials that failed.
long fail_in_turn(const Case &row, Shortage shortage) {
    long failures = 0;
    for (long k = 0;; k = next(k)) {
        SCOPED_TRACE(row.name + ", request " + std::to_string(k) + ", shortage " +
                     std::to_string(static_cast<int>(shortage)));
        long heap = heap_blocks(), storages = open_storages();
        bool refused;
        {
            Trial trial(shortage, k);
            row.run(trial);
            refused = trial.was_refused();
            failures += trial.code() != 0;
            EXPECT_TRUE(row.needs == Needs::most || !refused || trial.code()) << "does without";
        }
        EXPECT_EQ(heap_blocks(), heap) << "heap blocks at the end";
        EXPECT_EQ(open_storages(), storages) << "storages at the end";
        if (!refused || testing::Test::HasFailure()) return failures;
    }
}

void fail_all_in_turn(std::span<const Case> cases) {
    long refusals = 0;
    for (const Case &row : cases)
        for (Shortage shortage : {Shortage::once, Shortage::from_then_on, Shortage::of_room}) {
            long failures = fail_in_turn(row, shortage);
            ASSERT_FALSE(testing::Test::HasFailure()) << row.name;
            EXPECT_TRUE(shortage == Shortage::of_room || failures >= row.failures) << row.name;
            refusals += failures;
        }
    std::printf("%zu calls, refused memory %ld times\n", cases.size(), refusals);
}

TEST(WithoutMemory, EveryRequestOfObjects) { fail_all_in_turn(objects); }
TEST(WithoutMemory, EveryRequestOfOperations) { fail_all_in_turn(operation_cases()); }

// A pixel list keeps what it has, whole.
TEST(WithoutMemory, PixelMergesLoseWhatDoesNotFit) {
    const uint32_t pairs[] = {1, 2, 3, 4, 5, 6, 7, 8};
    for (bool lazy : {true, false}) {
        KipxWTSPF into{}, from{};
        KipxWTSPF_update2D_n(&into, pairs, 3);
        KipxWTSPF_update2D_n(&from, pairs, 4);
        refuse(0, true);
        (lazy ? __KipxWTSPF__lazymerge__ : __KipxWTSPF__merge__)(&into, &from);
        EXPECT_EQ(KipxWTSPF_update2D(&from, 1, 1), 0u);
        refuse(-1, false);
        EXPECT_EQ(into.count, 3u);
        EXPECT_EQ(into.capacity, lazy ? 3u : 3u | KIPX_WTSPF_GATHERED);
        EXPECT_EQ(from.count, 4u);
        __KipxWTSPF__destroy__(&into);
        __KipxWTSPF__destroy__(&from);
    }
}

} // namespace
} // namespace kipx::test
