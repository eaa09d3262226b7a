// convert/convert.cpp - conversion, from the public functions down to the rows.
#include "convert/convert.h"

#include <kipx/convert.h>

#include "convert/constants.h"
#include "convert/convert_rows.h"
#include "convert/translate.h"
#include "core/rows.h"
#include "core/stamp.h"

namespace kipx {

// Of the table of pairs that starts at a loop.
static RowLoop row_of_pair(uint32_t first, uint32_t dst_type, uint32_t src_type, Set set) {
    const uint32_t d = numeric_type_of(dst_type), s = numeric_type_of(src_type);
    if (d == numeric_type_count || s == numeric_type_count) return nullptr;
    return convert_rows_of(set)[first + d * numeric_type_count + s];
}

RowLoop convert_row_for(uint32_t dst_type, uint32_t src_type, Set set) {
    return row_of_pair(0, dst_type, src_type, set);
}

RowLoop narrow_row_for(uint32_t dst_type, uint32_t src_type, Set set) {
    if (src_type == KIPX_F32 && dst_type == KIPX_S8) return convert_rows_of(set)[narrow_f32_s8];
    if (src_type == KIPX_F32 && dst_type == KIPX_S16) return convert_rows_of(set)[narrow_f32_s16];
    return convert_row_for(dst_type, src_type, set);
}

namespace {

constexpr Shape one_array{.anchor = slot_dst,
                          .sources = 1,
                          .partners = 1,
                          .partner = {{slot_src1, Fit::like, Meet::rest}},
                          .stands_in = slot_count,
                          .planes = true,
                          .overlap = false,
                          .most_channels = 4,
                          .no_rows = KIPX_EEMPTY};

// What a conversion is given: numbers for all channels, or an array of one per channel.
struct ConversionGiven {
    double scale = 1, shift = 0;
    const double *scales = nullptr, *shifts = nullptr;
    ConversionGiven(double factor, double summand) : scale(factor), shift(summand) {}
    ConversionGiven(const double *factors, const double *summands)
        : scales(factors), shifts(summands) {}
    bool one_for_all() const { return !scales && !shifts; }
    bool plain() const { return scale == 1 && shift == 0 && one_for_all(); }
};

// -0 for 0: the one number that, added, leaves all others as they are, -0 too.
double summand_of(double shift) { return shift == 0 ? -0.0 : shift; }

Scaling scaling_of(const Call &c, const ConversionGiven &given, uint32_t channel, Set set) {
    return {given.scales ? given.scales[channel] : given.scale,
            summand_of(given.shifts ? given.shifts[channel] : given.shift),
            convert_row_for(KIPX_F64, c.src[0].type, set),
            convert_row_for(c.dst.type, KIPX_F64, set),
            c.src[0].size,
            c.dst.size};
}

bool convert_bytes(Call &c, const ConversionGiven &given, RowLoop scaled, Set set) {
    const auto make = [&](uint8_t *table, const uint8_t *bytes, uint32_t channel) {
        const Scaling scaling = scaling_of(c, given, channel, set);
        scaled({table, {bytes}, 256, &scaling, Writing::cached});
        return true;
    };
    return by_tables(c, given.one_for_all() ? 1 : c.channels, make);
}

void convert(Call &c, const ConversionGiven &given) {
    constexpr uint32_t most_channels = 15;
    Rows how;
    how.set = active_set(c.flags);
    how.loop = convert_row_for(c.dst.type, c.src[0].type, how.set);
    if (given.plain()) return rows(c, how);
    const RowLoop scaled = row_of_pair(convert_scaled, c.dst.type, c.src[0].type, how.set);
    if (convert_bytes(c, given, scaled, how.set)) return;
    const Scaling scaling = scaling_of(c, given, 0, how.set);
    how.params = &scaling;
    how.loop = scaled;
    if (given.one_for_all()) return rows(c, how);
    how.loop = convert_rows_of(how.set)[convert_by_channel];
    double factors[most_channels], summands[most_channels];
    for (uint32_t i = 0; i < c.channels; ++i) {
        factors[i] = given.scales ? given.scales[i] : 1;
        summands[i] = given.shifts ? summand_of(given.shifts[i]) : -0.0;
    }
    Constants scales(KIPX_F64, factors, c), shifts(KIPX_F64, summands, c);
    c.src[1] = scales.operand(), c.src[2] = shifts.operand(), c.sources = 3;
    rows(c, how);
}

int32_t work_conversion(Call &c) {
    if (!element_valid(c.dst.type) || !element_valid(c.src[0].type)) return KIPX_EINVAL;
    if (!convert_row_for(c.dst.type, c.src[0].type, Set::baseline)) return KIPX_ENOTSUP;
    if (c.channels == 0) return KIPX_EINVAL;
    if (no_work_asked(c)) return no_work_answer(c);
    if (c.height == 0 || c.width == 0) return 0;
    if (!c.dst.at || !c.src[0].at) return KIPX_EINVAL;
    convert(c, *static_cast<const ConversionGiven *>(c.params));
    return 0;
}

} // namespace
} // namespace kipx

using namespace kipx;

extern "C" {
#define KIPX_PASS_KIPX_TAIL_CONVERT , scale, shift
#define KIPX_PASS_KIPX_TAIL_VCONVERT , scales, shifts
KIPX_STAMP_1(convert, Convert, KIPX_TAIL_CONVERT, one_array, ConversionGiven(scale, shift),
             work_conversion)
KIPX_STAMP_1(vconvert, VConvert, KIPX_TAIL_VCONVERT, one_array, ConversionGiven(scales, shifts),
             work_conversion)
}
