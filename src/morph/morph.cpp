// morph/morph.cpp - morphology by operation, and all its levels.
#include <kipx/array.h>
#include <kipx/convert.h>
#include <kipx/morph.h>

#include <algorithm>

#include "core/flat.h"
#include "filter/filter.h"
#include "filter/members.h"
#include "filter/rect.h"

namespace kipx {
namespace {

constexpr Rank low = Rank::smallest, high = Rank::largest;

uint32_t filter_kind(uint32_t op) {
    op &= 15;
    if (op == KIPX_MORPH_COPY || op == KIPX_MORPH_ERODE || op == KIPX_MORPH_DILATE) return op;
    return op >= KIPX_MORPH_CLOSE && op <= KIPX_MORPH_GRADIENT ? op + 100 : UINT32_MAX;
}

bool masked(const kipx_strel *strel) { return strel && strel->mask.base; }
const kipx_seshape *shape_of(const kipx_strel *strel) {
    return reinterpret_cast<const kipx_seshape *>(strel);
}

// What an operation does: one step or two, and what becomes of the result.
struct Work {
    Rank rank[2];
    bool twice, kernel; // kernel: needs one even where the mask is solid
    Finish finish;
};

int32_t work_of(uint32_t op, uint32_t type, Work &work) {
    auto hat = [&](Difference difference) {
        return finish_by(difference, type, work.finish) ? 0 : KIPX_ENOTSUP;
    };
    switch (op & 15) {
    case KIPX_MORPH_ERODE:
        return work = {{low, low}, false, true, {}}, 0;
    case KIPX_MORPH_DILATE:
        return work = {{high, high}, false, true, {}}, 0;
    case KIPX_MORPH_CLOSE:
        return work = {{high, low}, true, false, {}}, 0;
    case KIPX_MORPH_OPEN:
        return work = {{low, high}, true, false, {}}, 0;
    case KIPX_MORPH_BOTHAT:
        return work = {{high, low}, true, false, {}}, hat(Difference::minus_source);
    case KIPX_MORPH_TOPHAT:
        return work = {{low, high}, true, false, {}}, hat(Difference::source_minus);
    case KIPX_MORPH_GRADIENT:
        return work = {{high, low}, false, true, {}}, hat(Difference::minus_second);
    default:
        return KIPX_EINVAL;
    }
}

bool has_kernel(uint32_t channels, uint32_t type) {
    return (channels == 1 || channels == 3 || channels == 4) && MembersPass::has_type(type);
}

// Bytes of a row that are worked on together, so that the ring stays in the second-level cache.
size_t tile_for(const Window &w, const Members &members) {
    constexpr size_t ring = 256u << 10, piece = 768; // whole vectors and whole pixels of any kind
    size_t rows = (size_t{w.height} + 16) * std::max<size_t>(members.length_count(), 1);
    return std::max(ring / rows / piece * piece, 2 * piece);
}

struct MakeMembers {
    const Members &members;
    const Work &work;
    Set set;
    MembersPass operator()(const Sheet &s, const Window &w, Role role) const {
        return {s, w, members, work.rank[role.which], set};
    }
};
struct MakeRect {
    const Work &work;
    Set set;
    RectPass operator()(const Sheet &s, const Window &w, Role role) const {
        return {s, w, work.rank[role.which], role.over_source, set};
    }
};

int32_t members_call(Call &call, const Element &element, const Window &window, const Work &work) {
    void *scratch = KipxXEalloca(call.xe, Members::scratch(element), 8);
    if (!scratch) return KIPX_ENOMEM;
    Members members(element, scratch);
    Recipe recipe{window, Border::constant, work.finish, active_set(call.flags),
                  work.twice ? 0 : tile_for(window, members)};
    MakeMembers make{members, work, recipe.set};
    int32_t code = KIPX_ENOMEM;
    if (!beyond_memory(call, window, members.length_count()))
        code = work.twice ? apply<Double<MembersPass>>(call, recipe, make)
                          : apply<Single<MembersPass>>(call, recipe, make);
    KipxXEfreea(call.xe, scratch);
    return code;
}

// A masked element; the call is admitted.
int32_t element_call(Call &call, uint32_t op, const kipx_strel &strel, const Element &element,
                     const kipx_brshape *room) {
    if ((op & 15) == KIPX_MORPH_COPY) return filter_call(call, KIPX_FILTER_COPY, {});
    if (!types_fit(call)) return KIPX_EINVAL;
    Work work;
    int32_t code = work_of(op, call.src[0].type, work);
    if (code == KIPX_EINVAL) return code;
    bool solid = element.solid();
    if ((work.kernel || !solid) && !has_kernel(call.channels, call.src[0].type)) return KIPX_EINVAL;
    if (code < 0) return code;
    Window window;
    if (!window_of(window, &strel, room)) return KIPX_EINVAL;
    bool gradient = (op & 15) == KIPX_MORPH_GRADIENT;
    if (solid && !gradient) return filter_call(call, filter_kind(op), window);
    if (code = goes_on(call); code < 1) return code;
    if (solid) cut_to_array(window, call);
    cut_to_reach(window);
    if (!solid) return members_call(call, element, window, work);
    Recipe recipe{window, Border::constant, work.finish, active_set(call.flags), 0};
    return apply<Single<RectPass>>(call, recipe, MakeRect{work, recipe.set});
}

bool same_channels(const kipx_arr &a, const kipx_arr &b) {
    return channels_of(a.volume[3]) == channels_of(b.volume[3]);
}

// One pixel is a copy.
bool is_copy(const Element &e) { return e.height == 1 && e.width == 1; }

int32_t copy_whole(KipxXE *xe, uint64_t flags, const FilterArrays &a) {
    const kipx_arr *dst = a.dst ? a.dst : a.src;
    if (!a.mask && !a.roi) return KipxCopy(xe, flags, dst, a.src, nullptr, nullptr);
    kipx_pos at{};
    for (int i = 0; a.roi && i < 3; ++i)
        at.at[i] = static_cast<uint32_t>(std::max(static_cast<int32_t>(a.roi->origin[i]), 0));
    return a.mask ? KipxCopyEx(xe, flags, dst, a.src, a.mask, a.roi, &at, &at)
                  : KipxCopy(xe, flags, dst, a.src, a.roi, &at);
}

int32_t filter_instead(Call &call, uint32_t op, const kipx_seshape *shape,
                       const kipx_brshape *room) {
    Window window{1, 1, 0, 0, 0, 0, 0, 0};
    bool copy = (op & 15) == KIPX_MORPH_COPY;
    if (!copy && !window_of(window, shape, room)) return KIPX_EINVAL;
    return filter_call(call, filter_kind(op), window);
}

int32_t flat(KIPX_FILTER_OPERANDS, FlatPlace mask, uint32_t op, const kipx_strel *strel) {
    Element element;
    if (masked(strel) && !element_of(element, *strel)) return KIPX_EINVAL;
    Call call;
    int32_t code = flat_filter(call, xe, flags, dims, volume, type, {dst, dst_strides},
                               {src, src_strides}, mask);
    if (code < 0) return code;
    if (!masked(strel)) return filter_instead(call, op, shape_of(strel), nullptr);
    return is_copy(element) ? filter_call(call, KIPX_FILTER_COPY, {})
                            : element_call(call, op, *strel, element, nullptr);
}

} // namespace
} // namespace kipx

