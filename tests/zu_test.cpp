// zu_test.cpp - the base runtime: a storage with children against a list of blocks, the cases for
// which the storage was made, the arithmetic of sizes, and what debug builds notice.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>
#include <zu/zu.h>

#if defined(__SANITIZE_ADDRESS__)
#define UNDER_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define UNDER_ASAN 1
#endif
#endif
#ifdef UNDER_ASAN
// Sizes that no heap can serve shall give null here too.
extern "C" const char *__asan_default_options() { return "allocator_may_return_null=1"; }
#endif

namespace {

uint64_t address(const void *p) { return reinterpret_cast<uintptr_t>(p); }

bool same(const ZuSMEMSTATE &a, const ZuSMEMSTATE &b) { return memcmp(&a, &b, sizeof a) == 0; }

struct Block {
    unsigned char *at;
    size_t size, alignment;
    unsigned char fill;
    size_t order; // among all blocks of the family
};

// What is wrong with the blocks; empty when nothing is.
std::string fault(std::vector<Block> blocks) {
    for (const Block &b : blocks) {
        if (address(b.at) % b.alignment) return "misaligned";
        for (size_t i = 0; i < b.size; i++) {
            if (b.at[i] != b.fill) return "contents changed";
        }
    }
    std::sort(blocks.begin(), blocks.end(),
              [](const Block &a, const Block &b) { return a.at < b.at; });
    for (size_t i = 1; i < blocks.size(); i++) {
        const Block &below = blocks[i - 1];
        if (below.at + std::max<size_t>(below.size, 1) > blocks[i].at) return "overlap";
    }
    return "";
}

// A storage and the naive account of what lies in it.
struct Member {
    ZuSMEMSTG *storage = nullptr;
    ZuSMEMSTG header;
    std::vector<Block> blocks;
    std::vector<std::pair<ZuSMEMSTATE, size_t>> marks; // with the order at that time
    size_t opened = 0;
};

class Family {
public:
    explicit Family(unsigned seed) : random(seed) {
        members.resize(4);
        members[0].storage = ZuSMEMSTGopen(&members[0].header, 0, 0);
    }
    ~Family() {
        for (size_t i = members.size(); i-- > 0;) close(members[i]);
    }
    // All gone: what stays is one segment, a power of two.
    std::string end() {
        const size_t others = members.size() - 1, first = random();
        for (size_t i = 0; i < others; ++i) close(members[1 + (first + i) % others]);
        ZuSMEMSTGclear(members[0].storage);
        members[0].blocks.clear();
        const size_t kept = ZuSMEMSTGdrawn(members[0].storage);
        return (kept & (kept - 1)) == 0 ? "" : "more than a segment stays";
    }
    void step() {
        Member &m = members[random() % members.size()];
        if (!m.storage) return open(m);
        const unsigned draw = random() % 128;
        if (draw < 8) return mark(m);
        if (draw < 16) return rewind(m);
        if (draw == 16) return drop(m, 0), ZuSMEMSTGclear(m.storage);
        if (draw < 20) return &m != &members[0] ? close(m) : void();
        draw < 64 ? give_back(m) : take(m);
    }
    std::string check() const {
        std::vector<Block> all;
        size_t child_bytes = 0, bytes = 0;
        for (const Member &m : members) {
            all.insert(all.end(), m.blocks.begin(), m.blocks.end());
            if (!m.storage) continue;
            size_t own = 0;
            for (const Block &b : m.blocks) own += b.size;
            if (ZuSMEMSTGdrawn(m.storage) < own) return "drawn is less than what is out";
            if (ZuSMEMSTGpeak(m.storage) < ZuSMEMSTGdrawn(m.storage)) return "peak below drawn";
            (&m == &members[0] ? bytes : child_bytes) += ZuSMEMSTGdrawn(m.storage);
        }
        if (bytes < child_bytes) return "children have drawn more than their parent";
        return fault(all);
    }
    std::vector<Member> members;

private:
    std::mt19937 random;
    size_t order = 0;

