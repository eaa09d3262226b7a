// The execution environment on the real memory stack: its life, what belongs to whom, the switch.
#include <kipx/env.h>
#include <kipx/types.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <utility>

#include <gtest/gtest.h>

namespace {

bool aligned(const void *p, size_t to) { return reinterpret_cast<uintptr_t>(p) % to == 0; }

kipx_mmstate mark_of(kipx_mmstack *stack) {
    kipx_mmstate state;
    return *kipx_mmstack_state(stack, &state);
}

class Environments : public testing::Test {
protected:
    void SetUp() override { stack = kipx_mmstack_open(nullptr, 0); }
    void TearDown() override { kipx_mmstack_close(stack); }
    void *take(size_t size = 100) {
        void *block = KipxXEalloca(&xe, size, 0);
        return block ? memset(block, 1, size) : nullptr;
    }
    // Whether nothing is out but what was out when the mark was made.
    bool stands_at(const kipx_mmstate &mark) const {
        const kipx_mmstate now = mark_of(stack);
        return memcmp(&now, &mark, sizeof now) == 0;
    }
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
    EXPECT_EQ(kipx_mmstack_alloca(nullptr, 1, 0), nullptr);
    kipx_mmstack_freea(nullptr, &state), kipx_mmstack_setstate(nullptr, &state);
    kipx_mmstack_reset(nullptr), kipx_mmstack_close(nullptr);
    // A zero record: nothing to end, nothing to give back, no mark to return to.
    KipxXEfini(&xe), KipxXEclear(&xe), KipxXEfreea(&xe, nullptr), KipxXEsetmmsp(&xe, &state);
    KipxXEclose(&xe);
    EXPECT_TRUE(xe.flags == 0 && !xe.stack);
}

TEST_F(Environments, ALentStackIsRewoundToWhereItStood) {
    auto *old = static_cast<char *>(kipx_mmstack_alloca(stack, 100, 0));
    memset(old, 'o', 100);
    const kipx_mmstate mark = mark_of(stack);
    kipx_mmstack *other = kipx_mmstack_open(nullptr, 0);
    EXPECT_EQ(KipxXEinit2(&xe, stack, 5), &xe);
    for (bool end : {false, false, true}) {
        for (size_t size : {1, 1000, 300000}) EXPECT_NE(take(size), nullptr);
        EXPECT_FALSE(stands_at(mark));
        // Initialising again changes nothing, the saved mark neither.
        EXPECT_TRUE(KipxXEinit2(&xe, other, 6) == &xe && KipxXEinit(&xe, nullptr) == &xe);
        EXPECT_TRUE(xe.stack == stack && xe.param == 5 && xe.flags == 1);
        end ? KipxXEfini(&xe) : KipxXEclear(&xe);
        EXPECT_TRUE(stands_at(mark));
    }
    EXPECT_TRUE(xe.stack == stack && xe.param == 0 && xe.flags == 0);
    EXPECT_EQ(std::string(old, 100), std::string(100, 'o'));
    kipx_mmstack_close(other);
}

TEST_F(Environments, ItsOwnStackOpensOnFirstUse) {
    const auto parent = reinterpret_cast<uintptr_t>(stack);
    kipx_mmstate state;
    struct {
        KipxXE *(*init)(KipxXE *, uint64_t param);
        std::function<void()> use;
        uint64_t param; // afterwards
    } const ways[] = {
        {[](KipxXE *x, uint64_t) { return KipxXEinit(x, nullptr); }, [&] { KipxXEmmstack(&xe); },
         0},
        {[](KipxXE *x, uint64_t p) { return KipxXEinit2(x, nullptr, p); },
         [&] { KipxXEgetmmsp(&xe, &state); }, parent},
        {[](KipxXE *x, uint64_t p) { return KipxXEinit2(x, &x->inline_stack, p); },
         [&] { KipxXEalloca(&xe, 1, 0); }, parent},
        {[](KipxXE *x, uint64_t) { return x; }, [&] { KipxXEalloca(&xe, 1, 0); }, 0}, // zero record
        {[](KipxXE *x, uint64_t p) { return KipxXEinit2(x, nullptr, p); },
         [&] { KipxXEinitMmstack(&xe, 0); }, parent}, // keeps the one given
        {[](KipxXE *x, uint64_t) { return KipxXEinit2(x, nullptr, 8); },
         [&] { KipxXEinitMmstack(&xe, parent), KipxXEinitMmstack(&xe, 8); }, parent},
        {[](KipxXE *x, uint64_t) { return memset(x, 0xee, sizeof *x), KipxXEopen(x, nullptr, 0); },
         [&] { KipxXEmmstack(&xe); }, 0},
    };
    const size_t before = ZuSMEMSTGdrawn(stack);
    for (const auto &way : ways) {
        SCOPED_TRACE(&way - ways);
        way.init(&xe, parent);
        EXPECT_EQ(xe.stack, nullptr);
        way.use();
        EXPECT_TRUE(xe.stack == &xe.inline_stack && KipxXEmmstack(&xe) == xe.stack);
        EXPECT_TRUE(xe.flags == 1 && xe.param == way.param);
        EXPECT_NE(take(1 << 20), nullptr);
        EXPECT_EQ(ZuSMEMSTGdrawn(stack) >= before + (1 << 20), way.param == parent);
        KipxXEclear(&xe);
        EXPECT_LT(ZuSMEMSTGdrawn(xe.stack), size_t{1} << 20);
        KipxXEfini(&xe);
        EXPECT_TRUE(!xe.stack && xe.flags == 0 && xe.param == 0);
        EXPECT_EQ(ZuSMEMSTGdrawn(stack), before);
    }
}

TEST_F(Environments, OpenedHereOrTakenFromAStack) {
    const kipx_mmstate mark = mark_of(stack);
    memset(&xe, 0xee, sizeof xe);
    EXPECT_EQ(KipxXEopen(&xe, stack, 9), &xe);
    EXPECT_TRUE(xe.flags == 1 && xe.stack == stack && xe.param == 9);
    EXPECT_NE(take(), nullptr);
    KipxXEclose(&xe);
    EXPECT_TRUE(stands_at(mark)); // rewound, still open
    for (bool lent : {false, true}) {
        kipx_mmstack header, *own = lent ? kipx_mmstack_open(&header, 0) : nullptr;
        KipxXE *taken = KipxXEopen(nullptr, own, 0);
        ASSERT_NE(taken, nullptr);
        EXPECT_TRUE(aligned(taken, 8) && taken->stack != &taken->inline_stack);
        EXPECT_TRUE(!lent || taken->stack == own);
        memset(KipxXEalloca(taken, 100000, 0), 1, 100000);
        KipxXEclear(taken);
        EXPECT_EQ(taken->flags, 0x11u);
        KipxXEclose(taken); // and its stack, the lent one too
        EXPECT_TRUE(!lent || ZuSMEMSTGdrawn(own) == 0);
    }
}

TEST_F(Environments, ResettingTheStack) {
    const kipx_mmstate mark = mark_of(stack);
    KipxXEinit(&xe, stack);
    EXPECT_NE(take(), nullptr);
    EXPECT_EQ(KipxXEresetMmstack(&xe, stack, 3), &xe); // the same: nothing
    EXPECT_TRUE(xe.param == 0 && !stands_at(mark));
    EXPECT_EQ(KipxXEresetMmstack(&xe, &xe.inline_stack, 0), &xe);
    EXPECT_TRUE(stands_at(mark) && !xe.stack && xe.flags == 1);
    EXPECT_NE(take(), nullptr);
    EXPECT_EQ(KipxXEresetMmstack(&xe, stack, 7), &xe); // its own is destroyed
    EXPECT_TRUE(xe.stack == stack && xe.param == 7);
    EXPECT_EQ(KipxXEdestroyMmstack(&xe), &xe);
    EXPECT_TRUE(!xe.stack && xe.param == 0);
    KipxXEfini(&xe);

    KipxXE *taken = KipxXEopen(nullptr, nullptr, 0);
    EXPECT_EQ(KipxXEresetMmstack(taken, taken->stack, 0), taken);
    taken = KipxXEdestroyMmstack(taken);
    ASSERT_TRUE(taken && taken->flags == 0x11);
    kipx_mmstack *next = kipx_mmstack_open(nullptr, 0);
    taken = KipxXEresetMmstack(taken, next, 4);
    ASSERT_TRUE(taken && taken->stack == next && taken->param == 4);
    KipxXEclose(taken);
}

TEST_F(Environments, BlocksAndMarks) {
    KipxXEinit(&xe, stack);
    for (size_t align : {0, 1, 8, 64, 4096}) {
        void *block = KipxXEalloca(&xe, 24, align);
        EXPECT_TRUE(block && aligned(block, align ? align : 16)) << align;
        void *mine = kipx_mmstack_alloca(stack, 24, align);
        EXPECT_TRUE(mine && aligned(mine, align ? align : 16)) << align;
        kipx_mmstack_freea(stack, mine), KipxXEfreea(&xe, block);
        EXPECT_EQ(KipxXEalloca(&xe, 24, align), block);
    }
    kipx_mmstate state;
    KipxXEgetmmsp(&xe, &state);
    for (auto rewind : {KipxXEsetmmsp, +[](KipxXE *x, const kipx_mmstate *s) {
                            kipx_mmstack_setstate(x->stack, s);
                        }}) {
        EXPECT_NE(take(), nullptr);
        EXPECT_FALSE(stands_at(state));
        rewind(&xe, &state);
        EXPECT_TRUE(stands_at(state));
    }
    kipx_mmstack_reset(stack);
    EXPECT_FALSE(stands_at(state));
    for (size_t size : {SIZE_MAX, SIZE_MAX - 64}) EXPECT_EQ(KipxXEalloca(&xe, size, 64), nullptr);
    EXPECT_EQ(KipxXEalloca(&xe, 1, 3), nullptr);
}

const int32_t first_answer = kipx_use_simd(0); // before main sets anything

TEST(Switch, AnswersForItsValueAndTheFlags) {
    EXPECT_EQ(first_answer, 0);
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

#if defined(__x86_64__)
// The system's own list of features tells what the best set is: without this, kernels that never run in
// vector form would pass every test.
TEST(Switch, TheSetIsTheBestThatTheProcessorHasAndTheSwitchAllows) {
    std::ifstream file("/proc/cpuinfo");
    std::string line;
    while (std::getline(file, line) && line.rfind("flags", 0) != 0) {
    }
    std::istringstream words(line);
    const std::set<std::string> has{std::istream_iterator<std::string>(words), {}};
    auto all = [&](std::initializer_list<const char *> names) {
        return std::all_of(names.begin(), names.end(),
                           [&](const char *f) { return has.count(f) == 1; });
    };
    const bool avx2 = all({"avx2", "bmi1", "bmi2"});
    const bool avx512 =
        avx2 && all({"avx512f", "avx512bw", "avx512cd", "avx512dq", "avx512vl", "avx512vbmi"});
    const int32_t some = avx2 ? KIPX_SIMD_AVX2 : KIPX_SIMD_OFF,
                  best = avx512 ? KIPX_SIMD_AVX512 : some;
    const int32_t before = kipx_simd_set(0);
    for (auto [value, set] :
         {std::pair{0, 0}, {1, best}, {2, some}, {3, best}, {77, best}, {-1, 0}}) {
        kipx_set_simd(value);
        EXPECT_EQ(kipx_simd_set(0), set) << value;
        EXPECT_EQ(kipx_simd_set(KIPX_FLAG_PLAIN), KIPX_SIMD_OFF) << value;
    }
    kipx_set_simd(before);
}
#endif

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
