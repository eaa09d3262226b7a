// tree_test.cpp - component trees: links, walks against the recursive definition, and deep trees on
// a small stack.
#include <functional>
#include <memory>
#include <vector>

#include <gtest/gtest.h>
#include <pthread.h>

#include <kipx/tree.h>

#include "support/rng.h"

namespace kipx::test {
namespace {

// ---- walks --------------------------------------------------------------------------------------

struct Visit {
    const KipxSTnode *node;
    int32_t index;
    bool operator==(const Visit &) const = default;
};

// Records its visits and answers what a seed says; `go_on` of 16 answers are 1.
struct Recorder {
    uint64_t seed = 0;
    uint32_t go_on = 16;
    std::vector<Visit> visits;

    int32_t operator()(const KipxSTnode *node, int32_t index) {
        visits.push_back({node, index});
        static constexpr int32_t answers[] = {-2147483647 - 1, -7, -2, -1, -1, 0, 1, 2, 2147483647};
        Rng rng(seed + visits.size());
        return rng.below(16) < go_on ? 1 : rng.pick(answers);
    }
    static int32_t visit(KipxSTnode *node, void *arg, int32_t index) {
        return (*static_cast<Recorder *>(arg))(node, index);
    }
};

// One rule of the definition, got wrong on purpose.
enum class Fault { none, siblings_go_on, stop_passes_up, gap_from_one, single_child_silent };

// The walks as they are defined, one call a node.
struct Model {
    Recorder &visitor;
    Fault fault = Fault::none;

