// convert/border.cpp - continuing arrays beyond their edges, and the copies that do.
#include "convert/border.h"

#include <kipx/array.h>

#include <algorithm>
#include <cstring>

#include "convert/border_pieces.h"
#include "convert/constants.h"
#include "convert/copy.h"
#include "core/footprint.h"
#include "core/stamp.h"

namespace kipx {

namespace {

enum Axis { plane, row, column };
constexpr int64_t nowhere = INT64_MIN;

// Columns of a frame that are written in one go over all lines.
constexpr uint32_t batch_columns = 256;

bool dense(const Operand &o, uint32_t channels) { return channels == 1 || o.channel == o.size; }

class Framer {
public:
    Framer(const Call &call, const Frame &frame)
        : c_(call), f_(frame), size_{call.planes, call.height, call.width},
          constants_(call.dst.type, frame.values ? frame.values : zeros, call),
          constant_(constants_.operand()) {
        const bool whole = dense(c_.dst, c_.channels) && dense(c_.src[0], c_.channels);
        parts_ = whole ? 1 : c_.channels;
        unit_ = c_.dst.size * (whole ? c_.channels : 1);
        move_ = mover(unit_);
    }

    // For a region that is continued by itself: pixels lie side by side, and a line's columns are few.
    bool goes_by_lines() const {
        return parts_ == 1 && c_.dst.pixel == unit_ && move_.pieces &&
               f_.before[column] + f_.after[column] <= batch_columns;
    }

    // Each line of the region with its columns, and then lines as wholes. middle: what the region is
    // copied from on the way, of adjacent pixels; null: it is there.
    void make_by_lines(const Operand *middle) {
        Piece pieces[batch_columns];
        const uint32_t n = pieces_of(pieces);
        const size_t width = static_cast<size_t>(size_[column]) * unit_;
        for (int64_t p = 0; p < size_[plane]; ++p) {
            for (int64_t y = 0; y < size_[row]; ++y) {
                char *to = at(c_.dst, p, y);
                const char *from = middle ? at(*middle, p, y) : to;
                if (middle) std::memcpy(to, from, width);
                move_.pieces(to, from, pieces, n);
                if (f_.border != Border::constant) continue;
                fill(to - f_.before[column] * static_cast<int64_t>(unit_), f_.before[column]);
                fill(to + width, f_.after[column]);
            }
            each_beyond(row, [&](int64_t y) { repeat_line(p, y, p, source(row, y)); });
        }
        each_beyond(plane, [&](int64_t p) {
            for (int64_t y = -f_.before[row]; y < size_[row] + f_.after[row]; ++y)
                repeat_line(p, y, source(plane, p), y);
        });
    }

    void make() {
        each_line([&](int64_t p, int64_t y, int64_t sp, int64_t sy) {
            if (!inside(plane, p) || !inside(row, y)) middle(p, y, sp, sy);
        });
        const int64_t end = size_[column] + f_.after[column];
        for (int64_t x = -f_.before[column]; x < end;) x = columns_from(x, end);
    }

private:
    static constexpr double zeros[15] = {};

    bool inside(Axis axis, int64_t i) const { return i >= 0 && i < size_[axis]; }

    // The source's element for one of the destination, both counted from their regions' first.
    int64_t source(Axis axis, int64_t i) const {
        int64_t at = continued(f_.border, i + f_.from[axis], f_.length[axis]);
        return at < 0 ? nowhere : at - f_.from[axis];
    }

    // f (plane, row, the source's plane and row) for every line of region and frame.
    template<class F> void each_line(F &&f) const {
        for (int64_t p = -f_.before[plane]; p < size_[plane] + f_.after[plane]; ++p)
            for (int64_t y = -f_.before[row]; y < size_[row] + f_.after[row]; ++y)
                f(p, y, source(plane, p), source(row, y));
    }

    template<class F> void each_beyond(Axis axis, F &&f) const {
        for (int64_t i = -f_.before[axis]; i < 0; ++i) f(i);
        for (int64_t i = 0; i < f_.after[axis]; ++i) f(size_[axis] + i);
    }

