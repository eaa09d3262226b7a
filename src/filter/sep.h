// filter/sep.h - weighted sums over rectangles whose weights are products.
//
// Gives    SepPass; sep_call(), a whole separable filter.
#pragma once

#include <kipx/sepfilter.h>

#include "core/window.h"
#include "filter/filter.h"
#include "filter/sep_rows.h"

namespace kipx {

// As many as the window is high and wide.
struct SepWeights {
    const double *rows, *columns;
};

class SepPass final : public RingPass {
public:
    SepPass(const Sheet &sheet, const Window &window, const SepWeights &weights, Set set);
    static bool has_type(uint32_t type);
    const void *fill() const override;
    void rows(Lines &lines, size_t y, size_t rows, char *out, ptrdiff_t step) override;

private:
    struct Choice {
        SepVariant variant;
        double margin;
    };
    static Choice choose(uint32_t type, const Window &window, const SepWeights &weights);
    SepPass(const Sheet &sheet, const Window &window, const SepWeights &weights, Choice choice,
            const SepLoops &loops);
    void along(const Band &band, char *out, ptrdiff_t step) override;
    void down(const char *const *rows, size_t group, char *out, ptrdiff_t step) override;
    // Rows as the lines give them, or those of the ring.
    void weigh(const char *const *rows, size_t group, char *out, ptrdiff_t step, bool given);
    const SepLoops &loops_;
    SepWeights weights_;
    Choice choice_;
    size_t n_, step_, width_, kept_, weights_size_;
};

// Types, border, flags, work.
int32_t sep_call(Call &call, Window window, const SepWeights &weights);

} // namespace kipx
