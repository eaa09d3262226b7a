// files.cpp - see files.h: the list of formats, and what is common to them.
#include "image/files.h"

#include "failure.h"
#include "image/orientation.h"
#include "image/output.h"
#include "image/values.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Array bytes stay below 2^32; no file needs to be much larger to hold one.
constexpr uint64_t largest_file = (uint64_t(1) << 32) + (uint64_t(1) << 24);

const Format *const formats[] = {&png_format, &jpeg_format, &tiff_format, &pnm_format, &npy_format};

const Format *format_of_content(std::span<const uint8_t> head) {
    for (const Format *format : formats)
        if (format->recognises(head.data(), head.size())) return format;
    return nullptr;
}

const Format *format_of_ending(const std::string &ending) {
    for (const Format *format : formats)
        for (const char *candidate : format->endings)
            if (strcasecmp(candidate, ending.c_str()) == 0) return format;
    return nullptr;
}

std::string known_endings() {
    std::string out;
    for (const Format *format : formats)
        for (const char *ending : format->endings)
            out.append(out.empty() ? "" : " ").append(ending);
    return out;
}

std::string ending_of(const Goal &goal) {
    return goal.format.empty() ? std::filesystem::path(goal.path).extension().string()
                               : "." + goal.format;
}

const Format &format_of(const Goal &goal) {
    const std::string ending = ending_of(goal);
    const Format *format = format_of_ending(ending);
    if (!format && goal.path == "-")
        fail("--output: got '-', expected --format with it, which names the kind of file");
    if (!format)
        fail("--output: got '{}', expected a name with one of the endings {}", goal.path,
             known_endings());
    if (goal.exact && format->lossy)
        fail("{}: got a name for {}, which does not keep every value; expected .png, .tif or .npy "
             "for labels",
             goal.path, format->name);
    return *format;
}

} // namespace

Source::Source(const std::string &path, const Reading &reading)
    : name_(path == "-" ? "standard input" : path), reading_(reading), file_(nullptr, std::fclose) {
    std::error_code error;
    if (path != "-" && std::filesystem::is_directory(path, error))
        fail("is a folder, not an image file");
    file_.reset(path == "-" ? fdopen(dup(STDIN_FILENO), "rb") : std::fopen(path.c_str(), "rb"));
    if (!file_) fail(std::string("cannot open: ") + std::strerror(errno));
    struct stat found = {};
    regular_ = path != "-" && fstat(fileno(file_.get()), &found) == 0 && S_ISREG(found.st_mode);
    size_ = uint64_t(found.st_size);
    whole_ = !append(4096);
    if (bytes_.empty()) fail("is empty");
}

// Appends up to wanted bytes; false at the end of the file.
bool Source::append(size_t wanted) {
    const size_t had = bytes_.size();
    bytes_.resize(had + wanted);
    const size_t got = std::fread(bytes_.data() + had, 1, wanted, file_.get());
    if (std::ferror(file_.get())) fail(std::string("cannot read: ") + std::strerror(errno));
    bytes_.resize(had + got);
    return got == wanted;
}

const std::vector<uint8_t> &Source::bytes() {
    if (!whole_ && regular_ && size_ <= largest_file) bytes_.reserve(size_t(size_) + 1);
    for (size_t step = size_t(1) << 20; !whole_; step = std::min(step * 2, size_t(1) << 26)) {
        if (bytes_.size() > largest_file) fail("is larger than any image that fits an array");
        whole_ = !append(std::max(step, bytes_.capacity() - bytes_.size()));
    }
    return bytes_;
}

uint64_t Source::size() { return regular_ ? size_ : bytes().size(); }

size_t Source::read_at(uint64_t offset, void *to, size_t size) {
    if (regular_) {
        size_t done = 0;
        while (done < size) {
            const ssize_t got = pread(fileno(file_.get()), static_cast<char *>(to) + done,
                                      size - done, off_t(offset + done));
            if (got < 0) fail(std::string("cannot read: ") + std::strerror(errno));
            if (got == 0) break;
            done += size_t(got);
        }
        return done;
    }
    const auto &all = bytes();
    if (offset >= all.size()) return 0;
    const size_t count = size_t(std::min<uint64_t>(size, all.size() - offset));
    std::memcpy(to, all.data() + offset, count);
    return count;
}

void Source::fail(const std::string &what) const { ::fail("{}: {}", name_, what); }

void Source::check(uint64_t width, uint64_t height, uint64_t channels, uint32_t type) const {
    if (width < 1 || height < 1)
        fail(fmt::format("the header gives {}x{} pixels; at least 1x1 expected", width, height));
    if (width > INT32_MAX || height > INT32_MAX || width > max_pixels() / height)
        fail(fmt::format("the header gives {}x{} pixels, more than --max-pixels {}", width, height,
                         max_pixels()));
    if (channels < 1 || channels > 4)
        fail(fmt::format("it has {} channels; 1 to 4 expected", channels));
    if (width * height > UINT32_MAX / (channels * size_of(type)))
        fail(fmt::format("its {}x{} pixels of {} x {} take 2^32 bytes or more, beyond what arrays "
                         "hold",
                         width, height, channels, name_of(type)));
}

Image Source::image(uint64_t width, uint64_t height, uint64_t channels, uint32_t type) const {
    check(width, height, channels, type);
    return Image(Shape{type, uint32_t(width), uint32_t(height), uint32_t(channels)});
}

Picture read_picture(const std::string &path, const Reading &reading) {
    Source source(path, reading);
    const Format *format = format_of_content(source.head());
    if (!format)
        source.fail("is no image: expected the contents of a PNG, JPEG, TIFF, PNM or .npy file");
    if (reading.page == 0 && !format->paged) return {};
    Picture out = format->read(source);
    if (reading.page == 0) return out;
    if (reading.page > out.pages)
        fail("--page: got {}, but {} has {} page{}{}", reading.page, source.name(), out.pages,
             out.pages == 1 ? "" : "s", out.cut ? " before the place where it is cut" : "");
    if (reading.orient && out.orientation != 1) out.image = turned(out.image, out.orientation);
    return out;
}

bool has_known_ending(const std::string &path) {
    return format_of_ending(std::filesystem::path(path).extension().string()) != nullptr;
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

void write_image(const Image &image, const Goal &goal) {
    const Format &format = format_of(goal);
    const auto &types = format.types;
    if (std::find(types.begin(), types.end(), image.type()) == types.end()) {
        const uint32_t type = stand_in(format, image.type());
        if (!is_integer(image.type()) || !fits(image, type)) {
            const Statistics range = extremes(image);
            fail("{}: {} stores no {}, and {} does not hold the values from {:.10g} to {:.10g}; "
                 "write .tif or .npy",
                 goal.path, format.name, name_of(image.type()), name_of(type), range.least,
                 range.greatest);
        }
        return write_image(converted(image, type), goal);
    }
    Output output(goal.path, ending_of(goal));
    output.compress(goal.exact);
    errno = 0;
    format.write(image, output.sink());
    output.commit();
}

void check_goal(const Goal &goal) {
    format_of(goal);
    Output probe(goal.path);
}

void write_text(const std::string &text, const std::string &path) {
    Output output(path);
    output.sink().write(text.data(), text.size());
    output.commit();
}
