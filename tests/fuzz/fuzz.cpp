// fuzz.cpp - invented calls for every family, as a test: fuzz_library TABLE SECONDS [TARGET].
//
// Gives    the rows of the table, "target hex what for", then drawn inputs for each target in turn, for
//          as many seconds of the processor's time in all.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "fuzz/targets.h"
#include "support/rng.h"

using namespace kipx::fuzz;

namespace {

const Target *named(const char *name) {
    for (const Target &target : targets())
        if (name && !std::strcmp(target.name, name)) return &target;
    std::fprintf(stderr, "No target %s. There are:", name ? name : "");
    for (const Target &target : targets()) std::fprintf(stderr, " %s", target.name);
    std::fprintf(stderr, "\n");
    std::exit(2);
}

using Inputs = std::vector<std::vector<uint8_t>>;

// What the target begins with: its rows of the table.
Inputs inputs_of(const Target &target, const char *path) {
    Inputs inputs;
    std::ifstream table(path);
    for (std::string line; std::getline(table, line);) {
        std::istringstream words(line);
        std::string name, hex;
        if (!(words >> name >> hex) || name != target.name) continue;
        inputs.emplace_back();
        for (size_t i = 0; i + 1 < hex.size(); i += 2)
            inputs.back().push_back(uint8_t(std::stoul(hex.substr(i, 2), nullptr, 16)));
    }
    return inputs;
}

// Equal inputs in every run, but a slow machine tries fewer of them.
size_t draw(const Target &target, double seconds) {
    const std::clock_t start = std::clock(); // processor time: a busy machine tries no fewer
    kipx::test::Rng rng(20);
    size_t inputs = 0;
    for (std::vector<uint8_t> input; inputs < 5000; ++inputs) {
        input.resize(rng.below(400));
        for (uint8_t &byte : input) byte = uint8_t(rng.next());
        if (double(std::clock() - start) > seconds * CLOCKS_PER_SEC) break;
        target.run(input.data(), input.size());
    }
    return inputs;
}

} // namespace

int main(int count, char **arguments) {
    if (count < 3)
        return std::fprintf(stderr, "Usage: %s TABLE SECONDS [TARGET]\n", arguments[0]), 2;
    if (!std::ifstream(arguments[1])) return std::fprintf(stderr, "No table %s\n", arguments[1]), 2;
    const double seconds = std::atof(arguments[2]) / double(count > 3 ? 1 : targets().size());
    size_t kept = 0, drawn = 0;
    bool all = true;
    for (const Target &target : targets()) {
        if (count > 3 && named(arguments[3])->name != target.name) continue;
        const Inputs inputs = inputs_of(target, arguments[1]);
        for (const auto &input : inputs) target.run(input.data(), input.size());
        const size_t tried = draw(target, seconds);
        std::printf("%-12s %6zu kept, %6zu drawn\n", target.name, inputs.size(), tried);
        std::fflush(stdout);
        kept += inputs.size(), drawn += tried, all &= tried > 0;
    }
    std::printf("%zu kept inputs, %zu drawn ones\n", kept, drawn);
    return all ? 0 : 1;
}
