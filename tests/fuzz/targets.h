// fuzz/targets.h - what can be fuzzed, by name.
//
// A target takes any bytes, and stops the process when what it checks does not hold.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace kipx::fuzz {

struct Target {
    const char *name;
    void (*run)(const uint8_t *data, size_t size);
};

// A target a family.
std::span<const Target> targets();

} // namespace kipx::fuzz