    void open(Member &m) {
        void *header = random() % 2 ? &m.header : nullptr;
        m.storage = ZuSMEMSTGopen(header, address(members[0].storage), 0);
        ASSERT_NE(m.storage, nullptr);
        m.opened = ++order;
    }
    void close(Member &m) {
        if (!m.storage) return;
        (m.storage == &m.header ? ZuMEMSTGdestroy : ZuMEMSTGclose)(m.storage);
        m.storage = nullptr, m.blocks.clear(), m.marks.clear();
    }
    size_t some_size() {
        const size_t most[] = {1, 20000, 38000, 200000, 300, 300, 300, 300, 300, 300, 300, 300};
        return random() % most[random() % 12];
    }
    void take(Member &m) {
        const size_t size = some_size();
        const size_t alignment = random() % 4 ? 0 : size_t{1} << random() % 18;
        auto *at = static_cast<unsigned char *>(ZuSMEMSTGaalloc(m.storage, size, alignment, 0));
        ASSERT_NE(at, nullptr);
        const auto fill = static_cast<unsigned char>(random());
        memset(at, fill, size);
        m.blocks.push_back({at, size, std::max<size_t>(alignment, 16), fill, ++order});
    }
    void give_back(Member &m) {
        if (m.blocks.empty()) return;
        const size_t last = m.blocks.size() - 1, i = random() % 2 ? last : random() % (last + 1);
        ZuSMEMSTGfree(m.storage, m.blocks[i].at);
        m.blocks.erase(m.blocks.begin() + long(i));
    }
    static ZuSMEMSTATE state_of(Member &m) {
        ZuSMEMSTATE state;
        ZuSMEMSTGgetstate(&state, m.storage);
        return state;
    }
    void mark(Member &m) {
        const ZuSMEMSTATE state = state_of(m);
        if (random() % 2) give_back(m);
        EXPECT_TRUE(same(state_of(m), state)); // nothing has been taken
        m.marks.push_back({state, order});
    }
    // What the account loses when m goes back to a moment. Children of the parent that hold
    // anything newer are lost with it, so they are closed first, in some order, or stay when they
    // are older.
    void drop(Member &m, size_t moment) {
        std::erase_if(m.blocks, [&](const Block &b) { return b.order > moment; });
        if (&m != &members[0]) return;
        for (size_t i = 1; i < members.size(); i++) close(members[i]);
    }
    void rewind(Member &m) {
        if (m.marks.empty()) return;
        const size_t i = random() % m.marks.size();
        const auto [state, moment] = m.marks[i];
        drop(m, moment);
        ZuSMEMSTGsetstate(m.storage, &state);
        EXPECT_TRUE(same(state_of(m), state));
        // Older and newer marks alike stay valid; some are kept to be used again.
        if (random() % 2) m.marks.resize(i);
    }
};

TEST(Storage, AFamilyAgainstAList) {
    for (unsigned seed = 1; seed <= 12; seed++) {
        Family family(seed);
        for (int step = 0; step < 3000; step++) {
            family.step();
            if (step % 20 != 0) continue;
            ASSERT_EQ(family.check(), "") << "seed " << seed << " step " << step;
        }
        ASSERT_EQ(family.check() + family.end(), "") << "seed " << seed;
    }
}

TEST(Storage, TheCheckNoticesFaults) {
    Family family(7);
    while (family.members[0].blocks.size() < 8) family.step();
    std::vector<Block> blocks = family.members[0].blocks;
    ASSERT_EQ(fault(blocks), "");
    const auto victim =
        std::find_if(blocks.begin(), blocks.end(), [](auto &b) { return b.size > 9; });
    ASSERT_NE(victim, blocks.end());
    victim->at[9] ^= 1;
    EXPECT_EQ(fault(blocks), "contents changed");
    victim->at[9] ^= 1;
    Block inside = *victim;
    inside.at += 1, inside.size = 1, inside.alignment = 1;
    blocks.push_back(inside);
    EXPECT_EQ(fault(blocks), "overlap");
    blocks.back().alignment = 2 * (address(inside.at) & -address(inside.at));
    EXPECT_EQ(fault(blocks), "misaligned");
}

class Stack : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(ZuSMEMSTGopen(&header, 0, 0), &header); }
    void TearDown() override {
        ZuMEMSTGdestroy(&header);
        for (const uint64_t word : header.word) EXPECT_EQ(word, 0u);
    }
    ZuSMEMSTG *child() { return ZuSMEMSTGopen(nullptr, address(&header), 0); }
    static void *take(ZuSMEMSTG *s, size_t size, size_t alignment = 0) {
        void *block = ZuSMEMSTGaalloc(s, size, alignment, 0);
        if (block) memset(block, 0x11, size);
        return block;
    }
    ZuSMEMSTG header;
};

TEST_F(Stack, ScratchUnderAGrowingTree) {
    void *scratch = take(&header, 1000);
    ZuSMEMSTG *tree = child();
    for (int i = 0; i < 3000; ++i) take(tree, 40);
    ZuSMEMSTGfree(&header, scratch);
    EXPECT_EQ(take(&header, 1000), scratch); // its room has not had to wait for the tree
    ZuMEMSTGclose(tree);
}

