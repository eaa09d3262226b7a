// support/flood_fixture.h - floods of model images, in each of their forms, read back as regions.
//
// Gives    the image of a model as a guarded array, and a flood whose result is a list of regions
//          to compare with the model's.
// Owner    a FloodOf owns its builder, which lives on the environment's stack; the environment must
//          outlive it.
#ifndef KIPX_TESTS_SUPPORT_FLOOD_FIXTURE_H
#define KIPX_TESTS_SUPPORT_FLOOD_FIXTURE_H

#include <string>
#include <vector>

#include <kipx/fast_regions.h>
#include <kipx/watershed.h>

#include "support/guarded.h"
#include "support/region_model.h"
#include "support/rng.h"

namespace kipx::test {

// A small image of any shape, from nearly flat to noise, with a seed, some with a mask.
struct RandomImage {
    ModelImage model;
    uint32_t seed_row = 0, seed_column = 0;
};
RandomImage random_image(Rng &rng, bool masked);

// Which flood, and through which of the builder's chains.
enum class Form { standard, general, fast };
inline constexpr Form all_forms[] = {Form::standard, Form::general, Form::fast};
std::string form_name(Form form);
uint64_t form_flags(Form form);

// A model's levels as u8 pixels (subtracted from 255 when inverted) and its mask.
struct ImageOf {
    explicit ImageOf(const ModelImage &model, bool inverted = false,
                     Layout layout = Layout::packed);
    GuardedArray source, mask;
};

// Gathers a region of a builder and reads the pixel list at that offset of the record, sorted.
std::vector<uint32_t> gathered_pixels(KipxSTB *builder, KipxWTSregion *region, uint32_t offset,
                                      uint32_t width);

class FloodOf {
public:
    FloodOf(KipxXE *xe, Form form);
    ~FloodOf();
    FloodOf(const FloodOf &) = delete;
    FloodOf &operator=(const FloodOf &) = delete;

    int32_t run(const ImageOf &image, bool masked);
    // The tree's regions, sorted, their pixels as linear indices. Reports what is wrong with links,
    // areas and records through GoogleTest.
    std::vector<ModelRegion> regions();

    KipxWatershedContext context{};

private:
    std::vector<uint32_t> pixels_of(KipxWTSregion *region);
    KipxXE *xe_;
    Form form_;
    KipxWTSFDs pixel_feature_{};
    KipxWTSLSC levelset_{};
};

} // namespace kipx::test

#endif
