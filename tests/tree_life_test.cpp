// tree_life_test.cpp - the life of trees and builders as a log of what was called when; malformed
// chains; and where the memory of nodes comes from and goes.
#include <cstring>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include <kipx/tree.h>

namespace kipx::test {
namespace {

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
