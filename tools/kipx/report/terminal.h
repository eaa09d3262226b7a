// terminal.h - what the program shows to a person.
//
// Gives    show(): a picture in the terminal, two pixels a character, in 24-bit colour; Steps: a
//          table of what was done, how long it took and how many pixels a second that is.
// Promises plain text when standard output is no terminal, or a dumb one, or NO_COLOR is set; show()
//          then prints nothing.
#pragma once

#include "image/image.h"
#include "image/place.h"

#include <cstdint>
#include <string>

// Whether a stream is a terminal that moves its cursor; and colours besides.
bool takes_escapes(int descriptor);
bool takes_colours(int descriptor);
// In characters; 80 by 24 where it is not known.
Extent terminal_size(int descriptor);

// u8 pictures, fitted to the terminal's width and to its height less the lines given: what was
// printed in these stays on the screen.
void show(const Image &picture, uint32_t lines_above);

class Steps {
public:
    explicit Steps(bool quiet) : quiet_(quiet) {}
    // pixels 0: no rate. The first row has the names of the columns above it.
    void row(const std::string &name, double seconds, uint64_t pixels, const std::string &note);
    // A line that is no step.
    void say(const std::string &line);
    // How many lines of the terminal have been printed.
    uint32_t lines() const { return lines_; }

private:
    bool quiet_;
    uint32_t lines_ = 0;
};
