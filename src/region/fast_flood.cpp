// region/fast_flood.cpp - the two ways of the fast flood.
#include "region/fast_flood.h"

#include <kipx/types.h>

#include "region/one_block.h"
#include "region/tiles.h"
#include "region/tree_sink.h"

namespace kipx {
namespace {

// A larger image is flooded in tiles: its cells and boundary would leave the caches. Where a flood runs
// along or turns in one way only, they do not matter.
constexpr uint64_t most_in_one_block = uint64_t{1} << 22;

// Where a flood turns with every pixel, queues are read all over; a larger image does better with stacks.
uint64_t most_queued(Look look) {
    switch (look) {
    case Look::busy:
        return uint64_t{1} << 19;
    case Look::woven:
        return uint64_t{1} << 22;
    default:
        return UINT64_MAX;
    }
}

} // namespace

int32_t FastFlood::open(KipxXE *xe, uint64_t flags, const FloodImage &image) {
    set_ = active_set(flags);
    Look look = look_of(image, {0, 0, image.height, image.width});
    const bool large = image.pixels() > most_in_one_block;
    in_tiles_ = large && (look == Look::soft || look == Look::busy);
    const Manner turning = image.pixels() > most_queued(look) ? Manner::stacks : Manner::queues;
    manner_ = look == Look::flat ? Manner::runs : turning;
    uint64_t cell = image.mask.at ? sizeof(uint16_t) : sizeof(uint8_t);
    uint64_t size = in_tiles_ ? tiles_scratch_size(image) : one_block_size(image, cell);
    return scratch_.open(xe, size) ? 0 : KIPX_ENOMEM;
}

int32_t FastFlood::run(const FloodImage &image, const KipxWTSLSC &levelset, KipxFWTSRES *store) {
    if (int32_t code = fast_store_prepare(store, levelset); code < 0) return code;
    TreeSink sink(image.width, MakeInStore{store});
    bool complete = false;
    if (in_tiles_)
        complete = flood_in_tiles(image, largest_tile, set_, scratch_, store->pixels, sink);
    else if (image.mask.at)
        complete = OneBlock<uint16_t>(image, manner_, set_, scratch_).flood(sink, store->pixels);
    else
        complete = OneBlock<uint8_t>(image, manner_, set_, scratch_).flood(sink, store->pixels);
    if (complete) __KipxSTBrootnode(&store->builder, sink.root());
    scratch_.rewind();
    if (!complete) fast_store_forget(store);
    return complete ? 0 : KIPX_ENOMEM;
}

} // namespace kipx
