// sort_test.cpp - the sorts against a slow stable sort, the searches against a walk along the array.
//
// Every element carries a key and its origin, so that a lost or doubled element is noticed; the
// comparator sees keys only, checks that it is handed elements of the array, and counts.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <kipx/sort.h>
#include <string>
#include <vector>

namespace {

using Sort = int32_t (*)(void *, size_t, size_t, ZuCompare, void *);
using Unchecked = void (*)(void *, size_t, size_t, ZuCompare, void *);
struct Row {
    const char *name;
    Sort checked;
    Unchecked unchecked, worker;
    bool fast; // n log n
};
const Row sorts[] = {
#define SORT(NAME)                                                                                 \
    {#NAME, Zu##NAME##Sort, Zu##NAME##Sort_nck, __Zu##NAME##Sort,                                  \
     #NAME[0] == 'Q' || #NAME[0] == 'H'},
#include "util/sorts.inc"
#undef SORT
};

uint32_t mixed(uint32_t x) {
    x = (x ^ x >> 16) * 0x7FEB352Du;
    x = (x ^ x >> 15) * 0x846CA68Bu;
    return x ^ x >> 16;
}

using Keys = std::vector<uint32_t>;

// An array of elements of any size between guard bytes. Sizes below 8 hold the key alone.
struct Array {
    static constexpr size_t guard = 96;
    size_t n, size;
    std::vector<unsigned char> bytes;
    int64_t comparisons = 0;
    bool strayed = false;
    // Any number of the right sign, those next to 0 among them.
    std::function<int32_t(uint32_t, uint32_t)> order = [](uint32_t a, uint32_t b) {
        return a < b ? -1 - int32_t(a % 3) : a > b ? 1 + int32_t(b % 3) : 0;
    };

    Array(const Keys &keys, size_t element)
        : n(keys.size()), size(element), bytes(2 * guard + n * size + 1, 0xC3) {
        for (size_t i = 0; i < n; i++) {
            for (size_t b = 0; b < size; b++) {
                base()[i * size + b] = static_cast<unsigned char>(mixed(uint32_t(i * 31 + b)));
            }
            const auto origin = static_cast<uint32_t>(i);
            memcpy(base() + i * size, &keys[i], key_bytes());
            if (size >= 8) memcpy(base() + i * size + 4, &origin, 4);
        }
    }
    size_t key_bytes() const { return size < 4 ? size : 4; }
    // Off by one, so that elements of 4 and 8 bytes are misaligned.
    unsigned char *base() { return bytes.data() + guard + 1; }
    uint32_t key(const void *element) const {
        uint32_t value = 0;
        memcpy(&value, element, key_bytes());
        return value;
    }
    bool guards_intact() {
        const auto is_guard = [](unsigned char b) { return b == 0xC3; };
        return std::all_of(bytes.begin(), bytes.begin() + guard + 1, is_guard) &&
               std::all_of(bytes.end() - guard, bytes.end(), is_guard);
    }
    static int32_t compare(const void *a, const void *b, void *context) {
        auto &array = *static_cast<Array *>(context);
        for (const void *p : {a, b}) {
            const auto offset = static_cast<const unsigned char *>(p) - array.base();
            if (offset < 0 || size_t(offset) >= array.n * array.size || offset % array.size) {
                array.strayed = true;
                return 0;
            }
        }
        array.comparisons++;
        return array.order(array.key(a), array.key(b));
    }
    std::vector<std::string> elements() {
        std::vector<std::string> out;
        for (size_t i = 0; i < n; i++) {
            out.emplace_back(reinterpret_cast<char *>(base() + i * size), size);
        }
        return out;
    }
};

// What is wrong with an array, given the elements before; empty when nothing is.
std::string fault(Array &array, std::vector<std::string> before, bool ascending = true) {
    if (array.strayed) return "the comparator was handed something else than an element";
    if (!array.guards_intact()) return "bytes outside of the array were written";
    std::vector<std::string> after = array.elements();
    for (size_t i = 1; ascending && i < after.size(); i++)
        if (array.key(after[i - 1].data()) > array.key(after[i].data())) return "not ascending";
    std::sort(before.begin(), before.end());
    std::sort(after.begin(), after.end());
    return before == after ? "" : "not the same elements";
}

struct Pattern {
    const char *name;
    uint32_t (*key)(uint32_t i, uint32_t n);
    int64_t passes = 64; // of the quick sort over a long array: comparisons / n, rounded up
};
const Pattern patterns[] = {
    {"random", [](uint32_t i, uint32_t n) { return mixed(i + n); }},
    {"few", [](uint32_t i, uint32_t) { return mixed(i) % 5; }, 4},
    {"two", [](uint32_t i, uint32_t) { return mixed(i) & 1; }, 3},
    {"sorted", [](uint32_t i, uint32_t) { return i; }, 2},
    {"reversed", [](uint32_t i, uint32_t n) { return n - i; }, 4},
    {"organ pipe", [](uint32_t i, uint32_t n) { return std::min(i, n - i); }, 20},
    {"valley", [](uint32_t i, uint32_t n) { return std::max(i, n - i); }, 20},
    {"saw", [](uint32_t i, uint32_t) { return i % 37; }, 8},
    {"equal", [](uint32_t, uint32_t) { return 9u; }, 2},
    {"last is least", [](uint32_t i, uint32_t n) { return i + 1 == n ? 0 : i + 1; }},
    {"first is greatest", [](uint32_t i, uint32_t n) { return i == 0 ? n : i; }},
    {"stirred", [](uint32_t i, uint32_t n) { return mixed(i) % 50 ? i : mixed(i) % n; }},
    {"interleaved", [](uint32_t i, uint32_t n) { return i % 2 ? i : i + n / 2; }},
};

Keys make(const Pattern &pattern, size_t n) {
    Keys keys(n);
    for (size_t i = 0; i < n; i++) keys[i] = pattern.key(uint32_t(i), uint32_t(n));
    return keys;
}

double bound(size_t n) { return n < 2 ? 0 : 3 * double(n) * std::log2(double(n)); }

void check(const Row &row, const Pattern &pattern, size_t n, size_t size) {
    SCOPED_TRACE(std::string(row.name) + " " + pattern.name + " n " + std::to_string(n) + " size " +
                 std::to_string(size));
    const Keys keys = make(pattern, n);
    Array array(keys, size);
    const auto before = array.elements();
    const int form = int((n + size) % 3);
    if (form == 0)
        EXPECT_EQ(row.checked(array.base(), n, size, Array::compare, &array), 0);
    else
        (form == 1 ? row.unchecked : row.worker)(array.base(), n, size, Array::compare, &array);
    EXPECT_EQ(fault(array, before), "");
    const int64_t cost = array.comparisons, count = int64_t(n);
    const bool quick = row.name[0] == 'Q', insert = row.name[0] == 'I';
    EXPECT_TRUE(!row.fast || n < 2 || double(cost) <= bound(n)) << cost;
    EXPECT_TRUE(!quick || n < 600 || cost <= pattern.passes * count + 100) << cost;
    // Sorted input costs an insertion sort n - 1 comparisons; two elements in order cost any sort one,
    // and stay, equal ones too.
    const bool in_order = std::is_sorted(keys.begin(), keys.end()) && size >= 4 && n > 1;
    const bool two = n == 2 && form != 2;
    EXPECT_TRUE(!in_order || !(insert || two) || cost == count - 1) << cost;
    EXPECT_TRUE(!in_order || !two || array.elements() == before);
}

TEST(Sort, EveryFormEveryPatternEverySize) {
    std::vector<size_t> counts = {0, 31, 64, 127, 128, 129, 200, 517};
    for (size_t n = 1; n <= 17; n++) counts.push_back(n);
    for (const Row &row : sorts)
        for (const Pattern &pattern : patterns) {
            for (const size_t n : counts)
                for (const size_t size : {1, 3, 4, 8, 9, 16, 64, 130}) check(row, pattern, n, size);
            if (row.fast) check(row, pattern, 30000, 4);
            ASSERT_FALSE(HasFailure());
        }
}

TEST(Sort, TheCheckNoticesFaults) {
    void (*const damages[])(unsigned char *) = {
        [](unsigned char *a) { a[8 * 4 + 5] ^= 1; },
        [](unsigned char *a) { a[-1] = 0; },
        [](unsigned char *a) { a[8 * 20] = 0; },
        [](unsigned char *a) { memcpy(a, a + 8, 8); },
        [](unsigned char *a) { std::swap_ranges(a, a + 8, a + 8); },
    };
    for (const auto damage : damages) {
        Array array(make(patterns[0], 20), 8);
        const auto before = array.elements();
        ZuInsertSort(array.base(), array.n, 8, Array::compare, &array);
        EXPECT_EQ(fault(array, before), "");
        damage(array.base());
        EXPECT_NE(fault(array, before), "");
    }
}

// An adversary that decides the order as it is asked for it, so that every pivot turns out to be
// among the least: values are frozen only when two undecided ones meet.
struct Adversary {
    std::vector<uint32_t> value;
    uint32_t frozen = 0, candidate = 0;
    static constexpr uint32_t gas = UINT32_MAX;
    explicit Adversary(size_t n) : value(n, gas) {}
    int32_t operator()(uint32_t a, uint32_t b) {
        if (value[a] == gas && value[b] == gas) value[a == candidate ? a : b] = frozen++;
        if (value[a] == gas) candidate = a;
        if (value[b] == gas) candidate = b;
        return value[a] < value[b] ? -1 : value[a] > value[b];
    }
};

TEST(Sort, NoKillerSequence) {
    for (const Row &row : sorts) {
        if (!row.fast) continue;
        for (const size_t n : {100, 1000, 20000}) {
            const Keys names = make(patterns[3], n);
            Adversary adversary(n);
            Array array(names, 4);
            array.order = std::ref(adversary);
            row.checked(array.base(), n, 4, Array::compare, &array);
            EXPECT_LE(double(array.comparisons), bound(n)) << row.name << " against an adversary";
            // The input that was thus found, with its order now settled.
            Keys killer(n);
            for (size_t i = 0; i < n; i++) killer[i] = std::min(adversary.value[i], uint32_t(n));
            Array again(killer, 8);
            const auto before = again.elements();
            row.checked(again.base(), n, 8, Array::compare, &again);
            EXPECT_LE(double(again.comparisons), bound(n)) << row.name << " killer sequence";
            EXPECT_EQ(fault(again, before), "");
        }
    }
}

TEST(Sort, HostileComparatorsStayInside) {
    uint32_t state = 1;
    const std::function<int32_t(uint32_t, uint32_t)> hostile[] = {
        [](uint32_t, uint32_t) { return -1; },
        [](uint32_t, uint32_t) { return 1; },
        [](uint32_t a, uint32_t b) { return a == b ? INT32_MIN : INT32_MAX; },
        [](uint32_t a, uint32_t b) { return a < b ? 1 : -1; },
        [&](uint32_t, uint32_t) { return int32_t(mixed(state++) % 3) - 1; },
        [&](uint32_t, uint32_t) { return int32_t(mixed(state++)); },
        [](uint32_t a, uint32_t b) { return int32_t(((a - b) % 3) ? 1 : -1); },
    };
    for (const Row &row : sorts)
        for (const auto &order : hostile)
            for (const size_t n : {2, 3, 8, 9, 10, 17, 64, 130, 700})
                for (const size_t size : {4, 8, 20}) {
                    Array array(make(patterns[0], n), size);
                    array.order = order;
                    const auto before = array.elements();
                    row.checked(array.base(), n, size, Array::compare, &array);
                    EXPECT_EQ(fault(array, before, false), "") << row.name << ", n " << n;
                    EXPECT_TRUE(!row.fast || double(array.comparisons) <= bound(n)) << row.name;
                }
}

TEST(Sort, StableInsertionFirstOfEqualMinima) {
    const Keys keys = make(patterns[1], 300);
    Array array(keys, 8);
    auto expected = array.elements();
    std::stable_sort(expected.begin(), expected.end(), [&](const auto &a, const auto &b) {
        return array.key(a.data()) < array.key(b.data());
    });
    ZuInsertSort(array.base(), array.n, 8, Array::compare, &array);
    EXPECT_TRUE(array.elements() == expected);
    // Selection exchanges: of the two equal ones the first is chosen for the first place.
    Array chosen({7, 3, 3, 5}, 8);
    const auto before = chosen.elements();
    ZuSelectSort(chosen.base(), 4, 8, Array::compare, &chosen);
    EXPECT_EQ(chosen.elements()[0], before[1]);
}

TEST(Sort, Validation) {
    Array array({3, 2, 1}, 4);
    const auto before = array.elements();
    const size_t most = 0x7FFFFFFF / 4;
    struct Case {
        void *base;
        size_t n, size;
        ZuCompare compare;
        int32_t result;
    };
    const Case cases[] = {
        {array.base(), 3, 0, Array::compare, -1},
        {nullptr, 0, 0, nullptr, -1},
        {nullptr, 0, 4, nullptr, 0},
        {nullptr, 1, 4, Array::compare, -1},
        {array.base(), 1, 4, nullptr, -1},
        {array.base(), 1, 4, Array::compare, 0},
        {array.base(), most + 1, 4, Array::compare, -1},
        {array.base(), SIZE_MAX, 4, Array::compare, -1},
        {array.base(), 1, 0x80000000, Array::compare, -1},
        {array.base(), 1, 0x7FFFFFFF, Array::compare, 0},
        {array.base(), 2, SIZE_MAX, Array::compare, -1},
    };
    for (const Row &row : sorts) {
        for (const Case &c : cases) {
            EXPECT_EQ(row.checked(c.base, c.n, c.size, c.compare, &array), c.result)
                << row.name << " case " << &c - cases;
        }
        row.unchecked(nullptr, 0, 4, nullptr, nullptr);
        row.worker(nullptr, 0, 4, nullptr, nullptr);
        row.unchecked(array.base(), 1, 4, nullptr, nullptr);
        row.worker(array.base(), 1, 4, nullptr, nullptr);
    }
    EXPECT_EQ(array.comparisons, 0);
    EXPECT_TRUE(array.elements() == before);
}

// ---- searches ----------------------------------------------------------------------------------

struct Search {
    size_t calls = 0;
    const void *key = nullptr;
    bool swapped = false;
    static int32_t compare(const void *element, const void *key, void *context) {
        auto &search = *static_cast<Search *>(context);
        search.calls++;
        search.swapped |= key != search.key;
        int32_t a, b;
        memcpy(&a, element, 4), memcpy(&b, key, 4);
        return (a > b) - (a < b);
    }
};

TEST(Search, AgainstAWalk) {
    for (const size_t size : {4, 8, 13})
        for (size_t n = 0; n <= 40; n++)
            for (const int32_t repeat : {1, 2, 5})
                for (int32_t key = 0; key <= 2 * int32_t(n) + 2; key++) {
                    std::vector<char> bytes(n * size + 1);
                    size_t below = 0, upto = 0;
                    for (size_t i = 0; i < n; i++) {
                        const int32_t value = 2 * (int32_t(i) / repeat) + 1;
                        memcpy(&bytes[i * size], &value, 4);
                        below += value < key, upto += value <= key;
                    }
                    Search state;
                    state.key = &key;
                    int32_t error = 5;
                    const auto index = [&](auto search, auto... more) {
                        void *found =
                            search(&key, bytes.data(), n, size, Search::compare, &state, more...);
                        return found ? (static_cast<char *>(found) - bytes.data()) / double(size)
                                     : -1;
                    };
                    const double b = index(ZuBsearch), after = index(ZuBsearchN),
                                 before = index(ZuBsearchP);
                    EXPECT_EQ(index(ZuBsearch_s, &error), b);
                    EXPECT_EQ(error, b >= 0 ? 0 : -1);
                    if (below < upto) {
                        for (const double i : {b, after, before})
                            EXPECT_TRUE(i >= double(below) && i < double(upto));
                    } else {
                        EXPECT_EQ(b, -1);
                        EXPECT_EQ(after, n ? double(below) : -1);
                        EXPECT_EQ(before, double(below) - 1);
                    }
                    EXPECT_FALSE(state.swapped);
                    EXPECT_LE(state.calls, 4 * (2 + std::log2(double(n) + 1)));
                }
}

TEST(Search, FarArraysAndTheFirstMet) {
    std::vector<int32_t> values(100001);
    for (size_t i = 0; i < values.size(); i++) values[i] = int32_t(i) / 3;
    for (int32_t key = -1; key < 33336; key += 7) {
        Search state;
        state.key = &key;
        // The bisection as the contract gives it, with an inclusive end.
        const int32_t *expected = values[0] == key ? values.data() : nullptr;
        for (int64_t lo = 1, hi = int64_t(values.size()) - 1; !expected && lo <= hi;) {
            const int64_t middle = (lo + hi) / 2;
            if (values[middle] == key) expected = &values[middle];
            (values[middle] < key ? lo : hi) = values[middle] < key ? middle + 1 : middle - 1;
        }
        EXPECT_EQ(ZuBsearch(&key, values.data(), values.size(), 4, Search::compare, &state),
                  expected);
    }
}

TEST(Search, ValidationAndHostility) {
    const int32_t values[] = {1, 3, 5}, key = 3;
    int32_t error;
    struct Case {
        const void *key, *base;
        size_t n, size;
        ZuCompare compare;
    };
    const Case cases[] = {
        {nullptr, values, 3, 4, Search::compare},
        {&key, nullptr, 3, 4, Search::compare},
        {&key, values, 3, 4, nullptr},
        {&key, values, 3, 0, Search::compare},
        {&key, values, 0x20000000, 4, Search::compare},
        {nullptr, nullptr, 0, 4, nullptr},
        {&key, values, SIZE_MAX, SIZE_MAX, Search::compare},
    };
    for (const Case &c : cases) {
        error = 7;
        EXPECT_EQ(ZuBsearch_s(c.key, c.base, c.n, c.size, c.compare, nullptr, &error), nullptr);
        EXPECT_EQ(error, -1);
        EXPECT_EQ(ZuBsearch_s(c.key, c.base, c.n, c.size, c.compare, nullptr, nullptr), nullptr);
    }
    // Whatever is answered, the places asked and returned lie in the array.
    struct Hostile {
        const int32_t *begin, *end;
        uint32_t state;
    } hostile = {values, values + 3, 0};
    const ZuCompare answer = [](const void *a, const void *, void *context) {
        auto &h = *static_cast<Hostile *>(context);
        EXPECT_TRUE(a >= h.begin && a < h.end);
        return int32_t(mixed(h.state++) % 2) * 2 - 1;
    };
    for (int i = 0; i < 100; i++) {
        EXPECT_EQ(ZuBsearch(&key, values, 3, 4, answer, &hostile), nullptr);
        const void *after = ZuBsearchN(&key, values, 3, 4, answer, &hostile);
        EXPECT_TRUE(after >= values && after <= values + 3);
        const void *before = ZuBsearchP(&key, values, 3, 4, answer, &hostile);
        EXPECT_TRUE(!before || (before >= values && before < values + 3));
    }
}

} // namespace
