// region/fast_store.cpp - memory of the fast result store, and reading its pixels.
#include "region/fast_store.h"

#include <kipx/types.h>

#include <algorithm>
#include <cstring>
#include <initializer_list>

#include "region/builder.h"
#include "region/chain.h"
#include "region/states.h"

namespace kipx {
namespace {

// A run of nodes. Blocks are kept, and filled again from the first on, until the storage is rolled
// back.
struct Block {
    Block *next;
    uint64_t size; // bytes behind this head
    uint64_t used;
    uint8_t *nodes() { return reinterpret_cast<uint8_t *>(this + 1); }
};
static_assert(sizeof(Block) % 8 == 0);

constexpr uint64_t smallest_block = 16 << 10, largest_block = 1 << 20;

Block *add_block(KipxFWTSRES *store, uint64_t node_size) {
    ZuSMEMSTG *storage = builder_storage(&store->builder);
    Block *last = static_cast<Block *>(store->last_block);
    uint64_t size = last ? std::min(2 * last->size, largest_block) : smallest_block;
    size = std::max(size, node_size);
    auto *block = static_cast<Block *>(ZuSMEMSTGaalloc(storage, sizeof(Block) + size, 8, 0));
    if (!block) return nullptr;
    *block = Block{nullptr, size, 0};
    if (last)
        last->next = block;
    else
        store->first_block = block;
    store->last_block = block;
    return block;
}

// Everything that lay in the storage is about to go.
void drop_memory(KipxFWTSRES *store) {
    store->pixels = nullptr;
    store->capacity = 0;
    store->first_block = store->last_block = nullptr;
    store->count = 0;
}

bool take_pixels(KipxFWTSRES *store, uint64_t words) {
    if (words <= store->capacity) return true;
    ZuSMEMSTG *storage = builder_storage(&store->builder);
    auto *pixels = static_cast<uint32_t *>(
        storage ? ZuSMEMSTGaalloc(storage, words * sizeof(uint32_t), 8, 0) : nullptr);
    if (!pixels) return false;
    ZuSMEMSTGfree(storage, store->pixels);
    store->pixels = pixels;
    store->capacity = words;
    return true;
}

KipxFWTSRES *as_store(KipxSTB *builder) { return reinterpret_cast<KipxFWTSRES *>(builder); }

} // namespace

int32_t fast_store_prepare(KipxFWTSRES *store, const KipxWTSLSC &context) {
    if (!__KipxSTBtree(&store->builder)) return KIPX_EINVAL;
    uint64_t height = context.volume[1], width = context.volume[2];
    uint64_t node_size = offsetof(KipxFWTSRESnode, region) +
                         (static_cast<uint64_t>(context.record_size) + 7) / 8 * 8;
    if (!take_pixels(store, height * width + 2 * (width + 2))) return KIPX_ENOMEM;
    if (!store->first_block && !add_block(store, node_size)) return KIPX_ENOMEM;
    fast_store_forget(store);
    store->levelset = context;
    store->node_size = static_cast<uint32_t>(node_size);
    store->builder.specialisation = &store->levelset;
    __KipxSTBrootnode(&store->builder, nullptr);
    return 0;
}

KipxFWTSRESnode *fast_store_take(KipxFWTSRES *store) {
    auto *block = static_cast<Block *>(store->last_block);
    while (block->size - block->used < store->node_size) {
        Block *next = block->next ? block->next : add_block(store, store->node_size);
        if (!next) return nullptr;
        store->last_block = block = next;
    }
    auto *node = reinterpret_cast<KipxFWTSRESnode *>(block->nodes() + block->used);
    block->used += store->node_size;
    std::memset(node, 0, store->node_size);
    node->index = store->count++;
    node->node.data = &node->region;
    node->region.node = &node->node;
    init_states(store->levelset, &node->region);
    return node;
}

void fast_store_forget(KipxFWTSRES *store) {
    if (store->count > 0 && has_destroy(store->levelset))
        kipx_fwtsr_walk(
            store,
            [](KipxFWTSRESnode *node, void *context) {
                destroy_states(*static_cast<const KipxWTSLSC *>(context), &node->region);
                return 1;
            },
            &store->levelset);
    for (auto *b = static_cast<Block *>(store->first_block); b; b = b->next) b->used = 0;
    store->last_block = store->first_block;
    store->count = 0;
}

namespace {

// The tree is being emptied: all states go here at once, and what follows is the roll-back of the
// storage, so that no node needs a visit of its own.
KipxAGTvisitor release_everything(KipxSTB *builder) {
    fast_store_forget(as_store(builder));
    drop_memory(as_store(builder));
    return nullptr;
}

void on_detach(KipxSTB *builder, const KipxSTBIF *, KipxST *) { release_everything(builder); }

// A tree whose owner made it anew was let go without a word, and the storage may have been rolled
// back since.
void on_attach(KipxSTB *builder, const KipxSTBIF *) { drop_memory(as_store(builder)); }

// The nodes of a failed flood hang in no tree yet; they are known by their place in memory.
void dispose(KipxSTB *builder, KipxWTSLSC *, KipxWTSregion *) {
    fast_store_forget(as_store(builder));
}

// Gives a region's state the pixels first .. end of the store's array.
void add_run(const KipxFWTSRES *store, const KipxWTSFDs &feature, const KipxWTSregion *region,
             uint32_t first, uint32_t end) {
    constexpr uint32_t batch = 256;
    uint32_t buffer[2 * batch], start = kipx_fwtsr_node(region)->start;
    while (first < end) {
        uint32_t n = std::min(batch, end - first);
        if (feature.update2D) {
            kipx_fwtsr_fetch2D(store, region, first - start, n, buffer);
            feature.update2D(state_of(feature, region), buffer, n);
        } else {
            kipx_fwtsr_fetch(store, region, first - start, n, buffer);
            feature.update(state_of(feature, region), buffer, n);
        }
        first += n;
    }
}

// Completes one state of regions[at]. Regions just before it in the list that are complete and lie
// in its run are used whole, after the pixels of its own. Any order of the list gives every pixel
// once; post-order makes the most of it.
int32_t complete_state(const KipxFWTSRES *store, const KipxWTSFDs &feature,
                       KipxWTSregion *const *regions, uint64_t at) {
    KipxWTSregion *region = regions[at];
    if (complete(feature, region)) return holds_all(feature, region) ? 0 : KIPX_ENOMEM;
    if (!make_room(feature, region)) return KIPX_ENOMEM;
    uint32_t start = kipx_fwtsr_node(region)->start;
    for (bool own : {true, false}) {
        uint32_t right = start + static_cast<uint32_t>(region->area);
        for (uint64_t i = at; i-- > 0;) {
            const KipxWTSregion *inner = regions[i];
            uint32_t from = kipx_fwtsr_node(inner)->start;
            if (from < start) break;
            uint32_t to = from + static_cast<uint32_t>(inner->area);
            if (to > right || inner == region || !complete(feature, inner)) continue;
            if (own)
                add_run(store, feature, region, to, right);
            else
                absorb(feature, region, inner);
            right = from;
        }
        if (own) add_run(store, feature, region, start, right);
    }
    feature.ongather(state_of(feature, region), region);
    return holds_all(feature, region) ? 0 : KIPX_ENOMEM;
}

int32_t gather(KipxSTB *builder, KipxWTSLSC *, KipxWTSregion *const *regions, uint64_t count) {
    const KipxFWTSRES *store = as_store(builder);
    for (uint64_t i = 0; i < count; ++i)
        if (!regions[i]) return KIPX_EINVAL;
    int32_t result = 0;
    for (int32_t f = 0; f < store->levelset.count; ++f) {
        const KipxWTSFDs &feature = store->levelset.descriptors[f];
        if (!can_gather(feature) || (!feature.update2D && !feature.update)) continue;
        for (uint64_t i = 0; i < count; ++i) {
            int32_t code = complete_state(store, feature, regions, i);
            if (code < 0) result = code;
        }
    }
    return result;
}

struct Chain {
    KipxSTBIF stbl;
    KipxWTSIF wtsl;
    KipxIFrecord fwts;
    KipxIFrecord end;
};

constexpr Chain chain = {
    {KIPX_TAG_STBL, sizeof(KipxSTBIF), release_everything, on_attach, on_detach},
    {KIPX_TAG_WTSL, sizeof(KipxWTSIF), nullptr, nullptr, nullptr, nullptr, nullptr, dispose,
     nullptr, nullptr, nullptr, gather},
    {KIPX_TAG_FWTS, sizeof(KipxIFrecord)},
    {0, 0}};

} // namespace
} // namespace kipx

