// numbers.cpp - reading numbers from the command line.
#include "numbers.h"

#include "failure.h"

#include <charconv>
#include <cmath>
#include <filesystem>
#include <system_error>

std::vector<double> numbers_of(const std::string &text) {
    std::vector<double> numbers;
    for (const char *at = text.data(), *end = at + text.size();; ++at) {
        double number = 0;
        const auto [rest, error] = std::from_chars(at, end, number);
        if (error != std::errc() || !std::isfinite(number)) return {};
        numbers.push_back(number);
        if (rest == end) return numbers;
        if (*rest != ',') return {};
        at = rest;
    }
}

std::vector<double> numbers_for(const Image &image, const std::string &option,
                                const std::string &text) {
    std::vector<double> numbers = numbers_of(text);
    if (numbers.empty())
        fail("{}: got '{}', expected a number, or one for each channel with commas between them",
             option, text);
    if (numbers.size() == 1) numbers.resize(image.channels(), numbers[0]);
    if (numbers.size() != image.channels())
        fail("{}: got {} numbers, expected 1{}", option, numbers.size(),
             image.channels() > 1 ? fmt::format(" or {}, the image's channels", image.channels())
                                  : "");
    return numbers;
}

bool means_numbers(const std::string &option, const std::string &text) {
    std::error_code error;
    if (text == "-" || std::filesystem::exists(text, error)) return false;
    if (numbers_of(text).empty())
        fail("{}: got '{}', expected an image file, or numbers with commas between them; there is "
             "no "
             "file of that name",
             option, text);
    return true;
}
