// features_test.cpp - region features: the layout of a region record, and the operations of the
// moment and the pixel feature on single states.
#include <cmath>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include <kipx/features.h>
#include <kipx/types.h>

namespace kipx::test {
namespace {

// ---- layout -------------------------------------------------------------------------------------

TEST(FeatureLayout, OffsetsAreRunningTotals) {
    struct Row {
        std::vector<uint32_t> sizes;
        int32_t record_size;
        std::vector<uint32_t> offsets;
    } const rows[] = {
        {{}, 24, {}},
        {{48, 24}, 96, {24, 72}},
        {{1, 0, 8, 9}, 56, {24, 32, 32, 40}},
        {{0x7FFFFFFF - 32 - 24 - 7}, 0x7FFFFFFF - 39, {24}},
        {{0x7FFFFFFF - 32 - 24}, KIPX_EINVAL, {77}},
        {{0xFFFFFFFF}, KIPX_EINVAL, {77}},
        {{0x80000000, 0x80000000}, KIPX_EINVAL, {77, 77}},
    };
    for (const Row &row : rows) {
        std::vector<KipxWTSFDs> features(row.sizes.size());
        for (size_t i = 0; i < features.size(); i++) {
            features[i].state_size = row.sizes[i];
            features[i].state_offset = 77;
        }
        KipxWTSLSC context{};
        const auto count = static_cast<int32_t>(features.size());
        KipxWTSLSC *made = KipxWTSLSCinit2D(&context, features.data(), count, 3, 5, 8);
        EXPECT_EQ(made != nullptr, row.record_size > 0);
        EXPECT_EQ(KipxWTSLSCfixup(&context), row.record_size);
        for (size_t i = 0; i < features.size(); i++)
            EXPECT_EQ(features[i].state_offset, row.offsets[i]) << i;
        if (row.record_size < 0) {
            KipxSTB *builder = KipxWTSTBopen(nullptr, nullptr, nullptr, nullptr);
            EXPECT_EQ(__KipxWTSTBnewregion(nullptr, builder, &context), nullptr);
            KipxSTBclose(builder, 0);
        }
    }
}

TEST(FeatureLayout, ContextKeepsVolumeAndFirstFixup) {
    KipxWTSFDs features[2];
    KipxWTSMFinitFeatureDs(features, features);
    KipxWTSPFinitFeatureDs(features + 1, nullptr);
    KipxWTSLSC context{};
    const uint32_t volume[4] = {2, 30, 40, 1}, strides[4] = {5000, 100, 2, 1};
    EXPECT_EQ(KipxWTSLSCinit(&context, features, 2, volume, strides), &context);
    EXPECT_EQ(memcmp(context.volume, volume, sizeof volume), 0);
    EXPECT_EQ(memcmp(context.strides, strides, sizeof strides), 0);
    features[0].state_size = 480;
    EXPECT_EQ(KipxWTSLSCfixup(&context), 96) << "runs once";
    KipxWTSLSCsetimvol2D(&context, 7, 8, 9);
    EXPECT_EQ(context.volume[1] * 100 + context.volume[2] * 10 + context.strides[1], 789u);
    EXPECT_EQ(context.record_size, 96);
    EXPECT_EQ(KipxWTSLSCinit(&context, nullptr, 1, nullptr, nullptr), nullptr);
    EXPECT_EQ(KipxWTSLSCinit2D(nullptr, features, 2, 1, 1, 1), nullptr);
    EXPECT_EQ(KipxWTSLSCfixup(nullptr), KIPX_EINVAL);

    EXPECT_EQ(memcmp(features, "ftnm", 4), 0);
    EXPECT_EQ(memcmp(features + 1, "flxp", 4), 0);
    EXPECT_EQ(features[0].parameter, features);
    EXPECT_EQ(KipxWTSFindexByMagic(features, 2, KIPX_WTSPF_MAGIC), 1);
    for (int32_t count : {1, 0, -1})
        EXPECT_EQ(KipxWTSFindexByMagic(features, count, KIPX_WTSPF_MAGIC), -1);
}

// ---- single states ------------------------------------------------------------------------------

TEST(MomentState, ReadOuts) {
    struct Row {
        const char *name;
        std::vector<uint32_t> pairs;
        double theta;
    } const rows[] = {
        {"horizontal line", {4, 1, 4, 2, 4, 3, 4, 9}, 0},
        {"vertical line", {1, 7, 2, 7, 3, 7, 8, 7}, std::acos(-1.0) / 2},
        {"falling diagonal", {1, 1, 2, 2, 3, 3}, std::acos(-1.0) / 4},
        {"rising diagonal", {3, 1, 2, 2, 1, 3}, -std::acos(-1.0) / 4},
        {"pixel", {5, 6}, 0},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        const auto n = static_cast<uint32_t>(row.pairs.size() / 2);
        KipxWTSMF state{};
        KipxWTSregion region{};
        region.area = static_cast<int32_t>(n);
        __KipxWTSMF__update2D__(&state, row.pairs.data(), n);
        EXPECT_EQ(state.count, -static_cast<int32_t>(n)) << "counts down until it is gathered";
        __KipxWTSMF__ongather__(&state, &region);
        double my = 0, mx = 0, yy = 0, xy = 0, xx = 0;
        for (uint32_t i = 0; i < n; i++) {
            my += row.pairs[2 * i] / double(n);
            mx += row.pairs[2 * i + 1] / double(n);
        }
        for (uint32_t i = 0; i < n; i++) {
            const double y = row.pairs[2 * i] - my, x = row.pairs[2 * i + 1] - mx;
            yy += y * y / n, xy += x * y / n, xx += x * x / n;
        }
        EXPECT_NEAR(kipx_mf_mx(&state), mx, 1e-12);
        EXPECT_NEAR(kipx_mf_my(&state), my, 1e-12);
        EXPECT_NEAR(kipx_mf_Mxx(&state), xx, 1e-12);
        EXPECT_NEAR(kipx_mf_Mxy(&state), xy, 1e-12);
        EXPECT_NEAR(kipx_mf_Myy(&state), yy, 1e-12);
        EXPECT_DOUBLE_EQ(kipx_mf_theta(&state), row.theta);
        double out[3];
        kipx_mf_M2(out, &state);
        EXPECT_EQ(out[0], kipx_mf_Myy(&state));
        EXPECT_EQ(out[1], kipx_mf_Mxy(&state));
        EXPECT_EQ(out[2], kipx_mf_Mxx(&state));
    }
    EXPECT_TRUE(std::isnan(kipx_mf_theta(nullptr)));
}

std::vector<uint64_t> listed(const KipxWTSPF &state) {
    std::vector<uint64_t> list;
    for (uint64_t i = 0; i < state.count; i++)
        list.push_back(uint64_t{state.entries[i].row} << 32 | state.entries[i].column);
    return list;
}

TEST(PixelState, MergesKeepTheReceiverFirst) {
    const uint32_t pairs[] = {1, 2, 3, 4, 5, 6, 7, 8};
    for (bool lazy : {true, false}) {
        KipxWTSPF three, four;
        __KipxWTSPF__init__(&three, nullptr);
        __KipxWTSPF__init__(&four, nullptr);
        EXPECT_EQ(KipxWTSPF_update2D_n(&three, pairs, 3), 3u);
        for (uint32_t i = 0; i < 4; i++) EXPECT_EQ(KipxWTSPF_update2D(&four, i, 9), 1u);
        ASSERT_EQ(three.capacity, 3u);
        (lazy ? __KipxWTSPF__lazymerge__ : __KipxWTSPF__merge__)(&three, &four);
        EXPECT_EQ(three.capacity & ~KIPX_WTSPF_GATHERED, 7u);
        EXPECT_EQ(__KipxWTSPF__isgathered__(&three), !lazy);
        const uint64_t row = uint64_t{1} << 32;
        EXPECT_EQ(listed(three), (std::vector<uint64_t>{row | 2, 3 * row | 4, 5 * row | 6, 9,
                                                        row | 9, 2 * row | 9, 3 * row | 9}));
        const KipxWTSPF before = three;
        (lazy ? __KipxWTSPF__lazymerge__ : __KipxWTSPF__merge__)(&three, &three);
        EXPECT_EQ(memcmp(&before, &three, sizeof three), 0) << "into itself";
        for (KipxWTSPF *state : {&three, &four, &four}) {
            __KipxWTSPF__destroy__(state);
            EXPECT_TRUE(!state->capacity && !state->count && !state->entries);
        }
    }
}

} // namespace
} // namespace kipx::test
