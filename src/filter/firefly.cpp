// filter/firefly.cpp - removal of isolated outliers: the extremes of a window without its anchor, and
// the judgement of every pixel by them.
#include <kipx/firefly.h>

#include <algorithm>
#include <cmath>

#include "filter/filter.h"
#include "filter/firefly_rows.h"
#include "filter/members.h"

namespace kipx {
namespace {

struct Thresholds {
    double bright[4], dark[4];
};

// A threshold per channel, none for null; false where one is negative or NaN.
bool take_thresholds(double (&to)[4], const double *given, uint32_t channels) {
    for (uint32_t c = 0; c < 4; ++c) {
        to[c] = given && c < channels ? given[c] : HUGE_VAL;
        if (!(to[c] >= 0)) return false;
    }
    return true;
}

// Of a sheet that holds one channel the thresholds are those of its first.
void judge_row(const FinishRow &r) {
    const auto &t = *static_cast<const Thresholds *>(r.params);
    firefly_sets_of(r.set)[0].loops[r.type](
        {r.dst, r.source, r.made, r.second, r.n, r.step, t.bright + r.channel, t.dark + r.channel});
}

// Every position of a window but its anchor.
struct Others {
    Element element;
    size_t bytes() const { return size_t{element.height} * element.width; }
    Others(const Window &w, unsigned char *at)
        : element{at, w.width, 1, w.height, w.width, w.row, w.column} {}
    void fill(unsigned char *at) const {
        std::fill_n(at, bytes(), static_cast<unsigned char>(1));
        at[size_t{element.anchor_row} * element.width + element.anchor_column] = 0;
    }
};

int32_t firefly_call(Call &call, Window window, const Thresholds &thresholds) {
    if (!types_fit(call)) return KIPX_EINVAL;
    if (!MembersPass::has_type(call.src[0].type)) return KIPX_ENOTSUP;
    if (int32_t code = goes_on(call); code < 1) return code;
    cut_to_array(window, call);
    cut_to_reach(window);
    if (beyond_memory(call, window)) return KIPX_ENOMEM;
    Others others(window, nullptr);
    const size_t plan = (Members::scratch(others.element) + 7) / 8 * 8;
    auto *scratch = static_cast<unsigned char *>(KipxXEalloca(call.xe, plan + others.bytes(), 8));
    if (!scratch) return KIPX_ENOMEM;
    others.element.at = scratch + plan;
    others.fill(scratch + plan);
    const Members members(others.element, scratch);
    Recipe recipe{window, Border::constant, {}, active_set(call.flags), 0};
    recipe.finish = {judge_row, true, true, &thresholds};
    auto make = [&](const Sheet &s, const Window &w, Role role) {
        return MembersPass(s, w, members, role.which ? Rank::smallest : Rank::largest, recipe.set);
    };
    int32_t code = apply<Single<MembersPass>>(call, recipe, make);
    KipxXEfreea(call.xe, scratch);
    return code;
}

int32_t firefly(KipxXE *xe, uint64_t flags, const FilterArrays &arrays, const kipx_seshape *shape,
                const double *bright, const double *dark) {
    Call call;
    kipx_brshape room;
    if (int32_t code = admit_filter(call, xe, flags, arrays, room); code < 0) return code;
    Thresholds thresholds;
    bool good = (bright || dark) && take_thresholds(thresholds.bright, bright, call.channels) &&
                take_thresholds(thresholds.dark, dark, call.channels);
    kipx_seshape own = normalised(shape, call);
    Window window;
    return good && window_of(window, &own, &room) ? firefly_call(call, window, thresholds)
                                                  : KIPX_EINVAL;
}

} // namespace
} // namespace kipx

using namespace kipx;

extern "C" {

int32_t KipxFirefly(KipxXE *xe, uint64_t flags, const kipx_arr *src, const kipx_arr *dst,
                    const kipx_site *roi, const kipx_seshape *shape, double threshold) {
    const double all[4] = {threshold, threshold, threshold, threshold};
    return firefly(xe, flags, {src, dst, nullptr, roi}, shape, all, nullptr);
}

int32_t KipxFireflyEx(KipxXE *xe, uint64_t flags, const kipx_arr *src, const kipx_arr *dst,
                      const kipx_arr *mask, const kipx_site *roi, const kipx_seshape *shape,
                      const double *bright, const double *dark) {
    return firefly(xe, flags, {src, dst, mask, roi}, shape, bright, dark);
}
}