TEST_F(Stack, DeadBlocksGoWithTheOneAboveThem) {
    void *a = take(&header, 100), *b = take(&header, 100), *c = take(&header, 100, 256);
    ZuSMEMSTGfree(&header, b);
    EXPECT_GT(address(take(&header, 10)), address(c)); // b is dead, but c lies above it
    void *d = take(&header, 10);
    ZuSMEMSTGfree(&header, c);
    ZuSMEMSTGfree(&header, d);
    ZuSMEMSTGfree(&header, nullptr);
    ZuSMEMSTGclear(&header);
    EXPECT_EQ(take(&header, 100), a);
    EXPECT_EQ(take(&header, 100), b);
    c = take(&header, 100, 256);
    ZuSMEMSTGfree(&header, b);
    ZuSMEMSTGfree(&header, c);
    EXPECT_EQ(take(&header, 100), b); // padding, dead and newest block are room again
}

TEST_F(Stack, RewindingReleasesTheNewerAndNothingElse) {
    void *kept = take(&header, 64);
    ZuSMEMSTATE early, late;
    ZuSMEMSTGgetstate(&early, &header);
    void *first = take(&header, 64);
    ZuSMEMSTGgetstate(&late, &header);
    void *large = take(&header, 1000000);
    ASSERT_NE(large, nullptr);
    const size_t with_large = ZuSMEMSTGdrawn(&header);
    ZuSMEMSTGsetstate(&header, &late);
    EXPECT_LT(ZuSMEMSTGdrawn(&header), with_large);
    ZuSMEMSTGsetstate(&header, &early);
    auto *fresh = static_cast<unsigned char *>(take(&header, 64));
    EXPECT_EQ(fresh, first);
    // The later mark lies in room released since: it brings nothing back, and what is newer goes.
    ZuSMEMSTGsetstate(&header, &late);
    EXPECT_EQ(take(&header, 64), first);
    // A mark older than a clear releases everything.
    ZuSMEMSTGclear(&header);
    EXPECT_EQ(take(&header, 64), kept);
    ZuSMEMSTGsetstate(&header, &early);
    EXPECT_EQ(take(&header, 64), kept);
    // Many segments at once, and blocks that were given back below the mark.
    ZuSMEMSTGgetstate(&early, &header);
    for (int i = 0; i < 50000; i++) take(&header, 32);
    ZuSMEMSTGfree(&header, kept);
    ZuSMEMSTGsetstate(&header, &early);
    EXPECT_EQ(take(&header, 64), kept);
}

TEST_F(Stack, ParentRewoundPastItsChildren) {
    ZuSMEMSTATE mark;
    take(&header, 10);
    ZuSMEMSTGgetstate(&mark, &header);
    const size_t before = ZuSMEMSTGdrawn(&header);
    for (int i = 0; i < 3; i++) {
        ZuSMEMSTG *c = child();
        ZuSMEMSTG *grandchild = ZuSMEMSTGopen(nullptr, address(c), 0);
        for (int k = 0; k < 5000; k++) take(k % 2 ? c : grandchild, 100);
    }
    EXPECT_GT(ZuSMEMSTGdrawn(&header), before + 3 * 500000);
    ZuSMEMSTGsetstate(&header, &mark);
    EXPECT_EQ(ZuSMEMSTGdrawn(&header), before);
}

TEST_F(Stack, LargeBlocksReturnAtOnce) {
    void *below = take(&header, 16);
    const size_t drawn = ZuSMEMSTGdrawn(&header);
    void *large = take(&header, 40000), *larger = take(&header, 5000000, 8192);
    void *above = take(&header, 16);
    EXPECT_GE(ZuSMEMSTGdrawn(&header), drawn + 5040000);
    ZuSMEMSTGfree(&header, large);
    ZuSMEMSTGfree(&header, larger);
    EXPECT_EQ(ZuSMEMSTGdrawn(&header), drawn);
    EXPECT_GE(ZuSMEMSTGpeak(&header), drawn + 5040000);
    EXPECT_EQ(address(above), address(below) + 32); // a head of 16 bytes between them
}

