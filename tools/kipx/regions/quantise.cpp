// quantise.cpp - see quantise.h. Values pass through binary64, which holds every element exactly.
#include "regions/quantise.h"

#include "failure.h"
#include "image/values.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <span>
#include <vector>

namespace {

struct Count {
    double value;
    uint64_t pixels;
};

template<class T> bool is_nan(T value) {
    if constexpr (std::is_floating_point_v<T>) return std::isnan(value);
    return false;
}

// The least value of an integer of 8 or 16 bits.
template<class T>
constexpr int table_base = std::is_signed_v<T> ? -(1 << (8 * int(sizeof(T)) - 1)) : 0;

// One value a pixel.
template<class T> Image grey_image(const Image &image) {
    const uint32_t channels = image.channels();
    const T *in = image.as<T>();
    Image out({image.type(), image.width(), image.height(), 1});
    for (T &value : std::span(out.as<T>(), out.elements())) {
        if (channels < 3) {
            value = in[0];
        } else if constexpr (std::is_integral_v<T>) {
            const int64_t sum = 299 * int64_t(in[0]) + 587 * int64_t(in[1]) + 114 * int64_t(in[2]);
            value = T((sum + 500 - (sum < -500 ? 999 : 0)) / 1000);
        } else {
            value = T(0.299 * double(in[0]) + 0.587 * double(in[1]) + 0.114 * double(in[2]));
        }
        in += channels;
    }
    return out;
}

// The different values in ascending order, NaN left out.
template<class T> std::vector<Count> census(const Image &image) {
    std::vector<Count> out;
    if constexpr (std::is_integral_v<T> && sizeof(T) <= 2) {
        using Ends = std::numeric_limits<T>;
        const auto bins = histogram(image, {}, Ends::min(), Ends::max(), 1 << (8 * sizeof(T)));
        const std::vector<uint32_t> &counts = bins.value().counts[0];
        for (size_t i = 0; i < counts.size(); ++i)
            if (counts[i]) out.push_back({bins->low + double(i), counts[i]});
    } else {
        std::vector<T> sorted(image.as<T>(), image.as<T>() + image.elements());
        sorted.erase(std::remove_if(sorted.begin(), sorted.end(), is_nan<T>), sorted.end());
        std::sort(sorted.begin(), sorted.end());
        for (const T value : sorted) {
            if (out.empty() || out.back().value != double(value)) out.push_back({double(value), 0});
            ++out.back().pixels;
        }
    }
    return out;
}

using Plan = std::vector<uint8_t>; // the level of every count

// Ascending values, so that different levels lie in runs.
uint64_t levels_used(const Plan &plan) {
    uint64_t used = 1;
    for (size_t i = 1; i < plan.size(); ++i) used += plan[i] != plan[i - 1];
    return used;
}

Plan linear_plan(const std::vector<Count> &counts) {
    const double least = counts.front().value, range = counts.back().value / 2 - least / 2;
    Plan plan(counts.size());
    if (!(range > 0) || !std::isfinite(range)) return plan;
    for (size_t i = 0; i < counts.size(); ++i) {
        const double place = (counts[i].value / 2 - least / 2) / range;
        plan[i] = uint8_t(std::lround(std::clamp(place, 0.0, 1.0) * 255));
    }
    return plan;
}

// At most 256 values, a level each, as far apart as they can be: on levels without gaps a region of a
// picture of few values would live too short a time to be compared over several levels.
Plan spread_plan(size_t values) {
    Plan plan(values);
    for (size_t i = 1; i < values; ++i) plan[i] = uint8_t(i * 255 / (values - 1));
    return plan;
}

// A level is left behind when it has its share of the pixels that were still to come, or when each
// of the values that are left needs a level of its own.
Plan equal_plan(const std::vector<Count> &counts) {
    if (counts.size() <= 256) return spread_plan(counts.size());
    Plan plan(counts.size());
    uint64_t left = 0, have = 0;
    for (const Count &count : counts) left += count.pixels;
    uint32_t level = 0;
    const size_t last = 255;
    for (size_t i = 0; i < counts.size(); ++i) {
        plan[i] = uint8_t(level);
        have += counts[i].pixels;
        if (level < last &&
            (have * (last + 1 - level) >= left || counts.size() - 1 - i <= last - level)) {
            left -= have;
            have = 0;
            ++level;
        }
    }
    return plan;
}

Plan exact_plan(const std::vector<Count> &counts, double base) {
    Plan plan(counts.size());
    for (size_t i = 0; i < counts.size(); ++i) plan[i] = uint8_t(counts[i].value - base);
    return plan;
}

Plan choose(const std::vector<Count> &counts, uint32_t type, Levels levels, GreyLevels &out) {
    const double least = counts.front().value, greatest = counts.back().value;
    const std::string range = fmt::format(" from {:.10g} to {:.10g}", least, greatest);
    if (is_integer(type) && greatest - least < 256 && levels != Levels::equal) {
        // Values that a byte holds stay what they are.
        const double base = least >= 0 && greatest < 256 ? 0 : least;
        out.way = base == 0 ? "values as they are" : fmt::format("values less {:.10g}", base);
        return exact_plan(counts, base);
    }
    out.exact = false;
    const uint64_t best = std::min<uint64_t>(counts.size(), 256);
    Plan plan = linear_plan(counts);
    const uint64_t used = levels_used(plan);
    const bool good = used == best || (counts.size() > 256 && used >= 192);
    out.way = "linear" + range;
    if (levels == Levels::linear || (levels == Levels::automatic && good)) return plan;
    out.way = (counts.size() <= 256 ? "one level a value" : "equal shares of pixels") + range;
    return equal_plan(counts);
}

template<class T> GreyLevels levels_of(const Image &image, Levels levels, const std::string &name) {
    GreyLevels out;
    out.luma = grey_image<T>(image);
    const std::span<const T> values(out.luma.as<T>(), out.luma.elements());
    const std::vector<Count> counts = census<T>(out.luma);
    if (counts.empty()) fail("{}: every pixel is NaN", name);
    out.image = Image({KIPX_U8, image.width(), image.height(), 1});
    out.values = counts.size();
    const Plan plan = choose(counts, image.type(), levels, out);
    out.used = levels_used(plan);
    for (size_t i = counts.size(); i-- > 0;) out.least[plan[i]] = counts[i].value;
    for (size_t i = 0; i < counts.size(); ++i) out.greatest[plan[i]] = counts[i].value;
    uint8_t *levels_out = out.image.data();
    if constexpr (std::is_integral_v<T> && sizeof(T) <= 2) {
        std::vector<uint8_t> table(size_t(1) << (8 * sizeof(T)));
        const int base = table_base<T>;
        for (size_t i = 0; i < counts.size(); ++i)
            table[size_t(int(counts[i].value) - base)] = plan[i];
        for (const T value : values) *levels_out++ = table[size_t(value - base)];
        return out;
    } else {
        bool has_nan = false;
        const auto below = [](const Count &count, double value) { return count.value < value; };
        for (const T value : values) {
            const auto at = std::lower_bound(counts.begin(), counts.end(), double(value), below);
            has_nan |= is_nan(value);
            *levels_out++ = is_nan(value) ? 0 : plan[size_t(at - counts.begin())];
        }
        if (!has_nan) return out;
        out.mask = Image({KIPX_U8, image.width(), image.height(), 1});
        std::transform(values.begin(), values.end(), out.mask.data(),
                       [](T value) { return is_nan(value) ? 0 : 255; });
        return out;
    }
}

} // namespace

GreyLevels grey_levels(const Image &image, Levels levels, const std::string &name) {
    GreyLevels out = with_type(image.type(), [&](auto sample) {
        return levels_of<decltype(sample)>(image, levels, name);
    });
    const std::string kind =
        std::string(name_of(image.type())) + (image.channels() < 3 ? "" : " luma");
    out.way = kind + ", " + out.way;
    if (image.type() == KIPX_U8 && out.exact && out.least[0] == 0) {
        const bool same =
            std::equal(out.image.data(), out.image.data() + out.image.pixels(), out.luma.data());
        if (same) out.luma = Image();
    }
    if (out.lost() > 0)
        out.way +=
            fmt::format(": {} of {} values fell together with another", out.lost(), out.values);
    return out;
}
