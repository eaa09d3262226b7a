// terminal.h - what the program shows to a person.
//
// Gives    show(): a picture in the terminal, two pixels a character, in 24-bit colour; Steps: a
//          table of what was done, how long it took and how many pixels a second that is.
// Promises plain text when standard output is no terminal; show() then prints nothing.
#pragma once

#include "image/image.h"

#include <cstdint>
#include <string>

bool is_terminal();
// u8 pictures; fitted to the terminal's width and to at most 40 lines.
void show(const Image &picture);

class Steps {
public:
    explicit Steps(bool quiet) : quiet_(quiet) {}
    void head() const;
    // pixels 0: no rate.
    void row(const std::string &name, double seconds, uint64_t pixels,
             const std::string &note) const;

private:
    bool quiet_;
};
