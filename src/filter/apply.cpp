// filter/apply.cpp - tiles, and the way of finished rows to the destination.
#include "filter/apply.h"

#include "arith/arith_rows.h"
#include "core/stages.h"

namespace kipx {

namespace {

template<uint32_t kernel> void subtract(const FinishRow &r, const void *a, const void *b) {
    const ArithScale unscaled{ScaleMode::none, 0, 1.0f, 1.0f};
    arith_rows_of(r.set)[kernel]({r.dst, {a, b, nullptr}, r.n, &unscaled, Writing::cached});
}
template<uint32_t kernel, Difference difference> void subtract_row(const FinishRow &r) {
    if (difference == Difference::source_minus) return subtract<kernel>(r, r.source, r.made);
    subtract<kernel>(r, r.made, difference == Difference::minus_source ? r.source : r.second);
}
template<uint32_t kernel> auto loop_of(Difference difference) {
    switch (difference) {
    case Difference::source_minus:
        return subtract_row<kernel, Difference::source_minus>;
    case Difference::minus_source:
        return subtract_row<kernel, Difference::minus_source>;
    default:
        return subtract_row<kernel, Difference::minus_second>;
    }
}

} // namespace

bool finish_by(Difference difference, uint32_t type, Finish &finish) {
    finish.second = difference == Difference::minus_second;
    finish.source = !finish.second;
    switch (type) {
    case KIPX_U8:
        return finish.loop = loop_of<subq_u8u8u8>(difference), true;
    case KIPX_S16:
        return finish.loop = loop_of<subq_s16s16s16>(difference), true;
    case KIPX_S32:
        return finish.loop = loop_of<subq_s32s32s32>(difference), true;
    default:
        return false;
    }
}

bool beyond_memory(const Call &call, const Window &w, size_t ring_rows) {
    constexpr double widest_sum = 16, most = 0x1p60;
    double rows = 0.0 + w.height + w.above + call.height + w.below + 2 * most_rows;
    double columns = 0.0 + w.width + w.left + call.width + w.right;
    return rows * static_cast<double>(ring_rows) * columns * call.planes * call.channels *
               widest_sum >
           most;
}

Sheet tile_of(const Sheet &sheet, size_t from, size_t end) {
    Sheet s = sheet;
    size_t first = from / s.src.size;
    for (Operand *o : {&s.dst, &s.src}) o->at += first * o->pixel;
    if (s.mask.at) s.mask.at += first / s.repeat * s.mask.pixel;
    s.width = (end - from) / s.src.size;
    return s;
}

Recipe tile_of(const Recipe &recipe, const Sheet &sheet, size_t from, size_t end) {
    Recipe r = recipe;
    size_t step = sheet.step_bytes();
    r.window.left += static_cast<uint32_t>(from / step);
    r.window.right += static_cast<uint32_t>((sheet.bytes() - end) / step);
    return r;
}

Finisher::Finisher(const Sheet &sheet, const Recipe &recipe, size_t rows)
    : sheet_(sheet), set_(recipe.set), finish_(recipe.finish), plain_(!recipe.finish.loop),
      drain_(sheet, rows, recipe.set), most_(rows), pitch_((sheet.bytes() + 127) / 64 * 64),
      scratch_(drain_.scratch()) {
    // Rows of the makers, and one for a source row that has to be packed.
    if (!plain_) scratch_ += (2 * rows + 1) * pitch_;
}

void Finisher::start(char *at, const Sheet &sheet) {
    sheet_ = sheet;
    drain_.start(at, sheet);
    rows_ = at + drain_.scratch();
}

const char *Finisher::source_row(size_t y) const {
    const Operand &o = sheet_.src;
    const char *row = o.at + y * o.row;
    if (o.pixel == o.size) return row;
    char *packed = rows_ + 2 * most_ * pitch_;
    stages_of(set_)[stage_pack * stage_sizes + size_index(o.size)](packed, row, nullptr,
                                                                   sheet_.width, o.pixel);
    return packed;
}

void Finisher::done(size_t y, size_t n) const {
    for (size_t i = 0; !plain_ && i < n; ++i) {
        const char *made = rows_ + i * pitch_;
        char *to = drain_.place(y) + static_cast<ptrdiff_t>(i) * drain_.step();
        finish_.loop({set_, to, made, finish_.second ? made + most_ * pitch_ : nullptr,
                      finish_.source ? source_row(y + i) : nullptr, sheet_.width, sheet_.src.type,
                      sheet_.step, sheet_.channel, finish_.params});
    }
    drain_.done(y, n);
}

} // namespace kipx
