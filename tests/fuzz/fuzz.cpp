// fuzz.cpp - two ways to feed the targets.
//
// Gives    linked with libFuzzer: the target that KIPX_FUZZ names, for as long as libFuzzer runs it. What
//          the target begins with and its rows of the table KIPX_FOUND are put into the folder
//          KIPX_SEEDS first.
//          By itself, as a test: fuzz_library TABLE SECONDS [TARGET]: the rows of the table, "target hex
//          what for", then drawn inputs for each target in turn, for as many seconds of the processor's
//          time in all.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "fuzz/targets.h"
#include "fuzz/trial.h"
#include "support/rng.h"

using namespace kipx::fuzz;

namespace {

const Target &named(const char *name) {
    for (const Target &target : targets())
        if (name && !std::strcmp(target.name, name)) return target;
    std::fprintf(stderr, "No target %s. There are:", name ? name : "is named");
    for (const Target &target : targets()) std::fprintf(stderr, " %s", target.name);
    std::fprintf(stderr, "\n");
    std::exit(2);
}

std::vector<uint8_t> drawn(kipx::test::Rng &rng) {
    std::vector<uint8_t> input(rng.below(400));
    for (uint8_t &byte : input) byte = uint8_t(rng.next());
    return input;
}

// What the target begins with: its own seeds, and its rows of the table.
Inputs inputs_of(const Target &target, const char *path) {
    Inputs inputs = target.seeds ? target.seeds() : Inputs();
    std::ifstream table(path);
    for (std::string line; std::getline(table, line);) {
        std::istringstream words(line);
        std::string name, hex;
        if (!(words >> name >> hex) || name != target.name) continue;
        inputs.emplace_back();
        for (size_t i = 0; i + 1 < hex.size(); i += 2)
            inputs.back().push_back(uint8_t(std::stoi(hex.substr(i, 2), nullptr, 16)));
    }
    return inputs;
}

} // namespace

#ifdef KIPX_LIBFUZZER

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    const Target &target = named(std::getenv("KIPX_FUZZ"));
    const char *folder = std::getenv("KIPX_SEEDS"), *table = std::getenv("KIPX_FOUND");
    if (!folder || !table) return 0;
    Inputs inputs = inputs_of(target, table);
    kipx::test::Rng rng(21);
    for (int i = 0; i < 50 && !target.seeds; ++i) inputs.push_back(drawn(rng));
    int number = 0;
    for (const auto &input : inputs)
        std::ofstream(std::string(folder) + "/seed" + std::to_string(number++), std::ios::binary)
            .write(reinterpret_cast<const char *>(input.data()), std::streamsize(input.size()));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const Target &target = named(std::getenv("KIPX_FUZZ"));
    target.run(data, size);
    return 0;
}

#else

namespace {

// Equal inputs in every run, but a slow machine tries fewer of them.
size_t draw(const Target &target, double seconds) {
    const std::clock_t start = std::clock(); // processor time: a busy machine tries no fewer
    kipx::test::Rng rng(20);
    size_t inputs = 0;
    for (; inputs < 5000; ++inputs) {
        const std::vector<uint8_t> input = drawn(rng);
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
    size_t kept = 0, all_drawn = 0;
    bool all = true;
    for (const Target &target : targets()) {
        if (count > 3 && named(arguments[3]).name != target.name) continue;
        const Inputs inputs = inputs_of(target, arguments[1]);
        for (const auto &input : inputs) target.run(input.data(), input.size());
        const size_t tried = draw(target, seconds);
        std::printf("%-12s %6zu kept, %6zu drawn\n", target.name, inputs.size(), tried);
        std::fflush(stdout);
        kept += inputs.size(), all_drawn += tried, all &= tried > 0;
    }
    std::printf("%zu kept inputs, %zu drawn ones\n", kept, all_drawn);
    return all ? 0 : 1;
}

#endif
