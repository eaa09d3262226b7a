// region/detect.cpp - stable regions of a tree.
#include "region/detect.h"

#include <cmath>
#include <cstdlib>

namespace kipx {
namespace {

KipxWTSregion *region_of(const KipxSTnode *node) {
    return static_cast<KipxWTSregion *>(node->data);
}

bool append(KipxMSERlist *list, KipxWTSregion *region) {
    if (list->count == list->capacity) {
        uint64_t wanted = list->capacity ? 2 * list->capacity : 2;
        if (wanted > SIZE_MAX / sizeof *list->entries) return false;
        void *grown = _ZuMrealloc(list->entries, wanted * sizeof *list->entries);
        if (!grown) return false;
        list->entries = static_cast<KipxWTSregion **>(grown);
        list->capacity = wanted;
    }
    list->entries[list->count++] = region;
    return true;
}

bool any_child_kept(const KipxSTnode *node) {
    for (const KipxSTnode *c = node->child; c; c = c->next)
        if (region_of(c)->kept) return true;
    return false;
}

int64_t level_distance(const KipxWTSregion *a, const KipxWTSregion *b) {
    return std::llabs(int64_t{a->level} - b->level);
}

// The first region around this one that is delta levels or more away, or null.
const KipxWTSregion *reference(const KipxSTnode *node, int32_t delta) {
    const KipxSTnode *p = node->parent;
    while (p && level_distance(region_of(p), region_of(node)) < delta) p = p->parent;
    return p ? region_of(p) : nullptr;
}

// Takes back the regions inside this one that are nearly as large. Below one that is taken back
// nothing is looked at: it did the same for its own surroundings.
void prune(const KipxSTnode *outer, float min_diversity) {
    int32_t area = region_of(outer)->area;
    const KipxSTnode *node = outer->child;
    while (node) {
        KipxWTSregion *r = region_of(node);
        bool close = min_diversity > __KipxMSERareaVariation(r->area, area);
        if (close && !r->kept && node->child) {
            node = node->child;
            continue;
        }
        if (close) r->kept = 0;
        while (node != outer && !node->next) node = node->parent;
        if (node == outer) return;
        node = node->next;
    }
}

// Decides on one node, its children having been decided on.
bool decide(KipxMSERlist *list, const KipxSTnode *node, const KipxMSERparms &parms) {
    KipxWTSregion *r = region_of(node);
    if (r->area < parms.min_area) return true;
    bool too_big = r->area > parms.max_area;
    bool visited = r->level >= parms.delta;
    if (too_big && !(visited && any_child_kept(node))) return true;
    const KipxWTSregion *around = reference(node, parms.delta);
    if (!around) return true;
    // Growth is measured over exactly delta levels; where the tree has no region there, the region
    // has not changed for longer than that.
    float variation = 0;
    if (level_distance(around, r) == parms.delta)
        variation = __KipxMSERregionVariationAbs(r, around);
    if (!(variation <= parms.max_variation)) return true;
    bool room = true;
    if (!too_big) {
        r->kept = 1;
        room = append(list, r);
    }
    prune(node, parms.min_diversity);
    return room;
}

} // namespace

bool detect_regions(KipxMSERlist *list, KipxST *tree, const KipxMSERparms &parms) {
    if (!tree || !tree->root) return true;
    uint64_t before = list->count;
    bool complete = true;
    const KipxSTnode *root = tree->root, *node = root;
    for (bool down = true;;) {
        if (down) {
            region_of(node)->kept = 0;
            if (node->child && region_of(node)->level >= parms.delta) {
                node = node->child;
                continue;
            }
        }
        complete &= decide(list, node, parms);
        if (node == root) break;
        down = node->next != nullptr;
        node = down ? node->next : node->parent;
    }
    uint64_t kept = before;
    for (uint64_t i = before; i < list->count; ++i)
        if (list->entries[i]->kept) list->entries[kept++] = list->entries[i];
    list->count = kept;
    return complete;
}

} // namespace kipx

KipxMSERlist *KipxDetectMSERs(KipxMSERlist *list, KipxST *tree, const KipxMSERparms *parms) {
    if (list && parms) kipx::detect_regions(list, tree, *parms);
    return list;
}

KipxMSERlist *KipxDetectFMSERs(KipxMSERlist *list, KipxST *tree, const KipxMSERparms *parms) {
    return KipxDetectMSERs(list, tree, parms);
}

float __KipxMSERareaVariation(int32_t a, int32_t b) {
    float fb = static_cast<float>(b);
    return (fb - static_cast<float>(a)) / fb;
}

float __KipxMSERareaVariationAbs(int32_t a, int32_t b) {
    return std::fabs(__KipxMSERareaVariation(a, b));
}

float __KipxMSERregionVariation(const KipxWTSregion *r, const KipxWTSregion *s) {
    return __KipxMSERareaVariation(r->area, s->area);
}

float __KipxMSERregionVariationAbs(const KipxWTSregion *r, const KipxWTSregion *s) {
    return __KipxMSERareaVariationAbs(r->area, s->area);
}
