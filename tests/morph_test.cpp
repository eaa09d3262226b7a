// Morphology with elements of any form, against loops over every member.
#include <kipx/array.h>
#include <kipx/morph.h>

#include <cstring>

#include <gtest/gtest.h>

#include "support/environment.h"
#include "support/window_case.h"

using namespace kipx::test;

namespace {

constexpr uint32_t types[] = {KIPX_U8, KIPX_S16, KIPX_S32, KIPX_F32};

// An element in memory of its own, and as the model knows it.
struct Mask {
    Footprint foot;
    kipx_strel strel{};
    std::vector<unsigned char> bytes;

    Mask(int height, int width, int row, int column, const std::vector<unsigned char> &members,
         uint32_t pixel = 1)
        : foot{height, width, row, column, members}, bytes(members.size() * pixel, 9) {
        for (size_t i = 0; i < members.size(); ++i) bytes[i * pixel] = members[i];
        strel.anchor[1] = row, strel.anchor[2] = column;
        kipx_arr &m = strel.mask;
        m.naxes = 3, m.type = KIPX_U8, m.base = bytes.data();
        const uint32_t volume[] = {1, uint32_t(height), uint32_t(width), 1};
        const uint32_t strides[] = {0, uint32_t(width) * pixel, pixel, 1};
        memcpy(m.volume, volume, sizeof volume), memcpy(m.strides, strides, sizeof strides);
    }
};

// Scattered members, runs, discs, one value or another, nothing, everything.
Mask drawn(Rng &rng) {
    const int most = rng.one_in(4) ? 21 : 5;
    const int height = int(rng.between(1, most)), width = int(rng.between(1, most));
    std::vector<unsigned char> members(size_t(height) * width);
    const int64_t form = rng.between(0, 5);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const int dy = 2 * y + 1 - height, dx = 2 * x + 1 - width;
            const bool disc = dy * dy * width * width + dx * dx * height * height <=
                              height * height * width * width;
            const bool in = form == 0   ? rng.one_in(2)
                            : form == 1 ? disc
                            : form == 2 ? dy == 0 || dx == 0
                            : form == 3 ? !rng.one_in(6)
                            : form == 4 ? true
                                        : false;
            members[size_t(y) * width + x] = in ? (rng.one_in(3) || form == 4 ? 255 : 1) : 0;
        }
    return {height,
            width,
            int(rng.between(0, height - 1)),
            int(rng.between(0, width - 1)),
            members,
            rng.one_in(2) ? 1u : 3u};
}

bool subtracts(uint32_t op) { return op >= KIPX_MORPH_BOTHAT; }

TEST(Morph, IsWhatLoopsOverEveryMemberGive) {
    const uint32_t ops[] = {0, 3, 4, 5, 6, 7, 8, 9};
    Rng rng(1);
    for (int round = 0; round < 1500; round++) {
        WindowCase c;
        c.type = rng.pick(types);
        const uint32_t op = rng.pick(ops);
        Mask mask = drawn(rng);
        const bool point = mask.foot.height == 1 && mask.foot.width == 1;
        if (point || (c.type == KIPX_F32 && subtracts(op))) continue;
        c.channels = {1, 3, 4}, c.single_mask = false;
        if (rng.one_in(10)) c.most_width = 900;
        if (rng.one_in(10)) c.most_height = 80;
        c.call = [&](KipxXE *xe, const kipx_arr *src, const kipx_arr *dst, const kipx_arr *aux,
                     const kipx_site *roi, const Region &) {
            return KipxMorphop(xe, 0, src, dst, aux, roi, op, &mask.strel);
        };
        c.model = [&](const Plane &src, const Region &r, uint32_t) {
            return morphology(c.type, op, src, r, mask.foot);
        };
        const std::string wrong = try_window(rng, c);
        ASSERT_TRUE(wrong.empty()) << kipx_morphop_str(op) << " type " << c.type << " element "
                                   << mask.foot.height << "x" << mask.foot.width << " anchor "
                                   << mask.foot.row << "," << mask.foot.column << " in " << wrong;
    }
}

