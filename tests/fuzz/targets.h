// fuzz/targets.h - what the bytes are fed to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace kipx::fuzz {

using Inputs = std::vector<std::vector<uint8_t>>;

struct Target {
    const char *name;
    void (*run)(const uint8_t *data, size_t size);
    Inputs (*seeds)() = nullptr; // where any bytes will not do to begin with
};

// Of the library, a target a family; of the program, a target an image format.
std::span<const Target> targets();

} // namespace kipx::fuzz
