// prepare.cpp - the steps that lead to a picture. See steps.h.
#include "batch/marker.h"
#include "demo/steps.h"
#include "failure.h"
#include "image/files.h"
#include "image/values.h"
#include "scene/background.h"
#include "scene/scene.h"

#include <kipx/arith.h>
#include <kipx/convert.h>

#include <cmath>
#include <cstring>
#include <filesystem>

// Root of the mean squared difference to the light, in steps of 8 bits.
double noise_of(const Image &picture, const Image &light) {
    double sum = 0;
    for (uint64_t i = 0; i < picture.elements(); ++i) {
        const double difference = picture.data()[i] - light.as<uint16_t>()[i] / 64.0;
        sum += difference * difference;
    }
    return std::sqrt(sum / double(picture.elements()));
}

namespace {

using Function = decltype(&KipxAdd);

void compute(State &state, Function function, const char *what, Image &dst, const Image *src1,
             const Image &src2, int32_t scale = 0) {
    const kipx_arr result = dst.arr(), second = src2.arr();
    const kipx_arr first = src1 ? src1->arr() : kipx_arr{};
    check_answer(function(state.environment.get(), 0, &result, src1 ? &first : nullptr, &second,
                          nullptr, nullptr, nullptr, scale, 0),
                 what);
}

Shape like(const Image &image, uint32_t type) {
    return {type, image.width(), image.height(), image.channels()};
}

Done make_scene(State &state) {
    const DemoArguments &given = state.given;
    const auto [width, height] = given.size;
    if (uint64_t(width) * height > state.globals.max_pixels)
        fail("--size: got {}x{}, which is more than --max-pixels {}", width, height,
             state.globals.max_pixels);
    const Scene scene({width, height, given.seed, 0});
    state.light = scene.light(&state.truth);
    state.origin.file = fmt::format("scene {}x{}, seed {}", width, height, given.seed);
    return {state.light.pixels(),
            fmt::format("our {}, {} cells", state.origin.file, scene.cells())};
}

Done take_frames(State &state) {
    const uint32_t count = state.given.frames;
    for (uint32_t i = 0; i < count; ++i) state.frames.push_back(noisy_frame(state.light, i + 1));
    return {state.light.pixels() * count,
            fmt::format("{} frames with photon and read noise, {:.2f} steps rms each", count,
                        noise_of(state.frames[0], state.light))};
}

// Sums in s16; the last addition divides by the number of frames and rounds into u8.
Done average(State &state) {
    const auto &frames = state.frames;
    Image sum(like(state.light, KIPX_S16));
    state.mean = Image(like(state.light, KIPX_U8));
    const auto exponent = -int32_t(std::lround(std::log2(double(frames.size()))));
    compute(state, KipxAdd, "average", sum, nullptr, frames[0]);
    for (size_t i = 1; i + 1 < frames.size(); ++i)
        compute(state, KipxAdd, "average", sum, nullptr, frames[i]);
    compute(state, KipxAdd, "average", state.mean, &sum, frames.back(), exponent);
    return {state.light.pixels() * frames.size(),
            fmt::format("KipxAdd, s16 from u8, last one scaled by 2^{}", exponent)};
}

Done find_background(State &state) {
    state.background = estimated_background(state.mean);
    return {state.light.pixels(), "most frequent value per tile, drawn out smoothly"};
}

// The difference may be negative; a pedestal, the background's mean, makes it a picture again.
Done subtract_background(State &state) {
    state.difference = Image(like(state.light, KIPX_S16));
    state.flat = Image(like(state.light, KIPX_U8));
    Image pedestal(like(state.light, KIPX_U8));
    const auto level = int(std::lround(extremes(state.background).mean));
    std::memset(pedestal.data(), level, pedestal.bytes());
    compute(state, KipxSub, "subtract", state.difference, &state.mean, state.background);
    compute(state, KipxAddq, "subtract", state.flat, &state.difference, pedestal);
    return {state.light.pixels() * 2,
            fmt::format("KipxSub into s16, KipxAddq back onto a pedestal of {}", level)};
}

// Any picture as u8 without alpha; what is not u8 is stretched from its least to its greatest
// value.
Image viewable(const Image &image) {
    const uint32_t channels = image.channels() < 3 ? 1 : 3;
    const Statistics range = extremes(image);
    const bool as_is = image.type() == KIPX_U8, flat = !(range.greatest > range.least);
    const double scale = as_is ? 1 : flat ? 0 : 255 / (range.greatest - range.least);
    Image out({KIPX_U8, image.width(), image.height(), channels});
    const kipx_arr dst = out.arr();
    kipx_arr src = image.arr();
    src.volume[3] = channels; // the pixels keep their distance
    check_answer(KipxConvert(nullptr, 0, &dst, &src, nullptr, nullptr, scale,
                             as_is || flat ? 0 : -range.least * scale),
                 "a picture to look at");
    return out;
}

Done read_picture(State &state) {
    const std::string &path = state.given.image;
    const Picture picture = state.globals.read(path, state.given.page);
    const std::string page =
        picture.pages > 1 ? fmt::format("page {} of {}, ", state.given.page, picture.pages) : "";
    state.levels = grey_levels(picture.image, state.settings.levels, path);
    state.picture = viewable(picture.image);
    state.origin = {std::filesystem::path(path).filename().string(), "", state.given.page,
                    picture.pages, picture.image.shape()};
    if (const auto record = file_record(path); !record.is_null())
        state.origin.hash = record["sha256"];
    return {picture.image.pixels(), fmt::format("{}, {}{}; {}", path, page,
                                                describe(picture.image.shape()), state.levels.way)};
}

Done take_flat(State &state) {
    state.picture = Image(state.flat.shape());
    std::memcpy(state.picture.data(), state.flat.data(), state.flat.bytes());
    state.levels = grey_levels(state.flat, state.settings.levels, "scene");
    state.origin.shape = state.flat.shape();
    state.pictures = {{"frame.png", &state.frames[0]},       {"mean.png", &state.mean},
                      {"background.png", &state.background}, {"flat.png", &state.flat},
                      {"difference.tif", &state.difference}, {"truth.tif", &state.truth}};
    return {state.flat.pixels(), fmt::format("{} grey levels", state.levels.used)};
}

constexpr Step scene_table[] = {
    {"make the scene", make_scene},
    {"take noisy frames", take_frames},
    {"average", average},
    {"estimate background", find_background},
    {"subtract background", subtract_background},
    {"grey levels", take_flat},
};
constexpr Step file_table[] = {{"read the picture", read_picture}};

} // namespace

const std::span<const Step> scene_steps = scene_table;
const std::span<const Step> file_steps = file_table;
