// filter/filter.cpp - the filters by kind, and all their levels.
#include "filter/filter.h"

#include <kipx/array.h>

#include "convert/copy.h"
#include "core/flat.h"
#include "filter/box.h"
#include "filter/rect.h"

namespace kipx {
namespace {

// Bytes of a row that are worked on together, so that the ring stays in the second-level cache.
size_t tile_for(const Window &w) {
    constexpr size_t ring = 256u << 10, piece = 768; // whole vectors and whole pixels of any kind
    size_t bytes = ring / (w.height + 16) / piece * piece;
    return std::max(bytes, piece);
}

struct MakeRect {
    Rank rank[2];
    Set set;
    RectPass operator()(const Sheet &s, const Window &w, Role role) const {
        return {s, w, rank[role.which], role.over_source, set};
    }
};

int32_t rect_call(Call &call, Window window, MakeRect make, bool twice, Finish finish) {
    if (!RectPass::has_type(call.src[0].type)) return KIPX_ENOTSUP;
    if (int32_t code = goes_on(call); code < 1) return code;
    cut_to_array(window, call);
    cut_to_reach(window);
    make.set = active_set(call.flags);
    Recipe recipe{window, Border::constant, finish, make.set, twice ? 0 : tile_for(window)};
    return twice ? apply<Double<RectPass>>(call, recipe, make)
                 : apply<Single<RectPass>>(call, recipe, make);
}

int32_t box_call(Call &call, Window window) {
    Recipe recipe{window, Border::constant, {}, active_set(call.flags), 0};
    if (!border_in(call.flags, recipe.border)) return KIPX_EINVAL;
    if (!BoxPass::has_type(call.src[0].type)) return KIPX_ENOTSUP;
    if (int32_t code = goes_on(call); code < 1) return code;
    bool near = recipe.border == Border::constant || recipe.border == Border::replicate;
    if (near) cut_to_reach(recipe.window);
    return apply<Single<BoxPass>>(call, recipe, [&](const Sheet &s, const Window &w, Role) {
        return BoxPass(s, w, recipe.set);
    });
}

} // namespace

bool border_in(uint64_t flags, Border &border) {
    if (!border_of(flags >> 8 & 15, border)) return false;
    if (border == Border::none) border = Border::replicate;
    return true;
}

int32_t copy_call(Call &call) {
    if (int32_t code = check_copy(call)) return code;
    if (int32_t code = goes_on(call); code < 1) return code;
    Lie lie = how_they_lie(call, {1, 1, 0, 0, 0, 0, 0, 0});
    call.across = lie == Lie::across;
    return lie == Lie::in_place ? 0 : copy_elements(call);
}

int32_t filter_call(Call &call, uint32_t kind, Window window) {
    constexpr Rank low = Rank::smallest, high = Rank::largest;
    if (!types_fit(call)) return KIPX_EINVAL;
    auto rect = [&](Rank first, Rank second, bool twice, Finish finish = {}) {
        return rect_call(call, window, {{first, second}, Set::baseline}, twice, finish);
    };
    auto hat = [&](Rank first, Rank second, Difference difference) {
        Finish finish;
        return finish_by(difference, call.src[0].type, finish) ? rect(first, second, true, finish)
                                                               : KIPX_ENOTSUP;
    };
    switch (kind & 0xff) {
    case KIPX_FILTER_COPY:
        return copy_call(call);
    case KIPX_FILTER_MIN:
        return rect(low, low, false);
    case KIPX_FILTER_MAX:
        return rect(high, high, false);
    case KIPX_FILTER_BOX:
        return box_call(call, window);
    case KIPX_FILTER_CLOSE:
        return rect(high, low, true);
    case KIPX_FILTER_OPEN:
        return rect(low, high, true);
    case KIPX_FILTER_BOTHAT:
        return hat(high, low, Difference::minus_source);
    case KIPX_FILTER_TOPHAT:
        return hat(low, high, Difference::source_minus);
    case KIPX_FILTER_MEDIAN:
    case KIPX_FILTER_GRADIENT:
        return KIPX_ENOTIMP;
    default:
        return KIPX_EINVAL;
    }
}

} // namespace kipx

using namespace kipx;