using namespace kipx;

KipxFWTSRES *KipxFWTSRESopen(KipxFWTSRES *store, KipxST *tree, ZuSMEMSTG *storage,
                             ZuSMEMSTG *parent) {
    return as_store(KipxSTBopen(store ? &store->builder : nullptr, &chain, KIPX_FWTSRES_EXTSIZE,
                                tree, storage, parent));
}

void KipxFWTSRESclose(KipxFWTSRES *store, int32_t flag) {
    if (store) KipxSTBclose(&store->builder, flag);
}

const void *KipxFWTSRESxinterface(void) { return &chain; }

KipxFWTSRES *KipxFWTSRESfrombuilder(KipxSTB *builder) {
    if (!builder || !(builder->flags & KIPX_STB_INITIALISED)) return nullptr;
    return find_record(builder->interface_chain, KIPX_TAG_FWTS, sizeof(KipxIFrecord))
               ? as_store(builder)
               : nullptr;
}

uint32_t kipx_fwtsr_count(const KipxFWTSRES *store) { return store ? store->count : 0; }

void kipx_fwtsr_walk(KipxFWTSRES *store, kipx_fwtsr_visitor visitor, void *arg) {
    if (!store || !visitor || store->count == 0) return;
    for (auto *b = static_cast<Block *>(store->first_block); b; b = b->next)
        for (uint64_t at = 0; at < b->used; at += store->node_size)
            if (visitor(reinterpret_cast<KipxFWTSRESnode *>(b->nodes() + at), arg) == 0) return;
}

