// growth.cpp - what the worst inputs of floods and sorts cost, for growth.py to count.
//
// Gives    growth flood features|areas|fast PICTURE SIDE: both floods, of dark and of bright regions, and
//          detection on a square picture, within KipxGenerateMSERs, with moments or without any
//          feature, or KipxGenerateFMSERs.
//          growth sort quick|heap KEYS N: prints the comparisons of that sort.
//          growth list: the names of pictures, then those of keys, each in a line.
// Status   0, or 1 for arguments that are none of these and calls that fail.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <kipx/kipx.h>

namespace {

uint32_t mixed(uint32_t x) {
    x = (x ^ x >> 16) * 0x7FEB352Du;
    x = (x ^ x >> 15) * 0x846CA68Bu;
    return x ^ x >> 16;
}

// Rings of dark pixels a pixel apart, each cut at its left side and led to the next one there.
uint32_t spiral(uint32_t x, uint32_t y, uint32_t side) {
    const uint32_t ring = std::min(std::min(x, y), side - 1 - std::max(x, y));
    const bool passage = x == ring && y == ring + 1;
    return (ring % 2 == 0) == passage ? 255 : 0;
}

struct Picture {
    const char *name;
    uint32_t (*value)(uint32_t x, uint32_t y, uint32_t side);
};
constexpr Picture pictures[] = {
    {"constant", [](uint32_t, uint32_t, uint32_t) { return 7u; }},
    {"checkerboard", [](uint32_t x, uint32_t y, uint32_t) { return (x + y) % 2 * 255; }},
    {"spiral", spiral},
    {"comb",
     [](uint32_t x, uint32_t y, uint32_t side) { return x % 2 ? 255 : 250 - 250 * y / side; }},
    {"noise", [](uint32_t x, uint32_t y, uint32_t side) { return mixed(y * side + x) & 255; }},
    {"ramp", [](uint32_t x, uint32_t, uint32_t side) { return 256 * x / side; }},
};

int flood(const std::string &way, const Picture &picture, uint32_t side) {
    std::vector<uint8_t> bytes(size_t{side} * side);
    for (uint32_t i = 0; i < side * side; ++i)
        bytes[i] = uint8_t(picture.value(i % side, i / side, side));
    const kipx_arr arr{{1, side, side, 1}, {}, {0, side, 1, 1}, 3, 0, KIPX_U8, 0, 0, bytes.data()};
    KipxXE xe{};
    if (!KipxXEinit(&xe, nullptr)) return 1;
    kipx_set_simd(KIPX_SIMD_BEST);
    KipxMSERContext context{};
    context.delta = 5, context.polarity = 2;
    context.max_area_fraction = context.max_variation = .5f;
    KipxWTSFDs moments;
    KipxWTSMFinitFeatureDs(&moments, nullptr);
    if (way == "features") context.levelset.descriptors = &moments, context.levelset.count = 1;
    const int32_t code =
        (way == "fast" ? KipxGenerateFMSERs : KipxGenerateMSERs)(&xe, 0, &arr, nullptr, &context);
    KipxMSERrelease(&context);
    KipxXEfini(&xe);
    return code != 0;
}

// Decides the order as it is asked for it, so that every pivot turns out to be among the least.
struct Adversary {
    std::vector<uint32_t> value;
    uint32_t frozen = 0, candidate = 0;
    int32_t order(uint32_t a, uint32_t b) {
        if (value[a] == UINT32_MAX && value[b] == UINT32_MAX)
            value[a == candidate ? a : b] = frozen++;
        if (value[a] == UINT32_MAX) candidate = a;
        if (value[b] == UINT32_MAX) candidate = b;
        return value[a] < value[b] ? -1 : value[a] > value[b];
    }
};

struct Keys {
    const char *name;
    uint32_t (*key)(uint32_t i, uint32_t n);
};
constexpr Keys keys[] = {
    {"random", [](uint32_t i, uint32_t) { return mixed(i); }},
    {"sorted", [](uint32_t i, uint32_t) { return i; }},
    {"few", [](uint32_t i, uint32_t) { return mixed(i) % 5; }},
    {"organ-pipe", [](uint32_t i, uint32_t n) { return std::min(i, n - i); }},
    {"adversary", nullptr}, // decided on the way
};

int sort(bool quick, const Keys &chosen, uint32_t n) {
    struct State {
        Adversary *adversary;
        uint64_t comparisons;
    };
    std::vector<uint32_t> elements(n);
    for (uint32_t i = 0; i < n; ++i) elements[i] = chosen.key ? chosen.key(i, n) : i;
    Adversary adversary{std::vector<uint32_t>(n, UINT32_MAX)};
    State state{chosen.key ? nullptr : &adversary, 0};
    const ZuCompare compare = [](const void *p, const void *q, void *context) -> int32_t {
        auto &s = *static_cast<State *>(context);
        const uint32_t a = *static_cast<const uint32_t *>(p), b = *static_cast<const uint32_t *>(q);
        ++s.comparisons;
        return s.adversary ? s.adversary->order(a, b) : a < b ? -1 : a > b;
    };
    const int32_t code = (quick ? ZuQuickSort : ZuHeapSort)(elements.data(), n, 4, compare, &state);
    std::printf("%llu\n", static_cast<unsigned long long>(state.comparisons));
    return code != 0;
}

template<class Row, size_t n> const Row *named(const Row (&rows)[n], const std::string &name) {
    const Row *end = rows + n,
              *row = std::find_if(rows, end, [&](const Row &r) { return r.name == name; });
    return row == end ? nullptr : row;
}

} // namespace

int main(int count, char **given) {
    if (count == 2 && std::string(given[1]) == "list") {
        for (const Picture &p : pictures) std::printf("%s ", p.name);
        std::printf("\n");
        for (const Keys &k : keys) std::printf("%s ", k.name);
        std::printf("\n");
        return 0;
    }
    if (count != 5) return 1;
    const std::string what = given[1], way = given[2];
    const auto size = static_cast<uint32_t>(std::atoi(given[4]));
    const Picture *picture = named(pictures, given[3]);
    const Keys *order = named(keys, given[3]);
    if (what == "flood" && picture) return flood(way, *picture, size);
    return what == "sort" && order ? sort(way == "quick", *order, size) : 1;
}
