// tree_test.cpp - component trees: walks against the recursive definition, deep trees on a small
// stack, and the life of trees and builders as a log of what was called when.
#include <cstring>
#include <functional>
#include <memory>
#include <string>
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

TEST(TreeWalk, TenMillionLevelsOnASmallStack) {
    static constexpr size_t n = 10'000'000;
    auto tree = std::make_unique<Tree>(n);
    for (size_t i = 1; i < n; i++) tree->link(i - 1, i);
    on_small_stack(
        [](void *arg) {
            KipxSTnode *root = static_cast<Tree *>(arg)->nodes.data();
            for (uint32_t order : {KIPX_PREORDER, KIPX_INORDER, KIPX_POSTORDER}) {
                uint64_t visits = 0;
                KipxAGTwalkFromNode(root, order, count_one, &visits);
                EXPECT_EQ(visits, n) << order;
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

// ---- the life of trees and builders -------------------------------------------------------------

std::string events;

void say(const std::string &word) { events += (events.empty() ? "" : " ") + word; }

int32_t log_node(KipxSTnode *node, void *, int32_t index) {
    say("node" + std::to_string(reinterpret_cast<uintptr_t>(node->data)) + (index ? "!" : ""));
    return 0;
}
KipxAGTvisitor log_getdisposer(KipxSTB *) {
    say("getdisposer");
    return log_node;
}
void log_attach(KipxSTB *builder, const KipxSTBIF *record) {
    say(record == builder->interface_chain && builder->tree ? "attach" : "attach?");
}
void log_detach(KipxSTB *builder, const KipxSTBIF *, KipxST *tree) {
    say(builder->tree == tree && tree->builder == builder && !tree->root ? "detach" : "detach?");
}
void log_onattach(KipxST *tree, KipxSTB *builder) {
    say(tree->builder == builder && builder->tree == tree ? "onattach" : "onattach?");
}
void log_onclear(KipxST *tree, KipxSTB *) { say(tree->root ? "onclear" : "onclear(empty)"); }
void log_dealloc(void *) { say("dealloc"); }

struct LogChain {
    KipxSTBIF stbl{KIPX_TAG_STBL, 32, log_getdisposer, log_attach, log_detach};
    KipxIFrecord end{};
};
const LogChain log_chain;

// A builder on a storage of its own, and a tree with all hooks.
struct Life {
    KipxST tree{nullptr, log_onattach, log_onclear, log_dealloc, nullptr};
    KipxST other = tree;
    KipxSTB *builder = KipxSTBopen(nullptr, &log_chain, 0, nullptr, nullptr, nullptr);
    KipxSTB *second = KipxSTBopen(nullptr, &log_chain, 0, nullptr, nullptr, nullptr);

    // Two nodes, 1 above 2, in the attached tree.
    void fill() {
        KipxSTnode *root = KipxSTBnewnode(builder), *child = KipxSTBnewnode(builder);
        root->data = reinterpret_cast<void *>(1);
        child->data = reinterpret_cast<void *>(2);
        KipxAGTaddchild(root, child);
        __KipxSTBrootnode(builder, root);
    }
};

struct LifeCase {
    const char *name;
    std::function<void(Life &)> act;
    const char *expected; // events; a builder that the case closes must be set to null
};

const LifeCase life_cases[] = {
    {"attach", [](Life &l) { EXPECT_EQ(KipxSTBxtrntree(l.builder, &l.tree), l.builder); },
     "attach onattach"},
    {"attach twice",
     [](Life &l) {
         KipxSTBxtrntree(l.builder, &l.tree);
         l.fill();
         EXPECT_EQ(KipxSTBxtrntree(l.builder, &l.tree), l.builder);
         EXPECT_NE(l.tree.root, nullptr);
     },
     "attach onattach"},
    {"refuse the embedded tree",
     [](Life &l) {
         EXPECT_EQ(KipxSTBxtrntree(l.builder, &l.builder->embedded_tree), nullptr);
         EXPECT_EQ(KipxSTinit(&l.builder->embedded_tree, l.builder), nullptr);
     },
     ""},
    {"the embedded tree while attached is no change",
     [](Life &l) {
         KipxST *tree = __KipxSTBtree(l.builder);
         EXPECT_EQ(tree, &l.builder->embedded_tree);
         EXPECT_EQ(KipxSTBxtrntree(l.builder, tree), l.builder);
         EXPECT_EQ(KipxSTsetbuilder(tree, l.builder), tree);
     },
     "attach"},
    {"clear keeps the tree attached",
     [](Life &l) {
         KipxSTinit(&l.tree, l.builder);
         l.fill();
         EXPECT_EQ(KipxSTclear(&l.tree, 0), &l.tree);
         EXPECT_EQ(l.tree.builder, l.builder);
         EXPECT_EQ(l.tree.root, nullptr);
     },
     "attach onattach getdisposer node2 node1 onclear"},
    {"clear and detach, then once more",
     [](Life &l) {
         KipxSTinit(&l.tree, l.builder);
         l.fill();
         EXPECT_EQ(KipxSTclear(&l.tree, 1), &l.tree);
         EXPECT_EQ(KipxSTclear(&l.tree, 1), &l.tree);
         EXPECT_EQ(KipxSTBclear(l.builder, 0), l.builder);
         EXPECT_EQ(l.tree.builder, nullptr);
     },
     "attach onattach getdisposer node2 node1 onclear detach"},
    {"an empty tree has nothing to dispose of",
     [](Life &l) {
         KipxSTinit(&l.tree, l.builder);
         KipxSTBclear(l.builder, 1);
         KipxSTBclear(l.builder, 1);
     },
     "attach onattach getdisposer onclear(empty) getdisposer onclear(empty)"},
    {"another tree empties the first",
     [](Life &l) {
         KipxSTinit(&l.tree, l.builder);
         l.fill();
         EXPECT_EQ(KipxSTsetbuilder(&l.other, l.builder), &l.other);
         EXPECT_EQ(l.tree.builder, nullptr);
     },
     "attach onattach getdisposer node2 node1 onclear detach attach onattach"},
    {"another builder empties the first",
     [](Life &l) {
         KipxSTinit(&l.tree, l.builder);
         l.fill();
         EXPECT_EQ(KipxSTsetbuilder(&l.tree, l.second), &l.tree);
         EXPECT_EQ(l.builder->tree, nullptr);
         EXPECT_EQ(l.tree.builder, l.second);
     },
     "attach onattach getdisposer node2 node1 onclear detach attach onattach"},
    {"set no builder",
     [](Life &l) {
         KipxSTinit(&l.tree, l.builder);
         EXPECT_EQ(KipxSTsetbuilder(&l.tree, nullptr), &l.tree);
         EXPECT_EQ(KipxSTsetbuilder(&l.tree, nullptr), &l.tree);
         EXPECT_EQ(l.builder->tree, nullptr);
     },
     "attach onattach getdisposer onclear(empty) detach"},
    {"a tree made anew is forgotten",
     [](Life &l) {
         KipxSTinit(&l.tree, l.builder);
         KipxSTinit(&l.tree, nullptr);
         KipxSTBclear(l.builder, 1);
         EXPECT_EQ(l.builder->tree, nullptr);
         EXPECT_EQ(__KipxSTBtree(l.builder), &l.builder->embedded_tree);
     },
     "attach onattach attach"},
    {"open takes the embedded tree",
     [](Life &l) {
         KipxSTinit(&l.tree, l.builder);
         EXPECT_EQ(KipxSTopen(nullptr, l.builder), &l.builder->embedded_tree);
         l.builder->embedded_tree.dealloc = log_dealloc; // never called
         KipxSTclose(&l.builder->embedded_tree, 1);
         EXPECT_EQ(l.builder->tree, nullptr);
     },
     "attach onattach getdisposer onclear(empty) detach attach getdisposer detach"},
    {"close a tree and its builder",
     [](Life &l) {
         KipxSTinit(&l.tree, l.builder);
         l.fill();
         KipxSTclose(&l.tree, 0);
         l.builder = nullptr;
         EXPECT_EQ(l.tree.builder, nullptr);
     },
     "attach onattach getdisposer node2 node1 onclear detach dealloc"},
    {"close a tree, keep its builder",
     [](Life &l) {
         KipxSTinit(&l.tree, l.builder);
         l.fill();
         KipxSTclose(&l.tree, 1);
         EXPECT_EQ(l.builder->tree, nullptr);
     },
     "attach onattach getdisposer node2 node1 onclear detach dealloc"},
    {"close a builder and its tree",
     [](Life &l) {
         KipxSTinit(&l.tree, l.builder);
         l.fill();
         KipxSTBclose(l.builder, 0);
         l.builder = nullptr;
         EXPECT_EQ(l.tree.root, nullptr);
     },
     "attach onattach getdisposer node2 node1 onclear detach dealloc"},
    {"close a builder, keep its tree",
     [](Life &l) {
         KipxSTinit(&l.tree, l.builder);
         l.fill();
         KipxSTBclose(l.builder, 1);
         l.builder = nullptr;
         EXPECT_EQ(l.tree.root, nullptr);
     },
     "attach onattach getdisposer node2 node1 onclear detach"},
    {"closing the embedded tree closes its builder",
     [](Life &l) {
         KipxST *tree = __KipxSTBtree(l.builder);
         l.fill();
         EXPECT_EQ(KipxSTfini(tree, 0), nullptr);
         l.builder = nullptr;
     },
     "attach getdisposer node2 node1 detach"},
    {"a builder without a tree",
     [](Life &l) {
         KipxSTBclose(l.builder, 0);
         l.builder = nullptr;
     },
     ""},
};

TEST(TreeLife, CallsInOrder) {
    for (const LifeCase &row : life_cases) {
        SCOPED_TRACE(row.name);
        Life life;
        events.clear();
        row.act(life);
        EXPECT_EQ(events, row.expected);
        KipxSTBclose(life.builder, 1);
        KipxSTBclose(life.second, 1);
    }
}

TEST(TreeLife, InitialisedStaysAsItIs) {
    KipxSTB builder{};
    KipxST tree{};
    EXPECT_EQ(KipxSTBinit(&builder, &log_chain, 8, nullptr, nullptr, nullptr), &builder);
    EXPECT_EQ(builder.flags, KIPX_STB_INITIALISED);
    EXPECT_EQ(KipxSTBinit(&builder, nullptr, 9, &tree, nullptr, nullptr), &builder);
    EXPECT_EQ(builder.interface_chain, &log_chain);
    EXPECT_EQ(builder.extsize, 8);
    EXPECT_EQ(tree.builder, nullptr);
    KipxSTBfini(&builder, 1);
    EXPECT_EQ(KipxSTBnewnode(&builder), nullptr) << "ended";
    EXPECT_EQ(__KipxSTBtree(&builder), nullptr);
    EXPECT_EQ(KipxSTBxtrntree(&builder, &tree), nullptr);
    // Once more on the same record; a tree that still names it is taken on.
    tree.builder = &builder;
    EXPECT_EQ(KipxSTBinit(&builder, &log_chain, 0, &tree, nullptr, nullptr), &builder);
    EXPECT_EQ(builder.tree, &tree);
    KipxSTBfini(&builder, 1);
}

TEST(TreeLife, NullAndTooLarge) {
    KipxSTB builder{};
    EXPECT_EQ(KipxSTBinit(nullptr, nullptr, 0, nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(KipxSTBinit(&builder, nullptr, 65536, nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(KipxSTBopen(nullptr, nullptr, 65536, nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(KipxSTinit(nullptr, &builder), nullptr);
    EXPECT_EQ(KipxSTBnewnode(nullptr), nullptr);
    EXPECT_EQ(__KipxSTBtree(nullptr), nullptr);
    EXPECT_EQ(__KipxSTBrootnode(nullptr, nullptr), nullptr);
    EXPECT_EQ(KipxSTBclear(nullptr, 0), nullptr);
    EXPECT_EQ(KipxSTBfini(nullptr, 0), nullptr);
    EXPECT_EQ(KipxSTfini(nullptr, 0), nullptr);
    EXPECT_EQ(KipxSTclear(nullptr, 0), nullptr);
    EXPECT_EQ(KipxSTsetbuilder(nullptr, nullptr), nullptr);
    KipxSTclose(nullptr, 0);
    KipxSTBclose(nullptr, 0);
    KipxSTB *largest = KipxSTBopen(nullptr, nullptr, 65535, nullptr, nullptr, nullptr);
    ASSERT_NE(largest, nullptr);
    EXPECT_EQ(largest->extsize, 65535);
    KipxSTBclose(largest, 1);
    KipxST *tree = KipxSTopen(nullptr, nullptr);
    ASSERT_NE(tree, nullptr);
    EXPECT_EQ(tree->onattach, nullptr);
    EXPECT_EQ(tree->builder, nullptr);
    KipxSTclose(tree, 0);
}

// ---- chains -------------------------------------------------------------------------------------

TEST(TreeChain, MalformedChainsEnd) {
    struct Link {
        uint32_t tag, size;
        void *slots[3];
    };
    const auto log = reinterpret_cast<void *>(log_attach);
    struct Row {
        const char *name;
        Link links[3];
        const char *expected;
    } const rows[] = {
        {"first", {{KIPX_TAG_STBL, 32, {nullptr, log, nullptr}}}, "attach"},
        {"behind a foreign record",
         {{0x61616161, 32, {}}, {KIPX_TAG_STBL, 32, {nullptr, log, nullptr}}},
         "attach?"},
        {"larger than needed", {{KIPX_TAG_STBL, 64, {nullptr, log, nullptr}}}, "attach"},
        {"too small",
         {{KIPX_TAG_STBL, 24, {nullptr, log, reinterpret_cast<void *>(uintptr_t{1})}}},
         ""},
        {"size 0", {{0x61616161, 0, {}}, {KIPX_TAG_STBL, 32, {nullptr, log, nullptr}}}, ""},
        {"size 7", {{0x61616161, 7, {}}, {KIPX_TAG_STBL, 32, {nullptr, log, nullptr}}}, ""},
        {"without the record", {{0x61616161, 32, {}}}, ""},
        {"empty", {}, ""},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        events.clear();
        KipxSTB builder{};
        KipxST tree{};
        // "too small": its third slot is the next record, whose tag is 1 and whose size is 0.
        KipxSTBinit(&builder, row.links, 0, &tree, nullptr, nullptr);
        EXPECT_EQ(events, row.expected);
        EXPECT_EQ(tree.builder, &builder);
        KipxSTBfini(&builder, 1);
        EXPECT_EQ(tree.builder, nullptr);
    }
    // A record that could only be reached by a step that is no multiple of 8.
    alignas(8) char bytes[36 + sizeof(KipxSTBIF)] = {};
    const KipxIFrecord skewed{0x61616161, 36};
    const KipxSTBIF hidden{KIPX_TAG_STBL, 32, nullptr, log_attach, nullptr};
    memcpy(bytes, &skewed, sizeof skewed);
    memcpy(bytes + 36, &hidden, sizeof hidden);
    events.clear();
    for (const void *chain :
         {static_cast<const void *>(nullptr), static_cast<const void *>(bytes),
          static_cast<const void *>(reinterpret_cast<const char *>(rows) + 1)}) {
        KipxSTB builder{};
        KipxST tree{};
        EXPECT_EQ(KipxSTBinit(&builder, chain, 0, &tree, nullptr, nullptr), &builder);
        EXPECT_EQ(KipxSTBclear(&builder, 0), &builder);
        EXPECT_EQ(tree.builder, nullptr);
        KipxSTBfini(&builder, 1);
    }
    EXPECT_EQ(events, "");
}

// ---- memory -------------------------------------------------------------------------------------

TEST(TreeMemory, NodesAreZeroAlignedAndReleasedTogether) {
    ZuSMEMSTG *stack = ZuSMEMSTGopen(nullptr, 0, 0);
    void *before = ZuSMEMSTGaalloc(stack, 100, 0, 0);
    KipxSTB *builder = KipxSTBopen(nullptr, nullptr, 0, nullptr, stack, nullptr);
    ASSERT_NE(builder, nullptr);
    EXPECT_EQ(builder->flags, KIPX_STB_INITIALISED | KIPX_STB_FROM_STORAGE);
    KipxSTnode *first = nullptr;
    for (int round = 0; round < 3; round++) {
        KipxSTnode *node = KipxSTBnewnode(builder);
        if (round == 0) first = node;
        EXPECT_EQ(node, first) << "the room of the cleared nodes";
        for (int i = 0; i < 1000; i++) {
            EXPECT_TRUE(!node->next && !node->child && !node->parent && !node->data);
            EXPECT_EQ(reinterpret_cast<uintptr_t>(node) % 8, 0u);
            node->data = node;
            node = KipxSTBnewnode(builder);
        }
        KipxSTBclear(builder, round & 1);
    }
    KipxSTBclose(builder, 1);
    EXPECT_EQ(KipxSTBopen(nullptr, nullptr, 0, nullptr, stack, nullptr), builder) << "given back";
    KipxSTBclose(builder, 1);
    ZuSMEMSTGfree(stack, before);
    ZuMEMSTGclose(stack);
}

TEST(TreeMemory, TwoBuildersCloseInEitherOrder) {
    ZuSMEMSTG *stack = ZuSMEMSTGopen(nullptr, 0, 0);
    size_t drawn = 0, peak = 0;
    for (int round = 0; round < 1000; round++) {
        KipxSTB *pair[2];
        void *scratch = ZuSMEMSTGaalloc(stack, 1000, 0, 0);
        for (KipxSTB *&builder : pair) {
            builder = KipxSTBopen(nullptr, nullptr, 0, nullptr, nullptr, stack);
            ASSERT_NE(builder, nullptr);
            EXPECT_EQ(builder->flags,
                      KIPX_STB_INITIALISED | KIPX_STB_FROM_STORAGE | KIPX_STB_OWN_STORAGE);
        }
        for (int i = 0; i < 500; i++)
            for (KipxSTB *builder : pair) ASSERT_NE(KipxSTBnewnode(builder), nullptr);
        ZuSMEMSTGfree(stack, scratch);
        KipxSTclose(__KipxSTBtree(pair[round & 1]), 0);
        KipxSTBclose(pair[!(round & 1)], 0);
        if (round == 0) drawn = ZuSMEMSTGdrawn(stack), peak = ZuSMEMSTGpeak(stack);
        ASSERT_EQ(ZuSMEMSTGdrawn(stack), drawn);
        ASSERT_EQ(ZuSMEMSTGpeak(stack), peak);
    }
    ZuMEMSTGclose(stack);
}

TEST(TreeMemory, EmbeddedStorageIsOpenedLateAndDestroyed) {
    ZuSMEMSTG *stack = ZuSMEMSTGopen(nullptr, 0, 0);
    KipxSTB builder{};
    for (int round = 0; round < 3; round++) {
        KipxSTBinit(&builder, nullptr, 0, nullptr, &builder.embedded_storage, stack);
        EXPECT_EQ(builder.storage, nullptr);
        ASSERT_NE(KipxSTBnewnode(&builder), nullptr);
        EXPECT_EQ(builder.storage, &builder.embedded_storage);
        KipxSTBclear(&builder, 0);
        ASSERT_NE(KipxSTBnewnode(&builder), nullptr);
        EXPECT_EQ(KipxSTBfini(&builder, 0), &builder);
        EXPECT_EQ(builder.storage, nullptr);
        EXPECT_EQ(builder.parent, nullptr);
    }
    // The caller's storage is only rolled back.
    void *mine = ZuSMEMSTGaalloc(stack, 8, 8, 0);
    KipxSTBinit(&builder, nullptr, 0, nullptr, stack, nullptr);
    KipxSTnode *node = KipxSTBnewnode(&builder);
    KipxSTBfini(&builder, 0);
    EXPECT_EQ(ZuSMEMSTGaalloc(stack, sizeof(KipxSTnode), 8, 0), node);
    ZuSMEMSTGfree(stack, mine);
    ZuMEMSTGclose(stack);
}

} // namespace
} // namespace kipx::test
