// Removal of isolated outliers, against a look at every other pixel.
#include <kipx/array.h>
#include <kipx/firefly.h>

#include <cmath>

#include <gtest/gtest.h>

#include "support/environment.h"
#include "support/window_case.h"

using namespace kipx::test;

namespace {

TEST(Firefly, IsWhatALookAtEveryOtherPixelGives) {
    Rng rng(1);
    const uint32_t types[] = {KIPX_U8, KIPX_S16, KIPX_S32, KIPX_F32};
    const double some[] = {0, 0, 0.5, 3, 100, HUGE_VAL};
    for (int round = 0; round < 600; round++) {
        WindowCase c;
        c.type = rng.pick(types);
        if (rng.one_in(4)) c.most_width = 2, c.most_height = 3; // pixels without neighbours
        kipx_seshape shape;
        __kipx_seshape__$g2(&shape, int32_t(rng.between(1, 5)), int32_t(rng.between(1, 5)));
        if (rng.one_in(3)) shape.anchor[1] = shape.anchor[2] = 0;
        double bright[4], dark[4];
        for (int i = 0; i < 4; i++) bright[i] = rng.pick(some), dark[i] = rng.pick(some);
        const int sides = int(rng.between(1, 3)); // bright, dark, both
        c.call = [&](KipxXE *xe, const kipx_arr *src, const kipx_arr *dst, const kipx_arr *mask,
                     const kipx_site *roi, const Region &) {
            return KipxFireflyEx(xe, 0, src, dst, mask, roi, &shape, sides & 1 ? bright : nullptr,
                                 sides & 2 ? dark : nullptr);
        };
        c.model = [&](const Plane &src, const Region &r, uint32_t channel) {
            kipx_seshape s = shape;
            const uint32_t extent[] = {1, uint32_t(r.height), uint32_t(r.width)};
            kipx_seshape_adjust_$I(&s, extent);
            Footprint others{s.volume[1], s.volume[2], s.anchor[1], s.anchor[2], {}};
            others.members.assign(size_t(others.height) * others.width, 1);
            others.members[size_t(others.row) * others.width + others.column] = 0;
            const Plane high = morphology(c.type, 4, src, r, others),
                        low = morphology(c.type, 3, src, r, others);
            Plane out = morphology(c.type, 0, src, r, others);
            for (size_t i = 0; i < out.values.size(); i++) {
                const double v = out.values[i], h = high.values[i], l = low.values[i];
                if (l > h) continue; // no others
                if ((sides & 1) && v - h > bright[channel]) out.values[i] = h;
                if ((sides & 2) && l - v > dark[channel]) out.values[i] = l;
            }
            return out;
        };
        const std::string wrong = try_window(rng, c);
        ASSERT_TRUE(wrong.empty()) << "type " << c.type << " shape " << shape.volume[1] << "x"
                                   << shape.volume[2] << " sides " << sides << " in " << wrong;
    }
}

TEST(Firefly, RefusesThresholdsThatAreNone) {
    Shape s;
    s.width = s.height = 9;
    GuardedArray src(s);
    Environment xe;
    for (double bad : {-1.0, double(NAN)}) {
        EXPECT_EQ(KipxFirefly(xe, 0, src.arr(), nullptr, nullptr, nullptr, bad), KIPX_EINVAL);
        EXPECT_EQ(
            KipxFireflyEx(xe, 0, src.arr(), nullptr, nullptr, nullptr, nullptr, nullptr, &bad),
            KIPX_EINVAL);
    }
    EXPECT_EQ(KipxFireflyEx(xe, 0, src.arr(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
              KIPX_EINVAL);
    EXPECT_EQ(KipxFirefly(xe, KIPX_FLAG_PROBE, src.arr(), nullptr, nullptr, nullptr, 0),
              KIPX_EAGAIN);
}

} // namespace
