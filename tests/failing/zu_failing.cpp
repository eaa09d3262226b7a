// zu_failing.cpp - the base runtime once more, in the simplest way that obeys its header.
//
// A storage is a list of heap blocks in the order in which they were taken; a serial number common
// to all storages tells which are newer than a mark, children's blocks included. Bytes drawn are
// the bytes asked for. Everything is looked up by walking, for clarity.
#include "zu_failing.h"
#include <cstdlib>
#include <cstring>
#include <list>
#include <map>

namespace {

struct Block {
    void *memory;
    size_t size;
    uint64_t serial;
};

struct Store {
    ZuSMEMSTG *header = nullptr;
    Store *parent = nullptr;
    bool made_here = false;
    uint64_t serial = 0; // of its opening
    size_t limit = 0, peak = 0;
    std::list<Block> blocks;
    std::list<Store *> children;
};

struct Runtime {
    long count = 0, fail_at = -1, fail_from = -1;
    long live_blocks = 0;
    size_t live_bytes = 0;
    uint64_t serial = 0;
    std::map<void *, size_t> heap;
};

Runtime &runtime() {
    static auto *const the = new Runtime;
    return *the;
}

bool granted() {
    Runtime &r = runtime();
    const long k = r.count++;
    return k != r.fail_at && (r.fail_from < 0 || k < r.fail_from);
}

void came(size_t size) { runtime().live_blocks++, runtime().live_bytes += size; }
void went(size_t size) { runtime().live_blocks--, runtime().live_bytes -= size; }

Store *store_of(const ZuSMEMSTG *storage) { return reinterpret_cast<Store *>(storage->word[0]); }

size_t drawn(const Store &store) {
    size_t sum = 0;
    for (const Block &block : store.blocks) sum += block.size;
    for (const Store *child : store.children) sum += drawn(*child);
    return sum;
}

void release(const Block &block) {
    went(block.size);
    std::free(block.memory);
}

// Everything newer than serial; storages opened since vanish without their headers being touched,
// unless these were made here.
void forget(Store *store);
void rewind(Store &store, uint64_t serial) {
    while (!store.blocks.empty() && store.blocks.back().serial > serial) {
        release(store.blocks.back());
        store.blocks.pop_back();
    }
    for (auto child = store.children.begin(); child != store.children.end();) {
        Store *const s = *child++;
        if (s->serial > serial) {
            forget(s);
        } else {
            rewind(*s, serial);
        }
    }
}

void forget(Store *store) {
    rewind(*store, 0);
    if (store->parent) store->parent->children.remove(store);
    if (store->made_here) {
        went(sizeof(ZuSMEMSTG));
        std::free(store->header);
    }
    delete store;
}

void close(ZuSMEMSTG *storage) {
    if (!storage) return;
    Store *const store = store_of(storage);
    if (!store) return;
    if (!store->made_here) *storage = ZuSMEMSTG{};
    forget(store);
}

bool within_limits(const Store &store, size_t size) {
    for (const Store *s = &store; s; s = s->parent) {
        const size_t now = drawn(*s);
        if (s->limit && (now > s->limit || size > s->limit - now)) return false;
    }
    return true;
}

} // namespace

void zu_fail_at(long k) { runtime().fail_at = k < 0 ? -1 : runtime().count + k; }
void zu_fail_from(long k) { runtime().fail_from = k < 0 ? -1 : runtime().count + k; }
long zu_allocations(void) { return runtime().count; }
long zu_live_blocks(void) { return runtime().live_blocks; }
size_t zu_live_bytes(void) { return runtime().live_bytes; }
void zu_reset(void) { runtime().count = 0, runtime().fail_at = runtime().fail_from = -1; }

void *_ZuMcalloc(size_t count, size_t size) {
    if (!granted() || (size && count > SIZE_MAX / size)) return nullptr;
    const size_t bytes = count * size;
    void *block = std::calloc(bytes > 0 ? bytes : 1, 1);
    if (!block) return nullptr;
    runtime().heap[block] = bytes;
    came(bytes);
    return block;
}