KipxFWTSRESnode *kipx_fwtsr_node(const KipxWTSregion *region) {
    if (!region) return nullptr;
    auto *at = reinterpret_cast<const uint8_t *>(region) - offsetof(KipxFWTSRESnode, region);
    return reinterpret_cast<KipxFWTSRESnode *>(const_cast<uint8_t *>(at));
}

const uint32_t *kipx_fwtsr_run(const KipxFWTSRES *store, const KipxWTSregion *region) {
    return store && store->pixels && region ? store->pixels + kipx_fwtsr_node(region)->start
                                            : nullptr;
}

namespace {

// Hands up to count words of the region's run to take(i, row, column).
template<class Take>
uint32_t each_pixel(const KipxFWTSRES *store, const KipxWTSregion *region, uint32_t first,
                    uint32_t count, Take take) {
    const uint32_t *run = kipx_fwtsr_run(store, region);
    uint32_t area = run ? static_cast<uint32_t>(region->area) : 0;
    if (first >= area) return 0;
    count = std::min(count, area - first);
    uint32_t stride = store->levelset.volume[2] + 1;
    for (uint32_t i = 0; i < count; ++i)
        if (!take(i, run[first + i] / stride, run[first + i] % stride)) return i;
    return count;
}

} // namespace

uint32_t kipx_fwtsr_fetch2D(const KipxFWTSRES *store, const KipxWTSregion *region, uint32_t first,
                            uint32_t count, uint32_t *pairs) {
    return each_pixel(store, region, first, count, [=](uint32_t i, uint32_t row, uint32_t column) {
        pairs[2 * uint64_t{i}] = row;
        pairs[2 * uint64_t{i} + 1] = column;
        return true;
    });
}

uint32_t kipx_fwtsr_fetch(const KipxFWTSRES *store, const KipxWTSregion *region, uint32_t first,
                          uint32_t count, uint32_t *pixels) {
    return each_pixel(store, region, first, count, [=](uint32_t i, uint32_t row, uint32_t column) {
        pixels[i] = row * store->levelset.volume[2] + column;
        return true;
    });
}

void kipx_fwtsr_walkPixels(const KipxFWTSRES *store, const KipxWTSregion *region,
                           kipx_fwtsr_pixelvisitor visitor, void *arg) {
    if (visitor)
        each_pixel(store, region, 0, UINT32_MAX, [=](uint32_t, uint32_t row, uint32_t column) {
            return visitor(row, column, arg) != 0;
        });
}
