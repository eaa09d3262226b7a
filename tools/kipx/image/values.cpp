// values.cpp - see values.h.
#include "image/values.h"

#include "command.h"
#include "failure.h"

#include <kipx/convert.h>
#include <kipx/stats.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

namespace {

constexpr uint32_t most_channels = 4;
using Counts = std::array<uint64_t, most_channels>;

// What the statistics calls are given.
class View {
public:
    View(const Image &image, const Scope &scope)
        : image_(image), src_(image.arr()),
          part_(scope.part.value_or(Part{0, 0, image.width(), image.height()})) {
        if (scope.mask) take(*scope.mask);
    }
    View(const View &) = delete;

    const Part &part() const { return part_; }
    const Image &image() const { return image_; }
    uint64_t pixels() const { return uint64_t(part_.width) * part_.height; }
    bool masked() const { return mask_given_; }

    // Elements that are not finite count no more.
    void leave_out_what_is_not_finite() {
        const uint32_t channels = image_.channels(), given = mask_given_ ? mask_.volume[3] : 1;
        finite_ = Image({KIPX_U8, image_.width(), image_.height(), channels});
        const auto *old = static_cast<const uint8_t *>(mask_.base);
        with_type(image_.type(), [&](auto sample) {
            const auto *values = image_.as<decltype(sample)>();
            for (uint64_t i = 0; i < image_.elements(); ++i) {
                const bool in = !old || old[given == 1 ? i / channels : i];
                finite_.data()[i] = in && std::isfinite(double(values[i]));
            }
        });
        take(finite_);
    }

    // A call of the library on some channels and rows of the part.
    template<class Function, class... More>
    int32_t call_rows(Function function, uint32_t channel, uint32_t channels, uint32_t row,
                      uint32_t rows, More... more) const {
        const kipx_site site = {{0, part_.y + row, part_.x, channel},
                                {1, rows, part_.width, channels}};
        const kipx_pos at = {
            {0, part_.y + row, part_.x, mask_given_ && mask_.volume[3] > 1 ? channel : 0}};
        return function(nullptr, 0, &src_, mask_given_ ? &mask_ : nullptr, &site, &at, more...);
    }
    template<class Function, class... More>
    int32_t call(Function function, uint32_t channel, uint32_t channels, More... more) const {
        return call_rows(function, channel, channels, 0, part_.height, more...);
    }

    // Values that stand in a relation to a number, per channel.
    Counts count(int32_t relation, double number) const {
        const std::array numbers = {number, number, number, number};
        Counts out = {};
        check_answer(call(KipxCountRelBox, 0, image_.channels(), relation, numbers.data(),
                          static_cast<const kipx_site *>(nullptr), 1u, out.data()),
                     "counting");
        return out;
    }

private:
    void take(const Image &mask) { mask_ = mask.arr(), mask_given_ = true; }

    const Image &image_;
    Image finite_;
    kipx_arr src_, mask_ = {};
    Part part_;
    bool mask_given_ = false;
};

enum Relation : int32_t { equal = 3, less_or_equal = 5, greater = 6, not_equal = 8 };

// How many values are finite, and how many are not.
void count_kinds(const View &view, std::vector<Statistics> &out) {
    Counts all = {}, numbers = {}, infinite = {};
    const auto add = [](Counts &to, const Counts &counts) {
        for (uint32_t c = 0; c < most_channels; ++c) to[c] += counts[c];
    };
    if (view.masked()) {
        for (const Relation relation : {equal, not_equal}) add(all, view.count(relation, 0));
    } else {
        all.fill(view.pixels());
    }
    numbers = all;
    if (!is_integer(view.image().type())) {
        numbers = {};
        for (const Relation relation : {less_or_equal, greater})
            add(numbers, view.count(relation, 0));
        for (const double sign : {1.0, -1.0})
            add(infinite, view.count(equal, sign * std::numeric_limits<double>::infinity()));
    }
    for (size_t c = 0; c < out.size(); ++c) {
        out[c].count = numbers[c] - infinite[c];
        out[c].nan = all[c] - numbers[c];
        out[c].infinite = infinite[c];
    }
}

// Channels that all have a value that counts.
void measure(const View &view, uint32_t channel, uint32_t channels, bool deviations,
             std::vector<Statistics> &out) {
    kipx_vrange ranges[most_channels];
    double sums[most_channels], means[most_channels], spread[most_channels];
    check_answer(view.call(KipxMinmax, channel, channels, ranges), "extrema");
    check_answer(view.call(KipxSum, channel, channels, sums), "sums");
    if (deviations) check_answer(view.call(KipxMean, channel, channels, means, spread), "means");
    for (uint32_t i = 0; i < channels; ++i) {
        Statistics &s = out[channel + i];
        s.least = ranges[i].low, s.greatest = ranges[i].high, s.sum = sums[i];
        s.mean = s.sum / double(s.count);
        if (deviations) s.deviation = spread[i];
    }
}

} // namespace

