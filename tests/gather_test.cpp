// gather_test.cpp - regions: trees built through all four chains and gathered in any order, against
// plain sets of pixels; and what the builder does with states besides.
#include <algorithm>
#include <cstring>
#include <numeric>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <kipx/features.h>
#include <kipx/types.h>

#include "support/rng.h"

namespace kipx::test {
namespace {

std::vector<uint64_t> listed(const KipxWTSPF &state) {
    std::vector<uint64_t> list;
    for (uint64_t i = 0; i < state.count; i++)
        list.push_back(uint64_t{state.entries[i].row} << 32 | state.entries[i].column);
    return list;
}

// A feature of our own: the bounding box, with a count of everything that is asked of it.
struct Box {
    uint32_t top, left, bottom, right;
    uint32_t complete, alive;
};
struct Tally {
    long inits = 0, destroys = 0, merges = 0, lazymerges = 0;
} tally;

void box_init(void *state, void *parameter) {
    *static_cast<Box *>(state) = {~0u, ~0u, 0, 0, 0, 1};
    ++*static_cast<long *>(parameter);
}
void box_destroy(void *state) {
    EXPECT_EQ(static_cast<Box *>(state)->alive, 1u);
    static_cast<Box *>(state)->alive = 0;
    tally.destroys++;
}
void box_extend(Box &box, const Box &by) {
    box.top = std::min(box.top, by.top), box.left = std::min(box.left, by.left);
    box.bottom = std::max(box.bottom, by.bottom), box.right = std::max(box.right, by.right);
}
void box_update2D(void *state, const uint32_t *pairs, uint32_t count) {
    for (uint32_t i = 0; i < count; i++, pairs += 2)
        box_extend(*static_cast<Box *>(state), {pairs[0], pairs[1], pairs[0], pairs[1], 0, 0});
}
// Linear indices of an image that is 64 pixels wide.
void box_update(void *state, const uint32_t *pixels, uint32_t count) {
    for (uint32_t i = 0; i < count; i++) {
        const uint32_t pair[2] = {pixels[i] / 64, pixels[i] % 64};
        box_update2D(state, pair, 1);
    }
}
void box_lazymerge(void *state, const void *other) {
    tally.lazymerges++;
    box_extend(*static_cast<Box *>(state), *static_cast<const Box *>(other));
}
void box_merge(void *state, const void *other) {
    tally.merges++;
    box_extend(*static_cast<Box *>(state), *static_cast<const Box *>(other));
    static_cast<Box *>(state)->complete = 1;
}
int32_t box_isgathered(const void *state) { return static_cast<const Box *>(state)->complete != 0; }
void box_ongather(void *state, const KipxWTSregion *) { static_cast<Box *>(state)->complete = 1; }

constexpr uint32_t box_magic = 0x626F7861;
KipxWTSFDs box_feature() {
    KipxWTSFDs feature{};
    feature.magic = box_magic;
    feature.state_size = sizeof(Box);
    feature.parameter = &tally.inits;
    feature.init = box_init;
    feature.destroy = box_destroy;
    feature.update = box_update;
    feature.update2D = box_update2D;
    feature.merge = box_merge;
    feature.lazymerge = box_lazymerge;
    feature.isgathered = box_isgathered;
    feature.ongather = box_ongather;
    return feature;
}

enum class Set { all, moments, pixels, updates_only, no_merge, no_lazymerge };

std::vector<KipxWTSFDs> feature_set(Set set) {
    KipxWTSFDs moments, pixels, box = box_feature();
    KipxWTSMFinitFeatureDs(&moments, nullptr);
    KipxWTSPFinitFeatureDs(&pixels, nullptr);
    switch (set) {
    case Set::moments:
        return {moments};
    case Set::pixels:
        return {pixels};
    case Set::updates_only: // everything else absent
        box.update2D = nullptr;
        for (KipxWTSFDs *f : {&moments, &pixels}) f->update = nullptr;
        break;
    case Set::no_merge:
        for (KipxWTSFDs *f : {&moments, &pixels, &box}) f->merge = nullptr;
        break;
    case Set::no_lazymerge:
        for (KipxWTSFDs *f : {&moments, &pixels, &box}) f->lazymerge = nullptr;
        break;
    case Set::all:
        break;
    }
    KipxWTSFDs bare{}; // a state that nobody touches
    bare.state_size = 12;
    return {moments, bare, pixels, box};
}

// What a region must hold, by plain sets.
struct ModelRegion {
    KipxWTSregion *region;
    std::vector<uint32_t> own; // linear indices
    std::vector<size_t> children;
};

// Builds a random tree the way a flood does: pixels arrive, complete regions merge into others.
struct Scene {
    static constexpr uint32_t width = 64;
    std::vector<KipxWTSFDs> features;
    KipxWTSLSC context{};
    KipxSTB *builder = KipxWTSTBopen(nullptr, nullptr, nullptr, nullptr);
    const KipxWTSIF *operations = nullptr;
    std::vector<ModelRegion> model;
    uint32_t next_pixel = 0;