TEST_F(Stack, TheLimitHoldsForChildrenToo) {
    const size_t limit = 300000;
    take(&header, 16);
    ZuSMEMSTGsetlimit(&header, limit);
    ZuSMEMSTG *c = child();
    size_t taken = 0;
    while (take(c, 1000)) taken += 1000;
    EXPECT_GT(taken, limit / 3);
    EXPECT_LE(ZuSMEMSTGdrawn(&header), limit);
    while (take(&header, 1000)) taken += 1000;
    EXPECT_GT(taken, limit * 3 / 4); // remainders too short for a segment serve blocks
    EXPECT_LE(ZuSMEMSTGdrawn(&header), limit);
    EXPECT_EQ(take(&header, 100000), nullptr);
    ZuSMEMSTGsetlimit(&header, 1); // below the present use: no growth, no harm
    EXPECT_EQ(take(&header, 100000), nullptr);
    ZuMEMSTGclose(c);
    ZuSMEMSTGclear(&header);
    EXPECT_NE(take(&header, 1000), nullptr); // out of the segment that it has
    ZuSMEMSTGsetlimit(&header, 0);
    EXPECT_NE(take(&header, 10000000), nullptr);
    ZuSMEMSTG tight;
    ZuSMEMSTGopen(&tight, 0, 0);
    ZuSMEMSTGsetlimit(&tight, 8);
    EXPECT_EQ(take(&tight, 1), nullptr);
    EXPECT_EQ(ZuSMEMSTGpeak(&tight), 0u);
    ZuMEMSTGdestroy(&tight);
}

TEST_F(Stack, RequestsThatCannotBeMet) {
    void *before = take(&header, 16);
    const size_t drawn = ZuSMEMSTGdrawn(&header);
    ZuSMEMSTATE mark, after;
    const size_t half = SIZE_MAX / 2 + 1;
    struct Case {
        size_t size, alignment;
    };
    const Case cases[] = {{SIZE_MAX, 0},
                          {SIZE_MAX - 15, 0},
                          {SIZE_MAX - 16, 16},
                          {SIZE_MAX - 79, 0},
                          {SIZE_MAX - 80, 0},
                          {SIZE_MAX - 100, 64},
                          {half, half},
                          {half - 1, half},
                          {1, half},
                          {0, half},
                          {SIZE_MAX, half},
                          {size_t{1} << 47, 0},
                          {1, 3},
                          {1, 48},
                          {1, SIZE_MAX},
                          {16, 17},
                          {size_t{1} << 42, 16},
                          {SIZE_MAX - 4096, 4096}};
    ZuSMEMSTG *c = child();
    ZuSMEMSTGgetstate(&mark, &header);
    for (const Case &k : cases)
        for (ZuSMEMSTG *s : {&header, c})
            EXPECT_EQ(ZuSMEMSTGaalloc(s, k.size, k.alignment, 0), nullptr)
                << k.size << " aligned to " << k.alignment;
    ZuSMEMSTGgetstate(&after, &header);
    EXPECT_TRUE(same(mark, after));
    EXPECT_EQ(ZuSMEMSTGaalloc(nullptr, 1, 0, 0), nullptr);
    ZuMEMSTGclose(c);
    EXPECT_EQ(ZuSMEMSTGdrawn(&header), drawn);
    EXPECT_EQ(address(take(&header, 16)), address(before) + 32);
}

TEST_F(Stack, ALongLifeTakesNoMoreRoom) {
    std::mt19937 random(5);
    std::vector<void *> out;
    size_t most = 0;
    // A window of blocks that moves on for ever: the oldest goes as a new one comes.
    for (int i = 0; i < 200000; i++) {
        out.push_back(take(&header, 100 + random() % 100));
        if (out.size() > 100) {
            ZuSMEMSTGfree(&header, out.front());
            out.erase(out.begin());
        }
        most = std::max(most, ZuSMEMSTGdrawn(&header));
    }
    EXPECT_LE(most, size_t{16} << 20);
}

TEST(Null, DoesNothing) {
    ZuMEMSTGclose(nullptr);
    ZuMEMSTGdestroy(nullptr);
    ZuSMEMSTGclear(nullptr);
    ZuSMEMSTGfree(nullptr, nullptr);
    ZuSMEMSTGsetstate(nullptr, nullptr);
    ZuSMEMSTGgetstate(nullptr, nullptr);
    ZuSMEMSTGsetlimit(nullptr, 1);
    EXPECT_EQ(ZuSMEMSTGdrawn(nullptr) + ZuSMEMSTGpeak(nullptr), 0u);
    _ZuMfree(nullptr);
    ZuMfree(nullptr);
}

