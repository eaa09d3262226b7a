// mser_failing_test.cpp - floods and stable regions with every allocation failing in turn.
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include <kipx/mser.h>
#include <kipx/watershed.h>

#include "support/rng.h"
#include "zu_failing.h"

namespace {

using kipx::test::Rng;

// An image with many levels and many regions, so that stacks, lists and node blocks grow.
struct Picture {
    static constexpr uint32_t side = 28;
    std::vector<uint8_t> pixels, mask;
    kipx_arr src{}, mask_arr{};

    Picture() : pixels(side * side), mask(side * side) {
        Rng rng(7);
        for (uint32_t i = 0; i < side * side; ++i) {
            uint32_t y = i / side, x = i % side;
            pixels[i] = static_cast<uint8_t>(x * 8 + (y % 7) * (y % 7) + rng.below(9));
            mask[i] = y == 20 ? 0 : 1; // two parts
        }
        src = describe(pixels);
        mask_arr = describe(mask);
    }
    static kipx_arr describe(std::vector<uint8_t> &bytes) {
        kipx_arr arr{};
        arr.volume[0] = arr.volume[3] = 1;
        arr.volume[1] = arr.volume[2] = arr.strides[1] = side;
        arr.strides[2] = arr.strides[3] = 1;
        arr.naxes = 3;
        arr.type = KIPX_U8;
        arr.base = bytes.data();
        return arr;
    }
};

struct Case {
    bool fast, masked, all_later;
};
const Case cases[] = {{false, false, false}, {false, true, false}, {true, false, false},
                      {true, true, false},   {false, false, true}, {true, true, true}};

// All of the first ones, where scratch, builders and lists are taken; then a sample.
long next(long k) { return k < 80 ? k + 1 : k + 1 + k / 12; }

void fail_at(const Case &c, long k) { (c.all_later ? zu_fail_from : zu_fail_at)(k); }

class Failing : public testing::Test {
protected:
    void SetUp() override { zu_reset(), blocks_ = zu_live_blocks(); }
    void TearDown() override {
        zu_reset();
        EXPECT_EQ(zu_live_blocks(), blocks_);
    }
    Picture picture_;
    long blocks_ = 0;
};

// Every flood ends with the code for short memory or with the whole tree, and leaves nothing behind
// that is not the builder's; the builder then works again.
TEST_F(Failing, Floods) {
    for (const Case &c : cases) {
        long failures = 0, lost_root = 0;
        for (long k = 0;; k = next(k)) {
            KipxXE xe{};
            KipxXEinit(&xe, nullptr);
            ASSERT_NE(KipxXEmmstack(&xe), nullptr);
            KipxWTSFDs features[2];
            KipxWTSMFinitFeatureDs(&features[0], nullptr);
            KipxWTSPFinitFeatureDs(&features[1], nullptr);
            KipxWTSLSC levelset{};
            levelset.descriptors = features;
            levelset.count = 2;
            KipxWatershedContext w{};
            w.levelset = &levelset;
            w.builder = c.fast ? &KipxFWTSRESopen(nullptr, nullptr, nullptr, xe.stack)->builder
                               : KipxWTSTBopen(nullptr, nullptr, nullptr, xe.stack);
            uint64_t flags = c.fast ? KIPX_FLAG_FAST : 0;
            const kipx_arr *mask = c.masked ? &picture_.mask_arr : nullptr;
            zu_reset();
            fail_at(c, k);
            int32_t code = KipxWatershedEx(&xe, flags, &picture_.src, mask, nullptr, nullptr, &w);
            long asked = zu_allocations();
            zu_reset();
            if (code == 0) {
                ASSERT_NE(w.output, nullptr);
                // A pixel list that could not grow, or the entry stack's, is not the flood's
                // failure.
                ASSERT_NE(w.output->root, nullptr);
            } else {
                ASSERT_EQ(code, KIPX_ENOMEM) << k;
                ASSERT_EQ(w.output, nullptr);
                if (w.builder->tree) {
                    ASSERT_EQ(w.builder->tree->root, nullptr);
                    ++lost_root;
                }
                ++failures;
            }
            ASSERT_EQ(KipxWatershedEx(&xe, flags, &picture_.src, mask, nullptr, nullptr, &w), 0);
            auto *root = static_cast<KipxWTSregion *>(w.output->root->data);
            EXPECT_EQ(root->area, c.masked ? 27 * 28 : 28 * 28);
            KipxSTBclose(w.builder, 0);
            KipxXEfini(&xe);
            ASSERT_EQ(zu_live_blocks(), blocks_) << k;
            if (k >= asked) break; // nothing failed any more
        }
        EXPECT_GE(failures, 5);
        EXPECT_GT(lost_root, 0);
    }
}

TEST_F(Failing, StableRegions) {
    for (const Case &c : cases) {
        long failures = 0;
        uint64_t most = 0;
        for (long k = 0;; k = next(k)) {
            KipxXE xe{};
            KipxXEinit(&xe, nullptr);
            KipxWTSFDs feature;
            KipxWTSPFinitFeatureDs(&feature, nullptr);
            KipxMSERContext m{};
            m.delta = 4;
            m.max_area_fraction = 0.5f;
            m.max_variation = 0.5f;
            m.polarity = 2;
            m.gather = 1;
            m.levelset.descriptors = &feature;
            m.levelset.count = 1;
            auto run = c.fast ? KipxGenerateFMSERsEx : KipxGenerateMSERsEx;
            zu_reset();
            fail_at(c, k);
            int32_t code = run(&xe, 0, &picture_.src, c.masked ? &picture_.mask_arr : nullptr,
                               nullptr, nullptr, &m);
            long asked = zu_allocations();
            zu_reset();
            if (code == 0) {
                ASSERT_NE(m.dark_builder, nullptr);
                ASSERT_NE(m.bright_builder, nullptr);
                ASSERT_EQ(m.list.count, uint64_t{m.dark_count} + m.bright_count);
                most = std::max(most, m.list.count);
            } else {
                ASSERT_EQ(code, KIPX_ENOMEM) << k;
                ASSERT_EQ(m.list.entries, nullptr);
                ASSERT_EQ(m.list.count + m.list.capacity, 0u);
                ASSERT_EQ(m.dark_builder, nullptr);
                ASSERT_EQ(m.bright_builder, nullptr);
                ASSERT_EQ(m.dark_count + m.bright_count, 0u);
                ++failures;
            }
            KipxMSERrelease(&m);
            KipxXEfini(&xe);
            ASSERT_EQ(zu_live_blocks(), blocks_) << k;
            if (k >= asked) break;
        }
        EXPECT_GE(failures, 8);
        EXPECT_GE(most, 4u);
    }
}

// The entry stack of a tiny image grows at once; where it cannot, the push is dropped and the flood
// goes on with what is below.
TEST_F(Failing, DroppedPushes) {
    for (uint32_t width : {1u, 2u, 3u, 20u})
        for (bool all_later : {false, true})
            for (long k = 0;; ++k) {
                KipxXE xe{};
                KipxXEinit(&xe, nullptr);
                ASSERT_NE(KipxXEmmstack(&xe), nullptr);
                kipx_arr line = picture_.src;
                line.volume[1] = 1;
                line.volume[2] = width;
                KipxWTSLSC levelset{};
                KipxWatershedContext w{};
                w.levelset = &levelset;
                w.builder = KipxWTSTBopen(nullptr, nullptr, nullptr, xe.stack);
                w.seed_column = width - 1;
                zu_reset();
                fail_at({false, false, all_later}, k);
                int32_t code = KipxWatershed(&xe, 0, &line, nullptr, &w);
                long asked = zu_allocations();
                zu_reset();
                EXPECT_TRUE(code == 0 || code == KIPX_ENOMEM) << code;
                KipxSTBclose(w.builder, 0);
                KipxXEfini(&xe);
                ASSERT_EQ(zu_live_blocks(), blocks_);
                if (k >= asked) break;
            }
}

// A limit on the environment's memory is met the same way.
TEST_F(Failing, SmallEnvironments) {
    for (bool fast : {false, true}) {
        bool worked = false;
        for (size_t limit = 1 << 12; !worked; limit += limit / 2) {
            KipxXE xe{};
            KipxXEinit(&xe, nullptr);
            ZuSMEMSTGsetlimit(KipxXEmmstack(&xe), limit);
            KipxMSERContext m{};
            m.delta = 4;
            m.max_area_fraction = 0.5f;
            m.max_variation = 0.5f;
            m.polarity = 2;
            auto run = fast ? KipxGenerateFMSERs : KipxGenerateMSERs;
            int32_t code = run(&xe, 0, &picture_.src, nullptr, &m);
            worked = code == 0;
            if (!worked) {
                EXPECT_EQ(code, KIPX_ENOMEM);
            }
            KipxMSERrelease(&m);
            KipxXEfini(&xe);
            ASSERT_LT(limit, size_t{1} << 30);
        }
    }
}

} // namespace
