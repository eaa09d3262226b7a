// support/environment.h - an execution environment, and the vectorisation switch, for one scope.
//
// Owner    the objects put back what they changed when they go: Environment releases its stack,
//          SimdSwitch sets the switch to what it was.
#ifndef KIPX_TESTS_SUPPORT_ENVIRONMENT_H
#define KIPX_TESTS_SUPPORT_ENVIRONMENT_H

#include <kipx/env.h>

namespace kipx::test {

class Environment {
public:
    Environment() { KipxXEinit(&xe_, nullptr); }
    ~Environment() { KipxXEfini(&xe_); }
    Environment(const Environment &) = delete;
    Environment &operator=(const Environment &) = delete;
    operator KipxXE *() { return &xe_; }
    KipxXE *get() { return &xe_; }
    kipx_mmstack *stack() { return KipxXEmmstack(&xe_); }

private:
    KipxXE xe_{};
};

class SimdSwitch {
public:
    // As kipx_set_simd takes it; true and false do as well.
    explicit SimdSwitch(int32_t set) : before_(kipx_simd_set(0)) { kipx_set_simd(set); }
    ~SimdSwitch() { kipx_set_simd(before_); }
    SimdSwitch(const SimdSwitch &) = delete;
    SimdSwitch &operator=(const SimdSwitch &) = delete;

private:
    int32_t before_;
};

} // namespace kipx::test

#endif
