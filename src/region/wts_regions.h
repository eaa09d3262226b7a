// region/wts_regions.h - region records of the watershed builder, and what floods do with them.
//
// Gives    the operations of the record "wtsl" that are the same in all four chains, and those that
//          differ. Arguments are as kipx/features.h says; none may be null where a flood calls
//          them.
#pragma once

#include <kipx/features.h>

namespace kipx {

void *allocate(KipxSTB *builder, size_t size, size_t alignment);
int32_t finish(KipxSTB *builder, KipxWTSLSC *context, KipxST **output, uint32_t entries);
// A region record, states initialised, behind room bytes in a zero-filled block; bound to no node.
KipxWTSregion *region_behind(KipxSTB *builder, KipxWTSLSC *context, size_t room);
// The same behind its node, bound both ways.
KipxWTSregion *new_region(void *reserved, KipxSTB *builder, KipxWTSLSC *context, void *reserved2);
void destroy_features(KipxSTB *builder, KipxWTSLSC *context, KipxWTSregion *region);
void dispose(KipxSTB *builder, KipxWTSLSC *context, KipxWTSregion *region);

// Any feature set: the area, and every state by its descriptor.
void update_any(KipxSTB *builder, KipxWTSLSC *context, KipxWTSregion *region,
                const uint32_t *pixels, uint32_t count);
void update2D_any(KipxSTB *builder, KipxWTSLSC *context, KipxWTSregion *region,
                  const uint32_t *pairs, uint32_t count);
// One moment feature: the area and the sums; the state's count is set when it is gathered.
void update_moments(KipxSTB *builder, KipxWTSLSC *context, KipxWTSregion *region,
                    const uint32_t *pixels, uint32_t count);
void update2D_moments(KipxSTB *builder, KipxWTSLSC *context, KipxWTSregion *region,
                      const uint32_t *pairs, uint32_t count);
// One pixel feature whose pixels somebody else keeps: the area alone.
void update_area(KipxSTB *builder, KipxWTSLSC *context, KipxWTSregion *region,
                 const uint32_t *pixels, uint32_t count);

// Whether a flood into this builder leaves areas and links and nothing else: the builder is configured
// by ours, and there are no features. Nobody hears then how pixels come and regions merge.
bool only_counts(const KipxSTB *builder, const KipxWTSLSC &context);

// Areas and links; states stay apart until they are gathered.
void merge_links(KipxSTB *builder, KipxWTSLSC *context, KipxWTSregion *parent,
                 KipxWTSregion *child);
// States too, each by its descriptor's merge.
void merge_states(KipxSTB *builder, KipxWTSLSC *context, KipxWTSregion *parent,
                  KipxWTSregion *child);

} // namespace kipx