TEST(Morph, AnswersInOrder) {
    Shape s;
    s.width = 9, s.height = 7;
    GuardedArray src(s), dst(s);
    Shape two = s, real = s, odd = s;
    two.channels = 2, real.type = KIPX_F32, odd.type = KIPX_U16;
    GuardedArray pair(two), reals(real), wide(odd);
    const std::vector<unsigned char> cross = {0, 1, 0, 1, 1, 1, 0, 1, 0}, solid(9, 255);
    Mask plain(3, 3, 1, 1, cross), full(3, 3, 1, 1, solid), outside(3, 3, 3, 1, cross),
        before(3, 3, 1, -1, cross), flat(3, 3, 1, 1, cross), shorts(3, 3, 1, 1, cross),
        point(1, 1, 0, 0, {0}), open(3, 3, 1, 1, cross);
    flat.strel.mask.volume[1] = 0, shorts.strel.mask.type = KIPX_U16;
    open.strel.mask.base = nullptr;
    const kipx_site beyond = rectangle(20, 0, 3, 3);
    const uint64_t probe = KIPX_FLAG_PROBE;
    const struct {
        int32_t code;
        uint64_t flags;
        const kipx_arr *src, *mask;
        const kipx_site *roi;
        uint32_t op;
        const Mask *element;
    } rows[] = {
        {KIPX_EINVAL, 0, nullptr, nullptr, &beyond, 3, &plain},
        {KIPX_EINVAL, 0, src.arr(), nullptr, &beyond, 3, &outside},
        {KIPX_EINVAL, 0, src.arr(), nullptr, &beyond, 3, &before},
        {KIPX_EINVAL, 0, src.arr(), nullptr, &beyond, 3, &flat},
        {KIPX_EINVAL, 0, src.arr(), nullptr, &beyond, 3, &shorts},
        {KIPX_EINVAL, 0, src.arr(), pair.arr(), &beyond, 3, &plain},
        {KIPX_EEMPTY, 0, src.arr(), nullptr, &beyond, 10, &plain},
        {KIPX_EINVAL, probe, src.arr(), nullptr, nullptr, 1, &plain},
        {KIPX_EINVAL, probe, src.arr(), nullptr, nullptr, 2, &full},
        {KIPX_EINVAL, probe, src.arr(), nullptr, nullptr, 10, nullptr},
        {KIPX_EINVAL, probe, pair.arr(), nullptr, nullptr, KIPX_MORPH_ERODE, &full},
        {KIPX_EINVAL, probe, wide.arr(), nullptr, nullptr, KIPX_MORPH_DILATE, &full},
        {KIPX_EINVAL, probe, wide.arr(), nullptr, nullptr, KIPX_MORPH_OPEN, &plain},
        {KIPX_EAGAIN, probe, wide.arr(), nullptr, nullptr, KIPX_MORPH_OPEN, &full},
        {KIPX_ENOTSUP, 0, reals.arr(), nullptr, nullptr, KIPX_MORPH_TOPHAT, &plain},
        {KIPX_ENOTSUP, 0, reals.arr(), nullptr, nullptr, KIPX_MORPH_GRADIENT, &full},
        {KIPX_ENOTIMP, 0, src.arr(), nullptr, nullptr, KIPX_MORPH_GRADIENT, nullptr},
        {KIPX_ENOTIMP, 0, src.arr(), nullptr, nullptr, KIPX_MORPH_GRADIENT, &open},
        {KIPX_EAGAIN, probe | 1, src.arr(), nullptr, nullptr, KIPX_MORPH_GRADIENT, &plain},
        {KIPX_EAGAIN, probe, src.arr(), nullptr, nullptr, 0xf0 | KIPX_MORPH_OPEN, &plain},
        {0, 1, src.arr(), nullptr, nullptr, KIPX_MORPH_OPEN, &plain},
        {0, 1, src.arr(), nullptr, nullptr, KIPX_MORPH_OPEN, &open},
        {0, 0, pair.arr(), nullptr, nullptr, 13, &point},
    };
    Environment xe;
    for (const auto &row : rows) {
        const Snapshot now = src.snapshot();
        EXPECT_EQ(KipxMorphop(xe, row.flags, row.src, nullptr, row.mask, row.roi, row.op,
                              row.element ? &row.element->strel : nullptr),
                  row.code)
            << &row - rows;
        EXPECT_EQ(src.changes(now), "");
    }
}

