// failure.h - what the program throws when it cannot do what it was asked.
//
// Gives    Failure, one sentence for the user; fail(format, values...), which throws one; and
//          AlreadyTold, for a command that has told its failures itself.
// Promises a file's own words may stand in the sentence: control characters of theirs, which would end the
//          line or speak to the terminal, become question marks.
//          Main prints the sentence on one line of stderr and exits with status 2. Where memory is
//          too short even for the sentence, std::bad_alloc is thrown instead, and main has a
//          sentence for that which needs none.
#pragma once

#include <fmt/format.h>

#include <stdexcept>
#include <string>
#include <utility>

class Failure : public std::runtime_error {
public:
    explicit Failure(std::string text) : std::runtime_error(plain(text)) {}

private:
    static const std::string &plain(std::string &text) {
        for (char &c : text)
            if ((c >= 0 && c < ' ') || c == 0x7F) c = '?';
        return text;
    }
};

struct AlreadyTold {};

template<class... Values>
[[noreturn]] void fail(fmt::format_string<Values...> format, Values &&...values) {
    throw Failure(fmt::format(format, std::forward<Values>(values)...));
}
