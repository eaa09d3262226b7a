// files.cpp - see files.h: the list of formats, and what is common to them.
#include "image/files.h"

#include "failure.h"
#include "image/output.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <strings.h>

namespace {

// Array bytes stay below 2^32; no file needs to be much larger to hold one.
constexpr size_t largest_file = (size_t(1) << 32) + (size_t(1) << 24);

const Format *const formats[] = {&png_format, &jpeg_format, &tiff_format, &pnm_format, &npy_format};

const Format *format_of_content(const std::vector<uint8_t> &bytes) {
    for (const Format *format : formats)
        if (format->recognises(bytes.data(), bytes.size())) return format;
    return nullptr;
}

const Format &format_of_name(const std::string &path) {
    const std::string ending = std::filesystem::path(path).extension().string();
    std::string known;
    for (const Format *format : formats)
        for (const char *candidate : format->endings) {
            if (strcasecmp(candidate, ending.c_str()) == 0) return *format;
            known.append(known.empty() ? "" : " ").append(candidate);
        }
    fail(path, ": the name's ending '", ending, "' tells no format; expected one of ", known);
}

// Appends up to wanted bytes; false at the end of the file.
bool append(std::FILE *file, Source &source, size_t wanted) {
    const size_t had = source.bytes.size();
    source.bytes.resize(had + wanted);
    const size_t got = std::fread(source.bytes.data() + had, 1, wanted, file);
    if (std::ferror(file)) source.fail(std::string("cannot read: ") + std::strerror(errno));
    source.bytes.resize(had + got);
    return got == wanted;
}

} // namespace

void Source::fail(const std::string &what) const { ::fail(name, ": ", what); }

void Source::check(uint64_t width, uint64_t height, uint64_t channels, uint32_t type) const {
    const std::string size = std::to_string(width) + "x" + std::to_string(height);
    if (width < 1 || height < 1)
        fail("the header gives " + size + " pixels; at least 1x1 expected");
    if (width > INT32_MAX || height > INT32_MAX || width > max_pixels / height)
        fail("the header gives " + size + " pixels, more than --max-pixels " +
             std::to_string(max_pixels));
    if (channels < 1 || channels > 4)
        fail("it has " + std::to_string(channels) + " channels; 1 to 4 expected");
    if (width * height > UINT32_MAX / (channels * size_of(type)))
        fail("its " + size + " pixels of " + std::to_string(channels) + " x " + name_of(type) +
             " take 2^32 bytes or more, beyond what arrays hold");
}

Image Source::image(uint64_t width, uint64_t height, uint64_t channels, uint32_t type) const {
    check(width, height, channels, type);
    return Image(Shape{type, uint32_t(width), uint32_t(height), uint32_t(channels)});
}

Image read_image(const std::string &path, uint64_t max_pixels) {
    Source source{path, {}, max_pixels};
    std::error_code error;
    if (std::filesystem::is_directory(path, error)) source.fail("is a folder, not an image file");
    std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(std::fopen(path.c_str(), "rb"),
                                                          std::fclose);
    if (!file) source.fail(std::string("cannot open: ") + std::strerror(errno));
    bool more = append(file.get(), source, 4096);
    if (source.bytes.empty()) source.fail("is empty");
    const Format *format = format_of_content(source.bytes);
    if (!format)
        source.fail("is no image: expected the contents of a PNG, JPEG, TIFF, PNM or .npy file");
    const uintmax_t size = std::filesystem::file_size(path, error);
    if (!error && size <= largest_file) source.bytes.reserve(size_t(size) + 1);
    for (size_t step = size_t(1) << 20; more; step = std::min(step * 2, size_t(1) << 26)) {
        if (source.bytes.size() > largest_file)
            source.fail("is larger than any image that fits an array");
        more = append(file.get(), source,
                      std::max(step, source.bytes.capacity() - source.bytes.size()));
    }
    file.reset();
    return format->read(source);
}

namespace {

// The type to store instead of one that the format lacks: the narrowest that is no narrower than
// the image's, else the widest.
uint32_t stand_in(const Format &format, uint32_t type) {
    const auto wider = [](uint32_t a, uint32_t b) { return size_of(a) < size_of(b); };
    const auto &types = format.types; // narrowest first
    const auto found = std::lower_bound(types.begin(), types.end(), type, wider);
    return found != types.end() ? *found : types.back();
}

} // namespace

void write_image(const Image &image, const std::string &path) {
    const Format &format = format_of_name(path);
    const auto &types = format.types;
    if (std::find(types.begin(), types.end(), image.type()) == types.end()) {
        const uint32_t type = stand_in(format, image.type());
        if (!is_integer(image.type()) || !fits(image, type)) {
            const Extremes range = extremes(image);
            fail(path, ": ", format.name, " stores no ", name_of(image.type()), ", and ",
                 name_of(type), " does not hold the values from ", range.least, " to ",
                 range.greatest, "; write .tif or .npy");
        }
        return write_image(converted(image, type), path);
    }
    Output output(path);
    format.write(image, output.sink());
    output.commit();
}

void check_output(const std::string &path) {
    format_of_name(path);
    Output probe(path);
}

void write_text(const std::string &text, const std::string &path) {
    Output output(path);
    output.sink().write(text.data(), text.size());
    output.commit();
}
