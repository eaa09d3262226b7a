// zu/storage.cpp - the stacked memory storage.
//
// A storage draws segments from the heap, or from its parent, and cuts blocks from them.
//   Shared segments form a chain; blocks are bumped off the newest one, the open segment, and off no
//   other. A segment is twice as long as the one before, from 64 KiB to 4 MiB. A block longer than
//   half the open segment, or aligned to more than 4096, has a segment of its own, which goes back at
//   once when the block does. What a child draws is such a block of its parent; hence nothing that
//   happens to other blocks of the parent can move or release it.
// Every block has a head of 16 bytes in front: length, distance to the block below, the padding that
// its alignment cost, live or dead, and the moment of the storage in which it was taken.
//
// Invariants, outside of the functions:
//   1. Each shared segment is a stack of its own: last is its topmost block and is live, top is that
//      block's end. Dead blocks lie only under live ones. So a block given back under others is room
//      again as soon as those above it in its own segment have gone.
//   2. A shared segment without blocks is the open one; any other has gone back. When the open one is
//      empty and the one below it is at least half empty, the lower one becomes the open one; this
//      slack keeps a program that swings around a boundary from drawing and returning each time.
//   3. A mark is the storage's moment, and a block is newer than a mark exactly if its moment is
//      greater. The first block after a mark or a rewind begins a moment that never was before
//      (clock counts them); a rewind brings the mark's own moment back. So a mark depends on nothing
//      but what has been taken and rewound, and clock >= moment >= that of every block. Moments never
//      fall from older to newer blocks of a segment, nor along either chain. A rewind therefore only
//      ever pops blocks, returns whole segments where the first block is newer, and walks the blocks
//      of one segment at most.
//   4. drawn is the sum of the sizes of the segments in both chains, and never passes the limit while
//      growing. peak >= drawn.
//
// A release of the parent's memory (rewind, clear, close) past a child's segments ends the child: it
// must then be neither used nor closed. Its header, when made here, is such a block of the parent too
// and goes the same way, so nothing leaks.
#include <zu/zu.h>

#include <algorithm>
#include <new>

#include "zu/poison.h"