extern "C" {

const char *kipx_filter_str(uint32_t kind) {
    switch (kind & 0xff) {
    case KIPX_FILTER_COPY:
        return "nul-filter";
    case KIPX_FILTER_MIN:
        return "min-filter";
    case KIPX_FILTER_MAX:
        return "max-filter";
    case KIPX_FILTER_BOX:
        return "box-filter";
    case KIPX_FILTER_MEDIAN:
        return "median-filter";
    case KIPX_FILTER_CLOSE:
        return "close-filter";
    case KIPX_FILTER_OPEN:
        return "open-filter";
    case KIPX_FILTER_BOTHAT:
        return "bothat-filter";
    case KIPX_FILTER_TOPHAT:
        return "tophat-filter";
    case KIPX_FILTER_GRADIENT:
        return "gradient-filter";
    default:
        return "unknown-filter";
    }
}

int32_t KipxFilter(KipxXE *xe, uint64_t flags, const kipx_arr *src, const kipx_arr *dst,
                   const kipx_arr *mask, const kipx_site *roi, uint32_t kind,
                   const kipx_seshape *shape) {
    Call call;
    kipx_brshape room;
    int32_t code = admit_filter(call, xe, flags & ~KIPX_FLAG_PREPARE, {src, dst, mask, roi}, room);
    if (code < 0) return code;
    kipx_seshape own = normalised(shape, call);
    Window window;
    return window_of(window, &own, &room) ? filter_call(call, kind, window) : KIPX_EINVAL;
}

KIPX_SLICE(KipxTGAfilter) {
    Call call;
    if (int32_t code = slice_filter(call, xe, flags, slice); code < 0) return code;
    const auto *args = static_cast<const kipx_filter_args *>(slice->context);
    Window window;
    if (!args || !window_of(window, &args->shape, &args->room)) return KIPX_EINVAL;
    return filter_call(call, args->kind, window);
}

static int32_t flat(KIPX_FILTER_OPERANDS, FlatPlace mask, uint32_t kind,
                    const kipx_seshape *shape) {
    Call call;
    int32_t code = flat_filter(call, xe, flags, dims, volume, type, {dst, dst_strides},
                               {src, src_strides}, mask);
    if (code < 0) return code;
    Window window{1, 1, 0, 0, 0, 0, 0, 0};
    if ((kind & 0xff) != KIPX_FILTER_COPY && !window_of(window, shape, nullptr)) return KIPX_EINVAL;
    return filter_call(call, kind, window);
}

int32_t kipxa__filter(KIPX_FILTER_OPERANDS, uint32_t kind, const kipx_seshape *shape) {
    return flat(xe, flags, dims, volume, type, dst, dst_strides, src, src_strides, {}, kind, shape);
}

int32_t kipxa_efilter(KIPX_FILTER_ORIGINS, KIPX_FILTER_MASK, uint32_t kind,
                      const kipx_seshape *shape) {
    return flat(xe, flags, dims, volume, type, start_of(dims, dst, dst_origin, dst_strides),
                dst_strides, start_of(dims, src, src_origin, src_strides), src_strides,
                {start_of(dims, mask, mask_origin, mask_strides), mask_strides}, kind, shape);
}

int32_t kipxa_filter(KIPX_FILTER_ORIGINS, uint32_t kind, const kipx_seshape *shape) {
    return kipxa_efilter(xe, flags, dims, volume, type, dst, dst_origin, dst_strides, src,
                         src_origin, src_strides, nullptr, nullptr, nullptr, kind, shape);
}
}

// Kernels: a kind and a type each.
template<uint32_t kind, uint32_t type>
static int32_t kernel(KipxXE *xe, uint64_t flags, kipx_dims dims, const uint32_t *volume, void *dst,
                      const uint32_t *dst_strides, const void *src, const uint32_t *src_strides,
                      const kipx_seshape *shape) {
    return kipxa__filter(xe, flags, dims, volume, type, dst, dst_strides, src, src_strides, kind,
                         shape);
}

template<uint32_t kind>
static kipx_filter_kernel kernel_of(uint32_t channels, uint32_t type, int32_t *status) {
    uint32_t n = channels_of(channels & 15);
    kipx_filter_kernel found = nullptr;
    switch (n >= 1 && n <= 4 ? type : 0) {
#define KIPX_KERNEL(T, ...)                                                                        \
    case KIPX_CODE_##T:                                                                            \
        found = kernel<kind, KIPX_CODE_##T>;                                                       \
        break;
        KIPX_RECT_TYPES(KIPX_KERNEL)
#undef KIPX_KERNEL
    default:
        break;
    }
    bool valid = n >= 1 && n <= 4 && element_valid(type);
    if (status) *status = found ? 0 : valid ? KIPX_ENOTSUP : KIPX_EINVAL;
    if (found) return found;
    // The procedures take no notice of their arguments, whatever shape they are called in.
    auto *procedure = valid ? kipxa_proc_enotsup : kipxa_proc_einval;
    return reinterpret_cast<kipx_filter_kernel>(reinterpret_cast<void *>(procedure));
}

extern "C" {

#define KIPX_TABLE(name, kind)                                                                     \
    kipx_filter_kernel kipxa__##name##filtfun_imp(uint32_t channels, uint32_t type,                \
                                                  int32_t *status) {                               \
        return kernel_of<kind>(channels, type, status);                                            \
    }
KIPX_TABLE(min, KIPX_FILTER_MIN)
KIPX_TABLE(max, KIPX_FILTER_MAX)
KIPX_TABLE(box, KIPX_FILTER_BOX)

#define KIPX_ONE_KIND(name, kind)                                                                  \
    int32_t kipxa__filter_##name(KIPX_FILTER_OPERANDS, const kipx_seshape *shape) {                \
        return kipxa__filter(xe, flags, dims, volume, type, dst, dst_strides, src, src_strides,    \
                             kind, shape);                                                         \
    }
KIPX_ONE_KIND(min, KIPX_FILTER_MIN)
KIPX_ONE_KIND(max, KIPX_FILTER_MAX)
KIPX_ONE_KIND(box, KIPX_FILTER_BOX)
KIPX_ONE_KIND(open, KIPX_FILTER_OPEN)
KIPX_ONE_KIND(close, KIPX_FILTER_CLOSE)
KIPX_ONE_KIND(tophat, KIPX_FILTER_TOPHAT)
KIPX_ONE_KIND(bothat, KIPX_FILTER_BOTHAT)
}
