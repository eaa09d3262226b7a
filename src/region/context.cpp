// region/context.cpp - feature sets: finding a feature, and where states lie in a region record.

#include <kipx/features.h>
#include <kipx/types.h>

int32_t KipxWTSFindexByMagic(const KipxWTSFDs *descriptors, int32_t count, uint32_t magic) {
    for (int32_t i = 0; descriptors && i < count; ++i)
        if (descriptors[i].magic == magic) return i;
    return -1;
}

KipxWTSLSC *KipxWTSLSCinit(KipxWTSLSC *context, KipxWTSFDs *descriptors, int32_t count,
                           const uint32_t volume[4], const uint32_t strides[4]) {
    if (!context) return nullptr;
    context->descriptors = descriptors;
    context->count = count;
    context->record_size = 0;
    KipxWTSLSCsetimvol(context, volume, strides);
    return KipxWTSLSCfixup(context) < 0 ? nullptr : context;
}

KipxWTSLSC *KipxWTSLSCinit2D(KipxWTSLSC *context, KipxWTSFDs *descriptors, int32_t count,
                             uint32_t height, uint32_t width, uint32_t stride) {
    KipxWTSLSC *result = KipxWTSLSCinit(context, descriptors, count, nullptr, nullptr);
    KipxWTSLSCsetimvol2D(context, height, width, stride);
    return result;
}

KipxWTSLSC *KipxWTSLSCsetimvol(KipxWTSLSC *context, const uint32_t volume[4],
                               const uint32_t strides[4]) {
    if (!context) return nullptr;
    for (int i = 0; i < 4; ++i) {
        context->volume[i] = volume ? volume[i] : 0;
        context->strides[i] = strides ? strides[i] : 0;
    }
    return context;
}

KipxWTSLSC *KipxWTSLSCsetimvol2D(KipxWTSLSC *context, uint32_t height, uint32_t width,
                                 uint32_t stride) {
    const uint32_t volume[4] = {1, height, width, 1};
    // There is one plane: its stride is never used.
    const uint32_t strides[4] = {0, stride, 1, 1};
    return KipxWTSLSCsetimvol(context, volume, strides);
}

int32_t KipxWTSLSCfixup(KipxWTSLSC *context) {
    constexpr int32_t head = sizeof(KipxWTSregion);
    if (!context) return KIPX_EINVAL;
    if (context->record_size > head) return context->record_size;
    if (context->count > 0 && !context->descriptors) return KIPX_EINVAL;
    // Measured first, so that a set that does not fit is left as it is. Room is kept for the node
    // that shares the region's block.
    constexpr uint64_t most = INT32_MAX - sizeof(KipxSTnode);
    uint64_t total = head;
    for (int32_t i = 0; i < context->count && total <= most; ++i)
        total += (uint64_t{context->descriptors[i].state_size} + 7) & ~uint64_t{7};
    if (total > most) return KIPX_EINVAL;
    uint32_t offset = head;
    for (int32_t i = 0; i < context->count; ++i) {
        context->descriptors[i].state_offset = offset;
        offset += (context->descriptors[i].state_size + 7) & ~UINT32_C(7);
    }
    return context->record_size = static_cast<int32_t>(total);
}