using namespace kipx;

extern "C" {

const char *kipx_morphop_str(uint32_t op) {
    constexpr const char *names[16] = {
        "nul-morhop", nullptr,        nullptr,        "erode",          "dilate", "morph-close",
        "morph-open", "morph-bothat", "morph-tophat", "morph-gradient", nullptr,  nullptr,
        nullptr,      nullptr,        nullptr,        nullptr};
    const char *name = names[op & 15];
    return name ? name : "unknown-morhop";
}

int32_t KipxMorphop(KipxXE *xe, uint64_t flags, const kipx_arr *src, const kipx_arr *dst,
                    const kipx_arr *mask, const kipx_site *roi, uint32_t op,
                    const kipx_strel *strel) {
    Element element;
    bool has_mask = masked(strel);
    if (has_mask && !element_of(element, *strel)) return KIPX_EINVAL;
    if (has_mask ? is_copy(element) : (op & 15) == KIPX_MORPH_COPY)
        return copy_whole(xe, flags, {src, dst, mask, roi});
    if (has_mask && src && mask && !same_channels(*src, *mask)) return KIPX_EINVAL;
    Call call;
    kipx_brshape room;
    if (int32_t code = admit_filter(call, xe, flags, {src, dst, mask, roi}, room); code < 0)
        return code;
    if (!has_mask) {
        kipx_seshape own = normalised(shape_of(strel), call);
        return filter_instead(call, op, &own, &room);
    }
    return element_call(call, op, *strel, element, &room);
}

KIPX_SLICE(KipxTGAmorphop) {
    const auto *args = slice ? static_cast<const kipx_morphop_args *>(slice->context) : nullptr;
    Element element;
    if (!args || !masked(args->strel) || !element_of(element, *args->strel)) return KIPX_EINVAL;
    Call call;
    if (int32_t code = slice_filter(call, xe, flags, slice); code < 0) return code;
    return is_copy(element) ? filter_call(call, KIPX_FILTER_COPY, {})
                            : element_call(call, args->op, *args->strel, element, &args->room);
}

int32_t kipxa__emorphop(KIPX_FILTER_OPERANDS, const void *mask, const uint32_t *mask_strides,
                        uint32_t op, const kipx_strel *strel) {
    return flat(xe, flags, dims, volume, type, dst, dst_strides, src, src_strides,
                {mask, mask_strides}, op, strel);
}

int32_t kipxa__morphop(KIPX_FILTER_OPERANDS, uint32_t op, const kipx_strel *strel) {
    return flat(xe, flags, dims, volume, type, dst, dst_strides, src, src_strides, {}, op, strel);
}

int32_t kipxa_emorphop(KIPX_FILTER_ORIGINS, KIPX_FILTER_MASK, uint32_t op,
                       const kipx_strel *strel) {
    return flat(xe, flags, dims, volume, type, start_of(dims, dst, dst_origin, dst_strides),
                dst_strides, start_of(dims, src, src_origin, src_strides), src_strides,
                {start_of(dims, mask, mask_origin, mask_strides), mask_strides}, op, strel);
}

int32_t kipxa_morphop(KIPX_FILTER_ORIGINS, uint32_t op, const kipx_strel *strel) {
    return kipxa_emorphop(xe, flags, dims, volume, type, dst, dst_origin, dst_strides, src,
                          src_origin, src_strides, nullptr, nullptr, nullptr, op, strel);
}

#define KIPX_ONE_OPERATION(name, op)                                                               \
    int32_t kipxa__morphop_##name(KIPX_FILTER_OPERANDS, const kipx_strel *strel) {                 \
        return kipxa__morphop(xe, flags, dims, volume, type, dst, dst_strides, src, src_strides,   \
                              op, strel);                                                          \
    }
