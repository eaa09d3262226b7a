// options.cpp - see options.h.
#include "options.h"
#include "failure.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <functional>

namespace {

template<class T> bool parse(const std::string &text, T &value) {
    const char *end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    return result.ec == std::errc() && result.ptr == end;
}

// What a validator makes of a text: the number in decimal for CLI11 to convert, or a complaint.
template<class T>
CLI::Validator number(T least, T greatest, const std::string &expected, bool with_least = true) {
    const auto take = [=](std::string &text) {
        T value = 0;
        const bool sound = parse(text, value) && value >= least && value <= greatest;
        if (!sound || (!with_least && value <= least)) return unlike(text, expected);
        text = fmt::format("{}", value);
        return std::string();
    };
    return CLI::Validator(take, "");
}

// Whole numbers from 0 to 2^31 - 1 with a separator between them, those from positive on at least 1.
bool parse(const std::string &text, char separator, size_t positive, std::vector<uint32_t> &out) {
    size_t start = 0;
    for (uint32_t &number : out) {
        const bool last = &number == &out.back();
        const size_t end = last ? text.size() : text.find(separator, start);
        if (end == std::string::npos || !parse(text.substr(start, end - start), number))
            return false;
        const size_t place = size_t(&number - out.data());
        if (number > INT32_MAX || (place >= positive && number == 0)) return false;
        start = end + 1;
    }
    return true;
}

CLI::Option *add_numbers(CLI::App &command, const std::string &names, const std::string &form,
                         char separator, size_t count, size_t positive, const std::string &help,
                         const std::function<void(const std::vector<uint32_t> &)> &take) {
    const auto known = [=](const std::string &text) {
        std::vector<uint32_t> values(count);
        if (parse(text, separator, positive, values)) return std::string();
        return unlike(text, fmt::format("{}, whole numbers up to {}{}", form, INT32_MAX,
                                        positive < count ? ", width and height at least 1" : ""));
    };
    const auto convert = [=](const std::string &text) {
        std::vector<uint32_t> values(count);
        parse(text, separator, positive, values);
        take(values);
    };
    return command.add_option_function<std::string>(names, convert, help)
        ->check(known)
        ->type_name(form);
}

} // namespace

std::string unlike(const std::string &text, const std::string &expected) {
    return fmt::format("got '{}', expected {}", text, expected);
}

std::string listed(const std::vector<std::string> &words) {
    std::string out;
    for (size_t i = 0; i < words.size(); ++i)
        out += (i == 0 ? "" : i + 1 == words.size() ? " or " : ", ") + words[i];
    return out;
}

CLI::Validator whole(int64_t least, int64_t greatest) {
    return number(least, greatest, fmt::format("a whole number from {} to {}", least, greatest));
}

CLI::Validator real(double least, double greatest) {
    return number(least, greatest, fmt::format("a number from {} to {}", least, greatest));
}

CLI::Validator above(double least, double greatest) {
    return number(least, greatest, fmt::format("a number above {} up to {}", least, greatest),
                  false);
}

CLI::Validator word_of(const std::vector<std::string> &words) {
    const auto take = [words](const std::string &text) {
        const bool found = std::find(words.begin(), words.end(), text) != words.end();
        return found ? std::string() : unlike(text, listed(words));
    };
    return CLI::Validator(take, "");
}

CLI::Validator filled() {
    const auto take = [](const std::string &text) {
        return text.empty() ? unlike(text, "a value") : std::string();
    };
    return CLI::Validator(take, "");
}

CLI::Option *add_place(CLI::App &command, const std::string &names, std::optional<Place> &value,
                       const std::string &help) {
    return add_numbers(command, names, "x,y", ',', 2, 2, help, [&value](const auto &n) {
        value = Place{n[0], n[1]};
    });
}

CLI::Option *add_part(CLI::App &command, const std::string &names, std::optional<Part> &value,
                      const std::string &help) {
    return add_numbers(command, names, "x,y,w,h", ',', 4, 2, help, [&value](const auto &n) {
        value = Part{n[0], n[1], n[2], n[3]};
    });
}

std::optional<Part> part_inside(const std::optional<Part> &given, const Image &image,
                                const std::string &path) {
    if (!given) return std::nullopt;
    Part part = *given;
    if (part.x >= image.width() || part.y >= image.height())
        fail("--roi: got {},{}, which lies outside {} of {}x{}", part.x, part.y, path,
             image.width(), image.height());
    part.width = std::min(part.width, image.width() - part.x);
    part.height = std::min(part.height, image.height() - part.y);
    return part;
}

CLI::Option *add_extent(CLI::App &command, const std::string &names, Extent &value,
                        const std::string &help) {
    return add_numbers(command, names, "WxH", 'x', 2, 0, help,
                       [&value](const auto &n) {
                           value = Extent{n[0], n[1]};
                       })
        ->default_str(fmt::format("{}x{}", value.width, value.height));
}

CLI::Option *add_reals(CLI::App &command, const std::string &names, std::vector<double> &values,
                       size_t least, size_t most, const std::string &form,
                       const std::string &help) {
    const auto read = [](const std::string &text, std::vector<double> &out) {
        for (size_t start = 0; start <= text.size();) {
            const size_t end = std::min(text.find(',', start), text.size());
            double value = 0;
            if (!parse(text.substr(start, end - start), value) || !std::isfinite(value))
                return false;
            out.push_back(value);
            start = end + 1;
        }
        return true;
    };
    const auto known = [=](const std::string &text) {
        std::vector<double> numbers;
        if (read(text, numbers) && numbers.size() >= least && numbers.size() <= most)
            return std::string();
        return unlike(text, form + ", finite numbers");
    };
    const auto take = [=, &values](const std::string &text) {
        values.clear();
        read(text, values);
    };
    return command.add_option_function<std::string>(names, take, help)
        ->check(known)
        ->type_name(form);
}

CLI::Option *add_scale_option(CLI::App &command, int32_t &scale) {
    return add_value(command, "--scale", scale, whole(-31, 63), "N",
                     "Multiply the result by 2 to the power N")
        ->capture_default_str();
}

CLI::Option *add_page_option(CLI::App &command, uint32_t &page) {
    return add_value(command, "--page", page, whole(1, INT32_MAX), "N",
                     "Which page of a file with several")
        ->capture_default_str();
}

void add_goal_options(CLI::App &command, Goal &goal, const std::string &help) {
    add_value(command, "-o,--output", goal.path, filled(), "OUT",
              help + "; the name's ending tells the format, - is standard output")
        ->required();
    add_choice<std::string>(command, "--format", goal.format,
                            {{"png", "png"},
                             {"jpg", "jpg"},
                             {"tif", "tif"},
                             {"pnm", "pnm"},
                             {"pam", "pam"},
                             {"npy", "npy"}},
                            "The format, whatever the name's ending");
}
