// Regions of interest of an operation: random regions, positions and layouts against a model of one
// axis at a time.
#include <kipx/arith.h>

#include <algorithm>
#include <array>
#include <sstream>

#include <gtest/gtest.h>

#include "support/arith_model.h"
#include "support/environment.h"
#include "support/guarded.h"

using namespace kipx::test;

namespace {

// Where one axis of a call works: the destination's and the sources' beginnings, and how far.
struct Axis {
    int64_t dst, src1, src2, extent;
};
struct Span {
    int64_t from, to;
};
Axis model_axis(int64_t dst, int64_t src1, int64_t src2, const Span *roi, const int64_t *at1,
                const int64_t *at2, bool in_place) {
    int64_t from = 0, to = dst;
    if (roi) from = std::max(from, roi->from), to = std::min(to, roi->to);
    const int64_t wished2 = at2 ? *at2 : 0, second = std::max<int64_t>(wished2, 0);
    int64_t extent = std::min(to - from, std::min(src2, src2 + wished2) - second);
    const int64_t wished1 = at1 ? *at1 : in_place ? from : 0, first = std::max<int64_t>(wished1, 0);
    if (extent >= 1) extent = std::min(src1, wished1 + extent) - first;
    return {from, first, second, extent};
}

struct RegionTrial {
    Rng &rng;
    GuardedArray dst, a, b;
    bool in_place, has_roi, has_at1, has_at2;
    kipx_site roi{};
    kipx_pos at1{}, at2{};
    Axis axes[3]; // rows, pixels, channels

    static Shape shape(Rng &rng, uint32_t type, uint32_t channels) {
        Shape s;
        s.type = type, s.channels = channels;
        s.width = 1 + static_cast<uint32_t>(rng.below(90));
        s.height = 1 + static_cast<uint32_t>(rng.below(6));
        s.layout = rng.pick(all_layouts);
        s.shift = rng.below(4);
        return s;
    }
    RegionTrial(Rng &random, Triple t, uint32_t channels)
        : rng(random), dst(shape(rng, t.dst, channels)), a(shape(rng, t.src1, channels)),
          b(shape(rng, t.src2, channels)), in_place(t.dst == t.src1 && rng.one_in(3)),
          has_roi(!rng.one_in(4)), has_at1(rng.one_in(2) && !in_place), has_at2(rng.one_in(2)) {
        dst.fill(rng), a.fill(rng), b.fill(rng);
        roi = random_rectangle(rng, dst.shape().width, dst.shape().height);
        roi.origin[3] = static_cast<uint32_t>(rng.between(-1, 1));
        roi.extent[3] = static_cast<uint32_t>(rng.between(1, 5));
        at1 = position(static_cast<int32_t>(rng.between(-3, 20)),
                       static_cast<int32_t>(rng.between(-1, 2)));
        at2 = position(static_cast<int32_t>(rng.between(-3, 20)),
                       static_cast<int32_t>(rng.between(-1, 2)));
        fill_axes();
    }
    const GuardedArray &first() const { return in_place ? dst : a; }
    void fill_axes() {
        const auto sizes = [](const GuardedArray &g) {
            return std::array<int64_t, 3>{g.shape().height, g.shape().width, g.shape().channels};
        };
        const auto entry = [](const uint32_t *v, size_t axis) {
            return int64_t{static_cast<int32_t>(v[axis + 1])};
        };
        for (size_t i = 0; i < 2; i++) {
            const Span span{entry(roi.origin, i), entry(roi.origin, i) + entry(roi.extent, i)};
            const int64_t p1 = entry(at1.at, i), p2 = entry(at2.at, i);
            axes[i] =
                model_axis(sizes(dst)[i], sizes(first())[i], sizes(b)[i], has_roi ? &span : nullptr,
                           has_at1 ? &p1 : nullptr, has_at2 ? &p2 : nullptr, in_place);
        }
        // The channels that the region leaves are the same ones everywhere.
        const int64_t all = sizes(dst)[2], origin = entry(roi.origin, 2);
        const int64_t from = has_roi ? std::max<int64_t>(origin, 0) : 0;
        const int64_t to = has_roi ? std::min(all, origin + entry(roi.extent, 2)) : all;
        axes[2] = {from, from, from, to - from};
    }
    bool empty() const { return axes[0].extent < 1 || axes[1].extent < 1 || axes[2].extent < 1; }
    std::string run(const FunctionInfo &f, const Route &route, KipxXE *xe, int32_t scale) {
        const Elements x(first()), y(b), z(dst);
        const Snapshot before = dst.snapshot();
        const int32_t code = f.function(xe, 0, dst.arr(), in_place ? nullptr : a.arr(), b.arr(),
                                        has_roi ? &roi : nullptr, has_at1 ? &at1 : nullptr,
                                        has_at2 ? &at2 : nullptr, scale, 0);
        if (empty()) return code == KIPX_EEMPTY ? dst.changes(before) : "not found empty";
        if (code) return "returned " + std::to_string(code);
        std::string wrong;
        dst.for_each([&](At at) {
            const int64_t p[3] = {at.y, at.x, at.channel};
            uint32_t q1[3], q2[3];
            bool inside = true;
            for (int i = 0; i < 3; i++) {
                const int64_t step = p[i] - axes[i].dst;
                inside &= step >= 0 && step < axes[i].extent;
                q1[i] = static_cast<uint32_t>(axes[i].src1 + step);
                q2[i] = static_cast<uint32_t>(axes[i].src2 + step);
            }
            const uint64_t must = inside ? model_element(route, scale, x.at(q1[0], q1[1], q1[2]),
                                                         y.at(q2[0], q2[1], q2[2]))
                                         : z.at(at.y, at.x, at.channel);
            if (load_bits(route.dst, dst.address(at)) == must || !wrong.empty()) return;
            std::ostringstream text;
            text << "row " << at.y << ", pixel " << at.x << ", channel " << at.channel;
            wrong = text.str() + (inside ? "" : " outside");
        });
        return wrong.empty() ? dst.damage() : wrong;
    }
};

TEST(Regions, AreThoseOfTheModel) {
    const Triple types[] = {{1, 1, 1}, {11, 10, 1}, {13, 1, 13}, {1, 11, 10}, {10, 10, 10}};
    Rng rng(21);
    Environment xe;
    int empty = 0, worked = 0;
    for (int i = 0; i < 6000; i++) {
        const FunctionInfo &f = all_functions()[i % 2 ? 2 : 0];
        ASSERT_STREQ(f.name, i % 2 ? "sub" : "add");
        const Triple t = rng.pick(types);
        SimdSwitch form(rng.one_in(2));
        RegionTrial trial(rng, t, 1 + static_cast<uint32_t>(rng.below(4)));
        (trial.empty() ? empty : worked)++;
        ASSERT_EQ(trial.run(f, route_of(f, t), xe, rng.pick(all_scales)), "")
            << "trial " << i << ": " << trial.dst.shape() << "; " << trial.a.shape() << "; "
            << trial.b.shape() << (trial.in_place ? " in place" : "");
    }
    EXPECT_GT(empty, 300);
    EXPECT_GT(worked, 3000);
}

} // namespace
