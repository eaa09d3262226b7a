// command.h - what main and the commands share.
//
// Gives    Globals, the options that stand before any command; one add_... function per command
// file,
//          which adds its commands to the program and sets what runs when one is chosen.
// Promises a command that cannot do its work throws a Failure and leaves no output behind.
#pragma once

#include "image/image.h"

#include <CLI/CLI.hpp>
#include <kipx/env.h>

#include <string>

struct Globals {
    std::string simd = "on";
    std::string max_pixels;
    bool quiet = false;

    uint64_t pixel_limit() const;
    // Reads an image file within the limit.
    Image load(const std::string &path) const;
    // Writes an image file and says so, unless quiet.
    void store(const Image &image, const std::string &path, const std::string &what) const;
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

// Tells one sentence on stderr, as one line. Returns the status of a failure, 2.
int complain(std::string text);

void add_arith_commands(CLI::App &app, const Globals &globals);
void add_info_command(CLI::App &app, const Globals &globals);
void add_scene_command(CLI::App &app, const Globals &globals);
void add_mser_command(CLI::App &app, const Globals &globals);
void add_tree_command(CLI::App &app, const Globals &globals);
void add_demo_command(CLI::App &app, const Globals &globals);