namespace zu {
namespace {

constexpr size_t unit = 16; // everything is counted and aligned in these
constexpr size_t first_segment = size_t{64} << 10;
constexpr size_t last_segment = size_t{4} << 20;
constexpr size_t most_shared_alignment = 4096;
constexpr size_t line = 64;                             // segments are whole cache lines
constexpr size_t most_drawn = (size_t{1} << 42) - line; // what 36 bits of lines can count
constexpr size_t limit_step = size_t{1} << 10, peak_step = size_t{1} << 14;
constexpr uint64_t last_moment = (uint64_t{1} << 47) - 1;
constexpr uint64_t live = 0x5acb1d, dead = 0xd1eb0b; // unlike any of the patterns

struct Head {
    uint64_t moment : 48;
    uint64_t padding : 16; // units between the end of the block below and this head
    uint64_t length : 20;  // units; 0 in a segment of its own
    uint64_t below : 20;   // offset of the block below in units; 0 when there is none
    uint64_t state : 24;   // live, dead, or anything else where no block begins
};
static_assert(sizeof(Head) == unit);

struct Segment {
    Segment *newer, *older;
    size_t size;     // of the whole segment, this record included
    size_t top;      // offset of the first free byte
    size_t last;     // offset of the topmost block; 0 when empty
    uint64_t moment; // of the lowest block
    uint64_t spare[2];
};
static_assert(sizeof(Segment) == 64 && sizeof(Segment) % unit == 0);
// Where the block lies in a segment of its own, unless its alignment pushes it further.
constexpr size_t own_block = sizeof(Segment) + sizeof(Head);

struct Storage {
    Segment *open;         // newest shared segment
    Segment *own;          // newest segment of a single block
    uintptr_t parent;      // the parent's address; bit 0: the header was made here
    uint64_t clock : 47;   // the latest moment that ever began
    uint64_t limit_h : 17; // in steps, plus 1, two halves; 0: no limit
    uint64_t moment : 47;  // of the newest block, or of the mark rewound to
    uint64_t begun : 1;    // the next block belongs to this moment; else it begins another
    uint64_t limit_l : 16;
    uint64_t drawn : 36; // lines
    uint64_t peak : 28;  // steps, rounded up
};
static_assert(sizeof(Storage) == sizeof(ZuSMEMSTG));
static_assert(sizeof(ZuSMEMSTG) == 48 && sizeof(ZuSMEMSTATE) == 32); // users count on it

Storage &body(ZuSMEMSTG *storage) { return *reinterpret_cast<Storage *>(storage); }
const Storage &body(const ZuSMEMSTG *storage) {
    return *reinterpret_cast<const Storage *>(storage);
}
Storage *parent_of(const Storage &s) {
    return reinterpret_cast<Storage *>(s.parent & ~uintptr_t{1});
}
char *at(Segment *segment, size_t offset) { return reinterpret_cast<char *>(segment) + offset; }
Head *head_at(Segment *segment, size_t block) {
    return reinterpret_cast<Head *>(at(segment, block) - sizeof(Head));
}
ZU_UNCHECKED Head load(const Head *head) { return *head; }
ZU_UNCHECKED void store(Head *head, Head value) { *head = value; }

// Rounds up to whole units or lines, at least one; 0 when that overflows.
size_t rounded(size_t size, size_t to) { return size ? (size + to - 1) & ~(to - 1) : to; }

// The moment to which the next block belongs; 0 when there are no more.
uint64_t next_moment(const Storage &s) {
    if (s.begun) return s.moment;
    return s.clock < last_moment ? s.clock + 1 : 0;
}

// A block of this moment has been taken.
void enter(Storage &s, uint64_t moment) {
    if (s.begun) return;
    s.clock = s.moment = moment;
    s.begun = 1;
}

// The storage is as it was in this moment, and whatever comes is newer.
void go_back(Storage &s, uint64_t moment) {
    s.moment = std::min<uint64_t>(moment, s.clock);
    s.begun = 0;
}

// Bytes that may yet be drawn.
size_t left_to_draw(const Storage &s) {
    size_t drawn = s.drawn * line, limit = size_t{s.limit_h} << 16 | s.limit_l;
    size_t most = limit ? (limit - 1) * limit_step : most_drawn;
    return drawn < most ? most - drawn : 0;
}

void chain_in(Segment *&newest, Segment *segment) {
    segment->newer = nullptr;
    segment->older = newest;
    if (newest) newest->newer = segment;
    newest = segment;
}

void chain_out(Segment *&newest, Segment *segment) {
    (segment->newer ? segment->newer->older : newest) = segment->older;
    if (segment->older) segment->older->newer = segment->newer;
}

void *take_own(Storage &s, size_t size, size_t alignment);
void release_own(Storage &s, Segment *segment, Pattern pattern);

// A segment of size bytes (whole lines) from the parent or the heap, linked to nothing; null when
// the limit or the memory is exhausted.
Segment *draw(Storage &s, size_t size) {
    if (size > left_to_draw(s)) return nullptr;
    void *memory = parent_of(s) ? take_own(*parent_of(s), size, unit) : std::malloc(size);
    if (!memory) return nullptr;
    size_t drawn = s.drawn * line + size;
    s.drawn = drawn / line;
    size_t steps = (drawn + peak_step - 1) / peak_step;
    if (s.peak < steps) s.peak = steps;
    auto *segment = new (memory) Segment{};
    segment->size = size;
    segment->top = sizeof(Segment);
    forbid(segment + 1, size - sizeof(Segment));
    return segment;
}

// The contrary. The block of the parent that a segment is lies at a known place of its own segment.
void give(Storage &s, Segment *segment, Pattern pattern) {
    size_t size = segment->size;
    s.drawn -= size / line;
    lost(segment, size, pattern);
    allow(segment, size);
    if (!parent_of(s)) return std::free(segment);
    char *owner = reinterpret_cast<char *>(segment) - own_block;
    release_own(*parent_of(s), reinterpret_cast<Segment *>(owner), pattern);
}

void release_own(Storage &s, Segment *segment, Pattern pattern) {
    chain_out(s.own, segment);
    give(s, segment, pattern);
}

void release_shared(Storage &s, Segment *segment, Pattern pattern) {
    chain_out(s.open, segment);
    give(s, segment, pattern);
}

// A block in a segment of its own.
void *take_own(Storage &s, size_t size, size_t alignment) {
    size_t room = rounded(size, unit);
    uint64_t moment = next_moment(s);
    size_t total;
    if (__builtin_add_overflow(room, own_block + (alignment - unit), &total)) return nullptr;
    total = rounded(total, line);
    if (!room || !total || !moment) return nullptr;
    Segment *segment = draw(s, total);
    if (!segment) return nullptr;
    enter(s, moment);
    auto base = reinterpret_cast<uintptr_t>(segment);
    segment->last = ((base + own_block + alignment - 1) & ~(alignment - 1)) - base;
    segment->top = segment->last + room;
    segment->moment = moment;
    store(head_at(segment, segment->last), Head{moment, 0, 0, 0, live});
    chain_in(s.own, segment);
    taken(at(segment, segment->last), size);
    return at(segment, segment->last);
}

// A block bumped off the open segment, or null when it is too long for it. size is at most the
// segment's, and alignment at most most_shared_alignment, so nothing here can overflow.
inline void *bump(Storage &s, Segment *segment, size_t size, size_t alignment) {
    size_t room = rounded(size, unit);
    uint64_t moment = next_moment(s);
    auto base = reinterpret_cast<uintptr_t>(segment);
    size_t block = ((base + segment->top + sizeof(Head) + alignment - 1) & ~(alignment - 1)) - base;
    if (block + room > segment->size || !moment) return nullptr;
    enter(s, moment);
    size_t padding = (block - sizeof(Head) - segment->top) / unit;
    store(head_at(segment, block), Head{moment, padding, room / unit, segment->last / unit, live});
    if (segment->last == 0) segment->moment = moment;
    segment->last = block;
    segment->top = block + room;
    taken(at(segment, block), size);
    return at(segment, block);
}

// Opens a shared segment, longer than the one open now.
bool extend(Storage &s) {
    size_t twice = s.open ? 2 * s.open->size : 0;
    Segment *segment = draw(s, std::clamp(twice, first_segment, last_segment));
    if (segment) chain_in(s.open, segment);
    return segment != nullptr;
}

// The block does not fit the open segment, or there is none.
[[gnu::noinline]] void *take_slow(Storage &s, size_t size, size_t alignment) {
    size_t longest = (s.open ? s.open->size : first_segment) / 2;
    if (size <= longest && alignment <= most_shared_alignment && extend(s)) {
        if (void *block = bump(s, s.open, size, alignment)) return block;
    }
    // Close to the limit there may be room for the block, though not for a whole segment.
    return take_own(s, size, alignment);
}

// Takes the topmost block off its segment.
void pop(Segment *segment, Pattern pattern) {
    Head *head = head_at(segment, segment->last);
    Head old = load(head);
    store(head, Head{});
    size_t top = segment->last - sizeof(Head) - old.padding * unit;
    lost(at(segment, top), segment->top - top, pattern);
    segment->top = top;
    segment->last = old.below * unit;
}

void pop_dead(Segment *segment) {
    while (segment->last && load(head_at(segment, segment->last)).state == dead)
        pop(segment, given_back);
}

// Restores invariant 2 after blocks of a shared segment have gone.
void settle(Storage &s, Segment *segment) {
    if (segment->last == 0 && segment != s.open) release_shared(s, segment, given_back);
    Segment *lower = s.open->older;
    if (s.open->last == 0 && lower && lower->top <= lower->size / 2)
        release_shared(s, s.open, given_back);
}

bool inside(Segment *segment, const void *block) {
    auto p = reinterpret_cast<uintptr_t>(block), base = reinterpret_cast<uintptr_t>(segment);
    return p >= base + own_block && p - base < segment->top && p % unit == 0;
}

Segment *find(Segment *newest, const void *block) {
    while (newest && !inside(newest, block)) newest = newest->older;
    return newest;
}

void give_back_shared(Storage &s, Segment *segment, char *block) {
    auto offset = static_cast<size_t>(block - at(segment, 0));
    Head head = load(head_at(segment, offset));
    if (head.state != live || offset > segment->last) return misuse();
    head.state = dead;
    store(head_at(segment, offset), head);
    lost(block, head.length * unit, given_back);
    if (offset != segment->last) return;
    pop_dead(segment);
    settle(s, segment);
}

// Releases what is newer than the moment. The last shared segment stays, empty, for what comes next.
void rewind(Storage &s, uint64_t moment) {
    while (s.own && s.own->moment > moment) release_own(s, s.own, rewound);
    while (s.open && s.open->older && (s.open->last == 0 || s.open->moment > moment))
        release_shared(s, s.open, rewound);
    go_back(s, moment);
    Segment *segment = s.open;
    if (!segment || segment->last == 0) return;
    if (segment->moment > moment) {
        lost(segment + 1, segment->top - sizeof(Segment), rewound);
        segment->top = sizeof(Segment);
        segment->last = 0;
        return;
    }
    while (load(head_at(segment, segment->last)).moment > moment) pop(segment, rewound);
    pop_dead(segment);
    settle(s, segment);
}

void close(ZuSMEMSTG *storage) {
    if (!storage) return;
    Storage &s = body(storage);
    while (s.own) release_own(s, s.own, rewound);
    while (s.open) release_shared(s, s.open, rewound);
    Storage *parent = parent_of(s);
    bool made_here = (s.parent & 1) != 0;
    *storage = ZuSMEMSTG{};
    if (!made_here) return;
    if (!parent) return std::free(storage);
    char *owner = reinterpret_cast<char *>(storage) - own_block;
    release_own(*parent, reinterpret_cast<Segment *>(owner), given_back);
}

} // namespace
} // namespace zu

