// tree_failing_test.cpp - trees, regions and gathering with every allocation failing in turn.
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <kipx/features.h>
#include <kipx/types.h>

#include "zu_failing.h"

namespace {

struct Outcome {
    bool complete = false; // everything was had
    std::string fault;     // a promise was broken
};

struct Features {
    KipxWTSFDs list[2];
    KipxWTSLSC context{};
    Features() {
        KipxWTSMFinitFeatureDs(list, nullptr);
        KipxWTSPFinitFeatureDs(list + 1, nullptr);
        KipxWTSLSCinit2D(&context, list, 2, 100, 100, 100);
    }
    const KipxWTSMF &moments(const KipxWTSregion *region) const {
        return *reinterpret_cast<const KipxWTSMF *>(reinterpret_cast<const char *>(region) +
                                                    list[0].state_offset);
    }
    const KipxWTSPF &pixels(const KipxWTSregion *region) const {
        return *reinterpret_cast<const KipxWTSPF *>(reinterpret_cast<const char *>(region) +
                                                    list[1].state_offset);
    }
};

// Eight regions, each absorbing the one before, 20 pixels each; then all are gathered. A region
// that is not to be had ends the building as it ends a flood.
Outcome build_and_gather(KipxSTB *builder, uint64_t flags) {
    Outcome outcome;
    Features features;
    KipxWTSLSC *context = &features.context;
    const auto operations = [&] {
        return reinterpret_cast<const KipxWTSIF *>(
            static_cast<const KipxSTBIF *>(builder->interface_chain) + 1);
    };
    operations()->configure(builder, context, flags, nullptr);
    const KipxWTSIF *wtsl = operations();
    std::vector<KipxWTSregion *> regions;
    for (uint32_t i = 0; i < 8; i++) {
        KipxWTSregion *region = wtsl->newregion(nullptr, builder, context, nullptr);
        if (!region) {
            KipxSTBclear(builder, 1);
            return outcome;
        }
        if (i) wtsl->merge(builder, context, region, regions.back());
        for (uint32_t p = 0; p < 20; p++) {
            const uint32_t pair[2] = {i, p};
            wtsl->update2D(builder, context, region, pair, 1);
        }
        regions.push_back(region);
        __KipxSTBrootnode(builder, region->node);
    }
    wtsl->finish(builder, context, nullptr, 2);
    const int32_t result = KipxGatherMSERsFeatures(builder, regions.data(), regions.size());
    bool lists_whole = true;
    for (size_t i = 0; i < regions.size(); i++) {
        const KipxWTSregion *region = regions[i];
        if (region->area != static_cast<int32_t>(20 * (i + 1))) outcome.fault = "area";
        if (features.moments(region).count != region->area) outcome.fault = "moment count";
        lists_whole &= features.pixels(region).count == static_cast<uint64_t>(region->area);
    }
    if (lists_whole != (result == 0)) outcome.fault = "lost pixels are not reported";
    if (result && result != KIPX_ENOMEM) outcome.fault = "result " + std::to_string(result);
    outcome.complete = result == 0;
    KipxSTBclear(builder, 1); // while the descriptors live
    return outcome;
}

struct Case {
    const char *name;
    std::function<Outcome(ZuSMEMSTG *stack)> run; // stack: closed afterwards, whatever happens
};

KipxSTB *opened_builder(ZuSMEMSTG *stack) {
    return KipxWTSTBopen(nullptr, nullptr, nullptr, stack);
}

const Case cases[] = {
    {"a builder on its own storage",
     [](ZuSMEMSTG *) {
         KipxSTB *builder = opened_builder(nullptr);
         Outcome outcome{builder && KipxSTBnewnode(builder), ""};
         KipxSTBclose(builder, 0);
         return outcome;
     }},
    {"an embedded storage",
     [](ZuSMEMSTG *stack) {
         KipxSTB builder{};
         KipxSTBinit(&builder, nullptr, 0, nullptr, nullptr, stack);
         // What failed once may succeed later.
         Outcome outcome{KipxSTBnewnode(&builder) && KipxSTBnewnode(&builder), ""};
         if (!outcome.complete && !KipxSTBnewnode(&builder)) outcome.fault = "does not recover";
         KipxSTBfini(&builder, 0);
         return outcome;
     }},
    {"a builder in the caller's storage",
     [](ZuSMEMSTG *stack) {
         KipxSTB *builder = KipxWTSTBopen(nullptr, nullptr, stack, nullptr);
         Outcome outcome{builder != nullptr, ""};
         KipxSTBclose(builder, 0);
         return outcome;
     }},
    {"regions with separate nodes",
     [](ZuSMEMSTG *stack) {
         Features features;
         KipxSTB *builder = opened_builder(stack);
         Outcome outcome;
         outcome.complete =
             __KipxWTSTBnewregionNode(nullptr, builder, &features.context) != nullptr;
         KipxSTBclose(builder, 0);
         return outcome;
     }},
    {"default chain",
     [](ZuSMEMSTG *stack) {
         KipxSTB *builder = opened_builder(stack);
         Outcome outcome;
         if (builder) outcome = build_and_gather(builder, 0);
         KipxSTBclose(builder, 0);
         return outcome;
     }},
    {"general chain",
     [](ZuSMEMSTG *stack) {
         KipxSTB *builder = opened_builder(stack);
         Outcome outcome;
         if (builder) outcome = build_and_gather(builder, KIPX_WTS_GENERAL);
         KipxSTBclose(builder, 0);
         return outcome;
     }},
};

TEST(TreesRunShort, EveryAllocationFailsInTurn) {
    for (const Case &row : cases) {
        SCOPED_TRACE(row.name);
        zu_reset();
        const long before = zu_live_blocks();
        ZuSMEMSTG *stack = ZuSMEMSTGopen(nullptr, 0, 0);
        const long start = zu_allocations();
        const Outcome all = row.run(stack);
        const long allocations = zu_allocations() - start;
        EXPECT_TRUE(all.complete);
        EXPECT_EQ(all.fault, "");
        EXPECT_GT(allocations, 0);
        EXPECT_EQ(zu_live_blocks(), before + 1) << "the stack alone";
        for (long k = 0; k < allocations; k++) {
            zu_fail_at(k);
            const Outcome outcome = row.run(stack);
            // The array of a pixel list asks again for less when it cannot double.
            EXPECT_EQ(outcome.fault, "") << "allocation " << k;
            zu_fail_at(-1);
            EXPECT_EQ(zu_live_blocks(), before + 1) << "allocation " << k;
        }
        int incomplete = 0;
        for (long k = 0; k < allocations; k++) {
            zu_fail_from(k);
            const Outcome outcome = row.run(stack);
            zu_fail_from(-1);
            incomplete += !outcome.complete;
            EXPECT_TRUE(outcome.fault.empty() || outcome.fault == "does not recover")
                << outcome.fault << ", from allocation " << k;
            EXPECT_EQ(zu_live_blocks(), before + 1) << "from allocation " << k;
        }
        EXPECT_EQ(incomplete, allocations);
        ZuMEMSTGclose(stack);
        EXPECT_EQ(zu_live_blocks(), before);
    }
}

TEST(TreesRunShort, PixelMergesLoseWhatDoesNotFit) {
    const uint32_t pairs[] = {1, 2, 3, 4, 5, 6, 7, 8};
    for (bool lazy : {true, false}) {
        zu_reset();
        const long before = zu_live_blocks();
        KipxWTSPF into{}, from{};
        KipxWTSPF_update2D_n(&into, pairs, 3);
        KipxWTSPF_update2D_n(&from, pairs, 4);
        zu_fail_from(0);
        (lazy ? __KipxWTSPF__lazymerge__ : __KipxWTSPF__merge__)(&into, &from);
        EXPECT_EQ(KipxWTSPF_update2D(&from, 1, 1), 0u);
        zu_reset();
        EXPECT_EQ(into.count, 3u);
        EXPECT_EQ(into.capacity, lazy ? 3u : 3u | KIPX_WTSPF_GATHERED);
        EXPECT_EQ(from.count, 4u);
        __KipxWTSPF__destroy__(&into);
        __KipxWTSPF__destroy__(&from);
        EXPECT_EQ(zu_live_blocks(), before);
    }
}

} // namespace
