// Floods against brute force, and the rules of their road.
#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include <kipx/array.h>
#include <kipx/fast_regions.h>
#include <kipx/watershed.h>

#include "support/environment.h"
#include "support/flood_fixture.h"
#include "support/guarded.h"
#include "support/region_model.h"
#include "support/rng.h"

namespace {

using namespace kipx::test;

struct Random {
    ModelImage model;
    uint32_t seed_row = 0, seed_column = 0;
};

// Small images of every shape, from nearly flat to noise, some with masks.
Random random_image(Rng &rng, bool masked) {
    Random r;
    ModelImage &m = r.model;
    m.height = static_cast<uint32_t>(rng.between(1, rng.one_in(4) ? 3 : 14));
    m.width = static_cast<uint32_t>(rng.between(1, rng.one_in(4) ? 3 : 14));
    m.eight = rng.one_in(2);
    int levels = static_cast<int>(rng.between(1, rng.one_in(2) ? 4 : 256));
    int smooth = static_cast<int>(rng.below(3));
    for (uint32_t i = 0; i < m.height * m.width; ++i) {
        int v = static_cast<int>(rng.below(static_cast<uint64_t>(levels)));
        if (smooth && i > 0) v = (v + smooth * m.level.back()) / (smooth + 1);
        m.level.push_back(v);
    }
    if (masked) {
        uint64_t holes = static_cast<uint64_t>(rng.between(1, 8));
        for (uint32_t i = 0; i < m.height * m.width; ++i)
            m.mask.push_back(rng.one_in(holes) ? 0 : static_cast<uint8_t>(rng.between(1, 255)));
    }
    r.seed_row = static_cast<uint32_t>(rng.below(m.height));
    r.seed_column = static_cast<uint32_t>(rng.below(m.width));
    return r;
}

std::string show(const std::vector<ModelRegion> &regions) {
    std::ostringstream out;
    for (const ModelRegion &r : regions) out << "  " << r << '\n';
    return out.str();
}

class Floods : public testing::TestWithParam<Form> {};

TEST_P(Floods, AgreeWithBruteForce) {
    Rng rng(static_cast<uint64_t>(GetParam()) + 1);
    Environment xe;
    for (int round = 0; round < 3000; ++round) {
        bool masked = round % 2 != 0, inverted = rng.one_in(2);
        Random r = random_image(rng, masked);
        ImageOf image(r.model, inverted);
        FloodOf flood(xe, GetParam());
        flood.context.polarity = inverted ? 1 : static_cast<uint16_t>(2 * rng.below(2));
        flood.context.connectivity = r.model.eight ? static_cast<uint16_t>(rng.between(1, 9)) : 0;
        flood.context.seed_row = r.seed_row;
        flood.context.seed_column = r.seed_column;
        int32_t code = flood.run(image, masked);
        std::vector<ModelRegion> expected = model_regions(r.model);
        if (expected.empty()) {
            ASSERT_EQ(code, KIPX_EEMPTY) << round;
            continue;
        }
        ASSERT_EQ(code, 0) << round;
        std::vector<ModelRegion> found = flood.regions();
        ASSERT_EQ(found, expected)
            << "round " << round << ", " << r.model.height << " x " << r.model.width
            << (r.model.eight ? ", 8" : ", 4") << "\nfound\n"
            << show(found) << "expected\n"
            << show(expected);
    }
}

INSTANTIATE_TEST_SUITE_P(Forms, Floods, testing::ValuesIn(all_forms),
                         [](const auto &info) { return form_name(info.param); });

} // namespace
