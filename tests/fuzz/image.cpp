// image.cpp - the program's readers of image files: a target a format.
//
// Whatever the bytes are, the answer is a picture or one sentence; a picture keeps to the limit of
// pixels, is the same when it is read again, and where its format keeps every value, the same after it
// has been written and read.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

#include "failure.h"
#include "fuzz/targets.h"
#include "image/files.h"

// What the program's main file has for the others.
void check_answer(int32_t answer, const std::string &what) {
    if (answer < 0) fail("{}: code {}", what, answer);
}

namespace kipx::fuzz {

namespace {

constexpr uint64_t most_pixels = 1 << 16;

[[noreturn]] void complain(const Format &format, const char *what) {
    std::fprintf(stderr, "%s: %s\n", format.name, what);
    std::abort();
}

// A file that only this process sees.
class File {
public:
    File() : descriptor_(memfd_create("image", 0)) {
        if (descriptor_ < 0) std::perror("memfd_create"), std::abort();
    }
    ~File() { close(descriptor_); }
    File(const File &) = delete;
    File &operator=(const File &) = delete;
    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }
    void put(const uint8_t *data, size_t size) const {
        if (write(descriptor_, data, size) != ssize_t(size)) std::perror("write"), std::abort();
    }
    std::vector<uint8_t> bytes() const {
        std::vector<uint8_t> all(size_t(lseek(descriptor_, 0, SEEK_END)));
        if (pread(descriptor_, all.data(), all.size(), 0) != ssize_t(all.size()))
            std::perror("pread"), std::abort();
        return all;
    }

private:
    int descriptor_;
};

std::optional<Picture> read(const Format &format, const File &file, uint32_t page) {
    try {
        Reading reading;
        reading.max_pixels = most_pixels, reading.page = page, reading.orient = page == 2;
        Picture picture = read_picture(file.path(), reading);
        if (page && (picture.image.pixels() > most_pixels || !picture.image.pixels()))
            complain(format, "no pixels, or more than allowed");
        return picture;
    } catch (const Failure &failure) {
        if (!*failure.what() || std::strchr(failure.what(), '\n'))
            complain(format, "not one sentence");
        return std::nullopt;
    } catch (const std::bad_alloc &) {
        complain(format, "memory for more than the limit");
    }
}

bool same(const Image &a, const Image &b) {
    const Shape &x = a.shape(), &y = b.shape();
    return x.type == y.type && x.width == y.width && x.height == y.height &&
           x.channels == y.channels && !std::memcmp(a.data(), b.data(), a.bytes());
}

// Not where the format has no room for so many channels.
bool write_to(const Format &format, const char *ending, const Image &image, const File &file) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE *)> stream(
        std::fopen(file.path().c_str(), "wb"), std::fclose);
    try {
        format.write(image, {std::string("image") + ending, stream.get()});
    } catch (const Failure &) {
        return false;
    }
    return true;
}

void try_file(const Format &format, const uint8_t *data, size_t size) {
    if (!format.recognises(data, size)) return;
    File file;
    file.put(data, size);
    const auto counted = read(format, file, 0), second = read(format, file, 2);
    const auto picture = read(format, file, 1), again = read(format, file, 1);
    if (picture.has_value() != again.has_value()) complain(format, "read once and not again");
    if (second && (!counted || counted->pages < 2)) complain(format, "a page that does not count");
    if (!picture) return;
    if (!same(picture->image, again->image)) complain(format, "another picture when read again");
    if (!counted) complain(format, "a picture in a file whose pages cannot be counted");
    const auto &types = format.types;
    if (format.lossy || std::find(types.begin(), types.end(), picture->image.type()) == types.end())
        return;
    File copy;
    if (!write_to(format, format.endings.back(), picture->image, copy)) return;
    const auto back = read(format, copy, 1);
    if (!back || !same(picture->image, back->image))
        complain(format, "another picture after writing");
}

// A file of every type and number of channels that the format stores.
Inputs written(const Format &format) {
    Inputs files;
    for (uint32_t type : format.types)
        for (uint32_t channels = 1; channels <= 4; ++channels) {
            Image image({type, 9, 5, channels});
            for (size_t b = 0; b < image.bytes(); ++b) image.data()[b] = uint8_t(b * 29 % 127);
            for (const char *ending : {format.endings.front(), format.endings.back()}) {
                File file;
                if (write_to(format, ending, image, file)) files.push_back(file.bytes());
            }
        }
    return files;
}

template<const Format &format> void target(const uint8_t *data, size_t size) {
    try_file(format, data, size);
}
template<const Format &format> Inputs seeds() { return written(format); }

} // namespace

std::span<const Target> targets() {
    static constexpr Target list[] = {{"png", target<png_format>, seeds<png_format>},
                                      {"jpeg", target<jpeg_format>, seeds<jpeg_format>},
                                      {"tiff", target<tiff_format>, seeds<tiff_format>},
                                      {"pnm", target<pnm_format>, seeds<pnm_format>},
                                      {"npy", target<npy_format>, seeds<npy_format>}};
    return list;
}

} // namespace kipx::fuzz
