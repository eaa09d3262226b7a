// failing/operations.h - a call of every operation on arrays, as cases for short memory.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "trial.h"

namespace kipx::test {

enum class Needs { all, most };

struct Case {
    std::string name;
    Needs needs;   // most: it may do with less than it asked for
    long failures; // at least
    std::function<void(Trial &)> run;
};

// Each operation on each kind of arrays that it knows and takes memory for.
std::vector<Case> operation_cases();

} // namespace kipx::test
