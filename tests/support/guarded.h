// support/guarded.h - image arrays whose every stray byte is noticed.
//
// Gives    GuardedBytes, a run of bytes between two pages that fault on any access, and
//          GuardedArray, the same as an image: a kipx_arr over it in any layout, element access by
//          wide numbers, random contents, and comparison with an earlier state.
// Promises the first or the last byte lies `shift` bytes from a faulting page. Bytes that are no
//          element (row and pixel padding, the gap up to the page, the rest of the pages) hold a
//          pattern that depends on the place; damage to it is reported. The plane stride of a
//          3-axis array is a trap value. Strides are never negative.
// Costs    three system calls and one pass over the pages for an array; made for small ones.
// Owner    the object owns its pages; descriptors that it gives out die with it. Moving the object
//          moves the ownership, not the bytes.
#ifndef KIPX_TESTS_SUPPORT_GUARDED_H
#define KIPX_TESTS_SUPPORT_GUARDED_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iosfwd>
#include <string>
#include <vector>

#include <kipx/types.h>

#include "support/element.h"
#include "support/rng.h"

namespace kipx::test {

enum class Edge { last, first }; // which end of the bytes touches a faulting page

class GuardedBytes {
public:
    GuardedBytes() = default;
    // size bytes; with Edge::last the distance from their end to the faulting page is shift, with
    // Edge::first the distance from that page to their beginning, so that shift is also the
    // address modulo the page size.
    explicit GuardedBytes(size_t size, Edge edge = Edge::last, size_t shift = 0);
    GuardedBytes(GuardedBytes &&other) noexcept { swap(other); }
    GuardedBytes &operator=(GuardedBytes &&other) noexcept {
        swap(other);
        return *this;
    }
    ~GuardedBytes();

    unsigned char *data() const { return data_; }
    size_t size() const { return size_; }
    // All accessible bytes, data included.
    unsigned char *pages() const { return pages_; }
    size_t pages_size() const { return pages_size_; }
    // What an untouched byte of the pages holds.
    static unsigned char canary(size_t index);
    // The bytes around data() still hold the canary.
    bool canaries_intact() const;

private:
    void swap(GuardedBytes &other) noexcept;
    unsigned char *data_ = nullptr, *pages_ = nullptr;
    size_t size_ = 0, pages_size_ = 0;
};

enum class Layout {
    packed,          // interleaved channels, nothing between pixels and rows
    padded_rows,     // three elements between rows
    odd_rows,        // five bytes between rows: elements of later rows are misaligned
    padded_pixels,   // one element between pixels: channels cannot fold into the row
    odd_pixels,      // one byte between pixels, three between rows
    spread_channels, // an element after every channel: folds, with twice the stride
    planar           // every channel an image of its own
};
inline constexpr Layout all_layouts[] = {
    Layout::packed,     Layout::padded_rows,     Layout::odd_rows, Layout::padded_pixels,
    Layout::odd_pixels, Layout::spread_channels, Layout::planar};
const char *layout_name(Layout layout);

// Widths from nothing to past three 64-byte vectors of bytes, with the odd ones between.
inline constexpr uint32_t all_widths[] = {0,   1,   2,   3,   5,   7,   8,   9,   15, 16, 17,
                                          31,  32,  33,  47,  63,  64,  65,  95,  96, 97, 127,
                                          128, 129, 159, 191, 192, 193, 200, 255, 257};

struct Shape {
    uint32_t type = KIPX_U8;
    uint32_t width = 1, height = 1;
    uint32_t channels = 1; // 1 to 8
    Layout layout = Layout::packed;
    Edge edge = Edge::last;
    size_t shift = 0;
    uint32_t naxes = 3;
    uint32_t planes = 1; // volume[0]; the elements of a 3-axis array are one plane whatever it says
    uint32_t offset = 0; // the descriptor's offset field; base is moved back by as much
};
std::string describe(const Shape &shape);
std::ostream &operator<<(std::ostream &out, const Shape &shape);

// Where an element lies.
struct At {
    uint32_t y = 0, x = 0, channel = 0, plane = 0;
};

// Everything that the pages of an array held at some moment.
using Snapshot = std::vector<unsigned char>;

class GuardedArray {
public:
    explicit GuardedArray(const Shape &shape);

    kipx_arr *arr() { return &arr_; } // may be edited; the methods below go by the shape
    const kipx_arr *arr() const { return &arr_; }
    const Shape &shape() const { return shape_; }
    uint32_t planes() const { return shape_.naxes == 4 ? shape_.planes : 1; }

    unsigned char *address(At at) const;
    int64_t integer(At at) const { return load_integer(shape_.type, address(at)); }
    double real(At at) const { return load_real(shape_.type, address(at)); }
    void set_integer(At at, int64_t value) { store_integer(shape_.type, address(at), value); }
    void set_real(At at, double value) { store_real(shape_.type, address(at), value); }

    uint64_t bits(At at) const {
        uint64_t all = 0;
        std::memcpy(&all, address(at), element_size(shape_.type));
        return all;
    }
    void set_bits(At at, uint64_t bits) {
        std::memcpy(address(at), &bits, element_size(shape_.type));
    }

    // f(At) for every element; planes, rows, pixels, channels from outside in.
    template<class F> void for_each(F &&f) const;

    void fill(Rng &rng, Values values = Values::finite);
    void fill_integer(int64_t value);

    Snapshot snapshot() const;
    // Puts the bytes of a snapshot back.
    void restore(const Snapshot &before);
    // Empty when every byte that is no element holds its canary; else where the first one does not.
    std::string damage() const;
    bool canaries_intact() const { return damage().empty(); }
    // Empty when no byte outside the region has changed since the snapshot, padding included; else
    // where the first one did. The region's entries are signed and clipped to the array.
    std::string changes_outside(const Snapshot &before, const kipx_site &region) const;
    std::string changes(const Snapshot &before) const; // the same with an empty region

private:
    size_t byte_offset(At at) const;
    std::string place(size_t page_index) const;
    Shape shape_;
    size_t strides_[4] = {}; // planes, rows, pixels, channels
    GuardedBytes bytes_;
    kipx_arr arr_{};
};

// ---- regions of interest ------------------------------------------------------------------------

// A rectangle through all planes and channels; numbers may be negative.
kipx_site rectangle(int32_t x, int32_t y, int32_t width, int32_t height);
// The same, restricted to some channels.
kipx_site rectangle(int32_t x, int32_t y, int32_t width, int32_t height, int32_t first_channel,
                    int32_t channels);
// A rectangle drawn at random around an image, often reaching over its edges, seldom empty.
kipx_site random_rectangle(Rng &rng, uint32_t width, uint32_t height);
// A position for src1At and src2At.
kipx_pos position(int32_t x, int32_t y, int32_t plane = 0);
bool contains(const kipx_site &region, At at);

template<class F> void GuardedArray::for_each(F &&f) const {
    for (uint32_t plane = 0; plane < planes(); plane++) {
        for (uint32_t y = 0; y < shape_.height; y++) {
            for (uint32_t x = 0; x < shape_.width; x++) {
                for (uint32_t c = 0; c < shape_.channels; c++) f(At{y, x, c, plane});
            }
        }
    }
}

} // namespace kipx::test

#endif
