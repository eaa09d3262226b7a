#include "counting.h"

#include <zu/zu.h>

#include <dlfcn.h>

namespace {

struct {
    long asked = 0, refused = 0, at = -1;
    bool all_later = false;
    long heap = 0, storages = 0;
} counts;

bool granted() {
    long k = counts.asked++;
    return counts.at < 0 || k < counts.at || (k > counts.at && !counts.all_later);
}

// The function of the name in the runtime behind this library.
template<class Function> Function *behind(Function *, const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}
#define BEHIND(name) static auto *const real = behind(name, #name)

template<class T> T *counted(T *result, long &live, bool fresh = true) {
    counts.refused += !result;
    live += result && fresh;
    return result;
}

void gone(const void *what, long &live) { live -= what != nullptr; }

} // namespace

namespace kipx::test {

void refuse(long k, bool all_later) {
    counts.asked = counts.refused = 0;
    counts.at = k, counts.all_later = all_later;
}
long asked() { return counts.asked; }
long refused() { return counts.refused; }
long heap_blocks() { return counts.heap; }
long open_storages() { return counts.storages; }

} // namespace kipx::test

extern "C" {

void *_ZuMcalloc(size_t count, size_t size) {
    BEHIND(_ZuMcalloc);
    return counted(granted() ? real(count, size) : nullptr, counts.heap);
}
void *_ZuMrealloc(void *block, size_t size) {
    BEHIND(_ZuMrealloc);
    return counted(granted() ? real(block, size) : nullptr, counts.heap, !block);
}
void _ZuMfree(void *block) {
    BEHIND(_ZuMfree);
    gone(block, counts.heap), real(block);
}
void ZuMfree(void *block) { _ZuMfree(block); }

ZuSMEMSTG *ZuSMEMSTGopen(void *header, uint64_t parent, uint64_t reserved) {
    BEHIND(ZuSMEMSTGopen);
    return counted(granted() ? real(header, parent, reserved) : nullptr, counts.storages);
}
void *ZuSMEMSTGaalloc(ZuSMEMSTG *storage, size_t size, size_t alignment, uint64_t reserved) {
    BEHIND(ZuSMEMSTGaalloc);
    long blocks = 0; // a rewind may release them unseen
    return counted(granted() ? real(storage, size, alignment, reserved) : nullptr, blocks);
}
void ZuMEMSTGclose(ZuSMEMSTG *storage) {
    BEHIND(ZuMEMSTGclose);
    gone(storage, counts.storages), real(storage);
}
void ZuMEMSTGdestroy(ZuSMEMSTG *storage) {
    BEHIND(ZuMEMSTGdestroy);
    gone(storage, counts.storages), real(storage);
}
}
