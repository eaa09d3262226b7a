// options.h - what CLI11's typed options lack for this program: validators and kinds of values that
// are told in one wording.
//
// Gives    validators for numbers and names; options that choose among words; positions, sizes and
//          parts of a picture.
// Promises a text that does not fit ends in one sentence: which option, what it got, what it
//          expected. Numbers are decimal; 010 is ten. What help, man pages and completion show of an
//          option is what is declared here: its words are the choices between the bars of its type.
#pragma once

#include "image/files.h"
#include "image/place.h"

#include <CLI/CLI.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// "got 'TEXT', expected WHAT".
std::string unlike(const std::string &text, const std::string &expected);
// Words as a person lists them: "a, b or c".
std::string listed(const std::vector<std::string> &words);

CLI::Validator whole(int64_t least, int64_t greatest);
CLI::Validator real(double least, double greatest);
// More than least, up to greatest.
CLI::Validator above(double least, double greatest);
CLI::Validator word_of(const std::vector<std::string> &words);
// Any text but the empty one: file names.
CLI::Validator filled();

// A number or a name of a typed variable, with its present value as the default in the help.
template<class T>
CLI::Option *add_value(CLI::App &command, const std::string &names, T &value,
                       const CLI::Validator &validator, const std::string &form,
                       const std::string &help) {
    return command.add_option(names, value, help)->transform(validator)->type_name(form);
}

CLI::Option *add_place(CLI::App &command, const std::string &names, std::optional<Place> &value,
                       const std::string &help);
CLI::Option *add_part(CLI::App &command, const std::string &names, std::optional<Part> &value,
                      const std::string &help);
// What of such a part lies inside a picture, which it must begin in.
std::optional<Part> part_inside(const std::optional<Part> &given, const Image &image,
                                const std::string &path);
CLI::Option *add_extent(CLI::App &command, const std::string &names, Extent &value,
                        const std::string &help);

// Numbers with commas between them, at least and at most so many.
CLI::Option *add_reals(CLI::App &command, const std::string &names, std::vector<double> &values,
                       size_t least, size_t most, const std::string &form, const std::string &help);

template<class T> using Choices = std::vector<std::pair<std::string, T>>;

// One of some words; the word of the present value is the default in the help.
template<class T>
CLI::Option *add_choice(CLI::App &command, const std::string &names, T &value,
                        const Choices<T> &choices, const std::string &help) {
    std::vector<std::string> words;
    std::string form, standard;
    for (const auto &[word, meaning] : choices) {
        words.push_back(word);
        form += (form.empty() ? "" : "|") + word;
        if (meaning == value) standard = word;
    }
    const auto take = [&value, choices](const std::string &text) {
        for (const auto &[word, meaning] : choices)
            if (word == text) value = meaning;
    };
    auto *option = command.add_option_function<std::string>(names, take, help);
    return option->check(word_of(words))->type_name(form)->default_str(standard);
}

// --scale N of the commands whose results the library multiplies by a power of two.
CLI::Option *add_scale_option(CLI::App &command, int32_t &scale);
// --page N of the commands that read images; and --output and --format of those that write them.
CLI::Option *add_page_option(CLI::App &command, uint32_t &page);
void add_goal_options(CLI::App &command, Goal &goal, const std::string &help);
