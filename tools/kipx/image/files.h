// files.h - reading and writing image files.
//
// Gives    read_image: the format is told by the first bytes; write_image: by the name's ending.
// Promises whatever is in the file, the answer is an Image or a Failure of one sentence that names
//          the file; no pixel memory is taken before the header's size has been compared with
//          max_pixels. A file appears under its name only when it is complete.
// Costs    reading holds the file's bytes and the pixels in memory at once.
#pragma once

#include "image/image.h"

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

inline constexpr uint64_t default_max_pixels = uint64_t(1) << 28;

// What a reader gets: the whole file, and the limits to hold to.
struct Source {
    std::string name;
    std::vector<uint8_t> bytes;
    uint64_t max_pixels = default_max_pixels;

    [[noreturn]] void fail(const std::string &what) const;
    // A zero-filled image for a header that says so, or a Failure.
    Image image(uint64_t width, uint64_t height, uint64_t channels, uint32_t type) const;
    // Refuses a size that image() would refuse, before anything else is done with it.
    void check(uint64_t width, uint64_t height, uint64_t channels, uint32_t type) const;
};

// A file being written: path is the temporary name beside the target, file is open on it.
struct Sink {
    std::string name;
    std::string path;
    std::FILE *file = nullptr;

    [[noreturn]] void fail(const std::string &what) const;
    void write(const void *data, size_t size) const;
};

struct Format {
    const char *name;
    std::vector<const char *> endings;
    std::vector<uint32_t>
        types; // that it stores; a list without all integers goes from narrow to wide
    bool (*recognises)(const uint8_t *head, size_t size);
    Image (*read)(const Source &source);
    void (*write)(const Image &image, const Sink &sink);
};

extern const Format png_format;
extern const Format jpeg_format;
extern const Format tiff_format;
extern const Format pnm_format;
extern const Format npy_format;

Image read_image(const std::string &path, uint64_t max_pixels = default_max_pixels);
// An integer type that the format lacks is replaced by one of the format's when every value fits;
// otherwise nothing is written.
void write_image(const Image &image, const std::string &path);
// Refuses a name whose ending no format has or whose folder is missing, before work is spent.
void check_output(const std::string &path);
// Writes any text under a name in the same way: complete or not at all.
void write_text(const std::string &text, const std::string &path);
