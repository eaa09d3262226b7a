// The execution environment on the real memory stack: its life, what belongs to whom, the switch.
#include <kipx/env.h>

#include <atomic>
#include <cstring>
#include <set>
#include <thread>

#include <gtest/gtest.h>

namespace {

bool aligned(const void *p, size_t to) { return reinterpret_cast<uintptr_t>(p) % to == 0; }

// Whether a stack stands where it stood: a block taken now lies where one would have lain then.
struct Mark {
    kipx_mmstack *stack;
    const void *next;
    explicit Mark(kipx_mmstack *s) : stack(s), next(kipx_mmstack_alloca(s, 1, 0)) {
        kipx_mmstack_freea(s, const_cast<void *>(next));
    }
    bool reached() const { return Mark(stack).next == next; }
};

class Environments : public testing::Test {
protected:
    void SetUp() override { stack = kipx_mmstack_open(nullptr, 0); }
    void TearDown() override { kipx_mmstack_close(stack); }
    kipx_mmstack *stack = nullptr;
    KipxXE xe{};
};

TEST_F(Environments, NullIsHarmless) {
    kipx_mmstate state{};
    KipxXEclose(nullptr), KipxXEfini(nullptr), KipxXEclear(nullptr);
    KipxXEinitMmstack(nullptr, 0), KipxXEfreea(nullptr, &state);
    KipxXEgetmmsp(nullptr, &state), KipxXEsetmmsp(nullptr, &state);
    EXPECT_EQ(KipxXEinit(nullptr, stack), nullptr);
    EXPECT_EQ(KipxXEmmstack(nullptr), nullptr);
    EXPECT_EQ(KipxXEalloca(nullptr, 1, 0), nullptr);
    EXPECT_EQ(KipxXEresetMmstack(nullptr, stack, 0), nullptr);
    // A zero record: nothing to end, nothing to give back, no mark to return to.
    KipxXEfini(&xe), KipxXEclear(&xe), KipxXEfreea(&xe, nullptr), KipxXEsetmmsp(&xe, &state);
    KipxXEclose(&xe);
    EXPECT_EQ(xe.flags, 0u);
    EXPECT_EQ(xe.stack, nullptr);
}

TEST_F(Environments, InitialisingTwiceKeepsTheFirst) {
    kipx_mmstack *other = kipx_mmstack_open(nullptr, 0);
    EXPECT_EQ(KipxXEinit2(&xe, stack, 5), &xe);
    const KipxXE first = xe;
    EXPECT_NE(kipx_mmstack_alloca(stack, 100, 0), nullptr);
    EXPECT_EQ(KipxXEinit2(&xe, other, 6), &xe);
    EXPECT_EQ(KipxXEinit(&xe, nullptr), &xe);
    EXPECT_EQ(memcmp(&first, &xe, sizeof xe), 0);
    EXPECT_EQ(xe.flags, 1u);
    EXPECT_EQ(xe.param, 5u);
    EXPECT_EQ(xe.stack, stack);
    KipxXEfini(&xe);
    kipx_mmstack_close(other);
}

TEST_F(Environments, ALentStackKeepsWhatItHeld) {
    auto *old = static_cast<unsigned char *>(kipx_mmstack_alloca(stack, 100, 0));
    memset(old, 0x5a, 100);
    const Mark mark(stack);
    KipxXEinit(&xe, stack);
    for (int round = 0; round < 3; round++) {
        for (size_t size : {1, 1000, 300000}) memset(KipxXEalloca(&xe, size, 0), 1, size);
        EXPECT_FALSE(mark.reached());
        round < 2 ? KipxXEclear(&xe) : KipxXEfini(&xe);
        EXPECT_TRUE(mark.reached());
        EXPECT_EQ(xe.flags, round < 2 ? 1u : 0u);
    }
    EXPECT_EQ(xe.stack, stack);
    for (int i = 0; i < 100; i++) ASSERT_EQ(old[i], 0x5a);
    kipx_mmstack_freea(stack, old);
}

TEST_F(Environments, OwnStackOpensOnFirstUseAndEndsWithTheRecord) {
    for (int how = 0; how < 5; how++) {
        if (how < 4) KipxXEinit(&xe, how == 3 ? &xe.inline_stack : nullptr);
        EXPECT_EQ(xe.stack, nullptr);
        kipx_mmstate state;
        switch (how) {
        case 0:
            EXPECT_EQ(KipxXEmmstack(&xe), &xe.inline_stack);
            break;
        case 1:
            KipxXEinitMmstack(&xe, 0);
            break;
        case 2:
            KipxXEgetmmsp(&xe, &state);
            break;
        default: // 4: a zero record
            EXPECT_NE(KipxXEalloca(&xe, 10, 0), nullptr);
        }
        EXPECT_EQ(xe.stack, &xe.inline_stack);
        EXPECT_EQ(KipxXEmmstack(&xe), xe.stack);
        EXPECT_EQ(xe.flags, 1u) << how;
        memset(KipxXEalloca(&xe, 1 << 20, 64), 1, 1 << 20);
        KipxXEclear(&xe);
        const Mark mark(xe.stack);
        EXPECT_NE(KipxXEalloca(&xe, 10, 0), nullptr);
        KipxXEclear(&xe);
        EXPECT_TRUE(mark.reached());
        KipxXEfini(&xe);
        EXPECT_EQ(xe.stack, nullptr);
        EXPECT_EQ(xe.flags, 0u);
    }
}

TEST_F(Environments, TheParameterIsTheParentOfTheOwnStack) {
    const auto parent = reinterpret_cast<uintptr_t>(stack);
    const size_t before = ZuSMEMSTGdrawn(stack);
    KipxXEinit2(&xe, nullptr, parent);
    EXPECT_NE(KipxXEalloca(&xe, 1 << 20, 0), nullptr);
    EXPECT_GT(ZuSMEMSTGpeak(stack), before);
    EXPECT_GE(ZuSMEMSTGdrawn(stack), size_t{1} << 20);
    KipxXEfini(&xe);
    EXPECT_EQ(xe.param, 0u);
    EXPECT_LT(ZuSMEMSTGdrawn(stack), size_t{1} << 20);
    // Given at the opening, or stored before it.
    KipxXEinit2(&xe, nullptr, 0);
    KipxXEinitMmstack(&xe, parent);
    EXPECT_EQ(xe.param, parent);
    EXPECT_NE(KipxXEalloca(&xe, 1 << 20, 0), nullptr);
    EXPECT_GE(ZuSMEMSTGdrawn(stack), size_t{1} << 20);
    KipxXEinitMmstack(&xe, 1); // one is attached: nothing
    EXPECT_EQ(xe.param, parent);
    KipxXEfini(&xe);
    KipxXEinit2(&xe, nullptr, parent);
    KipxXEinitMmstack(&xe, 0); // keeps the stored one
    EXPECT_EQ(xe.param, parent);
    KipxXEfini(&xe);
}

TEST_F(Environments, OpenedInTheCallersRecord) {
    memset(&xe, 0xee, sizeof xe);
    EXPECT_EQ(KipxXEopen(&xe, stack, 9), &xe);
    EXPECT_EQ(xe.flags, 1u);
    EXPECT_EQ(xe.stack, stack);
    EXPECT_EQ(xe.param, 9u);
    const Mark mark(stack);
    EXPECT_NE(KipxXEalloca(&xe, 50, 0), nullptr);
    KipxXEclose(&xe);
    EXPECT_TRUE(mark.reached()); // rewound, still open
    EXPECT_NE(kipx_mmstack_alloca(stack, 1, 0), nullptr);
    memset(&xe, 0xee, sizeof xe);
    EXPECT_EQ(KipxXEopen(&xe, nullptr, 0), &xe);
    EXPECT_EQ(xe.stack, nullptr);
    EXPECT_NE(KipxXEalloca(&xe, 50, 0), nullptr);
    KipxXEclose(&xe);
    EXPECT_EQ(xe.stack, nullptr);
}

TEST_F(Environments, TakenFromItsStackItSurvivesClearing) {
    for (bool lent : {false, true}) {
        kipx_mmstack *own = lent ? kipx_mmstack_open(nullptr, 0) : nullptr;
        KipxXE *taken = KipxXEopen(nullptr, own, 0);
        ASSERT_NE(taken, nullptr);
        EXPECT_EQ(taken->flags, 0x11u);
        EXPECT_TRUE(aligned(taken, 8));
        EXPECT_NE(taken->stack, &taken->inline_stack);
        EXPECT_TRUE(!lent || taken->stack == own);
        for (int i = 0; i < 3; i++) {
            memset(KipxXEalloca(taken, 100000, 0), 1, 100000);
            KipxXEclear(taken);
            EXPECT_EQ(taken->flags, 0x11u);
        }
        KipxXEclose(taken); // and its stack, the lent one too
    }
}

TEST_F(Environments, ResettingTheStack) {
    const Mark mark(stack);
    KipxXEinit(&xe, stack);
    EXPECT_NE(KipxXEalloca(&xe, 64, 0), nullptr);
    EXPECT_EQ(KipxXEresetMmstack(&xe, stack, 3), &xe); // the same: nothing
    EXPECT_EQ(xe.param, 0u);
    EXPECT_FALSE(mark.reached());
    EXPECT_EQ(KipxXEresetMmstack(&xe, &xe.inline_stack, 0), &xe);
    EXPECT_TRUE(mark.reached());
    EXPECT_EQ(xe.stack, nullptr);
    EXPECT_EQ(xe.flags, 1u);
    EXPECT_NE(KipxXEalloca(&xe, 64, 0), nullptr);
    EXPECT_EQ(xe.stack, &xe.inline_stack);
    EXPECT_EQ(KipxXEresetMmstack(&xe, stack, 7), &xe); // its own is destroyed
    EXPECT_EQ(xe.stack, stack);
    EXPECT_EQ(xe.param, 7u);
    EXPECT_EQ(KipxXEdestroyMmstack(&xe), &xe);
    EXPECT_EQ(xe.stack, nullptr);
    EXPECT_EQ(xe.param, 0u);
    KipxXEfini(&xe);

    KipxXE *taken = KipxXEopen(nullptr, nullptr, 0);
    EXPECT_EQ(KipxXEresetMmstack(taken, taken->stack, 0), taken);
    taken = KipxXEdestroyMmstack(taken);
    ASSERT_NE(taken, nullptr);
    EXPECT_EQ(taken->flags, 0x11u);
    kipx_mmstack *next = kipx_mmstack_open(nullptr, 0);
    taken = KipxXEresetMmstack(taken, next, 4);
    ASSERT_NE(taken, nullptr);
    EXPECT_EQ(taken->stack, next);
    EXPECT_EQ(taken->param, 4u);
    KipxXEclose(taken);
}

TEST_F(Environments, BlocksAreAlignedAndDistinct) {
    KipxXEinit(&xe, nullptr);
    std::set<void *> blocks;
    for (size_t align : {0, 1, 2, 8, 16, 64, 4096})
        for (size_t size : {0, 0, 1, 15, 100, 70000}) {
            void *block = KipxXEalloca(&xe, size, align);
            ASSERT_NE(block, nullptr);
            EXPECT_TRUE(aligned(block, align ? align : 16)) << align;
            EXPECT_TRUE(blocks.insert(block).second);
            memset(block, 1, size);
        }
    EXPECT_EQ(KipxXEalloca(&xe, 1, 3), nullptr);
    EXPECT_EQ(KipxXEalloca(&xe, SIZE_MAX, 0), nullptr);
    EXPECT_EQ(KipxXEalloca(&xe, SIZE_MAX - 64, 64), nullptr);
    for (void *block : blocks) KipxXEfreea(&xe, block); // in no order
    KipxXEfini(&xe);
}

TEST_F(Environments, MarksReleaseWhatCameAfter) {
    kipx_mmstate state;
    KipxXEgetmmsp(&xe, &state); // before the first use, too
    const Mark start(KipxXEmmstack(&xe));
    for (int round = 0; round < 2; round++) {
        for (size_t size : {10, 5000, 200000}) memset(KipxXEalloca(&xe, size, 8), 1, size);
        KipxXEsetmmsp(&xe, &state);
        EXPECT_TRUE(start.reached());
    }
    auto *kept = static_cast<unsigned char *>(KipxXEalloca(&xe, 10, 0));
    memset(kept, 7, 10);
    KipxXEgetmmsp(&xe, &state);
    KipxXEalloca(&xe, 100, 0);
    KipxXEsetmmsp(&xe, &state);
    for (int i = 0; i < 10; i++) EXPECT_EQ(kept[i], 7);
    KipxXEfini(&xe);
}

TEST_F(Environments, ALimitIsAnEndOfMemory) {
    KipxXEinit(&xe, stack);
    ZuSMEMSTGsetlimit(stack, 1 << 20);
    EXPECT_EQ(KipxXEalloca(&xe, 2 << 20, 0), nullptr);
    EXPECT_NE(KipxXEalloca(&xe, 1000, 0), nullptr);
    ZuSMEMSTGsetlimit(stack, 0);
    EXPECT_NE(KipxXEalloca(&xe, 2 << 20, 0), nullptr);
    KipxXEfini(&xe);
}

TEST_F(Environments, TheMemoryStackByItself) {
    kipx_mmstack header;
    kipx_mmstack *own = kipx_mmstack_open(&header, 0);
    EXPECT_EQ(own, &header);
    kipx_mmstate state;
    EXPECT_EQ(kipx_mmstack_state(own, &state), &state);
    const Mark mark(own);
    void *block = kipx_mmstack_alloca(own, 10, 0);
    EXPECT_TRUE(aligned(block, 16));
    kipx_mmstack_freea(own, block);
    EXPECT_TRUE(mark.reached());
    kipx_mmstack_alloca(own, 10, 0);
    kipx_mmstack_setstate(own, &state);
    EXPECT_TRUE(mark.reached());
    kipx_mmstack_alloca(own, 300000, 0);
    kipx_mmstack_reset(own);
    EXPECT_NE(kipx_mmstack_alloca(own, 10, 0), nullptr);
    kipx_mmstack_close(own);
    EXPECT_EQ(kipx_mmstack_alloca(nullptr, 1, 0), nullptr);
    kipx_mmstack_freea(nullptr, &state), kipx_mmstack_setstate(nullptr, &state);
    kipx_mmstack_reset(nullptr), kipx_mmstack_close(nullptr);
}

TEST(Switch, AnswersForItsValueAndTheFlags) {
    struct {
        int32_t set;
        uint64_t flags;
        int32_t answer;
    } const cases[] = {{-1, 0, 0},           {0, 0, 0},           {1, 0, 1}, {77, 0, 1},
                       {-2, 0, 1},           {1, 2, 0},           {1, 3, 0}, {1, 5, 1},
                       {1, ~uint64_t{2}, 1}, {1, ~uint64_t{0}, 0}};
    const int32_t before = kipx_use_simd(0);
    for (const auto &c : cases) {
        KipxXE xe{};
        kipx_set_simd(c.set);
        EXPECT_EQ(kipx_use_simd(c.flags), c.answer) << c.set << " flags " << c.flags;
        EXPECT_EQ(KipxXEuseSimd(&xe, c.flags), c.answer);
        EXPECT_EQ(KipxXEuseSimd(nullptr, c.flags), c.answer);
    }
    for (int32_t value : {-1, 0, 1}) { // the probe turns it off, whatever it was
        kipx_set_simd(value);
        EXPECT_EQ(__kipx_use_simd(), 0);
        EXPECT_EQ(kipx_use_simd(0), 0) << value;
    }
    kipx_set_simd(before);
}

TEST(Switch, AValueSetDuringTheFirstQueryStands) {
    const int32_t before = kipx_use_simd(0);
    std::atomic<bool> asked{false}, done{false};
    std::thread asking([&] {
        for (; !done.load(std::memory_order_relaxed); asked.store(true)) kipx_use_simd(0);
    });
    while (!asked.load()) std::this_thread::yield();
    int lost = 0;
    for (int round = 0; round < 1000000; ++round) {
        kipx_set_simd(-1);
        kipx_set_simd(1);
        for (int i = 0; i < 8; ++i) lost += kipx_use_simd(0) != 1;
    }
    done.store(true);
    asking.join();
    EXPECT_EQ(lost, 0);
    kipx_set_simd(before);
}

} // namespace
