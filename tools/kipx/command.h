// command.h - what main and the commands share.
//
// Gives    Globals, the options that stand before or behind any command; the list of commands.
// Promises a command that cannot do its work throws a Failure and leaves no output behind.
//
// A new command is a file NAME_command.cpp, which the build finds by its name, with a function
// add_NAME_commands, and a row NAME in KIPX_COMMANDS below. The function declares the command's
// options with CLI11 and what options.h adds to it, gives it an example as its footer, and sets a
// callback that does the work; help, man page and completion come from those declarations.
#pragma once

#include "image/files.h"

#include <kipx/env.h>

#include <string>

namespace CLI {
class App;
}

struct Globals {
    bool simd = true;
    int set = KIPX_SIMD_BEST; // of the vector forms, as kipx_set_simd takes it
    bool quiet = false;
    bool as_stored = false; // pictures are not turned
    uint64_t max_pixels = default_max_pixels;

    // Reads a page of an image file within the limits.
    Picture read(const std::string &path, uint32_t page) const;
    // The same for commands with one line of work: says on stderr which page of several it is.
    Image load(const std::string &path, uint32_t page) const;
    // The page to take of a file beside the main one: where it has a single one, that stands for any.
    uint32_t page_beside(const std::string &path, uint32_t page) const;
    // Writes an image file and says so on stdout, unless quiet or the image goes there itself.
    void store(const Image &image, const Goal &goal, const std::string &what) const;
    // A line on stderr that is no failure, unless quiet.
    void note(const std::string &text) const;
};

// An execution environment for the length of a command.
class Environment {
public:
    Environment() { KipxXEinit(&record_, nullptr); }
    ~Environment() { KipxXEfini(&record_); }
    Environment(const Environment &) = delete;
    Environment &operator=(const Environment &) = delete;
    KipxXE *get() { return &record_; }

private:
    KipxXE record_ = {};
};

// The library's answer as a Failure, when it is one.
void check_answer(int32_t answer, const std::string &what);

// Tells one sentence on stderr, as one line, and needs no memory for it. Returns the status of a
// failure, 2.
int complain(const char *text);

#define KIPX_COMMANDS(X)                                                                           \
    X(arith)                                                                                       \
    X(logic)                                                                                       \
    X(muladd)                                                                                      \
    X(compare) X(filter) X(pixel) X(convert) X(pad) X(stats) X(info) X(scene) X(mser) X(tree)      \
        X(demo) X(reference)
#define KIPX_DECLARE_COMMAND(name)                                                                 \
    void add_##name##_commands(CLI::App &app, const Globals &globals);
KIPX_COMMANDS(KIPX_DECLARE_COMMAND)
#undef KIPX_DECLARE_COMMAND
