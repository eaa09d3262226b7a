// sort_bench.cpp - the sorts and the search against the C and C++ libraries, all through one
// comparator pointer, a million 32-bit integers of several kinds.
#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdint>
#include <cstdlib>
#include <kipx/sort.h>
#include <string>
#include <vector>

namespace {

constexpr size_t COUNT = 1000000;
using Values = std::vector<int32_t>;
using Comparator = int (*)(const void *, const void *, void *);

[[gnu::noinline]] int32_t by_value(const void *a, const void *b, void *) {
    const int32_t x = *static_cast<const int32_t *>(a), y = *static_cast<const int32_t *>(b);
    return (x > y) - (x < y);
}
// Opaque to the optimiser, so that nobody inlines the comparator.
volatile Comparator comparator = by_value;

uint32_t mixed(uint32_t x) {
    x = (x ^ x >> 16) * 0x7FEB352Du;
    x = (x ^ x >> 15) * 0x846CA68Bu;
    return x ^ x >> 16;
}

struct Input {
    const char *name;
    int32_t (*value)(uint32_t i);
};
const Input INPUTS[] = {
    {"random", [](uint32_t i) { return static_cast<int32_t>(mixed(i)); }},
    {"few", [](uint32_t i) { return static_cast<int32_t>(mixed(i) % 16); }},
    {"sorted", [](uint32_t i) { return static_cast<int32_t>(i); }},
    {"reversed", [](uint32_t i) { return static_cast<int32_t>(COUNT - i); }},
    {"organ_pipe", [](uint32_t i) { return static_cast<int32_t>(i < COUNT / 2 ? i : COUNT - i); }},
};

Values make(const Input &input) {
    Values values(COUNT);
    for (uint32_t i = 0; i < COUNT; i++) values[i] = input.value(i);
    return values;
}

void sort_quick(Values &v) { ZuQuickSort(v.data(), v.size(), 4, comparator, nullptr); }
void sort_heap(Values &v) { ZuHeapSort(v.data(), v.size(), 4, comparator, nullptr); }
void sort_qsort_r(Values &v) { qsort_r(v.data(), v.size(), 4, comparator, nullptr); }
void sort_std_heap(Values &v) {
    const Comparator compare = comparator;
    const auto less = [=](int32_t a, int32_t b) { return compare(&a, &b, nullptr) < 0; };
    std::make_heap(v.begin(), v.end(), less);
    std::sort_heap(v.begin(), v.end(), less);
}

struct Sort {
    const char *name;
    void (*run)(Values &);
};
const Sort SORTS[] = {{"quick/%/kipx", sort_quick},
                      {"quick/%/peer:qsort_r", sort_qsort_r},
                      {"heap/%/kipx", sort_heap},
                      {"heap/%/peer:std_heap", sort_std_heap}};

void time_sort(benchmark::State &state, Sort sort, Input input) {
    const Values source = make(input);
    Values values;
    for (auto _ : state) {
        state.PauseTiming();
        values = source;
        state.ResumeTiming();
        sort.run(values);
        benchmark::DoNotOptimize(values.data());
    }
    if (!std::is_sorted(values.begin(), values.end())) state.SkipWithError("not sorted");
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * COUNT));
}

void *search_kipx(const int32_t *key, const Values &v) {
    return ZuBsearch(key, v.data(), v.size(), 4, comparator, nullptr);
}
// The C library's header offers bsearch for inlining; through a pointer it is the library's own.
using Bsearch = void *(*)(const void *, const void *, size_t, size_t,
                          int (*)(const void *, const void *));
volatile Bsearch library_bsearch = bsearch;
[[gnu::noinline]] int by_value_plain(const void *a, const void *b) {
    return by_value(a, b, nullptr);
}
int (*volatile plain_comparator)(const void *, const void *) = by_value_plain;
void *search_bsearch(const int32_t *key, const Values &v) {
    return library_bsearch(key, v.data(), v.size(), 4, plain_comparator);
}

void time_search(benchmark::State &state, void *(*search)(const int32_t *, const Values &),
                 uint32_t count) {
    Values values(count);
    for (uint32_t i = 0; i < count; i++) values[i] = static_cast<int32_t>(2 * i);
    uint32_t step = 0;
    for (auto _ : state) {
        const int32_t key = static_cast<int32_t>(mixed(step++) % (2 * count));
        benchmark::DoNotOptimize(search(&key, values));
    }
    state.SetItemsProcessed(state.iterations());
}

const bool registered = [] {
    for (const Input &input : INPUTS) {
        for (const Sort &sort : SORTS) {
            std::string name = std::string("sort/") + sort.name;
            name.replace(name.find('%'), 1, input.name);
            benchmark::RegisterBenchmark(name.c_str(), time_sort, sort, input)
                ->Unit(benchmark::kMillisecond);
        }
    }
    for (const uint32_t count : {1000u, 1000000u}) {
        const std::string name = "sort/bsearch/" + std::to_string(count);
        benchmark::RegisterBenchmark((name + "/kipx").c_str(), time_search, search_kipx, count);
        benchmark::RegisterBenchmark((name + "/peer:bsearch").c_str(), time_search, search_bsearch,
                                     count);
    }
    return true;
}();

} // namespace