    Scene(Set set, uint64_t flags) : features(feature_set(set)) {
        const auto count = static_cast<int32_t>(features.size());
        KipxWTSLSCinit2D(&context, features.data(), count, 1000, width, width);
        operations = find_wtsl();
        EXPECT_EQ(operations->configure(builder, &context, flags, nullptr), 0);
        EXPECT_NE(builder->specialisation, &context);
        EXPECT_EQ(memcmp(builder->specialisation, &context, sizeof context), 0);
        operations = find_wtsl();
    }
    ~Scene() { KipxSTBclose(builder, 0); }
    const KipxWTSIF *find_wtsl() {
        auto *stbl = static_cast<const KipxSTBIF *>(builder->interface_chain);
        EXPECT_EQ(stbl->tag, KIPX_TAG_STBL);
        auto *wtsl = reinterpret_cast<const KipxWTSIF *>(stbl + 1);
        EXPECT_EQ(wtsl->tag, KIPX_TAG_WTSL);
        EXPECT_EQ(wtsl[1].tag, 0u);
        return wtsl;
    }
    size_t add_region() {
        KipxWTSregion *region = operations->newregion(nullptr, builder, &context, nullptr);
        EXPECT_EQ(region->node->data, region);
        EXPECT_EQ(static_cast<void *>(region->node + 1), region);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(region->node) % 16, 0u);
        region->kept = static_cast<uint32_t>(model.size() % 2);
        model.push_back({region, {}, {}});
        return model.size() - 1;
    }
    void add_pixels(Rng &rng, size_t to) {
        const auto count = static_cast<uint32_t>(1 + rng.below(rng.one_in(8) ? 200 : 16));
        std::vector<uint32_t> pixels, pairs;
        for (uint32_t i = 0; i < count; i++) {
            pixels.push_back(next_pixel);
            pairs.push_back(next_pixel / width);
            pairs.push_back(next_pixel++ % width);
        }
        KipxWTSregion *region = model[to].region;
        if (rng.one_in(2))
            operations->update(builder, &context, region, pixels.data(), count);
        else
            operations->update2D(builder, &context, region, pairs.data(), count);
        model[to].own.insert(model[to].own.end(), pixels.begin(), pixels.end());
    }
    void merge(size_t parent, size_t child) {
        operations->merge(builder, &context, model[parent].region, model[child].region);
        model[parent].children.push_back(child);
    }
    size_t grow(Rng &rng, size_t regions) {
        std::vector<size_t> open;
        while (model.size() < regions || open.size() > 1) {
            if (model.size() < regions && (open.empty() || rng.one_in(2))) {
                open.push_back(add_region());
                add_pixels(rng, open.back());
            } else if (open.size() > 1) {
                const size_t at = rng.below(open.size()), child = open[at];
                open.erase(open.begin() + static_cast<long>(at));
                merge(open[rng.below(open.size())], child);
            }
            if (rng.one_in(2)) add_pixels(rng, open[rng.below(open.size())]);
        }
        KipxST *tree = nullptr;
        __KipxSTBrootnode(builder, model[open[0]].region->node);
        EXPECT_EQ(operations->finish(builder, &context, &tree, 2), 0);
        EXPECT_EQ(tree, builder->tree);
        return open[0];
    }
    std::vector<uint32_t> all_pixels(size_t at) const {
        std::vector<uint32_t> pixels = model[at].own;
        for (size_t child : model[at].children) {
            const std::vector<uint32_t> below = all_pixels(child);
            pixels.insert(pixels.end(), below.begin(), below.end());
        }
        return pixels;
    }
    // Empty when the gathered region holds what it must; else what is wrong first.
    std::string fault(size_t at, bool own_first) const;
    std::string fault_of(const KipxWTSFDs &feature, const void *state, size_t at,
                         bool own_first) const;
};

std::string Scene::fault_of(const KipxWTSFDs &feature, const void *state, size_t at,
                            bool own_first) const {
    const std::vector<uint32_t> pixels = all_pixels(at);
    if (feature.magic == KIPX_WTSMF_MAGIC) {
        uint64_t r = 0, c = 0, rr = 0, rc = 0, cc = 0;
        for (const uint64_t p : pixels) {
            const uint64_t y = p / width, x = p % width;
            r += y, c += x, rr += y * y, rc += y * x, cc += x * x;
        }
        const auto &s = *static_cast<const KipxWTSMF *>(state);
        if (s.count != static_cast<int32_t>(pixels.size())) return "moment count";
        if (s.row != double(r) || s.column != double(c)) return "first moments";
        if (s.row_row != double(rr) || s.row_column != double(rc) || s.column_column != double(cc))
            return "second moments";
    } else if (feature.magic == KIPX_WTSPF_MAGIC) {
        const auto &s = *static_cast<const KipxWTSPF *>(state);
        if (!__KipxWTSPF__isgathered__(state)) return "pixels not marked";
        std::vector<uint64_t> got = listed(s), expected;
        for (const uint64_t p : pixels) expected.push_back(p / width << 32 | p % width);
        if (own_first &&
            !std::equal(got.begin(),
                        got.begin() + static_cast<long>(std::min(got.size(), model[at].own.size())),
                        expected.begin()))
            return "own pixels";
        std::sort(got.begin(), got.end());
        std::sort(expected.begin(), expected.end());
        if (got != expected) return "pixels";
    } else if (feature.magic == box_magic) {
        Box box{~0u, ~0u, 0, 0, 1, 1};
        for (const uint32_t p : pixels) box_update(&box, &p, 1);
        if (memcmp(&box, state, sizeof box) != 0) return "box";
    } else {
        for (int i = 0; i < 12; i++)
            if (static_cast<const char *>(state)[i]) return "bare state";
    }
    return "";
}

std::string Scene::fault(size_t at, bool own_first) const {
    const KipxWTSregion *region = model[at].region;
    if (region->area != static_cast<int32_t>(all_pixels(at).size())) return "area";
    if (region->kept != at % 2) return "kept";
    for (const KipxWTSFDs &feature : features) {
        const char *state = reinterpret_cast<const char *>(region) + feature.state_offset;
        const std::string fault = fault_of(feature, state, at, own_first);
        if (!fault.empty()) return fault;
    }
    return "";
}

struct GatherCase {
    const char *name;
    Set set;
    uint64_t flags;
    bool own_first;
};
constexpr GatherCase gather_cases[] = {
    {"default", Set::all, 0, true},
    {"default, for lack of a chain of its own", Set::all, KIPX_FLAG_FAST, true},
    {"default, moments", Set::moments, 0, true},
    {"default, pixels", Set::pixels, 0, true},
    {"default, updates of one kind", Set::updates_only, 0, true},
    {"default, no merge", Set::no_merge, 0, true},
    {"default, no lazymerge", Set::no_lazymerge, 0, true},
    {"moment chain", Set::moments, 0x200000, true},
    {"moment chain", Set::moments, 0x400000, true},
    {"general", Set::all, KIPX_FLAG_GENERAL_BUILDER, false},
    {"general before fast", Set::pixels, KIPX_FLAG_GENERAL_BUILDER | KIPX_FLAG_FAST, false},
    {"general, no merge", Set::no_merge, KIPX_FLAG_GENERAL_BUILDER, true},
};

// Gathers regions in random order, some alone first, some twice; returns the first fault.
std::string gather_and_compare(Scene &scene, Rng &rng, size_t regions, bool own_first) {
    scene.grow(rng, regions);
    std::vector<size_t> order(regions);
    std::iota(order.begin(), order.end(), size_t{0});
    for (size_t i = 0; i < regions; i++) std::swap(order[i], order[rng.below(regions)]);
    order.resize(1 + rng.below(regions));
    order.push_back(order[0]);
    std::vector<KipxWTSregion *> list;
    for (size_t at : order) list.push_back(scene.model[at].region);
    const uint64_t alone = rng.below(4);
    for (uint64_t i = 0; i < alone; i++) {
        KipxWTSregion *region = list[rng.below(list.size())];
        const int32_t result = i % 2 ? KipxGatherMSERFeatures(scene.builder, region)
                                     : KipxMSERgatherFeatures(&scene.context, region);
        if (result) return "result " + std::to_string(result);
    }
    const int32_t result = KipxGatherMSERsFeatures(scene.builder, list.data(), list.size());
    if (result) return "result " + std::to_string(result);
    for (size_t at : order) {
        const std::string fault = scene.fault(at, own_first);
        if (!fault.empty()) return fault;
    }
    return "";
}

TEST(Gathering, IsTheUnionOfPixels) {
    for (const GatherCase &row : gather_cases) {
        Rng rng(11);
        for (int round = 0; round < 60; round++) {
            tally = {};
            {
                Scene scene(row.set, row.flags);
                ASSERT_EQ(gather_and_compare(scene, rng, 1 + rng.below(60), row.own_first), "")
                    << row.name << ", round " << round;
            }
            ASSERT_EQ(tally.destroys, tally.inits) << row.name;
        }
    }
}

TEST(Gathering, TheGeneralChainMergesStatesAtOnce) {
    Rng rng(3);
    tally = {};
    Scene scene(Set::all, KIPX_FLAG_GENERAL_BUILDER);
    const size_t root = scene.grow(rng, 25);
    EXPECT_EQ(tally.merges, 24);
    EXPECT_EQ(tally.lazymerges, 0);
    EXPECT_EQ(scene.fault(root, false), "") << "complete without gathering";
}

TEST(Gathering, IsLinearInAnyOrder) {
    // A chain of nested regions, every one listed, outermost first and innermost first.
    for (bool outermost_first : {true, false}) {
        Scene scene(Set::all, 0);
        std::vector<KipxWTSregion *> list;
        Rng rng(1);
        for (size_t i = 0; i < 3000; i++) {
            scene.add_region();
            const uint32_t pair[2] = {0, 0};
            scene.operations->update2D(scene.builder, &scene.context, scene.model[i].region, pair,
                                       1);
            if (i) scene.merge(i, i - 1);
            list.push_back(scene.model[i].region);
        }
        if (outermost_first) std::reverse(list.begin(), list.end());
        tally = {};
        ASSERT_EQ(KipxGatherMSERsFeatures(scene.builder, list.data(), list.size()), 0);
        EXPECT_EQ(tally.lazymerges, 2999);
    }
}

// A listed region that the walk from its node does not come to: it has no node, or its node leads to
// another region.
TEST(Gathering, ARegionThatNoNodeLeadsTo) {
    for (bool without_node : {true, false}) {
        Scene scene(Set::all, 0);
        Rng rng(4);
        size_t root = scene.grow(rng, 6), lost = scene.add_region();
        scene.add_pixels(rng, lost);
        KipxWTSregion *region = scene.model[lost].region;
        KipxSTnode *own = region->node;
        region->node = without_node ? nullptr : KipxSTBnewnode(scene.builder);
        KipxWTSregion *list[] = {region, scene.model[root].region};
        EXPECT_EQ(KipxGatherMSERsFeatures(scene.builder, list, 2), 0);
        EXPECT_EQ(scene.fault(lost, true), "");
        EXPECT_EQ(scene.fault(root, true), "");
        scene.operations->destroyfeatures(scene.builder, &scene.context, region);
        region->node = own;
    }
}

TEST(Gathering, RefusesWhatCannotBe) {
    Scene scene(Set::pixels, KIPX_FLAG_FAST);
    Rng rng(2);
    scene.grow(rng, 5);
    KipxWTSregion *list[2] = {scene.model[0].region, nullptr};
    EXPECT_EQ(KipxGatherMSERsFeatures(scene.builder, list, 1), KIPX_EINVAL) << "pixels not kept";
    EXPECT_EQ(scene.model[0].region->area, int32_t(scene.all_pixels(0).size()));
    EXPECT_EQ(KipxMSERgatherFeatures(&scene.context, nullptr), KIPX_EINVAL);
    EXPECT_EQ(KipxMSERgatherFeatures(nullptr, list[0]), KIPX_EINVAL);
    EXPECT_EQ(KipxGatherMSERsFeatures(nullptr, list, 1), KIPX_EINVAL);
    EXPECT_EQ(KipxGatherMSERsFeatures(scene.builder, nullptr, 1), KIPX_EINVAL);
    Scene plain(Set::all, 0);
    plain.grow(rng, 5);
    list[0] = plain.model[0].region;
    EXPECT_EQ(KipxGatherMSERsFeatures(plain.builder, list, 2), KIPX_EINVAL) << "null in the list";
    EXPECT_EQ(KipxGatherMSERFeatures(plain.builder, nullptr), KIPX_EINVAL);
    EXPECT_EQ(KipxGatherMSERsFeatures(plain.builder, nullptr, 0), 0);
    const void *chain = plain.builder->interface_chain;
    plain.builder->interface_chain = nullptr;
    EXPECT_EQ(KipxGatherMSERsFeatures(plain.builder, list, 1), KIPX_EINVAL);
    plain.builder->interface_chain = chain;
    KipxSTB *fresh = KipxWTSTBopen(nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(KipxGatherMSERsFeatures(fresh, list, 1), KIPX_EINVAL) << "never configured";
    KipxSTBclose(fresh, 0);
}

// ---- the builder --------------------------------------------------------------------------------

TEST(RegionBuilder, DefaultChainAndExtension) {
    struct {
        KipxSTB head;
        char extension[48];
    } mine{};
    KipxST tree{};
    EXPECT_EQ(KipxWTSTBinit(&mine.head, &tree, nullptr, nullptr), &mine.head);
    EXPECT_EQ(tree.builder, &mine.head);
    mine.head.interface_chain = nullptr;
    __KipxWTSTBinit__(&mine.head);
    EXPECT_EQ(mine.head.interface_chain, KipxWTSTBxinterface());
    KipxSTBfini(&mine.head, 1);
    // Configuring needs the room.
    KipxSTB small{};
    KipxWTSLSC context{};
    KipxSTBinit(&small, KipxWTSTBxinterface(), 47, nullptr, nullptr, nullptr);
    auto *stbl = static_cast<const KipxSTBIF *>(KipxWTSTBxinterface());
    auto *wtsl = reinterpret_cast<const KipxWTSIF *>(stbl + 1);
    EXPECT_EQ(wtsl->configure(&small, &context, 0, nullptr), KIPX_EINVAL);
    EXPECT_EQ(small.specialisation, nullptr);
    KipxSTBfini(&small, 1);
}

TEST(RegionBuilder, ConfiguringAnewReleasesTheOldStates) {
    tally = {};
    Rng rng(9);
    Scene scene(Set::all, 0);
    scene.grow(rng, 20);
    EXPECT_EQ(tally.inits, 20);
    std::vector<KipxWTSFDs> fewer = feature_set(Set::moments);
    KipxWTSLSC next{};
    KipxWTSLSCinit2D(&next, fewer.data(), 1, 10, 10, 10);
    EXPECT_EQ(scene.operations->configure(scene.builder, &next, 0x200000, nullptr), 0);
    EXPECT_EQ(tally.destroys, 20);
    EXPECT_EQ(scene.builder->tree->root, nullptr);
}

TEST(RegionBuilder, DisposesOfWhatHangsInNoTree) {
    tally = {};
    Scene scene(Set::all, 0);
    for (int i = 0; i < 6; i++) scene.add_region();
    scene.merge(0, 1);
    scene.merge(0, 2);
    scene.merge(3, 4);
    scene.operations->dispose(scene.builder, &scene.context, scene.model[0].region);
    EXPECT_EQ(tally.destroys, 3);
    scene.operations->destroyfeatures(scene.builder, &scene.context, scene.model[5].region);
    EXPECT_EQ(tally.destroys, 4);
    // What is left is the tree of 3 and 4.
    KipxSTBclear(scene.builder, 1);
    EXPECT_EQ(tally.destroys, 6);
}

TEST(RegionBuilder, NodesOfTheirOwn) {
    Scene scene(Set::all, 0);
    KipxSTnode *node = __KipxWTSTBnewregionNode(nullptr, scene.builder, &scene.context);
    ASSERT_NE(node, nullptr);
    auto *region = static_cast<KipxWTSregion *>(node->data);
    EXPECT_EQ(region->node, node);
    KipxSTnode *second = __KipxWTSTBnewnodeWithRegion(scene.builder, region);
    EXPECT_EQ(region->node, second);
    EXPECT_EQ(second->data, region);
    EXPECT_EQ(__KipxWTSTBdisposergn(second, scene.builder, 0), 1);
    EXPECT_EQ(__KipxWTSTBnewnodeWithRegion(scene.builder, nullptr), nullptr);
    EXPECT_EQ(__KipxWTSTBnewregion(nullptr, nullptr, &scene.context), nullptr);
    EXPECT_EQ(__KipxWTSTBnewregion(nullptr, scene.builder, nullptr), nullptr);
    // A node without a region, and a builder never configured, have nothing to dispose of.
    EXPECT_EQ(__KipxWTSTBdisposergn(nullptr, scene.builder, 0), 1);
    EXPECT_EQ(__KipxWTSTBdisposergn(second, nullptr, 0), 1);
}

} // namespace
} // namespace kipx::test
