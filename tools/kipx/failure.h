// failure.h - what the program throws when it cannot do what it was asked.
//
// Gives    Failure, one sentence for the user, and fail(parts...), which joins the parts and
//          throws; and AlreadyTold, for a command that has told its failures itself.
// Promises main prints the sentence on one line of stderr and exits with status 2.
#pragma once

#include <sstream>
#include <stdexcept>

class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct AlreadyTold {};

template<class... Parts> [[noreturn]] void fail(const Parts &...parts) {
    std::ostringstream text;
    (text << ... << parts);
    throw Failure(text.str());
}