void *_ZuMrealloc(void *block, size_t size) {
    if (size == 0) size = 1;
    if (!granted()) return nullptr;
    const auto old = runtime().heap.find(block);
    if (block && old == runtime().heap.end()) std::abort();
    const size_t old_size = block ? old->second : 0;
    // Always another place, so that stale pointers are found.
    void *fresh = std::malloc(size);
    if (!fresh) return nullptr;
    std::memset(fresh, 0xA5, size);
    runtime().heap[fresh] = size;
    came(size);
    if (block) {
        std::memcpy(fresh, block, old_size < size ? old_size : size);
        ZuMfree(block);
    }
    return fresh;
}

void _ZuMfree(void *block) {
    if (!block) return;
    const auto entry = runtime().heap.find(block);
    if (entry == runtime().heap.end()) std::abort();
    went(entry->second);
    runtime().heap.erase(entry);
    std::free(block);
}

void ZuMfree(void *block) { _ZuMfree(block); }

ZuSMEMSTG *ZuSMEMSTGopen(void *header, uint64_t parent, uint64_t) {
    if (!granted()) return nullptr;
    auto *storage = static_cast<ZuSMEMSTG *>(header ? header : std::malloc(sizeof(ZuSMEMSTG)));
    if (!storage) return nullptr;
    auto *const store = new Store;
    *storage = ZuSMEMSTG{};
    storage->word[0] = reinterpret_cast<uintptr_t>(store);
    store->header = storage;
    store->made_here = header == nullptr;
    store->serial = ++runtime().serial;
    if (store->made_here) came(sizeof(ZuSMEMSTG));
    if (parent) {
        store->parent = store_of(reinterpret_cast<ZuSMEMSTG *>(static_cast<uintptr_t>(parent)));
        store->parent->children.push_back(store);
    }
    return storage;
}

void *ZuSMEMSTGaalloc(ZuSMEMSTG *storage, size_t size, size_t alignment, uint64_t) {
    if (!granted() || !storage || (alignment & (alignment - 1))) return nullptr;
    Store &store = *store_of(storage);
    if (alignment < 16) alignment = 16;
    if (size == 0) size = 1;
    void *memory = nullptr;
    if (size > SIZE_MAX / 2 || !within_limits(store, size)) return nullptr;
    if (alignment > SIZE_MAX / 4 || posix_memalign(&memory, alignment, size)) return nullptr;
    std::memset(memory, 0xA5, size);
    store.blocks.push_back({memory, size, ++runtime().serial});
    came(size);
    for (Store *s = &store; s; s = s->parent) {
        if (s->peak < drawn(*s)) s->peak = drawn(*s);
    }
    return memory;
}

void ZuSMEMSTGfree(ZuSMEMSTG *storage, void *block) {
    if (!storage || !block) return;
    std::list<Block> &blocks = store_of(storage)->blocks;
    for (auto b = blocks.begin(); b != blocks.end(); ++b) {
        if (b->memory != block) continue;
        release(*b);
        blocks.erase(b);
        return;
    }
    std::abort();
}

void ZuSMEMSTGgetstate(ZuSMEMSTATE *state, ZuSMEMSTG *storage) {
    if (!state) return;
    *state = ZuSMEMSTATE{};
    if (!storage) return;
    state->word[0] = reinterpret_cast<uintptr_t>(storage);
    state->word[1] = runtime().serial;
}

void ZuSMEMSTGsetstate(ZuSMEMSTG *storage, const ZuSMEMSTATE *state) {
    if (!storage || !state) return;
    if (state->word[0] != reinterpret_cast<uintptr_t>(storage)) std::abort();
    rewind(*store_of(storage), state->word[1]);
}

void ZuSMEMSTGclear(ZuSMEMSTG *storage) {
    if (storage) rewind(*store_of(storage), 0);
}

void ZuMEMSTGclose(ZuSMEMSTG *storage) { close(storage); }
void ZuMEMSTGdestroy(ZuSMEMSTG *storage) { close(storage); }

void ZuSMEMSTGsetlimit(ZuSMEMSTG *storage, size_t bytes) {
    if (storage) store_of(storage)->limit = bytes;
}
size_t ZuSMEMSTGdrawn(const ZuSMEMSTG *storage) { return storage ? drawn(*store_of(storage)) : 0; }
size_t ZuSMEMSTGpeak(const ZuSMEMSTG *storage) { return storage ? store_of(storage)->peak : 0; }
