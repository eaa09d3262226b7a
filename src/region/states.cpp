#include "region/states.h"

#include "region/pixels.h"

namespace kipx {

namespace {

bool lists_pixels(const KipxWTSFDs &feature) {
    return feature.magic == KIPX_WTSPF_MAGIC && feature.ongather == __KipxWTSPF__ongather__;
}

uint64_t pixels_of(const KipxWTSregion *region) {
    return region->area > 0 ? static_cast<uint64_t>(region->area) : 0;
}

} // namespace

void init_states(const KipxWTSLSC &context, KipxWTSregion *region) {
    for (int32_t f = 0; f < context.count; ++f) {
        const KipxWTSFDs &feature = context.descriptors[f];
        if (feature.init) feature.init(state_of(feature, region), feature.parameter);
    }
}

void destroy_states(const KipxWTSLSC &context, KipxWTSregion *region) {
    for (int32_t f = 0; f < context.count; ++f) {
        const KipxWTSFDs &feature = context.descriptors[f];
        if (feature.destroy) feature.destroy(state_of(feature, region));
    }
}

bool has_destroy(const KipxWTSLSC &context) {
    for (int32_t f = 0; f < context.count; ++f)
        if (context.descriptors[f].destroy) return true;
    return false;
}

bool make_room(const KipxWTSFDs &feature, const KipxWTSregion *region) {
    return !lists_pixels(feature) ||
           reserve_pixels(*static_cast<KipxWTSPF *>(state_of(feature, region)), pixels_of(region));
}

bool holds_all(const KipxWTSFDs &feature, const KipxWTSregion *region) {
    return !lists_pixels(feature) ||
           static_cast<const KipxWTSPF *>(state_of(feature, region))->count == pixels_of(region);
}

} // namespace kipx