using namespace zu;

extern "C" {

ZuSMEMSTG *ZuSMEMSTGopen(void *header, uint64_t parent, uint64_t) {
    auto *above = reinterpret_cast<Storage *>(static_cast<uintptr_t>(parent));
    void *memory = header;
    if (!memory)
        memory = above ? take_own(*above, sizeof(ZuSMEMSTG), unit) : std::malloc(sizeof(ZuSMEMSTG));
    if (!memory) return nullptr;
    auto *storage = new (memory) ZuSMEMSTG{};
    body(storage).parent = static_cast<uintptr_t>(parent) | (header ? 0 : 1);
    return storage;
}

void *ZuSMEMSTGaalloc(ZuSMEMSTG *storage, size_t size, size_t alignment, uint64_t) {
    if (!storage || (alignment & (alignment - 1))) return nullptr;
    if (alignment < unit) alignment = unit;
    Storage &s = body(storage);
    Segment *open = s.open;
    if (open && size <= open->size / 2 && alignment <= most_shared_alignment) {
        if (void *block = bump(s, open, size, alignment)) return block;
    }
    return take_slow(s, size, alignment);
}

void ZuSMEMSTGfree(ZuSMEMSTG *storage, void *block) {
    if (!storage || !block) return;
    Storage &s = body(storage);
    if (Segment *shared = find(s.open, block))
        return give_back_shared(s, shared, static_cast<char *>(block));
    Segment *own = find(s.own, block);
    if (!own || at(own, own->last) != block) return misuse();
    release_own(s, own, given_back);
}

void ZuSMEMSTGgetstate(ZuSMEMSTATE *state, ZuSMEMSTG *storage) {
    if (!state) return;
    *state = ZuSMEMSTATE{};
    if (!storage) return;
    Storage &s = body(storage);
    state->word[0] = reinterpret_cast<uintptr_t>(storage);
    state->word[1] = s.moment;
    s.begun = 0;
}

void ZuSMEMSTGsetstate(ZuSMEMSTG *storage, const ZuSMEMSTATE *state) {
    if (!storage || !state) return;
    if (state->word[0] != reinterpret_cast<uintptr_t>(storage)) return misuse();
    rewind(body(storage), state->word[1]);
}

void ZuSMEMSTGclear(ZuSMEMSTG *storage) {
    if (!storage) return;
    rewind(body(storage), 0);
}

void ZuMEMSTGclose(ZuSMEMSTG *storage) { close(storage); }

void ZuMEMSTGdestroy(ZuSMEMSTG *storage) { close(storage); }

void ZuSMEMSTGsetlimit(ZuSMEMSTG *storage, size_t bytes) {
    if (!storage) return;
    size_t limit = bytes && bytes < most_drawn ? bytes / limit_step + 1 : 0;
    body(storage).limit_h = limit >> 16;
    body(storage).limit_l = limit;
}

size_t ZuSMEMSTGdrawn(const ZuSMEMSTG *storage) { return storage ? body(storage).drawn * line : 0; }

size_t ZuSMEMSTGpeak(const ZuSMEMSTG *storage) {
    return storage ? body(storage).peak * peak_step : 0;
}
}
