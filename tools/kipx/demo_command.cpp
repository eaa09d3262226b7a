// demo_command.cpp - kipx demo: the main job on a picture, step by step, each timed.
//
// The steps are rows of a table and hand their results on in a State; another step is another row.
#include "command.h"
#include "failure.h"
#include "image/files.h"
#include "options.h"
#include "report/terminal.h"
#include "scene/background.h"
#include "scene/scene.h"

#include <kipx/arith.h>

#include <chrono>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <memory>
#include <utility>

namespace {

struct Arguments {
    std::string image, folder = "demo", frames = "16", size = "1920x1080", seed = "1";
};

struct State {
    const Globals &globals;
    Arguments given;
    uint32_t frame_count = 16;
    Environment environment;
    bool from_scene = true;
    Image light;  // what the camera looks at
    Image labels; // of the scene's cells
    std::vector<Image> frames;
    Image mean, background, difference, flat;
    std::vector<std::pair<std::string, const Image *>> pictures; // file names and what they hold
};

// What a step worked on, for its rate, and what it has to say.
struct Done {
    uint64_t pixels;
    std::string note;
};

struct Step {
    const char *name;
    Done (*work)(State &state);
};

std::string rounded(double value, int digits) {
    char text[32];
    std::snprintf(text, sizeof text, "%.*f", digits, value);
    return text;
}

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

// Root of the mean squared difference to the light, in steps of 8 bits.
double noise_of(const Image &picture, const Image &light) {
    double sum = 0;
    for (uint64_t i = 0; i < picture.elements(); ++i) {
        const double difference = picture.data()[i] - light.as<uint16_t>()[i] / 64.0;
        sum += difference * difference;
    }
    return std::sqrt(sum / double(picture.elements()));
}

Done get_light(State &state) {
    if (!state.given.image.empty()) {
        const Image image = state.globals.load(state.given.image);
        state.light = light_of(viewable(image));
        state.from_scene = false;
        return {image.pixels(), state.given.image + ", " + describe(image.shape())};
    }
    const auto size = numbers("--size", state.given.size, 'x', 2, "WIDTHxHEIGHT", 1);
    if (uint64_t(size[0]) * size[1] > state.globals.pixel_limit())
        fail("--size: got '", state.given.size, "', which is more than --max-pixels ",
             state.globals.pixel_limit());
    const Scene scene(
        {size[0], size[1], uint64_t(whole_number("--seed", state.given.seed, 0, INT64_MAX)), 0});
    state.light = scene.light(&state.labels);
    return {state.light.pixels(), "our scene, " + state.given.size + ", " +
                                      std::to_string(scene.cells()) + " cells, seed " +
                                      state.given.seed};
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

Done write_pictures(State &state) {
    namespace fs = std::filesystem;
    std::error_code error;
    fs::create_directories(state.given.folder, error);
    if (error) fail(state.given.folder, ": cannot make this folder: ", error.message());
    state.pictures = {{"frame.png", &state.frames[0]},
                      {"mean.png", &state.mean},
                      {"background.png", &state.background},
                      {"flat.png", &state.flat},
                      {"difference.tif", &state.difference}};
    if (state.from_scene) state.pictures.emplace_back("truth.tif", &state.labels);
    std::string names;
    for (auto &[name, image] : state.pictures) {
        names += " " + name;
        write_image(*image, (fs::path(state.given.folder) / name).string());
    }
    return {state.light.pixels() * state.pictures.size(), state.given.folder + ":" + names};
}

Done check_pictures(State &state) {
    for (const auto &[name, image] : state.pictures) {
        const std::string path = (std::filesystem::path(state.given.folder) / name).string();
        const Image again = read_image(path, state.globals.pixel_limit());
        if (again.type() != image->type() || again.bytes() != image->bytes() ||
            std::memcmp(again.data(), image->data(), image->bytes()) != 0)
            fail(path, ": what was read back differs from what was written");
    }
    return {state.light.pixels() * state.pictures.size(),
            "all " + std::to_string(state.pictures.size()) + " files hold the same bytes"};
}

constexpr Step steps[] = {
    {"get the picture", get_light},
    {"take noisy frames", take_frames},
    {"average", average},
    {"estimate background", find_background},
    {"subtract background", subtract_background},
    {"write", write_pictures},
    {"read back and compare", check_pictures},
};

void run(const Globals &globals, const Arguments &given) {
    using Clock = std::chrono::steady_clock;
    const auto log_count =
        choice<int>("--frames", given.frames,
                    {{"2", 1}, {"4", 2}, {"8", 3}, {"16", 4}, {"32", 5}, {"64", 6}, {"128", 7}});
    State state{globals, given, uint32_t(1) << log_count, {}, true, {}, {}, {}, {}, {}, {}, {}, {}};
    const Steps table(globals.quiet);
    table.head();
    for (const Step &step : steps) {
        const auto start = Clock::now();
        const Done done = step.work(state);
        table.row(step.name, std::chrono::duration<double>(Clock::now() - start).count(),
                  done.pixels, done.note);
    }
    if (globals.quiet) return;
    std::printf("\nnoise against the true light: one frame %s, mean of %u %s steps rms\n",
                rounded(noise_of(state.frames[0], state.light), 2).c_str(), state.frame_count,
                rounded(noise_of(state.mean, state.light), 2).c_str());
    std::printf("look at %s\n",
                (std::filesystem::path(given.folder) / "flat.png").string().c_str());
    show(state.flat);
}

} // namespace

void add_demo_command(CLI::App &app, const Globals &globals) {
    CLI::App *command =
        app.add_subcommand("demo", "Average noisy frames, take the background away");
    auto given = std::make_shared<Arguments>();
    command->add_option("IMAGE", given->image, "A picture of yours; otherwise a scene is made");
    command->add_option("-o,--output", given->folder, "Folder for the pictures (default demo)")
        ->type_name("DIR");
    command->add_option("--frames", given->frames, "Noisy frames to take (default 16)")
        ->type_name("2|4|...|128");
    command->add_option("--size", given->size, "Size of the scene (default 1920x1080)")
        ->type_name("WxH");
    command->add_option("--seed", given->seed, "Seed of the scene (default 1)")->type_name("N");
    command->footer("Example: kipx demo photo.jpg -o out");
    command->callback([&globals, given] { run(globals, *given); });
}
