#include "support/guarded.h"

#include <cstdlib>
#include <cstring>
#include <ostream>
#include <utility>

#include <sys/mman.h>
#include <unistd.h>

namespace kipx::test {

GuardedBytes::GuardedBytes(size_t size, Edge edge, size_t shift) : size_(size) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    pages_size_ = (size + shift + page - 1) / page * page;
    if (pages_size_ == 0) pages_size_ = page;
    void *map = mmap(nullptr, pages_size_ + 2 * page, PROT_NONE,
                     MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (map == MAP_FAILED) std::abort();
    pages_ = static_cast<unsigned char *>(map) + page;
    if (mprotect(pages_, pages_size_, PROT_READ | PROT_WRITE) != 0) std::abort();
    data_ = edge == Edge::first ? pages_ + shift : pages_ + pages_size_ - shift - size;
    for (size_t i = 0; i < pages_size_; i++) pages_[i] = canary(i);
}

GuardedBytes::~GuardedBytes() {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    if (pages_) munmap(pages_ - page, pages_size_ + 2 * page);
}

void GuardedBytes::swap(GuardedBytes &other) noexcept {
    std::swap(data_, other.data_);
    std::swap(pages_, other.pages_);
    std::swap(size_, other.size_);
    std::swap(pages_size_, other.pages_size_);
}

// Neighbours differ, and so do bytes one vector, one row of 256 or one page apart.
unsigned char GuardedBytes::canary(size_t index) {
    return static_cast<unsigned char>((index * 0x9D) ^ (index >> 6) ^ (index >> 11) ^ 0xA5);
}

bool GuardedBytes::canaries_intact() const {
    for (size_t i = 0; i < pages_size_; i++) {
        const bool ours = pages_ + i >= data_ && pages_ + i < data_ + size_;
        if (!ours && pages_[i] != canary(i)) return false;
    }
    return true;
}

const char *layout_name(Layout layout) {
    static const char *const names[] = {"packed",        "padded rows", "odd rows",
                                        "padded pixels", "odd pixels",  "spread channels",
                                        "planar"};
    return names[static_cast<int>(layout)];
}

std::string describe(const Shape &s) {
    std::string text = std::string(type_name(s.type)) + " " + std::to_string(s.width) + "x" +
                       std::to_string(s.height) + "x" + std::to_string(s.channels) + " " +
                       layout_name(s.layout);
    if (s.naxes != 3 || s.planes != 1) {
        text += " axes " + std::to_string(s.naxes) + " planes " + std::to_string(s.planes);
    }
    text += s.edge == Edge::first ? " first" : " last";
    if (s.shift) text += " shift " + std::to_string(s.shift);
    if (s.offset) text += " offset " + std::to_string(s.offset);
    return text;
}

std::ostream &operator<<(std::ostream &out, const Shape &shape) { return out << describe(shape); }

namespace {

struct Strides {
    size_t plane, row, pixel, element;
};

Strides strides_of(const Shape &s) {
    const size_t size = element_size(s.type), width = s.width, channels = s.channels;
    Strides t{0, 0, channels * size, size};
    size_t row_padding = 0;
    switch (s.layout) {
    case Layout::packed:
        break;
    case Layout::padded_rows:
        row_padding = 3 * size;
        break;
    case Layout::odd_rows:
        row_padding = 5;
        break;
    case Layout::padded_pixels:
        t.pixel += size;
        break;
    case Layout::odd_pixels:
        t.pixel += 1, row_padding = 3;
        break;
    case Layout::spread_channels:
        t.element *= 2, t.pixel *= 2;
        break;
    case Layout::planar:
        t.pixel = size;
        break;
    }
    t.row = width * t.pixel + row_padding;
    if (s.layout == Layout::planar) t.element = s.height * t.row;
    t.plane = s.layout == Layout::planar ? channels * t.element : s.height * t.row;
    return t;
}

// Bytes from the first element's first to the last element's last.
size_t span_of(const Shape &s, const Strides &t) {
    const size_t planes = s.naxes == 4 ? s.planes : 1;
    if (planes == 0 || s.height == 0 || s.width == 0 || s.channels == 0) return 0;
    return (planes - 1) * t.plane + (s.height - 1) * t.row + (s.width - 1) * t.pixel +
           (s.channels - 1) * t.element + element_size(s.type);
}

// Not reachable from any base without faulting, should it ever be used.
constexpr uint32_t trap_stride = 0x7FFF0001;

} // namespace

GuardedArray::GuardedArray(const Shape &shape)
    : shape_(shape), bytes_(span_of(shape, strides_of(shape)), shape.edge, shape.shift) {
    const Strides t = strides_of(shape);
    const size_t strides[4] = {t.plane, t.row, t.pixel, t.element};
    const uint32_t code = shape.channels > 7 ? 15 : shape.channels;
    const uint32_t volume[4] = {shape.planes, shape.height, shape.width, code};
    for (int i = 0; i < 4; i++) {
        strides_[i] = strides[i];
        arr_.strides[i] = static_cast<uint32_t>(strides[i]);
        arr_.volume[i] = volume[i];
        arr_.reserved[i] = 0xFFFFFFFFu;
    }
    if (shape.naxes == 3) arr_.strides[0] = trap_stride;
    arr_.naxes = static_cast<uint16_t>(shape.naxes);
    arr_.reserved2 = 0xFFFF;
    arr_.reserved3 = ~uint64_t{0};
    arr_.type = shape.type;
    arr_.offset = shape.offset;
    // Through an integer: the base may lie outside the pages.
    arr_.base = reinterpret_cast<void *>(reinterpret_cast<uintptr_t>(bytes_.data()) - shape.offset);
}

size_t GuardedArray::byte_offset(At at) const {
    return at.plane * strides_[0] + at.y * strides_[1] + at.x * strides_[2] +
           at.channel * strides_[3];
}

unsigned char *GuardedArray::address(At at) const { return bytes_.data() + byte_offset(at); }

void GuardedArray::fill(Rng &rng, Values values) {
    for_each([&](At at) { store_random(shape_.type, address(at), rng, values); });
}

void GuardedArray::fill_integer(int64_t value) {
    for_each([&](At at) { set_integer(at, value); });
}

Snapshot GuardedArray::snapshot() const {
    return Snapshot(bytes_.pages(), bytes_.pages() + bytes_.pages_size());
}

void GuardedArray::restore(const Snapshot &before) {
    std::memcpy(bytes_.pages(), before.data(), bytes_.pages_size());
}

std::string GuardedArray::place(size_t page_index) const {
    const unsigned char *byte = bytes_.pages() + page_index;
    std::string text;
    for_each([&](At at) {
        const unsigned char *first = address(at);
        if (byte >= first && byte < first + element_size(shape_.type)) {
            text = "element y " + std::to_string(at.y) + " x " + std::to_string(at.x) +
                   " channel " + std::to_string(at.channel) + " plane " + std::to_string(at.plane);
        }
    });
    if (text.empty()) {
        text = "padding at byte " + std::to_string(byte - bytes_.data()) + " of " +
               std::to_string(bytes_.size());
    }
    return text + " of " + describe(shape_);
}

std::string GuardedArray::damage() const {
    Snapshot expected(bytes_.pages_size());
    for (size_t i = 0; i < expected.size(); i++) expected[i] = GuardedBytes::canary(i);
    const kipx_site everything = rectangle(0, 0, INT32_MAX, INT32_MAX);
    return changes_outside(expected, everything);
}

std::string GuardedArray::changes_outside(const Snapshot &before, const kipx_site &region) const {
    Snapshot allowed = before;
    const unsigned char *pages = bytes_.pages();
    const size_t size = element_size(shape_.type);
    for_each([&](At at) {
        if (!contains(region, at)) return;
        const unsigned char *element = address(at);
        std::memcpy(allowed.data() + (element - pages), element, size);
    });
    if (allowed.empty() || std::memcmp(allowed.data(), pages, allowed.size()) == 0) return {};
    size_t i = 0;
    while (allowed[i] == pages[i]) i++;
    return place(i) + ": " + std::to_string(pages[i]) + ", was " + std::to_string(allowed[i]);
}

std::string GuardedArray::changes(const Snapshot &before) const {
    return changes_outside(before, rectangle(0, 0, 0, 0));
}

kipx_site rectangle(int32_t x, int32_t y, int32_t width, int32_t height, int32_t first_channel,
                    int32_t channels) {
    const int32_t origin[4] = {0, y, x, first_channel};
    const int32_t extent[4] = {INT32_MAX, height, width, channels};
    kipx_site site;
    std::memcpy(site.origin, origin, sizeof origin);
    std::memcpy(site.extent, extent, sizeof extent);
    return site;
}

kipx_site rectangle(int32_t x, int32_t y, int32_t width, int32_t height) {
    return rectangle(x, y, width, height, 0, 8);
}

kipx_site random_rectangle(Rng &rng, uint32_t width, uint32_t height) {
    const int64_t w = width, h = height;
    const int64_t x = rng.between(-w / 4 - 1, w - 1), y = rng.between(-h / 4 - 1, h - 1);
    const int64_t across = rng.between(1, w + w / 4 + 1), down = rng.between(1, h + h / 4 + 1);
    return rectangle(static_cast<int32_t>(x), static_cast<int32_t>(y), static_cast<int32_t>(across),
                     static_cast<int32_t>(down));
}

kipx_pos position(int32_t x, int32_t y, int32_t plane) {
    return kipx_pos{
        {static_cast<uint32_t>(plane), static_cast<uint32_t>(y), static_cast<uint32_t>(x), 0}};
}

bool contains(const kipx_site &region, At at) {
    const uint32_t place[4] = {at.plane, at.y, at.x, at.channel};
    for (int i = 0; i < 4; i++) {
        const int64_t first = static_cast<int32_t>(region.origin[i]);
        const int64_t end = first + static_cast<int32_t>(region.extent[i]);
        if (place[i] < first || place[i] >= end) return false;
    }
    return true;
}

} // namespace kipx::test
