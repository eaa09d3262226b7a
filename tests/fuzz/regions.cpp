#include "fuzz/regions.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "fuzz/trial.h"

namespace kipx::fuzz {

namespace {

[[noreturn]] void complain(const char *what) {
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

// What a tree says, for comparison: areas and levels of its regions in pre-order.
struct Telling {
    Trial *trial;
    const KipxWTSFDs *moments;
};
int32_t tell_node(KipxSTnode *node, void *arg, int32_t) {
    auto *telling = static_cast<Telling *>(arg);
    const auto *region = static_cast<const KipxWTSregion *>(node->data);
    telling->trial->tell(region->level), telling->trial->tell(region->area);
    return 1;
}

// Small numbers most of the time, where any is allowed.
uint32_t seldom_odd(Bytes &bytes, uint32_t n) {
    return bytes.one_in(12) ? bytes.number() : bytes.below(n);
}

} // namespace

void floods(const uint8_t *data, size_t size) {
    Trial t(data, size);
    t.make_flooded();
    const bool fast = t.bytes.one_in(2), wrong_builder = t.bytes.one_in(24);
    KipxWTSFDs features[2];
    KipxWTSMFinitFeatureDs(features, nullptr), KipxWTSPFinitFeatureDs(features + 1, nullptr);
    const uint32_t first = t.bytes.below(3), count = t.bytes.below(3 - first);
    const uint64_t flags =
        t.flags | (fast ? KIPX_FLAG_FAST : 0) | (t.bytes.one_in(4) ? KIPX_FLAG_GENERAL_BUILDER : 0);
    KipxWatershedContext given{};
    given.polarity = uint16_t(seldom_odd(t.bytes, 3)),
    given.connectivity = uint16_t(t.bytes.below(3));
    given.shift = seldom_odd(t.bytes, 9);
    given.seed_row = seldom_odd(t.bytes, 3), given.seed_column = seldom_odd(t.bytes, 5);
    const bool masked = t.bytes.one_in(2);
    t.run("KipxWatershed, KipxWatershedEx", [&](KipxXE *xe) {
        KipxWTSLSC levelset{};
        KipxWTSLSCinit2D(&levelset, features + (count ? first : 0), int32_t(count), 1, 1, 1);
        KipxWatershedContext w = given;
        w.levelset = &levelset;
        if (fast != wrong_builder)
            w.builder = &KipxFWTSRESopen(nullptr, nullptr, nullptr, nullptr)->builder;
        else
            w.builder = KipxWTSTBopen(nullptr, nullptr, nullptr, nullptr);
        const int32_t code = masked
                                 ? KipxWatershedEx(xe, flags, t.src[0], t.mask, t.roi, t.at[3], &w)
                                 : KipxWatershed(xe, flags, t.src[0], t.roi, &w);
        if (code < 0 && w.output) complain("a refused flood gives a tree");
        Telling telling{&t, features};
        if (code == 0 && w.output) KipxAGTwalk(w.output, 1, tell_node, &telling);
        KipxSTBclose(w.builder, 0);
        return code;
    });
}

void stable_regions(const uint8_t *data, size_t size) {
    Trial t(data, size);
    t.make_flooded();
    KipxWTSFDs features[2];
    KipxWTSMFinitFeatureDs(features, nullptr), KipxWTSPFinitFeatureDs(features + 1, nullptr);
    const bool fast = t.bytes.one_in(2);
    const uint32_t count = t.bytes.below(3);
    KipxMSERContext given{};
    given.delta = int32_t(seldom_odd(t.bytes, 30));
    for (float *fraction : {&given.min_area_fraction, &given.max_area_fraction,
                            &given.max_variation, &given.min_diversity})
        *fraction = t.bytes.one_in(12) ? t.bytes.any<float>() : float(t.bytes.below(11)) / 10;
    given.min_area_pixels = int32_t(seldom_odd(t.bytes, 30));
    given.gather = t.bytes.below(2);
    given.polarity = uint16_t(seldom_odd(t.bytes, 3)),
    given.connectivity = uint16_t(t.bytes.below(3));
    given.shift = seldom_odd(t.bytes, 9);
    given.seed_row = seldom_odd(t.bytes, 3), given.seed_column = seldom_odd(t.bytes, 5);
    t.run("KipxGenerateMSERsEx, KipxGenerateFMSERsEx", [&](KipxXE *xe) {
        KipxMSERContext m = given;
        m.levelset.descriptors = count ? features : nullptr;
        m.levelset.count = int32_t(count);
        const auto generate = fast ? KipxGenerateFMSERsEx : KipxGenerateMSERsEx;
        const int32_t code = generate(xe, t.flags, t.src[0], t.mask, t.roi, t.at[3], &m);
        if (code < 0 && (m.list.count || m.dark_builder || m.bright_builder))
            complain("a refused detection leaves a list or builders");
        for (uint64_t i = 0; i < m.list.count; ++i)
            t.tell(m.list.entries[i]->level), t.tell(m.list.entries[i]->area);
        KipxMSERrelease(&m);
        return code;
    });
}

void storage(const uint8_t *data, size_t size) {
    Bytes bytes(data, size);
    struct Block {
        uint8_t *at;
        size_t size;
        uint8_t fill;
        bool live;
    };
    struct Mark {
        ZuSMEMSTATE state;
        size_t blocks;
    };
    ZuSMEMSTG header{};
    ZuSMEMSTG *stack = ZuSMEMSTGopen(&header, 0, 0);
    // Always a limit: a request that no machine can meet is otherwise the heap's to refuse, and slow.
    ZuSMEMSTGsetlimit(stack, bytes.one_in(2) ? size_t{bytes.between(64, 4096)} * 1024 : 64 << 20);
    std::vector<Block> blocks;
    std::vector<Mark> marks;
    for (size_t step = 0; step < std::min<size_t>(size, 300); ++step) switch (bytes.below(8)) {
        case 0:
        case 1:
        case 2: {
            const bool huge = bytes.one_in(24);
            const size_t wanted = huge              ? bytes.any<uint64_t>() | uint64_t{1} << 45
                                  : bytes.one_in(8) ? bytes.below(40000)
                                                    : bytes.below(250);
            const size_t alignment =
                bytes.one_in(12) ? bytes.number() : size_t{1} << bytes.below(10);
            auto *at = static_cast<uint8_t *>(ZuSMEMSTGaalloc(stack, wanted, alignment, 0));
            if (!at) break;
            if (huge) complain("a block larger than memory");
            if (alignment & (alignment - 1)) complain("a block of an alignment that is none");
            if (reinterpret_cast<uintptr_t>(at) % (alignment ? alignment : 16))
                complain("a misaligned block");
            blocks.push_back({at, wanted, uint8_t(step + 1), true});
            std::fill_n(at, wanted, uint8_t(step + 1));
            break;
        }
        case 3:
        case 4:
            if (!blocks.empty()) {
                Block &block = blocks[bytes.below(uint32_t(blocks.size()))];
                if (block.live) ZuSMEMSTGfree(stack, block.at);
                block.live = false;
            }
            break;
        case 5: {
            Mark mark{{}, blocks.size()};
            ZuSMEMSTGgetstate(&mark.state, stack);
            marks.push_back(mark);
            break;
        }
        case 6:
            if (!marks.empty()) {
                marks.resize(1 + bytes.below(uint32_t(marks.size())));
                ZuSMEMSTGsetstate(stack, &marks.back().state);
                blocks.resize(marks.back().blocks);
                ZuSMEMSTATE now{};
                ZuSMEMSTGgetstate(&now, stack);
                if (std::memcmp(&now, &marks.back().state, sizeof now))
                    complain("a rewind that stops elsewhere");
            }
            break;
        default:
            if (bytes.one_in(16)) ZuSMEMSTGclear(stack), blocks.clear(), marks.clear();
        }
    for (const Block &block : blocks)
        if (block.live && !std::all_of(block.at, block.at + block.size,
                                       [&](uint8_t b) { return b == block.fill; }))
            complain("a block that lost its bytes");
    if (ZuSMEMSTGpeak(stack) < ZuSMEMSTGdrawn(stack)) complain("a peak below what is drawn");
    ZuMEMSTGdestroy(stack);
}

void sorting(const uint8_t *data, size_t size) {
    Bytes bytes(data, size);
    const size_t width = bytes.between(1, 24), keys = bytes.between(1, 3);
    const bool few = bytes.one_in(2);
    std::vector<uint8_t> given(std::min<size_t>(size, 900) / width * width);
    for (uint8_t &byte : given) byte = few ? uint8_t(bytes.below(3)) : bytes.any<uint8_t>();
    const size_t n = given.size() / width;
    size_t compared = std::min(keys, width);
    const ZuCompare compare = [](const void *a, const void *b, void *context) -> int32_t {
        return std::memcmp(a, b, *static_cast<size_t *>(context));
    };
    const auto rows = [&](std::vector<uint8_t> list) {
        std::vector<std::vector<uint8_t>> all;
        for (size_t i = 0; i < n; ++i)
            all.emplace_back(list.begin() + long(i * width), list.begin() + long((i + 1) * width));
        std::sort(all.begin(), all.end());
        return all;
    };
    const auto wanted = rows(given);
    std::vector<uint8_t> sorted;
    for (const auto sort : {ZuQuickSort, ZuHeapSort, ZuInsertSort, ZuSelectSort}) {
        sorted = given;
        if (sort(sorted.data(), n, width, compare, &compared)) complain("a sort refuses");
        for (size_t i = 1; i < n; ++i)
            if (compare(&sorted[(i - 1) * width], &sorted[i * width], &compared) > 0)
                complain("not in order");
        if (rows(sorted) != wanted) complain("elements lost");
        const std::vector<uint8_t> before = sorted;
        const size_t bad = bytes.number();
        if (sort(sorted.data(), 0x80000000u + bad, width, compare, &compared) != -1 ||
            sort(sorted.data(), n, 0, compare, &compared) != -1 || sorted != before)
            complain("a sort of what cannot be");
    }
    std::vector<uint8_t> key(width);
    for (uint8_t &byte : key) byte = few ? uint8_t(bytes.below(3)) : bytes.any<uint8_t>();
    bool there = false;
    for (size_t i = 0; i < n; ++i) there |= !compare(&sorted[i * width], key.data(), &compared);
    auto *found =
        static_cast<uint8_t *>(ZuBsearch(key.data(), sorted.data(), n, width, compare, &compared));
    if (there != (found != nullptr) || (found && compare(found, key.data(), &compared)))
        complain("a search that misses");
}

} // namespace kipx::fuzz