std::vector<Statistics> statistics(const Image &image, const Scope &scope, bool deviations) {
    View view(image, scope);
    std::vector<Statistics> out(image.channels());
    count_kinds(view, out);
    const auto complete = [](const Statistics &s) { return s.nan == 0 && s.infinite == 0; };
    if (!std::all_of(out.begin(), out.end(), complete)) view.leave_out_what_is_not_finite();
    const auto any = [](const Statistics &s) { return s.count > 0; };
    const auto channels = uint32_t(out.size());
    if (std::all_of(out.begin(), out.end(), any)) {
        measure(view, 0, channels, deviations, out);
        return out;
    }
    for (uint32_t c = 0; c < channels; ++c)
        if (any(out[c])) measure(view, c, 1, deviations, out);
    return out;
}

std::optional<Bins> histogram(const Image &image, const Scope &scope, double low, double high,
                              int32_t bins) {
    const View view(image, scope);
    const uint32_t channels = image.channels();
    std::array<kipx_vrange, most_channels> ranges;
    std::array<int32_t, most_channels> wanted;
    std::array<kipx_histogram, most_channels> counted;
    ranges.fill({low, high}), wanted.fill(bins);
    Environment environment;
    const int32_t answer = __kipx_histogram__$n$xe(counted.data(), channels, ranges.data(),
                                                   wanted.data(), image.type(), environment.get());
    if (answer == KIPX_EINVAL) return std::nullopt;
    check_answer(answer, "bins");
    // A record's total ends at 2^31 - 1: rows are taken in a part at a time.
    const uint32_t width = view.part().width, height = view.part().height;
    const uint32_t rows = std::max(1u, (1u << 30) / width);
    for (uint32_t y = 0; y < height; y += rows) {
        for (kipx_histogram &h : counted) h.total = 0;
        check_answer(view.call_rows(KipxHistogram, 0, channels, y, std::min(rows, height - y),
                                    static_cast<const kipx_vrange *>(ranges.data()),
                                    counted.data()),
                     "histogram");
    }
    Bins out{double(counted[0].low), double(counted[0].width), {}};
    for (uint32_t c = 0; c < channels; ++c)
        out.counts.emplace_back(counted[c].counts, counted[c].counts + counted[c].bins);
    kipx_hist_fini_$n$xe(counted.data(), channels, environment.get());
    return out;
}

Statistics extremes(const Image &image) {
    Statistics out;
    double sum = 0;
    for (const Statistics &s : statistics(image, {}, false)) {
        out.nan += s.nan, out.infinite += s.infinite;
        if (s.count == 0) continue;
        out.least = out.count ? std::min(out.least, s.least) : s.least;
        out.greatest = out.count ? std::max(out.greatest, s.greatest) : s.greatest;
        out.count += s.count, sum += s.sum;
    }
    if (out.count) out.mean = sum / double(out.count);
    return out;
}

Image converted(const Image &image, uint32_t type) {
    Image out(Shape{type, image.width(), image.height(), image.channels()});
    const kipx_arr dst = out.arr(), src = image.arr();
    check_answer(KipxConvert(nullptr, 0, &dst, &src, nullptr, nullptr, 1, 0), "conversion");
    return out;
}

Image computable(Image image, const std::string &path, const char *holder, uint32_t as_it_is) {
    if (image.type() == as_it_is) return image;
    switch (image.type()) {
    case KIPX_S8:
        return converted(image, KIPX_S16);
    case KIPX_U32:
        if (!fits(image, KIPX_S32))
            fail("{}: its u32 values reach {:.0f}, more than 2147483647, the most that {}", path,
                 extremes(image).greatest, holder);
        [[fallthrough]];
    case KIPX_U16:
        return converted(image, KIPX_S32);
    case KIPX_F64:
        return converted(image, KIPX_F32);
    default:
        return image;
    }
}

int rank(uint32_t type) {
    return int(std::find(std::begin(compute_types), std::end(compute_types), type) - compute_types);
}

bool fits(const Image &image, uint32_t type) {
    if (!is_integer(type) && !is_integer(image.type())) return true;
    const Statistics range = extremes(image);
    kipx_vrange ends = {range.least, range.greatest};
    check_answer(kipx_vrng_saturate(&ends, type), "conversion");
    if (ends.low != range.least || ends.high != range.greatest) return false;
    if (type != KIPX_F32 || std::max(-ends.low, ends.high) <= 0x1p24) return true;
    // Beyond 2^24 binary32 holds some integers and others not.
    const Image exact = converted(image, KIPX_F64),
                rounded = converted(converted(image, type), KIPX_F64);
    return std::memcmp(exact.data(), rounded.data(), exact.bytes()) == 0;
}
