// util/sort.cpp - the exported sorts: checks, and the choice of the element form.
#include "util/plain_sorts.h"
#include "util/quick_sort.h"

namespace kipx {
namespace {

// body(elements) with the form made for this element size.
template<class Body>
void with_elements(void *base, size_t size, ZuCompare compare, void *context, Body body) {
    char *bytes = static_cast<char *>(base);
    if (size == 4) return body(Elements<4>{bytes, size, compare, context});
    if (size == 8) return body(Elements<8>{bytes, size, compare, context});
    body(Elements<0>{bytes, size, compare, context});
}

// Sorts of one or two elements need no worker; true when that was all.
bool sort_two(void *base, size_t n, size_t size, ZuCompare compare, void *context) {
    if (n == 2) {
        const Elements<0> e{static_cast<char *>(base), size, compare, context};
        if (e.compare(0, 1) > 0) e.exchange(0, 1);
    }
    return n <= 2;
}

struct Quick {
    template<size_t N> static void sort(const Elements<N> &e, size_t n) { QuickSort<N>(e, n); }
};
struct Heap {
    template<size_t N> static void sort(const Elements<N> &e, size_t n) { heap_sort(e, 0, n); }
};
struct Insert {
    template<size_t N> static void sort(const Elements<N> &e, size_t n) { insert_sort(e, 0, n); }
};
struct Select {
    template<size_t N> static void sort(const Elements<N> &e, size_t n) { select_sort(e, 0, n); }
};

} // namespace
} // namespace kipx

#define SORT(NAME)                                                                                 \
    void __Zu##NAME##Sort(void *base, size_t n, size_t size, ZuCompare compare, void *context) {   \
        kipx::with_elements(base, size, compare, context,                                          \
                            [n](const auto &e) { kipx::NAME::sort(e, n); });                       \
    }                                                                                              \
    void Zu##NAME##Sort_nck(void *base, size_t n, size_t size, ZuCompare compare, void *context) { \
        if (kipx::sort_two(base, n, size, compare, context)) return;                               \
        __Zu##NAME##Sort(base, n, size, compare, context);                                         \
    }                                                                                              \
    int32_t Zu##NAME##Sort(void *base, size_t n, size_t size, ZuCompare compare, void *context) {  \
        if (!kipx::acceptable(base, n, size, compare)) return -1;                                  \
        Zu##NAME##Sort_nck(base, n, size, compare, context);                                       \
        return 0;                                                                                  \
    }
extern "C" {
#include "util/sorts.inc"
}
#undef SORT