    int64_t walk(const KipxSTnode *node, uint32_t order) {
        return order == KIPX_PREORDER ? pre(node) : order == KIPX_INORDER ? in(node) : post(node);
    }
    int64_t pre(const KipxSTnode *node) {
        int64_t last = visitor(node, 0);
        if (last <= -2) return fault == Fault::siblings_go_on ? 1 : -1;
        if (last >= 1)
            for (auto *child = node->child; child; child = child->next)
                if ((last = pre(child)) < 1) break;
        if (fault == Fault::stop_passes_up && last < 0) return last;
        return last < 0 ? -last : last;
    }
    int64_t in(const KipxSTnode *node) {
        if (!node->child) return visitor(node, -1);
        const int32_t first = fault == Fault::gap_from_one;
        int32_t gap = first;
        for (auto *child = node->child; child; child = child->next) {
            if (in(child) == 0) return 0;
            if (child->next && visitor(node, gap++) == 0) return 0;
        }
        if (node->child->next || fault == Fault::single_child_silent) return 1;
        return visitor(node, first);
    }
    int64_t post(const KipxSTnode *node) {
        for (auto *child = node->child; child; child = child->next)
            if (post(child) == 0) return 0;
        return visitor(node, 0);
    }
};

struct Tree {
    std::vector<KipxSTnode> nodes;
    explicit Tree(size_t n) : nodes(n) {}
    void link(size_t parent, size_t child) { KipxAGTaddchild(&nodes[parent], &nodes[child]); }
};

// parent(i) < i for every node but the first.
Tree make_tree(size_t n, const std::function<size_t(size_t)> &parent) {
    Tree tree(n);
    for (size_t i = 1; i < n; i++) tree.link(parent(i), i);
    return tree;
}

std::vector<Tree> shapes() {
    std::vector<Tree> trees;
    Rng rng(7);
    for (int i = 0; i < 300; i++) {
        const size_t n = 1 + rng.below(40), reach = 1 + rng.below(n);
        trees.push_back(
            make_tree(n, [&](size_t k) { return k - 1 - rng.below(k < reach ? k : reach); }));
    }
    trees.push_back(make_tree(500, [](size_t) { return 0; }));
    trees.push_back(make_tree(500, [](size_t k) { return k - 1; }));
    // Combs whose levels lie more than 16 siblings apart, on more levels than the walk remembers;
    // the path goes on at the last, at the middle, at the first child of the list.
    for (size_t on : {0, 10, 19})
        trees.push_back(make_tree(
            20 * 700, [=](size_t k) { return k <= 20 ? 0 : (k - 1) / 20 * 20 - 20 + 1 + on; }));
    return trees;
}

uint32_t naive_count(const KipxSTnode *node) {
    uint32_t n = 0;
    for (auto *child = node->child; child; child = child->next) n += 1 + naive_count(child);
    return n;
}

bool same_walk(KipxSTnode *start, uint32_t order, uint64_t seed, uint32_t go_on, Fault fault) {
    Recorder ours{seed, go_on, {}}, expected{seed, go_on, {}};
    KipxAGTwalkFromNode(start, order, Recorder::visit, &ours);
    Model{expected, fault}.walk(start, order);
    return ours.visits == expected.visits;
}

TEST(TreeWalk, IsTheRecursiveDefinition) {
    Rng rng(1);
    for (Tree &tree : shapes()) {
        const int rounds = tree.nodes.size() > 1000 ? 4 : 40;
        for (int round = 0; round < rounds; round++) {
            // From the root as often as from anywhere: siblings and ancestors stay out of it.
            KipxSTnode *start = &tree.nodes[round % 2 ? rng.below(tree.nodes.size()) : 0];
            const uint32_t go_on = round % 4 ? 12 + round % 5 : 16;
            for (uint32_t order : {KIPX_PREORDER, KIPX_INORDER, KIPX_POSTORDER})
                ASSERT_TRUE(same_walk(start, order, rng.next(), go_on, Fault::none))
                    << "order " << order << ", " << tree.nodes.size() << " nodes";
            ASSERT_EQ(KipxAGTcountChildren(start, 1), naive_count(start));
        }
    }
}

TEST(TreeWalk, ModelNoticesEveryFault) {
    struct Row {
        Fault fault;
        uint32_t order;
    };
    static constexpr Row rows[] = {{Fault::siblings_go_on, KIPX_PREORDER},
                                   {Fault::stop_passes_up, KIPX_PREORDER},
                                   {Fault::gap_from_one, KIPX_INORDER},
                                   {Fault::single_child_silent, KIPX_INORDER}};
    std::vector<Tree> trees = shapes();
    for (const Row &row : rows) {
        int noticed = 0;
        for (Tree &tree : trees) noticed += !same_walk(&tree.nodes[0], row.order, 3, 13, row.fault);
        EXPECT_GT(noticed, 10) << static_cast<int>(row.fault);
    }
}

TEST(TreeWalk, OddArgumentsDoNothing) {
    Tree tree = make_tree(3, [](size_t) { return 0; });
    KipxST record{&tree.nodes[0], nullptr, nullptr, nullptr, nullptr};
    Recorder none;
    for (uint32_t order : {0u, 4u, UINT32_MAX}) KipxAGTwalk(&record, order, Recorder::visit, &none);
    for (uint32_t order : {1u, 2u, 3u}) {
        KipxAGTwalk(nullptr, order, Recorder::visit, &none);
        KipxAGTwalk(&record, order, nullptr, &none);
        KipxAGTwalkFromNode(nullptr, order, Recorder::visit, &none);
    }
    EXPECT_TRUE(none.visits.empty());
    KipxAGTwalk(&record, KIPX_PREORDER, Recorder::visit, &none);
    EXPECT_EQ(none.visits.size(), 3u);
    EXPECT_EQ(KipxAGTcountChildren(nullptr, 0) + KipxAGTcountChildren(nullptr, 1), 0u);
}

TEST(TreeLinks, NewestFirstAndBothWays) {
    Tree tree(4);
    auto *n = tree.nodes.data();
    EXPECT_EQ(__KipxAGTaddchild(n, n + 1), nullptr);
    EXPECT_EQ(__KipxAGTaddchild(n, n + 2), n + 1);
    EXPECT_EQ(KipxAGTaddchild(n, n + 3), n);
    EXPECT_EQ(n->child, n + 3);
    EXPECT_EQ(n[3].next, n + 2);
    EXPECT_EQ(n[1].next, nullptr);
    EXPECT_EQ(n[2].parent, n);
    EXPECT_EQ(KipxAGTcountChildren(n, 0), 3u);
    EXPECT_EQ(KipxAGTaddchild(n, nullptr), n);
    EXPECT_EQ(KipxAGTaddchild(nullptr, n), nullptr);
    EXPECT_EQ(__KipxAGTaddchild(n, nullptr), n + 3);
    struct {
        KipxSTnode *node;
        int value;
    } record{nullptr, 5};
    EXPECT_EQ(KipxDGTnodeData(n, &record), n);
    EXPECT_EQ(n->data, &record);
    EXPECT_EQ(record.node, n);
    EXPECT_EQ(KipxDGTnodeData(n, nullptr), n);
    EXPECT_EQ(n->data, nullptr);
    EXPECT_EQ(KipxDGTnodeData(nullptr, &record), nullptr);
}

TEST(TreeWalk, PostorderMayReleaseNodes) {
    auto *root = new KipxSTnode{};
    for (int i = 0; i < 5; i++) {
        auto *child = new KipxSTnode{};
        KipxAGTaddchild(root, child);
        for (int j = 0; j < 3; j++) KipxAGTaddchild(child, new KipxSTnode{});
    }
    uint32_t released = 0;
    KipxAGTwalkFromNode(
        root, KIPX_POSTORDER,
        [](KipxSTnode *node, void *arg, int32_t) {
            ++*static_cast<uint32_t *>(arg);
            delete node;
            return 1;
        },
        &released);
    EXPECT_EQ(released, 21u);
}

// Runs work on a thread of 256 KiB stack.
void on_small_stack(void (*work)(void *), void *arg) {
    struct Call {
        void (*work)(void *);
        void *arg;
    } call{work, arg};
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, 256 * 1024), 0);
    pthread_t thread;
    ASSERT_EQ(pthread_create(
                  &thread, &attributes,
                  [](void *p) -> void * {
                      static_cast<Call *>(p)->work(static_cast<Call *>(p)->arg);
                      return nullptr;
                  },
                  &call),
              0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

int32_t count_one(KipxSTnode *, void *arg, int32_t) {
    ++*static_cast<uint64_t *>(arg);
    return 1;
}

uint64_t disposed;
int32_t dispose_one(KipxSTnode *, void *, int32_t) {
    disposed++;
    return 0; // not read: disposal goes on
}
KipxAGTvisitor give_disposer(KipxSTB *) { return dispose_one; }

// In a chain, and as children of one node.
TEST(TreeWalk, TenMillionNodesOnASmallStack) {
    static constexpr size_t n = 10'000'000;
    for (const bool star : {false, true}) {
        auto tree = std::make_unique<Tree>(n);
        for (size_t i = 1; i < n; i++) tree->link(star ? 0 : i - 1, i);
        on_small_stack(
            [](void *arg) {
                KipxSTnode *root = static_cast<Tree *>(arg)->nodes.data();
                const size_t gaps = root->child->next ? n - 2 : 0; // between children
                for (uint32_t order : {KIPX_PREORDER, KIPX_INORDER, KIPX_POSTORDER}) {
                    uint64_t visits = 0;
                    KipxAGTwalkFromNode(root, order, count_one, &visits);
                    EXPECT_EQ(visits, order == KIPX_INORDER && gaps ? n - 1 + gaps : n) << order;
                }
                EXPECT_EQ(KipxAGTcountChildren(root, 1), n - 1);
                struct {
                    KipxSTBIF stbl;
                    KipxIFrecord end;
                } chain{{KIPX_TAG_STBL, 32, give_disposer, nullptr, nullptr}, {}};
                KipxSTB builder{};
                KipxSTBinit(&builder, &chain, 0, nullptr, nullptr, nullptr);
                __KipxSTBrootnode(&builder, root);
                disposed = 0;
                KipxSTBfini(&builder, 1);
                EXPECT_EQ(disposed, n);
            },
            tree.get());
    }
}

} // namespace
} // namespace kipx::test
