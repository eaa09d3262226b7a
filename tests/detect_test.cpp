// Detection of stable regions: the rules against a recursive model, on trees of any shape.
#include <pthread.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include <kipx/mser.h>

#include "support/rng.h"
#include "support/stable_model.h"

namespace {

using namespace kipx::test;

struct Tree {
    std::vector<std::unique_ptr<StableNode>> model;
    std::vector<KipxSTnode> nodes;
    std::vector<KipxWTSregion> regions;
    KipxST tree{};

    Tree(Rng &rng, size_t n) : nodes(n), regions(n) {
        int spread = static_cast<int>(rng.between(1, 12));
        for (uint32_t i = 0; i < n; ++i) {
            auto node = std::make_unique<StableNode>();
            node->name = i;
            if (i == 0) {
                // Low ones meet the level below which nothing is looked at.
                node->level =
                    static_cast<int>(rng.one_in(3) ? rng.between(5, 40) : rng.between(60, 255));
                node->area = static_cast<int>(rng.between(1000, 4000));
            } else {
                size_t depth = rng.one_in(2) ? 1 : i;
                StableNode *parent = model[i - 1 - rng.below(std::min<size_t>(depth, i))].get();
                node->parent = parent;
                node->level = parent->level - static_cast<int>(rng.between(1, spread));
                node->area = std::max(1, parent->area -
                                             static_cast<int>(rng.below(rng.one_in(2) ? 10 : 400)));
                parent->children.insert(parent->children.begin(), node.get());
                KipxAGTaddchild(&nodes[parent->name], &nodes[i]);
            }
            regions[i] = {&nodes[i], i, node->level, node->area,
                          static_cast<uint32_t>(rng.below(2))};
            nodes[i].data = &regions[i];
            model.push_back(std::move(node));
        }
        tree.root = n ? &nodes[0] : nullptr;
    }
};

TEST(Detection, FollowsTheRules) {
    Rng rng(3);
    size_t found = 0, pruned = 0;
    for (int round = 0; round < 4000; ++round) {
        Tree t(rng, static_cast<size_t>(rng.between(1, 60)));
        // Flags of an earlier walk mean nothing to nodes that are visited.
        KipxMSERparms p{
            static_cast<int32_t>(rng.between(-1, 12)), static_cast<int32_t>(rng.between(0, 40)),
            static_cast<int32_t>(rng.between(rng.one_in(2) ? 50 : 500, 4000)),
            static_cast<float>(rng.below(100)) / 200, static_cast<float>(rng.below(100)) / 150};
        for (auto &n : t.model) n->kept = t.regions[n->name].kept != 0;
        std::vector<StableNode *> all, kept;
        model_detect(t.model[0].get(), p, all);
        for (StableNode *n : all)
            if (n->kept) kept.push_back(n);
        KipxMSERlist list{};
        KipxWTSregion before{};
        list.entries = static_cast<KipxWTSregion **>(_ZuMcalloc(1, sizeof(void *)));
        list.capacity = list.count = 1;
        list.entries[0] = &before;
        ASSERT_EQ(KipxDetectMSERs(&list, &t.tree, &p), &list);
        ASSERT_EQ(list.entries[0], &before) << "what was in the list stays";
        ASSERT_EQ(list.count, kept.size() + 1) << round;
        for (size_t i = 0; i < kept.size(); ++i)
            ASSERT_EQ(list.entries[i + 1]->pixel, kept[i]->name) << round;
        found += kept.size();
        pruned += all.size() - kept.size();
        _ZuMfree(list.entries);
    }
    EXPECT_GT(found, 1000u);
    EXPECT_GT(pruned, 500u);
}

TEST(Detection, NothingFromNothing) {
    KipxMSERlist list{};
    KipxST empty{};
    KipxMSERparms p{5, 1, 100, 1, 0};
    EXPECT_EQ(KipxDetectMSERs(&list, &empty, &p), &list);
    EXPECT_EQ(KipxDetectMSERs(&list, nullptr, &p), &list);
    EXPECT_EQ(KipxDetectFMSERs(&list, &empty, nullptr), &list);
    EXPECT_EQ(KipxDetectMSERs(nullptr, &empty, &p), nullptr);
    EXPECT_EQ(list.count, 0u);
    EXPECT_EQ(list.entries, nullptr);
}

// A chain of a million regions on a small stack; all nearly alike, so that pruning has work too.
TEST(Detection, DeepTreesNeedNoStack) {
    constexpr size_t depth = 1000000;
    static std::vector<KipxSTnode> nodes(depth);
    static std::vector<KipxWTSregion> regions(depth);
    for (size_t i = 0; i < depth; ++i) {
        regions[i] = {&nodes[i], 0, static_cast<int32_t>(i) + 100, static_cast<int32_t>(i) + 1, 0};
        nodes[i] = {nullptr, i ? &nodes[i - 1] : nullptr, i + 1 < depth ? &nodes[i + 1] : nullptr,
                    &regions[i]};
    }
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 256 << 10);
    pthread_t thread;
    static KipxMSERlist list;
    ASSERT_EQ(pthread_create(
                  &thread, &attributes,
                  [](void *) -> void * {
                      KipxST tree{};
                      tree.root = &nodes[depth - 1];
                      KipxMSERparms p{10, 1, 1 << 30, 1, 0.5f};
                      KipxDetectMSERs(&list, &tree, &p);
                      return nullptr;
                  },
                  nullptr),
              0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    EXPECT_GE(list.count, 1u);
    EXPECT_LT(list.count, 100u);
    _ZuMfree(list.entries);
}

TEST(Variation, IsSinglePrecisionAndMayBeNegative) {
    EXPECT_EQ(__KipxMSERareaVariation(90, 100), 0.1f);
    EXPECT_EQ(__KipxMSERareaVariationAbs(100, 80), 0.25f);
    EXPECT_EQ(__KipxMSERareaVariation(0x7fffffff, 0x7fffffff - 1), 0.f);
    EXPECT_TRUE(std::isnan(__KipxMSERareaVariation(0, 0)));
    KipxWTSregion r{}, s{};
    r.area = 30;
    s.area = 40;
    EXPECT_EQ(__KipxMSERregionVariation(&r, &s), 0.25f);
    EXPECT_EQ(__KipxMSERregionVariation(&s, &r), (30.f - 40.f) / 30.f);
    EXPECT_EQ(__KipxMSERregionVariationAbs(&s, &r), 10.f / 30.f);
}

} // namespace