    // The columns before and behind the region that come from its own.
    uint32_t pieces_of(Piece *pieces) const {
        const auto step = static_cast<int64_t>(unit_);
        uint32_t n = 0;
        if (f_.border == Border::constant || f_.border == Border::none) return 0;
        each_beyond(column, [&](int64_t x) {
            const int64_t from = source(column, x) * step, to = x * step;
            Piece *last = n > 0 ? pieces + n - 1 : nullptr;
            if (last && to == last->to + last->pixels * step) {
                const int64_t apart = from - last->from, pixels = last->pixels;
                const Piece::Kind kind = apart == 0  ? Piece::same
                                         : apart > 0 ? Piece::along
                                                     : Piece::back;
                const int64_t there = kind == Piece::same ? 0 : kind == Piece::along ? step : -step;
                if (apart == there * pixels && (pixels == 1 || kind == last->kind)) {
                    last->kind = kind, ++last->pixels;
                    return;
                }
            }
            pieces[n++] = {Piece::along, to, from, 1};
        });
        return n;
    }

    static char *at(const Operand &o, int64_t p, int64_t y) {
        return o.at + p * static_cast<int64_t>(o.plane) + y * static_cast<int64_t>(o.row);
    }

    // Pixels of a constant border.
    void fill(char *to, int64_t pixels) const {
        const int64_t have = std::min(size_[row] * size_[column], int64_t{constant_.length});
        for (int64_t n; pixels > 0; pixels -= n, to += n * static_cast<int64_t>(unit_)) {
            n = std::min(pixels, have);
            copy_short(to, constant_.at, n * static_cast<int64_t>(unit_));
        }
    }

    // A line of the frame from one that is made, columns and all.
    void repeat_line(int64_t p, int64_t y, int64_t sp, int64_t sy) const {
        const int64_t before = f_.before[column] * static_cast<int64_t>(unit_),
                      pixels = f_.before[column] + size_[column] + f_.after[column];
        if (f_.border == Border::constant)
            fill(at(c_.dst, p, y) - before, pixels);
        else if (f_.border != Border::none)
            std::memcpy(at(c_.dst, p, y) - before, at(c_.dst, sp, sy) - before,
                        static_cast<size_t>(pixels) * unit_);
    }

    // The part of a line of the frame that is as wide as the region.
    void middle(int64_t p, int64_t y, int64_t sp, int64_t sy) {
        const bool taken = sp != nowhere && sy != nowhere;
        if (!taken && f_.border != Border::constant) return;
        Call line = c_;
        line.planes = line.height = 1, line.across = false;
        line.dst.at = at(c_.dst, p, y);
        line.src[0] = taken ? c_.src[0] : constant_;
        if (taken) line.src[0].at = at(c_.src[0], sp, sy);
        copy_elements(line);
    }

    // A batch of the columns before and behind the region, in every line; returns the next one.
    int64_t columns_from(int64_t x, int64_t end) {
        Column taken[batch_columns], filled[batch_columns];
        uint32_t takes = 0, fills = 0;
        for (; takes + fills < batch_columns && x < end; ++x) {
            if (x == 0) x = size_[column];
            if (x == end) break;
            const int64_t to = x * static_cast<int64_t>(c_.dst.pixel), from = source(column, x);
            if (from != nowhere)
                taken[takes++] = {to, from * static_cast<int64_t>(c_.src[0].pixel)};
            else if (f_.border == Border::constant)
                filled[fills++] = {to, 0};
        }
        // In a line that lies beyond the edge itself the taken ones are filled, too.
        for (uint32_t i = 0; i < takes; ++i) filled[fills + i] = {taken[i].to, 0};
        each_line([&](int64_t p, int64_t y, int64_t sp, int64_t sy) {
            char *to = at(c_.dst, p, y);
            if (sp != nowhere && sy != nowhere) {
                pixels(to, constant_, constant_.at, filled, fills);
                pixels(to, c_.src[0], at(c_.src[0], sp, sy), taken, takes);
            } else if (f_.border == Border::constant) {
                pixels(to, constant_, constant_.at, filled, fills + takes);
            }
        });
        return x;
    }

    void pixels(char *to, const Operand &s, const char *from, const Column *columns,
                uint32_t n) const {
        for (uint32_t k = 0; k < parts_; ++k)
            move_.columns(to + k * c_.dst.channel, from + k * s.channel, columns, n, unit_);
    }

