// filter/box.h - the mean over rectangles.
//
// Gives    BoxPass. Integers: the exact sum over the count, to nearest even. Real numbers: sums in
//          binary64 times the reciprocal of the count.
#pragma once

#include "core/window.h"
#include "filter/box_rows.h"

namespace kipx {

class BoxPass final : public RingPass {
public:
    BoxPass(const Sheet &sheet, const Window &window, Set set);
    static bool has_type(uint32_t type);
    const void *fill() const override;
    void rows(Lines &lines, size_t y, size_t rows, char *out, ptrdiff_t step) override;

private:
    void along(const Band &band, char *out, ptrdiff_t step) override;
    void mean(const char *const *rows, size_t count, char *out, ptrdiff_t step, bool given);
    void down(const char *const *rows, size_t group, char *out, ptrdiff_t step) override;
    BoxPass(const Sheet &sheet, const Window &window, const BoxLoops &loops);
    const BoxLoops &loops_;
    size_t sums_size_, n_, step_, size_, width_;
    uint64_t count_;
    bool first_ = true;
};

} // namespace kipx
