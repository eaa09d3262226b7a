// stats/relation.cpp - counting pixels in boxes, from the public function down to the fold.
#include <kipx/stats.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include <kipx/convert.h>

#include "core/stamp.h"
#include "stats/count_rows.h"
#include "stats/reading.h"

namespace kipx {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

enum class Relation : uint32_t {
    equal = 3,
    less,
    less_or_equal,
    greater,
    greater_or_equal,
    not_equal
};

struct RelationGiven {
    uint32_t relation;
    const double *values;
    const kipx_site *boxes;
    uint32_t n;
    uint64_t *counts;
    RelationGiven(int32_t r, const double *v, const kipx_site *b, uint32_t count, uint64_t *out)
        : relation(static_cast<uint32_t>(r) & 15), values(v), boxes(b), n(count), counts(out) {}
    bool complete() const {
        return relation >= static_cast<uint32_t>(Relation::equal) &&
               relation <= static_cast<uint32_t>(Relation::not_equal) && values &&
               (counts || n == 0) && (boxes || n <= 1);
    }
};

// The numbers that stand in a relation to a value, both ends included; those that are equal for
// not_equal, whose counts are turned round. A NaN gives none.
kipx_vrange related(Relation relation, double value) {
    switch (relation) {
    case Relation::less:
        return {-infinity, value > -infinity ? std::nextafter(value, -infinity) : NAN};
    case Relation::less_or_equal:
        return {-infinity, value};
    case Relation::greater:
        return {value < infinity ? std::nextafter(value, infinity) : NAN, infinity};
    case Relation::greater_or_equal:
        return {value, infinity};
    default:
        return {value, value};
    }
}

// Its ends moved inwards to numbers of the type; low above high when there are none.
BetweenCount between_of(const kipx_vrange &range, uint32_t type) {
    kipx_vrange whole = {-infinity, infinity};
    if (!is_floating(type)) kipx_vrng_saturate(&whole, type);
    double low = std::max(whole.low, range.low), high = std::min(whole.high, range.high);
    if (range.low != range.low || range.high != range.high) return {1, 0, 0};
    if (type == KIPX_F32) {
        float l = static_cast<float>(low), h = static_cast<float>(high);
        if (static_cast<double>(l) < low)
            l = std::nextafter(l, std::numeric_limits<float>::infinity());
        if (static_cast<double>(h) > high)
            h = std::nextafter(h, -std::numeric_limits<float>::infinity());
        return {static_cast<double>(l), static_cast<double>(h), 0};
    }
    if (type != KIPX_F64) low = std::ceil(low), high = std::floor(high);
    return {low, high, 0};
}

// The part of a call that lies in a box; false for none.
bool cut(Call &c, const kipx_site &box) {
    int64_t begin[3], end[3];
    const uint32_t extent[3] = {c.planes, c.height, c.width};
    for (int i = 0; i < 3; ++i) {
        const int64_t from = static_cast<int32_t>(box.origin[i]),
                      length = static_cast<int32_t>(box.extent[i]);
        begin[i] = std::max<int64_t>(from, 0), end[i] = std::min<int64_t>(from + length, extent[i]);
        if (begin[i] >= end[i]) return false;
    }
    for (Operand *o : {&c.src[0], &c.mask})
        if (o->at)
            o->at += static_cast<uint64_t>(begin[0]) * o->plane +
                     static_cast<uint64_t>(begin[1]) * o->row +
                     static_cast<uint64_t>(begin[2]) * o->pixel;
    c.planes = static_cast<uint32_t>(end[0] - begin[0]),
    c.height = static_cast<uint32_t>(end[1] - begin[1]);
    c.width = static_cast<uint32_t>(end[2] - begin[2]);
    return true;
}

void count_box(Call &c, Relation relation, const BetweenCount *between, uint64_t *counts) {
    BetweenCount states[fold_channels];
    std::copy(between, between + c.channels, states);
    Folding how;
    how.set = active_set(c.flags);
    how.loop = count_rows_of(how.set)[numeric_type_of(c.src[0].type)];
    how.states = states, how.state_size = sizeof *states;
    how.blocks = false, how.interleaved = false;
    const Taken taken = fold(c, how);
    for (uint32_t i = 0; i < c.channels; ++i)
        counts[i] =
            relation == Relation::not_equal ? taken.pixels[i] - states[i].count : states[i].count;
}

int32_t work_relation(Call &c) {
    const auto &given = *static_cast<const RelationGiven *>(c.params);
    int32_t code = admit_reading(c, given.complete());
    if (code || no_work_asked(c)) return code;
    const auto relation = static_cast<Relation>(given.relation);
    BetweenCount between[fold_channels];
    for (uint32_t i = 0; i < c.channels; ++i)
        between[i] = between_of(related(relation, given.values[i]), c.src[0].type);
    for (uint32_t i = 0; i < given.n; ++i) {
        uint64_t *counts = given.counts + size_t{i} * c.channels;
        Call box = c;
        if (!given.boxes || cut(box, given.boxes[i]))
            count_box(box, relation, between, counts);
        else
            std::fill(counts, counts + c.channels, uint64_t{0});
    }
    return 0;
}

} // namespace
} // namespace kipx

using namespace kipx;

extern "C" {
#define KIPX_PASS_KIPX_TAIL_BOXES , relation, values, boxes, n_boxes, counts
KIPX_STAMP_R(countrelbox, CountRelBox, KIPX_TAIL_BOXES, one_reading,
             RelationGiven(relation, values, boxes, n_boxes, counts), work_relation)
}
