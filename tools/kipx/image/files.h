// files.h - reading and writing image files.
//
// Gives    read_picture: the format is told by the first bytes; write_image: by the name's ending,
//          or by a word. The name - is standard input and standard output.
// Promises whatever is in the file, the answer is a Picture or a Failure of one sentence that names
//          the file; no pixel memory is taken before the header's size has been compared with
//          max_pixels, and none for a length that the file does not have. A file appears under its
//          name only when it is complete.
// Costs    reading holds the file's bytes and the pixels in memory at once; of a TIFF file on disk
//          only what the page needs.
#pragma once

#include "image/image.h"

#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string>
#include <vector>

inline constexpr uint64_t default_max_pixels = uint64_t(1) << 28;

struct Reading {
    uint64_t max_pixels = default_max_pixels;
    uint32_t page = 1;  // 0: only count them
    bool orient = true; // turn the picture as the file asks
};

struct Picture {
    Image image;
    uint32_t orientation = 1; // as EXIF and TIFF count: what the file asked for
    uint32_t pages = 1;       // of the file, as far as they can be found
    bool cut = false;         // the file ends before its last page
};

// What a decoder gets: a file that is open, and the limits to hold to.
class Source {
public:
    Source(const std::string &path, const Reading &reading);

    const std::string &name() const { return name_; }
    uint32_t page() const { return reading_.page; }
    uint64_t max_pixels() const { return reading_.max_pixels; }
    // Bytes at a place; fewer at the end of the file. What is no regular file is held in memory.
    size_t read_at(uint64_t offset, void *to, size_t size);
    uint64_t size();
    // The first bytes, and the whole file, which is read when it is first asked for.
    std::span<const uint8_t> head() const { return bytes_; }
    const std::vector<uint8_t> &bytes();

    [[noreturn]] void fail(const std::string &what) const;
    // Refuses a size that image() would refuse, before anything else is done with it.
    void check(uint64_t width, uint64_t height, uint64_t channels, uint32_t type) const;
    // A zero-filled image for a header that says so, or a Failure.
    Image image(uint64_t width, uint64_t height, uint64_t channels, uint32_t type) const;

private:
    bool append(size_t wanted);

    std::string name_;
    Reading reading_;
    std::unique_ptr<std::FILE, int (*)(std::FILE *)> file_;
    bool regular_ = false, whole_ = false;
    uint64_t size_ = 0; // of a regular file
    std::vector<uint8_t> bytes_;
};

// A file being written.
struct Sink {
    std::string name;
    std::FILE *file = nullptr;
    bool compress = false; // where the format can, without loss

    [[noreturn]] void fail(const std::string &what) const;
    // Tells why the system refused to write, or, where it did not, what the encoder says.
    [[noreturn]] void fail_encoding(const std::string &what) const;
    void write(const void *data, size_t size) const;
};

struct Format {
    const char *name;
    std::span<const char *const> endings; // the first ones are the words for it
    std::span<const uint32_t> types; // that it stores; without all integers, from narrow to wide
    bool lossy, paged;
    bool (*recognises)(const uint8_t *head, size_t size);
    Picture (*read)(Source &source);
    void (*write)(const Image &image, const Sink &sink);
};

extern const Format png_format, jpeg_format, tiff_format, pnm_format, npy_format;

Picture read_picture(const std::string &path, const Reading &reading = {});
// Names that look like image files, by their endings.
bool has_known_ending(const std::string &path);

// Where an image goes: a file name or -, and the ending that tells the format, "" for the name's.
struct Goal {
    std::string path, format;
    bool exact = false; // labels: refuse formats that do not keep every value, and compress
};

// An integer type that the format lacks is replaced by one of the format's when every value fits;
// otherwise nothing is written.
void write_image(const Image &image, const Goal &goal);
// Refuses a goal that no format has, whose folder is missing or that cannot be written, before work
// is spent.
void check_goal(const Goal &goal);
// Writes any text under a name in the same way: complete or not at all.
void write_text(const std::string &text, const std::string &path);
