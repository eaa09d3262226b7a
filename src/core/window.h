// core/window.h - rows for operations that look at neighbours: sheets, borders, delivery.
//
// Gives    Sheet and each_sheet(), a call as planes of folded rows; Feed, which hands out source rows;
//          RingPass, an operation in two steps, along the rows and down the columns; Between, which
//          chains two of them; Drain, which takes result rows; how_they_lie(), whether results land
//          on what is still to be read.
// Promises nothing is read outside the source array nor written outside the destination's region.
//          A source row is given where it lies, with the extent of what there is of it: its user
//          makes the border. Where that is not possible (scattered elements, a border that comes
//          back late) the row is a copy, border and all.
// Costs    nothing a row, but for the copies; results a copy where they are masked or scattered.
// Owner    scratch is the caller's, taken once for all sheets of a call: they are of one size.
#pragma once

#include <cstddef>

#include "core/border.h"
#include "core/call.h"
#include "core/simd.h"

namespace kipx {

// A rectangle of neighbours, and what the source array has about the region; all in pixels.
struct Window {
    uint32_t height, width, row, column; // size, and where the result's pixel lies in it
    uint32_t above, below, left, right;  // pixels of the array beyond the region's edges
};

// One plane, or one channel of it: rows of elements that are worked on alike.
struct Sheet {
    Operand dst, src, mask; // pixel is the step from element to element
    size_t height, width;   // width in elements
    uint32_t step;          // elements of a pixel
    uint32_t channel;       // of the first element of a row
    uint32_t repeat;        // elements that a mask byte stands for
    size_t bytes() const { return width * src.size; }
    size_t step_bytes() const { return size_t{step} * src.size; }
};

// A call is one sheet a plane where channels fold into rows in every operand, else one a channel.
uint32_t sheet_count(const Call &call);
Sheet sheet(const Call &call, uint32_t index);

enum class Lie { apart, in_place, across };
// How the destination lies to the source with its margins. in_place: the same elements, so that
// whoever reads a row before writing it is safe.
Lie how_they_lie(const Call &call, const Window &window);

// The source with its margins, packed: what it takes, its strides, and the copy itself, `to` being
// such an operand at the region's first element.
struct Packed {
    Operand operand;
    size_t bytes, first; // first: of the region's first element
};
Packed packed_source(const Call &call, const Window &window);
void copy_source(const Call &call, const Window &window, const Operand &to);

// Fills bytes with an element again and again.
void fill_with(char *to, size_t bytes, const void *element, size_t size);

// ---- source rows --------------------------------------------------------------------------------

// A stretch of a row in bytes, 0 being the region's first: what results look at, or what there is.
struct Span {
    ptrdiff_t begin, end;
    size_t size() const { return static_cast<size_t>(end - begin); }
};

// What lies about the rows that there are.
enum class Beyond { fill, nearest }; // an element of the pass's own; the nearest pixel of the row

// What the rows of a Lines have in common. stay: they are where they are for as long as its reader
// needs them.
struct Source {
    Span there;
    Beyond beyond;
    bool stay;
};

// Rows one below the other: where the first one's byte 0 lies, and how far it is from row to row.
struct Band {
    const char *at;
    ptrdiff_t step;
    size_t rows;
    bool fill; // rows of the border: nothing but the fill
};

// Rows to be read by their number, 0 being the region's first; each is asked for once, in order.
class Lines {
public:
    // Up to so many rows from row y on, at least one; they stay as they are until the next call.
    virtual Band band(ptrdiff_t y, size_t rows) = 0;

protected:
    ~Lines() = default;
};

// The rows of a source array.
class Feed final : public Lines {
public:
    // reach: what the results of a row look at.
    Feed(const Sheet &sheet, const Window &window, const Span &reach, Border border, Set set);
    size_t scratch() const { return scratch_; }
    // Rows are there no further than the reach.
    Source source() const {
        return {there_, border_ == Border::constant ? Beyond::fill : Beyond::nearest, !copies_};
    }
    // fill: an element, where the border is one.
    void start(char *scratch, const Sheet &sheet, const void *fill);
    Band band(ptrdiff_t y, size_t rows) override;

private:
    void copy_row(char *to, const char *row) const;
    void map_span(char *to, const char *row, ptrdiff_t from, ptrdiff_t end) const;
    Sheet sheet_;
    Set set_;
    Border border_;
    ptrdiff_t top_, bottom_; // rows that there are
    Span real_, there_;      // bytes that the array has of a row, and that are given
    bool copies_;
    size_t slot_size_, scratch_;
    char *slots_ = nullptr; // byte 0 of the first of them
    char *outside_ = nullptr;
};

// ---- steps --------------------------------------------------------------------------------------

// The most rows that are handed on together.
inline constexpr size_t most_rows = 64;

// A filter at work: result rows from source rows, each asked for once, in order.
class Pass {
public:
    // What its source rows have to give, the scratch that it takes, and how many rows it likes to
    // make at once.
    const Span &reach() const { return reach_; }
    size_t scratch() const { return scratch_; }
    size_t likes() const { return likes_; }
    // How many of its source rows have to stay where they are if it is to read them there; 0 where it
    // gains nothing by that.
    size_t keeps() const { return keeps_; }
    // What lies about its source rows, where that is an element.
    virtual const void *fill() const = 0;
    virtual void start(char *scratch, const Source &source) = 0;
    // Rows from y on, each step bytes from the one before; at most likes().
    virtual void rows(Lines &lines, size_t y, size_t rows, char *out, ptrdiff_t step) = 0;

protected:
    ~Pass() = default;
    Span reach_{};
    size_t scratch_ = 0, likes_ = 1, keeps_ = 0;
};

// A pass in two steps: along every source row, into a ring; and down the rows of the ring that lie
// under a group of result rows.
class RingPass : public Pass {
public:
    void start(char *scratch, const Source &source) override;
    void rows(Lines &lines, size_t y, size_t rows, char *out, ptrdiff_t step) override;

protected:
    // height rows of the ring lie under a result row, the first of them `row` above it; row_bytes:
    // of the ring's rows, which are aligned to 64; extra: scratch for the steps themselves.
    RingPass(const Window &window, size_t group, size_t row_bytes, size_t extra);
    ~RingPass() = default;
    virtual void along(const Band &band, char *out, ptrdiff_t step) = 0;
    // group + height - 1 rows for as many results as group says.
    virtual void down(const char *const *rows, size_t group, char *out, ptrdiff_t step) = 0;
    const Source &source() const { return source_; }
    const Span &there() const { return source_.there; }
    // Where the rows stay: those that lie under so many results, without a ring; and how far the
    // last of them are from one another.
    const char *const *rows_under(Lines &lines, size_t y, size_t rows);
    void keep_rows() { keeps_ = height_ - 1 + likes_; }
    ptrdiff_t last_step() const { return last_step_; }
    char *extra() const { return extra_; }
    size_t height() const { return height_; }
    size_t group() const { return group_; }

private:
    void take(Lines &lines, size_t rows);
    size_t height_, group_, pitch_, ring_rows_;
    ptrdiff_t first_; // of the rows under the first result
    Source source_{}; // of the lines
    ptrdiff_t last_step_ = 0;
    char *ring_ = nullptr, *border_row_ = nullptr, *extra_ = nullptr;
    const char **place_ = nullptr; // what each place of the ring holds
    const char **under_ = nullptr; // what lies under a group
    ptrdiff_t next_ = 0;           // row to be taken
    size_t slot_ = 0;              // its place in the ring; without one, results of the last call
    bool border_made_ = false;
};

// The results of one pass as the rows of the next, with nothing but a fill about them: a ring of as
// many as the next one keeps, or as the first one makes at once.
class Between final : public Lines {
public:
    Between(const Sheet &sheet, const Pass &first, const Pass &next);
    size_t scratch() const { return scratch_; }
    Source source() const { return {there_, Beyond::fill, stay_}; }
    void start(char *scratch, Pass &first, Lines &lines, const void *fill);
    Band band(ptrdiff_t y, size_t rows) override;

private:
    size_t height_, size_, slot_size_, most_, slots_, scratch_;
    bool stay_;
    Span there_;
    size_t slot_ = 0; // where the next row goes
    Pass *first_ = nullptr;
    Lines *lines_ = nullptr;
    char *ring_ = nullptr;
};

// ---- result rows --------------------------------------------------------------------------------

class Drain {
public:
    // rows: how many are made at once.
    Drain(const Sheet &sheet, size_t rows, Set set);
    size_t scratch() const { return scratch_; }
    void start(char *scratch, const Sheet &sheet) { sheet_ = sheet, buffer_ = scratch; }
    // Where rows from y on are to be written, how far apart; and what is to be called then.
    char *place(size_t y) const { return direct_ ? at(y) : buffer_; }
    ptrdiff_t step() const { return static_cast<ptrdiff_t>(direct_ ? sheet_.dst.row : pitch_); }
    void done(size_t y, size_t rows) const {
        for (size_t i = 0; !direct_ && i < rows; ++i) deliver(y + i, buffer_ + i * pitch_);
    }

private:
    char *at(size_t y) const { return sheet_.dst.at + y * sheet_.dst.row; }
    void deliver(size_t y, const char *from) const;
    Sheet sheet_;
    Set set_;
    bool direct_;
    size_t pitch_, mask_at_, scratch_;
    char *buffer_ = nullptr;
};

} // namespace kipx