TEST(Heap, SizesAreChecked) {
    const size_t half = SIZE_MAX / 2 + 1;
    const size_t overflowing[][2] = {{half, 2}, {2, half}, {SIZE_MAX, SIZE_MAX}, {half + 1, 2}};
    for (const auto &pair : overflowing) EXPECT_EQ(_ZuMcalloc(pair[0], pair[1]), nullptr);
    void *empty = _ZuMcalloc(0, 8), *other = _ZuMcalloc(8, 0);
    EXPECT_TRUE(empty && other && empty != other);
    auto *block = static_cast<unsigned char *>(_ZuMcalloc(10, 10));
    EXPECT_EQ(address(block) % 16, 0u);
    EXPECT_TRUE(std::all_of(block, block + 100, [](unsigned char b) { return b == 0; }));
    memset(block, 5, 100);
    EXPECT_EQ(_ZuMrealloc(block, SIZE_MAX / 4), nullptr);
    block = static_cast<unsigned char *>(_ZuMrealloc(block, 100000));
    EXPECT_TRUE(std::all_of(block, block + 100, [](unsigned char b) { return b == 5; }));
    block = static_cast<unsigned char *>(_ZuMrealloc(block, 0));
    EXPECT_NE(block, nullptr);
    EXPECT_EQ(block[0], 5);
    for (void *p : {empty, other, static_cast<void *>(block)}) ZuMfree(p);
    void *fresh = _ZuMrealloc(nullptr, 7);
    EXPECT_NE(fresh, nullptr);
    _ZuMfree(fresh);
}

// Ignored in release builds, the end of debug builds.
#ifdef NDEBUG
#define MISUSE(statement) statement
#else
#define MISUSE(statement) EXPECT_DEATH(statement, "")
#endif

TEST_F(Stack, MisuseIsIgnoredOrAborts) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    auto *a = static_cast<char *>(take(&header, 100)), *b = static_cast<char *>(take(&header, 100));
    auto *large = static_cast<char *>(take(&header, 100000));
    char foreign[64];
    ZuSMEMSTGfree(&header, a);
    for (char *wrong : {a, foreign + 16, b + 8, b + 16, large + 16})
        MISUSE(ZuSMEMSTGfree(&header, wrong));
    ZuSMEMSTG other;
    ZuSMEMSTATE foreign_mark;
    ZuSMEMSTGopen(&other, 0, 0);
    ZuSMEMSTGgetstate(&foreign_mark, &other);
    MISUSE(ZuSMEMSTGsetstate(&header, &foreign_mark));
    ZuMEMSTGdestroy(&other);
    EXPECT_GT(ZuSMEMSTGdrawn(&header), 100000u);
    ZuSMEMSTGfree(&header, b);
    MISUSE(ZuSMEMSTGfree(&header, b));
    EXPECT_EQ(take(&header, 100), a);
    EXPECT_EQ(take(&header, 100), b);
    ZuSMEMSTGfree(&header, large);
    MISUSE(ZuSMEMSTGfree(&header, large));
}

#if !defined(NDEBUG) && !defined(UNDER_ASAN)
TEST_F(Stack, MemoryThatChangesHandsIsPoisoned) {
    auto *below = static_cast<unsigned char *>(ZuSMEMSTGaalloc(&header, 16, 0, 0));
    const auto all = [](const unsigned char *p, unsigned char pattern) {
        return std::all_of(p, p + 64, [=](unsigned char b) { return b == pattern; });
    };
    auto *block = static_cast<unsigned char *>(ZuSMEMSTGaalloc(&header, 64, 0, 0));
    EXPECT_TRUE(all(block, 0xA5));
    auto *above = static_cast<unsigned char *>(ZuSMEMSTGaalloc(&header, 64, 0, 0));
    ZuSMEMSTGfree(&header, block);
    EXPECT_TRUE(all(block, 0xDD)); // dead, under a live one
    ZuSMEMSTGfree(&header, above);
    EXPECT_TRUE(all(above, 0xDD));
    ZuSMEMSTATE mark;
    ZuSMEMSTGgetstate(&mark, &header);
    block = static_cast<unsigned char *>(ZuSMEMSTGaalloc(&header, 64, 0, 0));
    ZuSMEMSTGsetstate(&header, &mark);
    EXPECT_TRUE(all(block, 0xE1));
    ZuSMEMSTGfree(&header, below);
}
#endif

#ifdef UNDER_ASAN
TEST_F(Stack, TheSanitizerSeesEveryStray) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    auto *a = static_cast<volatile char *>(take(&header, 24));
    auto *b = static_cast<volatile char *>(take(&header, 100));
    EXPECT_DEATH(a[24] = 1, "use-after-poison");
    EXPECT_DEATH(a[-1] = 1, "use-after-poison");
    EXPECT_DEATH(b[-1] = 1, "use-after-poison");
    EXPECT_DEATH(b[100] = 1, "use-after-poison");
    ZuSMEMSTGfree(&header, const_cast<char *>(a));
    EXPECT_DEATH(a[0] = 1, "use-after-poison");
    ZuSMEMSTGclear(&header);
    EXPECT_DEATH(b[0] = 1, "use-after-poison");
}
#endif

} // namespace
