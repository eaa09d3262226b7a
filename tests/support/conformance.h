// support/conformance.h - what every element-wise operation must do, tried on one that is described.
//
// Gives    Operation: an exported operation by its shape, types, levels of entry and a model of one
//          element; conform(), which draws calls of it and judges them.
// Promises every call is made with every instruction set that the processor has, from the same bytes,
//          at a level drawn among the public one (with a region, places, a mask), the array level
//          and the typed level, in layouts, places and alignments drawn at random: each element of
//          the region is the model's, every other byte is what it was, sources included; with the
//          prepare and probe flags nothing is touched.
//          A family brings its list of operations and their models, and no machinery of its own.
#ifndef KIPX_TESTS_SUPPORT_CONFORMANCE_H
#define KIPX_TESTS_SUPPORT_CONFORMANCE_H

#include <array>
#include <functional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <kipx/env.h>
#include <kipx/types.h>

#include "support/guarded.h"

namespace kipx::test {

// The sets that the processor has, the plain form first, as values for kipx_set_simd.
const std::vector<int32_t> &all_sets();

using Types = std::array<uint32_t, 4>; // destination, sources

enum class Level { whole, array, typed };

// The arguments of one call. Arrays may be the same object.
struct Arguments {
    KipxXE *xe = nullptr;
    uint64_t flags = 0;
    Types types{};
    GuardedArray *dst = nullptr, *src[3] = {}, *mask = nullptr;
    bool in_place = false; // the first source is handed in as null
    const kipx_site *roi = nullptr;
    const kipx_pos *at[3] = {}, *mask_at = nullptr;
    std::vector<double> values; // one per channel
    int32_t scale = 0;

    const kipx_arr *source(uint32_t i) const {
        return i == 0 && in_place ? nullptr : src[i]->arr();
    }
};

// An operand as the flat levels take it; start is the element where the region begins.
struct FlatOperand {
    uint32_t type;
    void *base, *start;
    const uint32_t *origin, *strides;
};

struct FlatArguments {
    kipx_dims dims;
    const uint32_t *extent;
    FlatOperand dst, src[3], mask;
};

// bits: the elements of the sources, and fourth what the destination held; channel counts from the
// destination's first one.
using Model = std::function<uint64_t(const Arguments &, uint32_t channel, const uint64_t *bits)>;

struct Operation {
    std::string name;
    uint32_t sources;
    bool has_values = false, has_mask = false;
    bool null_in_place = true;      // a null first source means the destination
    std::vector<Types> types{};     // that have a kernel
    std::vector<int32_t> scales{0}; // one is drawn for a call
    std::function<int32_t(Level, const Arguments &, const FlatArguments &)> call{};
    Model model{};
    std::function<void(Arguments &)> prepare = {}; // mends contents that no call may have
    bool flat_levels = true;
    bool one_place = false; // the region lies in the first source where it does in the destination
};

inline void PrintTo(const Operation &operation, std::ostream *out) { *out << operation.name; }

// Tries calls of the operation, as many for each of its types; empty, or what went wrong first.
std::string conform(const Operation &operation, uint64_t seed, int calls);

// ---- operations from the prototypes -------------------------------------------------------------

template<class... Tail> struct Levels2 {
    int32_t (*whole)(KipxXE *, uint64_t, const kipx_arr *, const kipx_arr *, const kipx_arr *,
                     const kipx_site *, const kipx_pos *, const kipx_pos *, Tail...);
    int32_t (*array)(KipxXE *, uint64_t, kipx_dims, const uint32_t *, uint32_t, void *,
                     const uint32_t *, const uint32_t *, uint32_t, const void *, const uint32_t *,
                     const uint32_t *, uint32_t, const void *, const uint32_t *, const uint32_t *,
                     Tail...);
    int32_t (*typed)(KipxXE *, uint64_t, kipx_dims, const uint32_t *, uint32_t, void *,
                     const uint32_t *, uint32_t, const void *, const uint32_t *, uint32_t,
                     const void *, const uint32_t *, Tail...);
    int32_t operator()(Level level, const Arguments &a, const FlatArguments &f,
                       Tail... tail) const {
        const FlatOperand &d = f.dst, &x = f.src[0], &y = f.src[1];
        if (level == Level::whole)
            return whole(a.xe, a.flags, a.dst->arr(), a.source(0), a.source(1), a.roi, a.at[0],
                         a.at[1], tail...);
        if (level == Level::array)
            return array(a.xe, a.flags, f.dims, f.extent, d.type, d.base, d.origin, d.strides,
                         x.type, x.base, x.origin, x.strides, y.type, y.base, y.origin, y.strides,
                         tail...);
        return typed(a.xe, a.flags, f.dims, f.extent, d.type, d.start, d.strides, x.type, x.start,
                     x.strides, y.type, y.start, y.strides, tail...);
    }
};

template<class... Tail> struct LevelsC {
    int32_t (*whole)(KipxXE *, uint64_t, const kipx_arr *, const kipx_arr *, const double *,
                     const kipx_site *, const kipx_pos *, Tail...);
    int32_t (*array)(KipxXE *, uint64_t, kipx_dims, const uint32_t *, uint32_t, void *,
                     const uint32_t *, const uint32_t *, uint32_t, const void *, const uint32_t *,
                     const uint32_t *, const double *, Tail...);
    int32_t (*typed)(KipxXE *, uint64_t, kipx_dims, const uint32_t *, uint32_t, void *,
                     const uint32_t *, uint32_t, const void *, const uint32_t *, const double *,
                     Tail...);
    int32_t operator()(Level level, const Arguments &a, const FlatArguments &f,
                       Tail... tail) const {
        const FlatOperand &d = f.dst, &x = f.src[0];
        if (level == Level::whole)
            return whole(a.xe, a.flags, a.dst->arr(), a.source(0), a.values.data(), a.roi, a.at[0],
                         tail...);
        if (level == Level::array)
            return array(a.xe, a.flags, f.dims, f.extent, d.type, d.base, d.origin, d.strides,
                         x.type, x.base, x.origin, x.strides, a.values.data(), tail...);
        return typed(a.xe, a.flags, f.dims, f.extent, d.type, d.start, d.strides, x.type, x.start,
                     x.strides, a.values.data(), tail...);
    }
};

template<class... Tail> struct Levels1 {
    int32_t (*whole)(KipxXE *, uint64_t, const kipx_arr *, const kipx_arr *, const kipx_site *,
                     const kipx_pos *, Tail...);
    int32_t (*array)(KipxXE *, uint64_t, kipx_dims, const uint32_t *, uint32_t, void *,
                     const uint32_t *, const uint32_t *, uint32_t, const void *, const uint32_t *,
                     const uint32_t *, Tail...);
    int32_t (*typed)(KipxXE *, uint64_t, kipx_dims, const uint32_t *, uint32_t, void *,
                     const uint32_t *, uint32_t, const void *, const uint32_t *, Tail...);
    int32_t operator()(Level level, const Arguments &a, const FlatArguments &f,
                       Tail... tail) const {
        const FlatOperand &d = f.dst, &x = f.src[0];
        if (level == Level::whole)
            return whole(a.xe, a.flags, a.dst->arr(), a.source(0), a.roi, a.at[0], tail...);
        if (level == Level::array)
            return array(a.xe, a.flags, f.dims, f.extent, d.type, d.base, d.origin, d.strides,
                         x.type, x.base, x.origin, x.strides, tail...);
        return typed(a.xe, a.flags, f.dims, f.extent, d.type, d.start, d.strides, x.type, x.start,
                     x.strides, tail...);
    }
};

} // namespace kipx::test

#endif
