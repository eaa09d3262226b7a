// The road of floods and of stable regions, from the public functions to the slices: what is refused
// and with which code, what a refused call leaves alone, planes.
#include <algorithm>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include <kipx/array.h>
#include <kipx/mser.h>
#include <kipx/watershed.h>

#include "support/environment.h"
#include "support/flood_fixture.h"
#include "support/guarded.h"
#include "support/rng.h"

namespace {

using namespace kipx::test;

// The arguments of one call, right until one of them is spoiled.
struct Call {
    kipx_arr src, mask;
    kipx_site roi{{0, 0, 0, 0}, {1, 5, 6, 8}};
    kipx_pos at{};
    KipxXE *xe = nullptr;
    uint64_t flags = 0;
    KipxWatershedContext flood{}; // builder, level-set context and seed; the seed serves both works
    KipxWTSLSC levelset{};

    // Of so many rows and columns, all in one byte.
    void resize(uint32_t rows, uint32_t columns) {
        for (kipx_arr *a : {&src, &mask}) {
            a->volume[1] = rows;
            a->volume[2] = columns;
            a->strides[1] = a->strides[2] = 0;
        }
        roi.extent[1] = rows;
        roi.extent[2] = columns;
    }
};
KipxSTB builder_without_operations;
uint8_t zero = 0;

enum class Of { both, flood, masked };
struct Bad {
    const char *what;
    int32_t code;
    void (*spoil)(Call &c);
    Of of = Of::both;
    int32_t fast = 1; // the fast form's code where that differs
};
#define SPOIL(...) [](Call &c) { __VA_ARGS__; }
#define PREPARED(rows, columns) SPOIL(c.flags = KIPX_FLAG_PREPARE, c.resize(rows, columns))
const Bad bad_calls[] = {
    {"no environment", KIPX_EINVAL, SPOIL(c.xe = nullptr)},
    {"two axes", KIPX_EINVAL, SPOIL(c.src.naxes = 2)},
    {"five axes", KIPX_EINVAL, SPOIL(c.src.naxes = 5)},
    {"no base", KIPX_EINVAL, SPOIL(c.src.base = nullptr)},
    {"no planes", KIPX_EINVAL, SPOIL(c.src.volume[0] = 0)},
    {"no rows", KIPX_EINVAL, SPOIL(c.src.volume[1] = 0)},
    {"no columns", KIPX_EINVAL, SPOIL(c.src.volume[2] = 0)},
    {"no channels", KIPX_EINVAL, SPOIL(c.src.volume[3] = 0)},
    {"2^31 rows", KIPX_EEMPTY, SPOIL(c.src.volume[1] = 0x80000000u)},
    {"region outside", KIPX_EEMPTY, SPOIL(c.roi.origin[1] = 90)},
    {"region of no width", KIPX_EEMPTY, SPOIL(c.roi.extent[2] = 0)},
    {"region of no channel", KIPX_EEMPTY, SPOIL(c.roi.extent[3] = 0)},
    {"type 0", KIPX_EINVAL, SPOIL(c.src.type = 0)},
    {"type 5", KIPX_EINVAL, SPOIL(c.src.type = 5)},
    {"type 17", KIPX_EINVAL, SPOIL(c.src.type = 17)},
    {"type u16", KIPX_ENOTSUP, SPOIL(c.src.type = KIPX_U16)},
    {"type f32", KIPX_ENOTSUP, SPOIL(c.src.type = KIPX_F32)},
    {"type 15", KIPX_ENOTSUP, SPOIL(c.src.type = 15)},
    {"2 channels", KIPX_ENOTSUP, SPOIL(c.src.volume[3] = 2)},
    {"3 channels", KIPX_EINVAL, SPOIL(c.src.volume[3] = 3)},
    {"4 channels", KIPX_ENOTSUP, SPOIL(c.src.volume[3] = 4)},
    {"5 channels", KIPX_EINVAL, SPOIL(c.src.volume[3] = 5)},
    {"6 channels", KIPX_EINVAL, SPOIL(c.src.volume[3] = 6)},
    {"7 channels", KIPX_EINVAL, SPOIL(c.src.volume[3] = 7)},
    {"8 channels", KIPX_ENOTSUP, SPOIL(c.src.volume[3] = 15)},
    {"u16 and 2 channels", KIPX_EINVAL, SPOIL(c.src.type = KIPX_U16, c.src.volume[3] = 2)},
    {"no builder", KIPX_EINVAL, SPOIL(c.flood.builder = nullptr), Of::flood},
    {"no level-set context", KIPX_EINVAL, SPOIL(c.flood.levelset = nullptr), Of::flood},
    {"a builder without operations", KIPX_EINVAL,
     SPOIL(c.flood.builder = &builder_without_operations), Of::flood},
    {"features without descriptors", KIPX_EINVAL, SPOIL(c.levelset.count = 1)},
    {"seed row outside", KIPX_EINVAL, SPOIL(c.flood.seed_row = 5)},
    {"seed column outside", KIPX_EINVAL, SPOIL(c.flood.seed_column = 6)},
    {"the same, to be probed", KIPX_EINVAL,
     SPOIL(c.flood.seed_column = 6, c.flags = KIPX_FLAG_PROBE)},
    {"nothing wrong, to be probed", KIPX_EAGAIN, SPOIL(c.flags = KIPX_FLAG_PROBE)},
    {"nothing wrong, to be prepared", 0, SPOIL(c.flags = KIPX_FLAG_PREPARE)},
    {"offsets past 2^32", KIPX_EINVAL, SPOIL(c.src.strides[1] = 0xf0000000u)},
    {"65537 columns", KIPX_EINVAL, SPOIL(c.resize(5, 65537))},
    {"65537 rows", KIPX_EINVAL, SPOIL(c.resize(65537, 6))},
    {"2^27 - 2^16 pixels", 0, PREPARED(65536, 2047)},
    {"2^27 pixels", 0, PREPARED(65536, 2048), Of::both, KIPX_EINVAL},
    {"2^28 pixels", 0, PREPARED(65536, 4096), Of::both, KIPX_EINVAL},
    {"2^28 + 2^16 pixels", KIPX_EINVAL, PREPARED(65536, 4097)},
    {"mask of another type", KIPX_EINVAL, SPOIL(c.mask.type = KIPX_S8), Of::masked},
    {"mask without base", KIPX_EINVAL, SPOIL(c.mask.base = nullptr), Of::masked},
    {"mask of more axes", KIPX_EINVAL, SPOIL(c.mask.naxes = 4), Of::masked},
    {"mask of other channels", KIPX_EINVAL, SPOIL(c.mask.volume[3] = 2), Of::masked},
    {"mask of 3 channels for as many", KIPX_EINVAL, SPOIL(c.mask.volume[3] = c.src.volume[3] = 3),
     Of::masked},
    {"mask past its end", KIPX_EEMPTY, SPOIL(c.at.at[1] = 9), Of::masked},
    {"mask of zeros", KIPX_EEMPTY,
     SPOIL(c.mask.strides[1] = c.mask.strides[2] = 0; c.mask.base = &zero), Of::masked},
};
#undef PREPARED
#undef SPOIL

class Road : public testing::TestWithParam<Form> {
protected:
    static int32_t generate(KipxXE *xe, uint64_t flags, const kipx_arr *src, const kipx_arr *mask,
                            const kipx_site *roi, const kipx_pos *at, KipxMSERContext *context) {
        auto run = GetParam() == Form::fast ? KipxGenerateFMSERsEx : KipxGenerateMSERsEx;
        return run(xe, flags | form_flags(GetParam()), src, mask, roi, at, context);
    }
    // A flood that is refused leaves the tree that is there.
    void flood_in_vain(Call c, bool masked, int32_t code) {
        KipxST *tree = c.flood.output;
        KipxSTnode *root = tree->root;
        if (c.flood.levelset) c.flood.levelset = &c.levelset;
        EXPECT_EQ(KipxWatershedEx(c.xe, c.flags | form_flags(GetParam()), &c.src,
                                  masked ? &c.mask : nullptr, &c.roi, &c.at, &c.flood),
                  code);
        EXPECT_EQ(tree->root, root);
        EXPECT_EQ(c.flood.output, tree);
    }
    // Stable regions that are refused leave a context without list and builders.
    void generate_in_vain(Call c, bool masked, int32_t code) {
        for (uint16_t polarity : {0, 1, 2}) {
            KipxMSERContext m{};
            m.polarity = polarity;
            m.seed_row = c.flood.seed_row;
            m.seed_column = c.flood.seed_column;
            m.levelset = c.levelset;
            m.dark_builder = m.bright_builder = reinterpret_cast<KipxSTB *>(8); // left over
            m.list.entries = static_cast<KipxWTSregion **>(_ZuMcalloc(2, sizeof(void *)));
            m.list.capacity = 2;
            EXPECT_EQ(
                generate(c.xe, c.flags, &c.src, masked ? &c.mask : nullptr, &c.roi, &c.at, &m),
                code);
            EXPECT_EQ(m.dark_builder, nullptr);
            EXPECT_EQ(m.bright_builder, nullptr);
            EXPECT_EQ(m.list.count, 0u);
            EXPECT_EQ(m.list.entries == nullptr, code < 0);
            KipxMSERrelease(&m);
        }
    }
};

TEST_P(Road, RefusesWithTheRightCode) {
    Environment xe;
    ModelImage m{5, 6, std::vector<int>(30, 3), std::vector<uint8_t>(30, 1), false};
    ImageOf image(m);
    for (const Bad &bad : bad_calls)
        for (bool masked : {false, true}) {
            SCOPED_TRACE(std::string(bad.what) + (masked ? ", masked" : ""));
            if (bad.of == Of::masked && !masked) continue;
            FloodOf flood(xe, GetParam());
            ASSERT_EQ(flood.run(image, false), 0);
            Call c{*image.source.arr(), *image.mask.arr()};
            c.xe = xe;
            c.flood = flood.context;
            bad.spoil(c);
            bool fast = GetParam() == Form::fast;
            int32_t code = fast && bad.fast < 1 ? bad.fast : bad.code;
            flood_in_vain(c, masked, code);
            if (bad.of != Of::flood) generate_in_vain(c, masked, code);
        }
    EXPECT_EQ(KipxWatershed(xe, 0, image.source.arr(), nullptr, nullptr), KIPX_EINVAL);
    EXPECT_EQ(generate(xe, 0, image.source.arr(), image.mask.arr(), nullptr, nullptr, nullptr),
              KIPX_EINVAL);
    KipxMSERrelease(nullptr);
}

using Listed = std::vector<std::tuple<int, int, uint32_t>>; // level, area, pixel

Listed listed(const KipxMSERContext &c) {
    Listed list;
    for (uint64_t i = 0; i < c.list.count; ++i) {
        const KipxWTSregion &r = *c.list.entries[i];
        list.emplace_back(r.level, r.area, r.pixel);
    }
    return list;
}

// Plane by plane, each in the place of the one before. A mask of three axes serves all planes,
// wherever it is placed; one of four has planes of its own.
TEST_P(Road, GoesThroughPlanes) {
    struct Row {
        uint16_t mask_axes; // 0: no mask
        uint32_t plane;     // plane of the mask where the region starts
    };
    Environment xe;
    Rng rng(8);
    constexpr uint32_t side = 24, planes = 3;
    for (Row row : {Row{0, 0}, {3, 0}, {3, 2}, {4, 0}, {4, 1}}) {
        SCOPED_TRACE(testing::Message() << row.mask_axes << " axes at plane " << row.plane);
        Shape shape;
        shape.naxes = 4;
        shape.planes = planes;
        shape.height = shape.width = side;
        Shape mask_shape = shape;
        mask_shape.naxes = row.mask_axes == 3 ? 3 : 4;
        mask_shape.planes = row.mask_axes == 3 ? 1 : planes + row.plane;
        GuardedArray source(shape), mask(mask_shape);
        ModelImage last{side, side, std::vector<int>(side * side), {}, false};
        if (row.mask_axes) last.mask.resize(side * side);
        source.for_each([&](At at) {
            int v = static_cast<int>(at.y * at.y % 40 * at.x + rng.below(4)) % 250;
            source.set_integer(at, v);
            if (at.plane == planes - 1) last.level[at.y * side + at.x] = v;
        });
        mask.for_each([&](At at) {
            uint8_t v = rng.one_in(9) ? 0 : 1;
            mask.set_integer(at, v);
            bool counts = row.mask_axes == 3 || at.plane == row.plane + planes - 1;
            if (row.mask_axes && counts) last.mask[at.y * side + at.x] = v;
        });
        const kipx_arr *mask_arr = row.mask_axes ? mask.arr() : nullptr;
        kipx_pos at{{row.plane, 0, 0, 0}};

        FloodOf flood(xe, GetParam());
        ASSERT_EQ(KipxWatershedEx(xe, form_flags(GetParam()), source.arr(), mask_arr, nullptr, &at,
                                  &flood.context),
                  0);
        EXPECT_EQ(flood.regions(), model_regions(last));

        KipxMSERContext all{};
        all.delta = 5;
        all.max_area_fraction = 1;
        all.max_variation = 0.5f;
        all.polarity = 2;
        KipxMSERContext single = all;
        ImageOf image(last);
        ASSERT_EQ(generate(xe, 0, source.arr(), mask_arr, nullptr, &at, &all), 0);
        ASSERT_EQ(generate(xe, 0, image.source.arr(), mask_arr ? image.mask.arr() : nullptr,
                           nullptr, nullptr, &single),
                  0);
        EXPECT_GT(all.list.count, 0u);
        EXPECT_EQ(listed(all), listed(single));
        KipxMSERrelease(&all);
        KipxMSERrelease(&single);
    }
}

// Slices and plain addresses give what the public functions do.
TEST_P(Road, LevelsBelowGiveTheSame) {
    Environment xe;
    const bool fast = GetParam() == Form::fast;
    const uint64_t flags = fast ? 0 : form_flags(GetParam());
    const kipx_slice_fun slices[] = {KipxTGAgenerateMSERs,  KipxTGAgenerateMSERsEx,
                                     KipxTGAgenerateFMSERs, KipxTGAgenerateFMSERsEx,
                                     KipxTGAwatershed,      KipxTGAwatershedEx};
    for (const kipx_slice_fun slice : slices) EXPECT_EQ(slice(xe, 0, nullptr), KIPX_EINVAL);
    ModelImage model{24, 24, std::vector<int>(576), std::vector<uint8_t>(576), false};
    for (uint32_t i = 0; i < 576; ++i)
        model.level[i] = int(i / 24 * (i / 24) % 40 * (i % 24) % 250), model.mask[i] = i % 9 != 4;
    const ImageOf image(model);
    const kipx_arr src = *image.source.arr(), mask = *image.mask.arr();
    const void *pixels = kipx_arr_base(&src), *marks = kipx_arr_base(&mask);
    const uint32_t origin[3] = {}, *extent = src.volume + 1, *strides = src.strides + 1;
    kipx_site site;
    kipx_arr_siteof(&src, &site);
    for (const bool masked : {true, false}) {
        if (!masked) model.mask.clear();
        kipx_pack pack;
        const auto packed = [&](void *context) {
            return masked ? kipxa_mappackL(&pack, 0, &src, &site, &mask, &site, context)
                          : kipxa_genpackL(&pack, 0, &src, &site, context);
        };
        KipxMSERContext as[3] = {};
        for (KipxMSERContext &c : as)
            c.delta = 5, c.max_area_fraction = 1, c.max_variation = 0.5f, c.polarity = 2;
        EXPECT_EQ(generate(xe, 0, &src, masked ? &mask : nullptr, nullptr, nullptr, as), 0);
        EXPECT_EQ(kipxa_call(xe, flags, packed(as + 1), slices[2 * fast + masked]), 0);
        const auto plain = fast ? kipxa_fmser : kipxa_mser;
        const auto inside = fast ? kipxa_fmser_xm : kipxa_mser_xm;
        EXPECT_EQ(masked ? inside(xe, flags, 3, extent, KIPX_U8, pixels, origin, strides, KIPX_U8,
                                  marks, origin, mask.strides + 1, as + 2)
                         : plain(xe, flags, 3, extent, KIPX_U8, pixels, origin, strides, as + 2),
                  0);
        EXPECT_GT(as[0].list.count, 0u);
        for (const KipxMSERContext &c : as) {
            EXPECT_EQ(listed(c), listed(as[0]));
            const bool of_form = c.dark_builder && KipxFWTSRESfrombuilder(c.dark_builder);
            EXPECT_EQ(of_form, fast);
        }
        for (KipxMSERContext &c : as) KipxMSERrelease(&c);

        FloodOf flood(xe, GetParam());
        EXPECT_EQ(
            kipxa_call(xe, form_flags(GetParam()), packed(&flood.context), slices[4 + masked]), 0);
        EXPECT_EQ(flood.regions(), model_regions(model));
    }
}

INSTANTIATE_TEST_SUITE_P(Forms, Road, testing::ValuesIn(all_forms),
                         [](const auto &param) { return form_name(param.param); });

} // namespace
