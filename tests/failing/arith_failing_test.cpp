// Arithmetic when memory runs out: each allocation of every road fails in turn.
#include "zu_failing.h"

#include <gtest/gtest.h>

#include "support/arith_model.h"
#include "support/guarded.h"

using namespace kipx::test;

namespace {

constexpr uint32_t kernel_types[] = {1, 2, 9, 10, 11, 13};

GuardedArray array_of(uint32_t type) {
    Shape s;
    s.type = type, s.width = 37, s.height = 5, s.channels = 3;
    s.layout = Layout::padded_pixels; // channel by channel
    return GuardedArray(s);
}

// Whether the stack is where the mark was taken: nothing is out but what was out then.
struct Held {
    long blocks = zu_live_blocks();
    size_t bytes = zu_live_bytes();
    bool operator==(const Held &) const = default;
};

int32_t call(const FunctionInfo &f, KipxXE *xe, const GuardedArray &d, const GuardedArray &a,
             const GuardedArray &b) {
    return f.function(xe, 0, d.arr(), a.arr(), b.arr(), nullptr, nullptr, nullptr, -1, 0);
}

// Makes each allocation fail in turn; gives the number that one undisturbed call makes.
long fail_in_turn(const FunctionInfo &f, Triple t, bool stack_is_open) {
    Rng rng(t.dst * 256 + t.src1 * 16 + t.src2);
    GuardedArray d = array_of(t.dst), a = array_of(t.src1), b = array_of(t.src2);
    d.fill(rng), a.fill(rng, Values::nonzero), b.fill(rng, Values::nonzero);
    const Elements first(a), second(b);
    const Snapshot before = d.snapshot();
    for (long k = 0;; k++) {
        KipxXE xe{};
        KipxXEinit(&xe, nullptr);
        void *kept = stack_is_open ? KipxXEalloca(&xe, 100, 0) : nullptr;
        const Held held;
        zu_reset();
        zu_fail_at(k);
        const int32_t code = call(f, &xe, d, a, b);
        const long asked = zu_allocations();
        zu_reset();
        if (asked > k) {
            EXPECT_EQ(code, KIPX_ENOMEM) << f.name << " allocation " << k;
            EXPECT_EQ(d.changes(before), "") << f.name << " allocation " << k;
        }
        // A stack that the call opened itself stays open, and empty.
        EXPECT_TRUE(!stack_is_open || held == Held());
        if (asked <= k) {
            EXPECT_EQ(code, 0);
            EXPECT_EQ(wrong_element(d, route_of(f, t), -1, first, second), "") << f.name;
        }
        // The environment works on as if nothing had happened.
        EXPECT_EQ(call(f, &xe, d, a, b), 0);
        d.restore(before);
        KipxXEfreea(&xe, kept);
        KipxXEfini(&xe);
        if (asked <= k || testing::Test::HasFailure()) return asked;
    }
}

TEST(ArithmeticWithoutMemory, RefusesAndTouchesNothing) {
    const long blocks = zu_live_blocks();
    int narrowed = 0;
    for (const FunctionInfo &f : all_functions())
        for (uint32_t d : kernel_types)
            for (uint32_t a : kernel_types)
                for (uint32_t b : kernel_types) {
                    const Triple t{d, a, b};
                    const Route route = route_of(f, t);
                    if (route.status) continue;
                    const bool scratch = route.kernel.dst != route.dst;
                    narrowed += scratch;
                    // The buffer is the one allocation; an unopened stack is one more.
                    ASSERT_EQ(fail_in_turn(f, t, true), scratch ? 1 : 0)
                        << f.name << " " << type_name(d) << type_name(a) << type_name(b);
                    ASSERT_EQ(fail_in_turn(f, t, false) > 0, scratch);
                }
    EXPECT_GT(narrowed, 100);
    zu_reset();
    EXPECT_EQ(zu_live_blocks(), blocks);
}

// Not only the substitute's word for it: a real limit on the environment's stack.
TEST(ArithmeticWithoutMemory, KeepsToTheLimitOfItsStack) {
    GuardedArray d = array_of(KIPX_U8), a = array_of(KIPX_S32), b = array_of(KIPX_S32);
    Rng rng(1);
    d.fill(rng), a.fill(rng), b.fill(rng);
    const Snapshot before = d.snapshot();
    KipxXE xe{};
    KipxXEinit(&xe, nullptr);
    ZuSMEMSTGsetlimit(KipxXEmmstack(&xe), 8);
    EXPECT_EQ(call(all_functions()[0], &xe, d, a, b), KIPX_ENOMEM);
    EXPECT_EQ(d.changes(before), "");
    ZuSMEMSTGsetlimit(KipxXEmmstack(&xe), 0);
    EXPECT_EQ(call(all_functions()[0], &xe, d, a, b), 0);
    KipxXEfini(&xe);
}

} // namespace
