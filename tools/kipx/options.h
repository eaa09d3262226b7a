// options.h - reading the texts that options give.
//
// Gives    numbers, choices, positions and sizes from text.
// Promises a text that does not fit throws a Failure that says which option, what it got and what
// it
//          expected.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

int64_t whole_number(const std::string &option, const std::string &text, int64_t least,
                     int64_t greatest);
double real_number(const std::string &option, const std::string &text, double least,
                   double greatest);

// A check for options whose empty text would mean that they were not given: what is wrong, or "".
std::string filled(const std::string &text);

template<class T> using Choices = std::vector<std::pair<const char *, T>>;

[[noreturn]] void no_such_choice(const std::string &option, const std::string &text,
                                 const std::vector<const char *> &known);

template<class T>
T choice(const std::string &option, const std::string &text, const Choices<T> &choices) {
    std::vector<const char *> known;
    for (const auto &[name, value] : choices) {
        if (text == name) return value;
        known.push_back(name);
    }
    no_such_choice(option, text, known);
}

// count whole numbers with a separator between them, each from least to 2^31 - 1. form tells the
// user what was expected, as in "x,y".
std::vector<uint32_t> numbers(const std::string &option, const std::string &text, char separator,
                              size_t count, const char *form, uint32_t least = 0);