    const Call &c_;
    const Frame &f_;
    const int64_t size_[3];
    Constants constants_;
    const Operand constant_;
    uint32_t parts_; // channels that are moved one by one
    size_t unit_;    // bytes of a pixel, or of a channel's element
    Mover move_;
};

// ---- the copies ----

constexpr Shape region_alone{.anchor = slot_dst,
                             .sources = 0,
                             .partners = 0,
                             .partner = {},
                             .stands_in = slot_count,
                             .planes = true,
                             .overlap = false,
                             .most_channels = 4,
                             .no_rows = KIPX_EEMPTY};
constexpr Shape middle_and_source{.anchor = slot_dst,
                                  .sources = 1,
                                  .partners = 1,
                                  .partner = {{slot_src1, Fit::near, Meet::rest}},
                                  .stands_in = slot_count,
                                  .planes = true,
                                  .overlap = true,
                                  .most_channels = 4,
                                  .no_rows = KIPX_EEMPTY};

struct BorderGiven {
    const kipx_brparm *border;
    uint32_t kind;
    const double *values;
    BorderGiven(const kipx_brparm *b, int32_t k, const double *v)
        : border(b), kind(static_cast<uint32_t>(k)), values(v) {}
};

// What is given about the frame; the source's whole is its region. False where it cannot be.
bool frame_of(const BorderGiven &given, bool planes, Frame &frame) {
    if (!given.border || !border_of(given.kind, frame.border)) return false;
    frame.values = given.values;
    for (int axis = planes ? plane : row; axis <= column; ++axis) {
        const int32_t lower = given.border->lower[axis], upper = given.border->upper[axis];
        if (lower > 0 || upper < 0) return false;
        frame.before[axis] = -int64_t{lower}, frame.after[axis] = upper;
    }
    if (!planes) frame.before[plane] = frame.after[plane] = 0;
    return true;
}

bool copied_onto_itself(const Call &c) {
    const Operand &d = c.dst, &s = c.src[0];
    return s.at == d.at && s.plane == d.plane && s.row == d.row && s.pixel == d.pixel &&
           s.channel == d.channel;
}

// The copy, and its frame from itself.
int32_t copy_and_continue(Call &c, Frame &frame) {
    const Operand middle = c.src[0];
    const bool copied = copied_onto_itself(c),
               adjacent = dense(middle, c.channels) && middle.pixel == c.channels * middle.size;
    const int64_t length[] = {c.planes, c.height, c.width};
    for (int axis : {plane, row, column}) frame.from[axis] = 0, frame.length[axis] = length[axis];
    Call continued = c;
    continued.src[0] = c.dst;
    Framer framer(continued, frame);
    const bool by_lines = framer.goes_by_lines(), on_the_way = by_lines && !c.across && adjacent;
    if (!copied && !on_the_way)
        if (int32_t code = copy_elements(c)) return code;
    if (by_lines)
        framer.make_by_lines(!copied && on_the_way ? &middle : nullptr);
    else
        framer.make();
    return 0;
}

// The copy and its frame; around: from the source's surroundings, as the frame says, else from the
// copy.
int32_t copy_and_frame(Call &c, Frame &frame, bool around) {
    if (c.height == 0 || c.width == 0) return 0;
    if (!around) return copy_and_continue(c, frame);
    Call copy = c;
    if (!copied_onto_itself(c))
        if (int32_t code = copy_elements(copy)) return code;
    make_border(c, frame);
    return 0;
}

// The first codes of a call with a border; 0 where it is to work.
int32_t check(const Call &c, bool complete) {
    if (int32_t code = check_copy(c)) return code;
    return complete && (!copy_needs_scratch(c) || c.xe) ? 0 : KIPX_EINVAL;
}

int32_t work_border(Call &c) {
    Frame frame;
    const bool complete = frame_of(*static_cast<const BorderGiven *>(c.params), false, frame);
    if (int32_t code = check(c, complete)) return code;
    if (no_work_asked(c)) return no_work_answer(c);
    if (!c.dst.at || !c.src[0].at) return KIPX_EINVAL;
    c.dst.at += frame.before[row] * c.dst.row + frame.before[column] * c.dst.pixel;
    return copy_and_frame(c, frame, false);
}

// The middle of a region that a frame leaves; false for none.
bool middle_of(const kipx_arr &dst, const kipx_site *roi, const Frame &frame, kipx_site &site) {
    kipx_arr_adjorgetRoi(&dst, &site, roi);
    for (int axis : {plane, row, column}) {
        const int64_t room = int64_t{site.extent[axis]} - frame.before[axis] - frame.after[axis];
        if (room < 1) return false;
        site.origin[axis] += static_cast<uint32_t>(frame.before[axis]);
        site.extent[axis] = static_cast<uint32_t>(room);
    }
    return true;
}

// Tells the frame what lies around the source's part; false where that lies across the destination,
// or cannot be reached at all.
bool surround(const kipx_arr &dst, const kipx_site *roi, const kipx_arr &src, const kipx_pos *at,
              Frame &frame) {
    kipx_site written, whole;
    kipx_arr_adjorgetRoi(&dst, &written, roi);
    kipx_arr_adjustRoi(&src, &whole);
    Span written_span, whole_span;
    if (!span_of(dst, written, written_span) || !span_of(src, whole, whole_span)) return false;
    for (int axis : {plane, row, column}) {
        const int32_t from = at ? static_cast<int32_t>(at->at[axis]) : 0;
        frame.from[axis] = std::max(from, 0), frame.length[axis] = whole.extent[axis];
    }
    // A source of 3 axes is the same in every plane.
    if (src.naxes == 3) frame.from[plane] = 0, frame.length[plane] = 1;
    return apart(written_span, whole_span);
}

int32_t copy_with_border(bool around, KipxXE *xe, uint64_t flags, const kipx_arr *dst,
                         const kipx_arr *src, const kipx_site *roi, const kipx_pos *at,
                         const BorderGiven &given) {
    Call c;
    if (int32_t code = admit(region_alone, {xe, flags, {dst}, roi, {}}, c)) return code;
    const bool shared = c.shared;
    Frame frame;
    kipx_site site;
    const bool complete = frame_of(given, dst->naxes == 4, frame);
    if (complete && !middle_of(*dst, roi, frame, site)) return KIPX_EEMPTY;
    if (int32_t code = admit(middle_and_source,
                             {xe, flags, {dst, src}, complete ? &site : roi, {nullptr, at}}, c))
        return code;
    if (int32_t code = check(c, complete && !shared)) return code;
    if (around && !surround(*dst, roi, *src, at, frame)) return KIPX_EINVAL;
    if (no_work_asked(c)) return no_work_answer(c);
    return copy_and_frame(c, frame, around);
}

} // namespace

void make_border(const Call &call, const Frame &frame) { Framer(call, frame).make(); }

} // namespace kipx

