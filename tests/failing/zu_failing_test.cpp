// zu_failing_test.cpp - the substitute runtime: that it is the one in use, that it fails when told
// to, and that it keeps the promises of zu.h on which other tests build.
#include "zu_failing.h"
#include <cstdint>
#include <cstring>
#include <dlfcn.h>
#include <gtest/gtest.h>

namespace {

class Substitute : public testing::Test {
protected:
    void SetUp() override { zu_reset(), blocks = zu_live_blocks(), bytes = zu_live_bytes(); }
    void TearDown() override {
        zu_reset();
        EXPECT_EQ(zu_live_blocks(), blocks);
        EXPECT_EQ(zu_live_bytes(), bytes);
    }
    long blocks = 0;
    size_t bytes = 0;
};

TEST_F(Substitute, IsWhatTheLibraryRunsOn) {
    Dl_info controls, runtime;
    ASSERT_TRUE(dladdr(reinterpret_cast<void *>(zu_reset), &controls));
    // What a library loaded beside us would get for the name.
    ASSERT_TRUE(dladdr(dlsym(RTLD_DEFAULT, "ZuSMEMSTGaalloc"), &runtime));
    EXPECT_STREQ(controls.dli_fname, runtime.dli_fname);
    EXPECT_NE(strstr(runtime.dli_fname, "failing/libZu-2.so"), nullptr);
    void *again = dlopen("libZu-2.so", RTLD_NOLOAD | RTLD_LAZY);
    ASSERT_NE(again, nullptr);
    EXPECT_NE(dlsym(again, "zu_reset"), nullptr);
    dlclose(again);
}

TEST_F(Substitute, FailsTheOneOrAllLater) {
    ZuSMEMSTG header;
    for (long k = 0; k < 4; k++) {
        for (const bool all : {false, true}) {
            zu_reset();
            (all ? zu_fail_from : zu_fail_at)(k);
            const auto fails = [&](long i) { return i == k || (all && i > k); };
            ZuSMEMSTG *storage = ZuSMEMSTGopen(&header, 0, 0);
            EXPECT_EQ(storage == nullptr, fails(0));
            void *heap = _ZuMcalloc(3, 5);
            EXPECT_EQ(heap == nullptr, fails(1));
            void *grown = _ZuMrealloc(heap, 40);
            EXPECT_EQ(grown == nullptr, fails(2));
            EXPECT_EQ(ZuSMEMSTGaalloc(storage, 8, 0, 0) == nullptr, fails(3) || !storage);
            EXPECT_EQ(zu_allocations(), 4);
            ZuMfree(grown ? grown : heap);
            ZuMEMSTGdestroy(storage);
        }
    }
}

TEST_F(Substitute, KeepsThePromisesOfStorages) {
    ZuSMEMSTG *stack = ZuSMEMSTGopen(nullptr, 0, 0);
    void *old = ZuSMEMSTGaalloc(stack, 100, 64, 0);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(old) % 64, 0u);
    EXPECT_EQ(ZuSMEMSTGaalloc(stack, 1, 3, 0), nullptr);
    EXPECT_EQ(ZuSMEMSTGaalloc(stack, SIZE_MAX, 0, 0), nullptr);
    EXPECT_EQ(_ZuMcalloc(SIZE_MAX, 2), nullptr);
    ZuSMEMSTG *child = ZuSMEMSTGopen(nullptr, reinterpret_cast<uintptr_t>(stack), 0);
    ZuSMEMSTGaalloc(child, 10, 0, 0);
    ZuSMEMSTATE mark;
    ZuSMEMSTGgetstate(&mark, stack);
    ZuSMEMSTGaalloc(child, 20, 0, 0);
    void *gone = ZuSMEMSTGaalloc(stack, 0, 0, 0);
    EXPECT_NE(gone, nullptr);
    EXPECT_EQ(ZuSMEMSTGdrawn(stack), 131u);
    ZuSMEMSTGsetstate(stack, &mark);
    EXPECT_EQ(ZuSMEMSTGdrawn(stack), 110u);
    EXPECT_EQ(ZuSMEMSTGdrawn(child), 10u);
    EXPECT_EQ(ZuSMEMSTGpeak(stack), 131u);
    ZuSMEMSTGsetlimit(stack, 120);
    EXPECT_EQ(ZuSMEMSTGaalloc(child, 11, 0, 0), nullptr);
    EXPECT_NE(ZuSMEMSTGaalloc(child, 10, 0, 0), nullptr);
    ZuSMEMSTGfree(stack, old);
    ZuSMEMSTGfree(stack, nullptr);
    ZuMEMSTGclose(stack); // and with it the child, which nobody closed
}

TEST_F(Substitute, CallocIsZeroAndReallocKeeps) {
    auto *block = static_cast<unsigned char *>(_ZuMcalloc(4, 4));
    for (int i = 0; i < 16; i++) EXPECT_EQ(block[i], 0);
    memset(block, 7, 16);
    block = static_cast<unsigned char *>(_ZuMrealloc(block, 64));
    for (int i = 0; i < 16; i++) EXPECT_EQ(block[i], 7);
    ZuMfree(block);
}

} // namespace
