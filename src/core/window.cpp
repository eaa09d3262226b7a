// core/window.cpp - rows for operations that look at neighbours.
#include "core/window.h"

#include <algorithm>
#include <cstring>

#include "core/stages.h"

namespace kipx {
namespace {

constexpr size_t line_bytes = 64;

size_t rounded(size_t bytes, size_t to) { return (bytes + to - 1) / to * to; }

bool folds(const Operand &o, uint32_t channels) { return !o.at || o.channel * channels == o.pixel; }

bool folds(const Call &c) {
    bool single = c.mask.at && c.mask.channel == 0;
    return folds(c.dst, c.channels) && folds(c.src[0], c.channels) &&
           (single || folds(c.mask, c.channels));
}

} // namespace

void fill_with(char *to, size_t bytes, const void *element, size_t size) {
    memcpy(to, element, size);
    for (size_t done = size; done < bytes; done *= 2)
        memcpy(to + done, to, std::min(done, bytes - done));
}

uint32_t sheet_count(const Call &c) { return c.planes * (folds(c) ? 1 : c.channels); }

Sheet sheet(const Call &c, uint32_t index) {
    bool all = folds(c), single = c.mask.at && c.mask.channel == 0;
    Sheet s{c.dst, c.src[0], c.mask, c.height, c.width, 1, 0, 1};
    uint32_t plane = all ? index : index / c.channels, channel = all ? 0 : index % c.channels;
    s.channel = channel;
    for (Operand *o : {&s.dst, &s.src, &s.mask}) {
        if (o->at) o->at += plane * o->plane + channel * o->channel;
        if (all) o->pixel = o->channel;
    }
    if (all) {
        s.width *= c.channels, s.step = c.channels;
        s.repeat = single ? c.channels : 1;
        if (single) s.mask.pixel = c.mask.pixel;
    }
    return s;
}

Lie how_they_lie(const Call &c, const Window &w) {
    auto extent = [&](const Operand &o, uint64_t rows, uint64_t columns) {
        return (c.planes - 1) * o.plane + (rows - 1) * o.row + (columns - 1) * o.pixel +
               (c.channels - 1) * o.channel + o.size;
    };
    const Operand &d = c.dst, &s = c.src[0];
    auto at = reinterpret_cast<uintptr_t>(d.at);
    auto from = reinterpret_cast<uintptr_t>(s.at) - w.above * s.row - w.left * s.pixel;
    uint64_t read =
        extent(s, uint64_t{w.above} + c.height + w.below, uint64_t{w.left} + c.width + w.right);
    if (at + extent(d, c.height, c.width) <= from || from + read <= at) return Lie::apart;
    bool same = d.at == s.at && d.row == s.row && d.pixel == s.pixel && d.channel == s.channel &&
                d.size == s.size && (c.planes == 1 || d.plane == s.plane);
    return same ? Lie::in_place : Lie::across;
}

Packed packed_source(const Call &c, const Window &w) {
    Operand o = c.src[0];
    uint64_t columns = uint64_t{w.left} + c.width + w.right;
    uint64_t rows = uint64_t{w.above} + c.height + w.below;
    o.channel = o.size, o.pixel = c.channels * o.size, o.row = columns * o.pixel;
    o.plane = rows * o.row;
    return {o, c.planes * o.plane, w.above * o.row + w.left * o.pixel};
}

void copy_source(const Call &c, const Window &w, const Operand &to) {
    const Operand &from = c.src[0];
    size_t columns = size_t{w.left} + c.width + w.right;
    bool dense = from.channel == from.size && from.pixel == c.channels * from.size;
    auto start = [&](const Operand &o, size_t plane, size_t row) {
        auto y = static_cast<ptrdiff_t>(row) - static_cast<ptrdiff_t>(w.above);
        return o.at + plane * o.plane + y * static_cast<ptrdiff_t>(o.row) - w.left * o.pixel;
    };
    for (size_t plane = 0; plane < c.planes; ++plane)
        for (size_t y = 0; y < size_t{w.above} + c.height + w.below; ++y) {
            char *out = start(to, plane, y);
            const char *in = start(from, plane, y);
            if (dense) {
                memcpy(out, in, columns * from.pixel);
                continue;
            }
            for (uint32_t k = 0; k < c.channels; ++k)
                for (size_t x = 0; x < columns; ++x)
                    memcpy(out + x * to.pixel + k * to.channel,
                           in + x * from.pixel + k * from.channel, from.size);
        }
}

// ---- source rows --------------------------------------------------------------------------------

Feed::Feed(const Sheet &sheet, const Window &w, const Span &reach, Border border, Set set)
    : sheet_(sheet), set_(set), border_(border), top_(-static_cast<ptrdiff_t>(w.above)),
      bottom_(static_cast<ptrdiff_t>(sheet.height + w.below)),
      real_{-static_cast<ptrdiff_t>(w.left * sheet.step_bytes()),
            static_cast<ptrdiff_t>(sheet.bytes() + w.right * sheet.step_bytes())},
      there_(real_) {
    bool mapped = border != Border::constant && border != Border::replicate;
    if (mapped) {
        there_ = reach;
    } else {
        there_.begin = std::max(there_.begin, reach.begin);
        there_.end = std::min(there_.end, reach.end);
    }
    copies_ = mapped || sheet.src.pixel != sheet.src.size;
    slot_size_ = rounded(there_.size(), line_bytes);
    scratch_ = ((copies_ ? most_rows : 0) + (border == Border::constant ? 1 : 0)) * slot_size_;
}

void Feed::start(char *scratch, const Sheet &sheet, const void *fill) {
    sheet_ = sheet;
    slots_ = scratch - there_.begin;
    outside_ = slots_ + (copies_ ? most_rows : 0) * slot_size_;
    if (border_ == Border::constant)
        fill_with(outside_ + there_.begin, slot_size_, fill, sheet_.src.size);
}

// All that is given of a row; `to` and `row` are its byte 0.
void Feed::copy_row(char *to, const char *row) const {
    ptrdiff_t first = std::max(there_.begin, real_.begin), last = std::min(there_.end, real_.end);
    auto size = static_cast<ptrdiff_t>(sheet_.src.size);
    auto pixel = static_cast<ptrdiff_t>(sheet_.src.pixel);
    if (pixel != size)
        stages_of(set_)[stage_pack * stage_sizes + size_index(sheet_.src.size)](
            to + first, row + first / size * pixel, nullptr,
            static_cast<size_t>((last - first) / size), sheet_.src.pixel);
    else
        memcpy(to + first, row + first, static_cast<size_t>(last - first));
    map_span(to, row, there_.begin, first);
    map_span(to, row, last, there_.end);
}

// Elements of a border, one by one.
void Feed::map_span(char *to, const char *row, ptrdiff_t from, ptrdiff_t end) const {
    auto size = static_cast<ptrdiff_t>(sheet_.src.size), step = ptrdiff_t{sheet_.step};
    auto pixel = static_cast<ptrdiff_t>(sheet_.src.pixel);
    ptrdiff_t first = real_.begin / size, pixels = (real_.end - real_.begin) / (size * step);
    for (ptrdiff_t i = from / size; i < end / size; ++i) {
        ptrdiff_t place = i - first,
                  channel = place % step < 0 ? place % step + step : place % step;
        ptrdiff_t which = continued(border_, (place - channel) / step, pixels);
        memcpy(to + i * size, row + (first + which * step + channel) * pixel, sheet_.src.size);
    }
}

Band Feed::band(ptrdiff_t y, size_t rows) {
    bool above = y < top_, below = y >= bottom_;
    ptrdiff_t left = above ? top_ - y : below ? PTRDIFF_MAX : bottom_ - y;
    auto n = std::min(static_cast<size_t>(left), std::min(rows, most_rows));
    if ((above || below) && border_ == Border::constant) return {outside_, 0, n, true};
    bool repeated = above || below;
    if (repeated && border_ != Border::replicate) n = 1;
    if (repeated) y = top_ + continued(border_, y - top_, bottom_ - top_);
    auto row_step = static_cast<ptrdiff_t>(sheet_.src.row);
    const char *row = sheet_.src.at + y * row_step;
    if (!copies_) return {row, repeated ? 0 : row_step, n, false};
    auto slot_step = static_cast<ptrdiff_t>(slot_size_);
    for (size_t i = 0; i < (repeated ? 1 : n); ++i)
        copy_row(slots_ + i * slot_size_, row + static_cast<ptrdiff_t>(i) * row_step);
    return {slots_, repeated ? 0 : slot_step, n, false};
}

// ---- steps --------------------------------------------------------------------------------------

RingPass::RingPass(const Window &window, size_t group, size_t row_bytes, size_t extra)
    : height_(window.height), group_(group), pitch_(rounded(row_bytes, line_bytes)),
      first_(-static_cast<ptrdiff_t>(window.row)) {
    // Rows of the ring are not to lie at the same place of their pages.
    pitch_ += 5 * line_bytes;
    likes_ = group * std::max<size_t>(16 / group, 1);
    ring_rows_ = height_ - 1 + likes_;
    scratch_ = (ring_rows_ + 1) * pitch_ + rounded(extra, line_bytes) +
               rounded(2 * ring_rows_ * sizeof(char *), line_bytes);
}

void RingPass::start(char *scratch, const Source &source) {
    source_ = source, ring_ = scratch, border_row_ = ring_ + ring_rows_ * pitch_;
    place_ = reinterpret_cast<const char **>(border_row_ + pitch_);
    under_ = place_ + ring_rows_;
    extra_ = border_row_ + pitch_ + rounded(2 * ring_rows_ * sizeof(char *), line_bytes);
    next_ = first_, slot_ = 0, border_made_ = false;
}

void RingPass::take(Lines &lines, size_t rows) {
    while (rows > 0) {
        Band band = lines.band(next_, std::min(rows, ring_rows_ - slot_));
        char *to = ring_ + slot_ * pitch_;
        auto step = static_cast<ptrdiff_t>(pitch_);
        if (!band.fill) {
            along(band, to, step);
        } else if (!border_made_) {
            Band one = band;
            one.rows = 1;
            along(one, border_row_, step);
            border_made_ = true;
        }
        for (size_t i = 0; i < band.rows; ++i)
            place_[slot_ + i] = band.fill ? border_row_ : to + i * pitch_;
        slot_ += band.rows, next_ += static_cast<ptrdiff_t>(band.rows), rows -= band.rows;
        if (slot_ == ring_rows_) slot_ = 0;
    }
}

void RingPass::rows(Lines &lines, size_t y, size_t rows, char *out, ptrdiff_t step) {
    take(lines, y == 0 ? rows + height_ - 1 : rows);
    size_t first = (slot_ + ring_rows_ - (rows + height_ - 1) % ring_rows_) % ring_rows_;
    for (size_t done = 0; done < rows;) {
        size_t group = std::min(group_, rows - done);
        for (size_t i = 0; i < group + height_ - 1; ++i) {
            size_t at = first + done + i;
            under_[i] = place_[at >= ring_rows_ ? at - ring_rows_ : at];
        }
        down(under_, group, out + static_cast<ptrdiff_t>(done) * step, step);
        done += group;
    }
}

const char *const *RingPass::rows_under(Lines &lines, size_t y, size_t rows) {
    size_t have = y == 0 ? 0 : height_ - 1;
    std::copy_n(place_ + slot_, have, place_);
    while (have < rows + height_ - 1) {
        Band band = lines.band(next_, rows + height_ - 1 - have);
        for (size_t i = 0; i < band.rows; ++i)
            place_[have + i] = band.at + static_cast<ptrdiff_t>(i) * band.step;
        have += band.rows, next_ += static_cast<ptrdiff_t>(band.rows), last_step_ = band.step;
    }
    slot_ = rows;
    return place_;
}

// One slot more, of nothing but the fill. Rows that are kept are made in whole bands of the first
// pass's where the ring comes round to its start.
Between::Between(const Sheet &sheet, const Pass &first, const Pass &next)
    : height_(sheet.height), size_(sheet.src.size),
      slot_size_(rounded(sheet.bytes(), line_bytes) + line_bytes), most_(first.likes()),
      slots_(rounded(std::max(next.keeps(), most_), most_)), scratch_((slots_ + 1) * slot_size_),
      stay_(next.keeps() > 0), there_{0, static_cast<ptrdiff_t>(sheet.bytes())} {}

void Between::start(char *scratch, Pass &first, Lines &lines, const void *fill) {
    ring_ = scratch, slot_ = 0, first_ = &first, lines_ = &lines;
    fill_with(scratch + slots_ * slot_size_, slot_size_, fill, size_);
}

Band Between::band(ptrdiff_t y, size_t rows) {
    if (y < 0 || y >= static_cast<ptrdiff_t>(height_)) {
        if (y < 0) rows = std::min(rows, static_cast<size_t>(-y));
        return {ring_ + slots_ * slot_size_, 0, rows, true};
    }
    if (slot_ == slots_ || !stay_) slot_ = 0;
    rows = std::min({rows, most_, slots_ - slot_, height_ - static_cast<size_t>(y)});
    auto step = static_cast<ptrdiff_t>(slot_size_);
    char *to = ring_ + slot_ * slot_size_;
    first_->rows(*lines_, static_cast<size_t>(y), rows, to, step);
    slot_ += rows;
    return {to, step, rows, false};
}

// ---- result rows --------------------------------------------------------------------------------

Drain::Drain(const Sheet &sheet, size_t rows, Set set)
    : sheet_(sheet), set_(set), direct_(sheet.dst.pixel == sheet.dst.size && !sheet.mask.at),
      pitch_(rounded(sheet.width * sheet.dst.size, line_bytes) + line_bytes),
      mask_at_(direct_ ? 0 : rows * pitch_),
      scratch_(mask_at_ + (sheet.mask.at ? rounded(sheet.width, line_bytes) : 0)) {}

void Drain::deliver(size_t y, const char *from) const {
    const Operand &d = sheet_.dst, &m = sheet_.mask;
    const Stage *stage = stages_of(set_) + size_index(d.size);
    if (!m.at)
        return stage[stage_spread * stage_sizes](at(y), from, nullptr, sheet_.width, d.pixel);
    const char *mask = m.at + y * m.row;
    if (m.pixel != 1 || sheet_.repeat != 1) {
        widen_stages_of(set_)[0](buffer_ + mask_at_, mask, sheet_.width, m.pixel, sheet_.repeat, 0);
        mask = buffer_ + mask_at_;
    }
    StageKind kind = d.pixel == d.size ? stage_blend : stage_spread_masked;
    stage[kind * stage_sizes](at(y), from, mask, sheet_.width, d.pixel);
}

} // namespace kipx
