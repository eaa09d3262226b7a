// compare/local_rows.cpp - the loops of local thresholds, compiled once per instruction set.
#include "compare/local_rows.h"

#include "core/lanes.h"

namespace kipx::KIPX_SET {
namespace {

template<bool squares> void columns(ColumnRun run) {
    // By multiplying: a row that leaves is added with its sign turned.
    const s64 sign = run.leaves ? -1 : 1;
    KIPX_INDEPENDENT
    for (size_t i = 0; i < run.n; ++i) {
        const s64 value = run.values[i];
        run.sum[i] += sign * value;
        if constexpr (squares) run.square[i] += sign * value * value;
    }
}

template<Formula formula> inline f64 threshold_of(const LocalRun &run, size_t i) {
    const s64 n = run.rows * run.columns[i], sum = run.sum[i];
    const f64 count = static_cast<f64>(n), mean = static_cast<f64>(sum) / count;
    if constexpr (formula == Formula::mean) return mean + run.offset;
    if constexpr (formula != Formula::mean) {
        const s64 spread = n * run.square[i] - sum * sum;
        const f64 deviation = __builtin_sqrt(static_cast<f64>(spread)) / count;
        if constexpr (formula == Formula::deviation) return mean + run.k * deviation;
        return mean * (1 + run.k * (deviation / run.range - 1));
    }
}

template<uint32_t ordering, class T> inline bool in_order(T value, T threshold) {
    if constexpr (ordering == 0) return value < threshold;
    if constexpr (ordering == 1) return value <= threshold;
    if constexpr (ordering == 2) return value > threshold;
    if constexpr (ordering == 3) return value >= threshold;
}

template<Formula formula, uint32_t ordering> void judge(LocalRun run) {
    const u8 before = run.both ? 0 : 255;
    KIPX_INDEPENDENT
    for (size_t i = 0; i < run.n; ++i) {
        const bool held = in_order<ordering, f64>(run.values[i], threshold_of<formula>(run, i));
        run.passes[i] = static_cast<u8>((run.passes[i] | before) & -static_cast<s32>(held));
    }
}

void whole_columns(u32 *sum, const s32 *values, size_t n, bool leaves) {
    const u32 turn = leaves ? ~0u : 0; // (x ^ turn) - turn is x or -x
    KIPX_INDEPENDENT
    for (size_t i = 0; i < n; ++i) sum[i] += (static_cast<u32>(values[i]) ^ turn) - turn;
}

template<uint32_t ordering> void judge_whole(WholeRun run) {
    const u8 before = run.both ? 0 : 255;
    const u32 *const behind = run.before + run.reach;
    KIPX_INDEPENDENT
    for (size_t i = 0; i < run.n; ++i) {
        const s32 n = run.rows * run.columns[i], sum = static_cast<s32>(behind[i] - run.before[i]);
        const bool held = in_order<ordering>((run.values[i] - run.offset) * n, sum);
        run.passes[i] = static_cast<u8>((run.passes[i] | before) & -static_cast<s32>(held));
    }
}

} // namespace

extern const ColumnLoop column_rows[2] = {columns<false>, columns<true>};

#define KIPX_ORDERINGS(formula)                                                                    \
    judge<Formula::formula, 0>, judge<Formula::formula, 1>, judge<Formula::formula, 2>,            \
        judge<Formula::formula, 3>
extern const LocalLoop local_rows[local_row_count] = {
    KIPX_ORDERINGS(mean), KIPX_ORDERINGS(deviation), KIPX_ORDERINGS(relative_deviation)};

extern const WholeLoops whole_loops[1] = {
    {whole_columns, {judge_whole<0>, judge_whole<1>, judge_whole<2>, judge_whole<3>}}};

} // namespace kipx::KIPX_SET
