// prepare.cpp - the steps that lead to a picture. See steps.h.
#include "demo/steps.h"
#include "failure.h"
#include "image/files.h"
#include "options.h"
#include "scene/background.h"
#include "scene/scene.h"

#include <kipx/arith.h>

#include <cmath>
#include <cstring>

std::string rounded(double value, int digits) {
    char text[32];
    std::snprintf(text, sizeof text, "%.*f", digits, value);
    return text;
}

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
    const auto size = numbers("--size", given.size, 'x', 2, "WIDTHxHEIGHT", 1);
    if (uint64_t(size[0]) * size[1] > state.globals.pixel_limit())
        fail("--size: got '", given.size, "', which is more than --max-pixels ",
             state.globals.pixel_limit());
    const Scene scene(
        {size[0], size[1], uint64_t(whole_number("--seed", given.seed, 0, INT64_MAX)), 0});
    state.light = scene.light(&state.truth);
    return {state.light.pixels(), "our scene, " + given.size + ", " +
                                      std::to_string(scene.cells()) + " cells, seed " + given.seed};
}

Done take_frames(State &state) {
    for (uint32_t i = 0; i < state.frame_count; ++i)
        state.frames.push_back(noisy_frame(state.light, i + 1, KIPX_U8));
    return {state.light.pixels() * state.frame_count,
            std::to_string(state.frame_count) + " frames with photon and read noise, " +
                rounded(noise_of(state.frames[0], state.light), 2) + " steps rms each"};
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
            "KipxAdd, s16 from u8, last one scaled by 2^" + std::to_string(exponent)};
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
            "KipxSub into s16, KipxAddq back onto a pedestal of " + std::to_string(level)};
}

// Any picture as u8 without alpha; what is not u8 is stretched from its least to its greatest
// value.
Image viewable(const Image &image) {
    const uint32_t channels = image.channels() < 3 ? 1 : 3;
    const Extremes range = extremes(image);
    const bool as_is = image.type() == KIPX_U8;
    const double low = as_is ? 0 : range.least;
    const double high = as_is ? 255 : range.greatest;
    Image out({KIPX_U8, image.width(), image.height(), channels});
    with_type(image.type(), [&](auto sample) {
        using T = decltype(sample);
        for (uint64_t i = 0; i < image.pixels(); ++i)
            for (uint32_t c = 0; c < channels; ++c) {
                const double value = double(image.as<T>()[i * image.channels() + c]);
                const double step = high > low ? (value - low) * 255 / (high - low) : 0;
                out.data()[i * channels + c] = uint8_t(step >= 0 ? std::min(step + 0.5, 255.0) : 0);
            }
    });
    return out;
}

Done read_picture(State &state) {
    const std::string &path = state.given.image;
    const Image image = state.globals.load(path);
    state.levels = grey_levels(image, state.settings.levels, path);
    state.picture = viewable(image);
    return {image.pixels(), path + ", " + describe(image.shape()) + "; " + state.levels.way};
}

Done take_flat(State &state) {
    state.picture = Image(state.flat.shape());
    std::memcpy(state.picture.data(), state.flat.data(), state.flat.bytes());
    state.levels = grey_levels(state.flat, state.settings.levels, "scene");
    state.pictures = {{"frame.png", &state.frames[0]},       {"mean.png", &state.mean},
                      {"background.png", &state.background}, {"flat.png", &state.flat},
                      {"difference.tif", &state.difference}, {"truth.tif", &state.truth}};
    return {state.flat.pixels(), std::to_string(state.levels.used) + " grey levels"};
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