KIPX_ONE_OPERATION(erode, KIPX_MORPH_ERODE)
KIPX_ONE_OPERATION(dilate, KIPX_MORPH_DILATE)
KIPX_ONE_OPERATION(open, KIPX_MORPH_OPEN)
KIPX_ONE_OPERATION(close, KIPX_MORPH_CLOSE)
KIPX_ONE_OPERATION(tophat, KIPX_MORPH_TOPHAT)
KIPX_ONE_OPERATION(bothat, KIPX_MORPH_BOTHAT)

#define KIPX_DEFINE_KERNEL(name, op, T)                                                            \
    KIPX_MORPH_KERNEL(name) {                                                                      \
        return kipxa__morphop(xe, flags, dims, volume, KIPX_CODE_##T, dst, dst_strides, src,       \
                              src_strides, op, strel);                                             \
    }
#define KIPX_DEFINE_KERNELS(c, T)                                                                  \
    KIPX_DEFINE_KERNEL(kipxa__erode_c##c##_##T, KIPX_MORPH_ERODE, T)                               \
    KIPX_DEFINE_KERNEL(kipxa__dilate_c##c##_##T, KIPX_MORPH_DILATE, T)
KIPX_MORPH_KERNELS(KIPX_DEFINE_KERNELS)

#define KIPX_FIND_KERNEL(c, T, op)                                                                 \
    if (n == c && type == KIPX_CODE_##T) found = kipxa__##op##_c##c##_##T;
#define KIPX_ERODE_KERNEL(c, T) KIPX_FIND_KERNEL(c, T, erode)
#define KIPX_DILATE_KERNEL(c, T) KIPX_FIND_KERNEL(c, T, dilate)
#define KIPX_MORPH_TABLE(name, KERNEL)                                                             \
    kipx_morph_kernel name(uint32_t channels, uint32_t type, int32_t *status) {                    \
        uint32_t code = channels & 15, n = code == 11 ? 4 : code;                                  \
        kipx_morph_kernel found = nullptr;                                                         \
        KIPX_MORPH_KERNELS(KERNEL)                                                                 \
        if (status) *status = found ? 0 : KIPX_EINVAL;                                             \
        if (found) return found;                                                                   \
        /* It takes no notice of its arguments, whatever shape it is called in. */                 \
        return reinterpret_cast<kipx_morph_kernel>(reinterpret_cast<void *>(kipxa_proc_einval));   \
    }
KIPX_MORPH_TABLE(kipxa__erodefun_imp, KIPX_ERODE_KERNEL)
KIPX_MORPH_TABLE(kipxa__dilatefun_imp, KIPX_DILATE_KERNEL)
}