// A point copies, through a mask and in a region as well; so does no operation without an element.
TEST(Morph, PointsCopy) {
    Shape s;
    s.width = 12, s.height = 9, s.channels = 2, s.type = KIPX_F64;
    Rng rng(2);
    const Mask point(1, 1, 0, 0, {7});
    const kipx_site roi = rectangle(3, 2, 5, 4);
    for (const kipx_strel *strel : {&point.strel, static_cast<const kipx_strel *>(nullptr)}) {
        GuardedArray src(s), dst(s);
        src.fill(rng), dst.fill_integer(3);
        Environment xe;
        ASSERT_EQ(KipxMorphop(xe, 0, src.arr(), dst.arr(), nullptr, &roi, 0, strel), 0);
        dst.for_each([&](At at) {
            const bool in = at.x >= 3 && at.x < 8 && at.y >= 2 && at.y < 6;
            ASSERT_EQ(dst.real(at), in ? src.real(at) : 3);
        });
    }
}

// The levels below, on the inside of an array that is wide enough; kernels from the tables.
TEST(Morph, FlatLevelsReadAsFarAsTheElementReaches) {
    Rng rng(3);
    const Mask mask(2, 3, 1, 2, {1, 0, 1, 1, 1, 0});
    Environment xe;
    for (uint32_t op : {3u, 4u, 5u, 6u, 7u, 8u, 9u}) {
        Shape s;
        s.type = KIPX_S16, s.width = 40, s.height = 30, s.channels = 3;
        GuardedArray src(s), must(s), got(s);
        src.fill(rng), must.fill_integer(7), got.fill_integer(7);
        const kipx_site roi = rectangle(10, 5, 20, 15);
        const uint32_t volume[] = {15, 20, 3}, origin[] = {5, 10, 0};
        ASSERT_EQ(KipxMorphop(xe, 0, src.arr(), must.arr(), nullptr, &roi, op, &mask.strel), 0);
        const uint32_t *steps = src.arr()->strides + 1;
        ASSERT_EQ(kipxa_morphop(xe, 0, 3, volume, KIPX_S16, got.address({}), origin, steps,
                                src.address({}), origin, steps, op, &mask.strel),
                  0);
        EXPECT_EQ(got.changes(must.snapshot()), "") << op;
        if (op > 4) continue;
        const auto table = op == 3 ? kipxa__erodefun_imp : kipxa__dilatefun_imp;
        for (uint32_t channels = 0; channels < 16; channels++)
            for (uint32_t type = 0; type < 18; type++) {
                int32_t status = 1;
                const auto kernel = table(channels, type, &status);
                const bool counts =
                    channels == 1 || channels == 3 || channels == 4 || channels == 11;
                const bool some =
                    std::find(std::begin(types), std::end(types), type) != std::end(types);
                ASSERT_EQ(status, counts && some ? 0 : KIPX_EINVAL);
                const uint32_t one[] = {1, 1, channels};
                ASSERT_EQ(kernel(xe, KIPX_FLAG_PREPARE, 3, one, got.address({}), steps,
                                 src.address({10, 10, 0, 0}), steps, &mask.strel),
                          status);
            }
        got.fill_integer(7);
        ASSERT_EQ(table(3, KIPX_S16, nullptr)(xe, 0, 3, volume, got.address({5, 10, 0, 0}), steps,
                                              src.address({5, 10, 0, 0}), steps, &mask.strel),
                  0);
        EXPECT_EQ(got.changes(must.snapshot()), "") << op;
    }
}

} // namespace