using namespace kipx;

extern "C" {

const char *kipx_border_str(int32_t kind) {
    switch (kind & 15) {
    case KIPX_BORDER_NONE:
        return "nul-border";
    case KIPX_BORDER_CONST:
        return "const-border";
    case KIPX_BORDER_REPLICATE:
        return "replicate-border";
    case KIPX_BORDER_WRAP:
        return "wrap-border";
    case KIPX_BORDER_REFLECT:
        return "reflect-border";
    case KIPX_BORDER_REFLECT101:
        return "reflect101-border";
    default:
        return "unknown-border";
    }
}

KIPX_PUBLIC_1(KipxCopyMkb, KIPX_TAIL_BORDER) {
    return copy_with_border(false, xe, flags, dst, src, roi, srcAt, {border, kind, values});
}
KIPX_PUBLIC_1(KipxCopyRMkb, KIPX_TAIL_BORDER) {
    return copy_with_border(true, xe, flags, dst, src, roi, srcAt, {border, kind, values});
}

KIPX_ARRAY_1(kipxa_copymkb, KIPX_TAIL_BORDER) {
    return kipxa__copymkb(xe, flags, dims, extent, dst_type, KIPX_START(dst), src_type,
                          KIPX_START(src), border, kind, values);
}
KIPX_TYPED_1(kipxa__copymkb, KIPX_TAIL_BORDER) {
    KIPX_ENTER(1, KIPX_NO_FLAT, BorderGiven(border, kind, values), work_border, KIPX_FLAT(src));
}
}
