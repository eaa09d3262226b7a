// filter/members.h - minimum and maximum over the members of a structuring element.
//
// Gives    Element, a mask; Members, which pixels are united for a result and
//          how; MembersPass, which makes result rows of source rows.
// Promises positions outside the source array do not count, if the lines are filled with neutral();
//          members are united row by row from the left, so that of equal floating zeros the first
//          stays; NaN never counts.
// Costs    a union a member, from source rows where they lie if they stay there; or, where that is
//          less, a union a run of adjacent members and the logarithm of the longest run and one more
//          a length of run for every source row.
// Owner    Members lies in scratch that its maker provides, and borrows nothing.
#pragma once

#include <kipx/shape.h>

#include "core/window.h"
#include "filter/members_rows.h"
#include "filter/rect_rows.h"

namespace kipx {

// The first plane and channel of a mask.
struct Element {
    const unsigned char *at;
    uint64_t row, pixel;
    uint32_t height, width, anchor_row, anchor_column;
    bool has(uint32_t y, uint32_t x) const { return at[y * row + x * pixel] != 0; }
    bool solid() const; // 255 everywhere
};
// False where the mask, its size or the anchor are impossible. The mask has a base.
bool element_of(Element &element, const kipx_strel &strel);

// A run of members: what lies `length` pixels long from `column` on in row `row`.
struct Tap {
    uint32_t row, column, length; // length: its number among the lengths
};

class Members {
public:
    // Bytes of scratch, aligned to 8, and the plan made in them.
    static size_t scratch(const Element &element);
    Members(const Element &element, void *scratch);
    const Tap *taps() const { return taps_; }
    size_t tap_count() const { return tap_count_; }
    // Ascending.
    const uint32_t *lengths() const { return lengths_; }
    size_t length_count() const { return length_count_; }

private:
    template<class F> void each_run(const Element &element, F &&f) const;
    void number_lengths(const Element &element);
    bool runs_pay(const Element &element) const;
    Tap *taps_;
    uint32_t *lengths_, *number_; // number_: of a length, 0 for one that does not occur
    size_t tap_count_ = 0, length_count_ = 0;
};

class MembersPass final : public RingPass {
public:
    MembersPass(const Sheet &sheet, const Window &window, const Members &members, Rank rank,
                Set set);
    static bool has_type(uint32_t type);
    const void *fill() const override { return loops_.neutral; }
    void start(char *scratch, const Source &source) override;
    void rows(Lines &lines, size_t y, size_t rows, char *out, ptrdiff_t step) override;

private:
    bool single() const { return members_.length_count() == 1 && members_.lengths()[0] == 1; }
    void along(const Band &band, char *out, ptrdiff_t step) override;
    void down(const char *const *rows, size_t group, char *out, ptrdiff_t step) override;
    void runs_of(char *row, char *out) const;
    const MembersLoops &loops_;
    const Members &members_;
    size_t size_, bytes_, step_, beyond_,
        pitch_;                   // beyond_: bytes that a row is longer than its results
    bool direct_ = false;         // from rows where they lie
    const char **from_ = nullptr; // of every tap: its row,
    ptrdiff_t *at_ = nullptr;     // how far from a result's place it looks,
    uint32_t *row_ = nullptr;     // and in which row
};

} // namespace kipx
