#include "fuzz/trial.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include <sys/mman.h>
#include <unistd.h>

namespace kipx::fuzz {

namespace {

constexpr uint32_t page = 4096, operands = 5, work = 1u << 13;
constexpr uint64_t window_pages = 1u << 18, window_size = (uint64_t{1} << 32) + window_pages;
constexpr uint32_t types[] = {KIPX_U8,  KIPX_U16, KIPX_U32, KIPX_S8,
                              KIPX_S16, KIPX_S32, KIPX_F32, KIPX_F64};

// Six rooms between pages that fault, the last one for results; and two windows, the destination's
// first.
struct Memory {
    uint8_t *rooms, *windows[2];
    mutable std::vector<uint8_t> content =
        std::vector<uint8_t>(window_pages); // of an untouched window

    Memory() {
        const size_t step = room + page;
        rooms = map((operands + 1) * step + page, PROT_NONE, -1);
        for (uint32_t i = 0; i <= operands; ++i)
            must(!mprotect(rooms + page + i * step, room, PROT_READ | PROT_WRITE));
        for (uint8_t *&window : windows) {
            const int file = memfd_create("window", 0);
            must(file >= 0 && !ftruncate(file, window_pages));
            window = map(window_size + page, PROT_NONE, -1);
            for (uint64_t at = 0; at < window_size; at += window_pages)
                must(mmap(window + at, window_pages, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED,
                          file, 0) != MAP_FAILED);
            close(file);
        }
    }
    uint8_t *at(uint32_t which) const { return rooms + page + which * (room + page); }

    static void must(bool condition) {
        if (!condition) std::perror("fuzz: memory"), std::abort();
    }
    static uint8_t *map(size_t size, int protection, int file) {
        void *address = mmap(nullptr, size, protection,
                             MAP_PRIVATE | MAP_NORESERVE | (file < 0 ? MAP_ANONYMOUS : 0), file, 0);
        must(address != MAP_FAILED);
        return static_cast<uint8_t *>(address);
    }
};

const Memory &memory() {
    static const Memory kept;
    return kept;
}

// Divisors have no zero element, nor a negative one, whatever their type and wherever they start.
uint8_t pattern(size_t i, Values values, uint32_t seed) {
    const auto byte = uint8_t((i * 0x9D) ^ (i >> 5) ^ (i >> 11) ^ seed);
    return values == Values::divisors ? uint8_t(byte % 62 + 1) : byte;
}

uint32_t channels_of(uint32_t code) { return (code & 7) + ((code >> 3) & 1); }

// The extent of an axis of the region in the destination, in whole numbers.
int64_t extent_in(const kipx_arr &arr, const kipx_site *roi, int axis, int64_t *first) {
    int64_t size = int32_t(axis == 3 ? channels_of(arr.volume[3]) : arr.volume[axis]);
    if (axis == 0 && arr.naxes == 3) size = 1;
    *first = 0;
    if (!roi) return size;
    *first = std::max<int64_t>(0, int32_t(roi->origin[axis]));
    const int64_t end = int64_t{int32_t(roi->origin[axis])} + int32_t(roi->extent[axis]);
    return std::min(size, end) - *first;
}

// Where the environment's next block comes to lie.
const void *top_of(KipxXE *environment) {
    void *block = KipxXEalloca(environment, 16, 0);
    KipxXEfreea(environment, block);
    return block;
}

} // namespace

Counts &counts() {
    static Counts kept;
    return kept;
}

Trial::Trial(const uint8_t *data, size_t size, Values values)
    : bytes(data, size), values_(values), out_(memory().at(operands)) {
    fair_ = !bytes.one_in(4);
    height_ = bytes.between(1, 12), width_ = bytes.between(1, bytes.one_in(4) ? 200 : 40);
    channels_ = bytes.one_in(3) ? 3 : bytes.between(1, 4);
    static constexpr uint32_t often[] = {KIPX_U8, KIPX_U8, KIPX_S16, KIPX_S32, KIPX_F32};
    const uint32_t type = bytes.one_in(3) ? bytes.pick(types) : bytes.pick(often);
    axes_ = bytes.one_in(16) ? 4 : 3;
    for (uint32_t i = 0; i < operands; ++i) {
        const bool same = !bytes.one_in(5);
        const uint32_t other = same ? type : bytes.pick(types);
        draw_array(operands_[i], i, i == 4 ? uint32_t{KIPX_U8} : other);
    }
    dst = &operands_[0].arr;
    for (uint32_t i = 0; i < 3; ++i) {
        src[i] = &operands_[1 + i].arr;
        if (bytes.one_in(16)) src[i] = dst;
        if (bytes.one_in(32)) src[i] = nullptr;
        if (bytes.one_in(24)) { // somewhere in the destination's bytes
            operands_[1 + i].arr = *dst;
            if (operands_[1 + i].arr.volume[1] > 1 && bytes.one_in(2))
                --operands_[1 + i].arr.volume[1], operands_[1 + i].arr.offset += dst->strides[1];
        }
    }
    mask = bytes.one_in(2) ? &operands_[4].arr : nullptr;
    roi = bytes.one_in(2) ? &site_ : nullptr;
    for (uint32_t axis = 0; axis < 4; ++axis) {
        const uint32_t size_of_axis[4] = {1, height_, width_, channels_};
        site_.origin[axis] = bytes.below(size_of_axis[axis] + 2) - 1;
        site_.extent[axis] = bytes.below(size_of_axis[axis] + 4) + (axis == 0 || axis == 3);
        for (kipx_pos &position : positions_)
            position.at[axis] = axis == 3 ? 0 : bytes.below(4) - (axis == 0 ? 0 : 1);
    }
    for (uint32_t i = 0; i < 4; ++i) at[i] = bytes.one_in(3) ? &positions_[i] : nullptr;
    flags = bytes.one_in(16) ? bytes.any<uint64_t>() : 0;
    if (bytes.one_in(16)) flags |= bytes.one_in(2) ? KIPX_FLAG_PROBE : KIPX_FLAG_PREPARE;
    scale = bytes.one_in(2)   ? 0
            : bytes.one_in(2) ? int32_t(bytes.number())
                              : -int32_t(bytes.below(9));
    aux = int32_t(bytes.number());
    // The first segment must fit in, so that where the next block lies tells whether all were given back.
    limit_ = bytes.one_in(8) ? bytes.between(66, 200) * 1024 : 64 << 20;
    no_environment_ = bytes.one_in(32);
    if (!fair_) spoil();
    for (uint32_t i = 0; i < operands; ++i)
        for (uint32_t b = 0; b < room; ++b)
            memory().at(i)[b] = pattern(b, values_, 37 * i + aux % 7);
    for (uint32_t i = 0; i < operands; ++i)
        before_.insert(before_.end(), memory().at(i), memory().at(i) + room);
    if (!fair_) {
        std::vector<uint8_t> &content = memory().content;
        for (uint64_t b = 0; b < window_pages; ++b) content[b] = pattern(b, values_, 5);
        std::memcpy(memory().windows[1], content.data(), window_pages);
    }
    restore();
}

Trial::~Trial() = default;

// In bounds of its room, at its end or its beginning; the volume is often that of all the others.
void Trial::draw_array(Operand &operand, uint32_t which, uint32_t type) {
    kipx_arr &arr = operand.arr = {};
    const uint32_t size = kipx_elsize(type);
    arr.type = type, arr.naxes = uint16_t(bytes.one_in(32) ? 7 - axes_ : axes_);
    arr.volume[0] = arr.naxes == 4 ? bytes.between(1, 2) : 1;
    arr.volume[1] = height_, arr.volume[2] = width_, arr.volume[3] = channels_;
    if (bytes.one_in(4)) arr.volume[1] = bytes.between(1, 12), arr.volume[2] = bytes.between(1, 48);
    if (which == 4 && bytes.one_in(2)) arr.volume[3] = 1;
    if (bytes.one_in(40)) arr.volume[3] = bytes.between(1, 15);
    const uint32_t layout = bytes.below(6);
    for (;;) { // until it fits
        const uint32_t c = channels_of(arr.volume[3]), spread = layout == 1 ? 2 : 1;
        arr.strides[3] = size * spread, arr.strides[2] = c * size * spread;
        if (layout == 2) arr.strides[2] += size;
        if (layout == 3) arr.strides[2] += 1;
        if (layout == 4) arr.strides[2] = size;
        arr.strides[1] = arr.volume[2] * arr.strides[2] + (layout % 2 ? 5 : 0);
        if (layout == 4) arr.strides[3] = arr.volume[1] * arr.strides[1];
        arr.strides[0] = layout == 4 ? c * arr.strides[3] : arr.volume[1] * arr.strides[1];
        const uint64_t needed = uint64_t{arr.volume[0]} * arr.strides[0];
        if (needed <= room - 64) {
            uint64_t last =
                uint64_t{arr.naxes == 4 ? arr.volume[0] - 1 : 0} * arr.strides[0] + size;
            const uint32_t sizes[4] = {0, arr.volume[1], arr.volume[2], c};
            for (int axis = 1; axis < 4; ++axis)
                last += uint64_t{sizes[axis] - 1} * arr.strides[axis];
            const uint64_t shift = bytes.below(64);
            operand.memory = memory().at(which);
            arr.base = operand.memory +
                       (bytes.one_in(4) ? shift % 17 : room - last - (bytes.one_in(2) ? shift : 0));
            break;
        }
        arr.volume[1] = (arr.volume[1] + 1) / 2, arr.volume[2] = (arr.volume[2] + 1) / 2;
    }
    if (arr.naxes == 3 && bytes.one_in(2)) arr.strides[0] = 0xDEADBEEF; // never used
    if (bytes.one_in(8)) {
        arr.offset = bytes.below(100);
        arr.base = static_cast<uint8_t *>(arr.base) - arr.offset;
    }
}

// Any value anywhere, in arrays that lie in the windows.
void Trial::spoil() {
    for (uint32_t i = 0; i < operands; ++i) {
        kipx_arr &arr = operands_[i].arr;
        arr.base = memory().windows[i ? 1 : 0] + (i ? (i - 1) * 200000 : 0) + bytes.below(9);
        if (i) arr.base = memory().windows[1] + bytes.below(9); // sources may lie over each other
    }
    for (uint32_t n = bytes.between(1, 4); n; --n) {
        const uint32_t k = bytes.below(operands + 2);
        if (k < operands) {
            const uint32_t word = bytes.below(18), value = bytes.number();
            if (word == 17)
                operands_[k].arr.base = nullptr;
            else
                std::memcpy(reinterpret_cast<uint8_t *>(&operands_[k].arr) + 4 * word, &value, 4);
        } else if (k == operands)
            (bytes.one_in(2) ? site_.origin : site_.extent)[bytes.below(4)] = bytes.number();
        else
            positions_[bytes.below(4)].at[bytes.below(4)] = bytes.number();
    }
    bound_work();
}

// A call on billions of elements is right to take minutes: a small region takes their place.
void Trial::bound_work() {
    double elements = 1;
    for (int axis = 0; axis < 4; ++axis) {
        double least = std::numeric_limits<double>::infinity();
        for (uint32_t i = 0; i < 2; ++i) {
            int64_t first;
            least = std::min(least, double(std::max<int64_t>(
                                        1, extent_in(operands_[i].arr, roi, axis, &first))));
        }
        elements *= least;
    }
    if (elements <= work) return;
    roi = &site_;
    const uint32_t small[4] = {1, 3, 17, 4};
    for (int axis = 0; axis < 4; ++axis)
        if (int32_t(site_.extent[axis]) > int32_t(small[axis])) site_.extent[axis] = small[axis];
}

const double *Trial::numbers(Values values) {
    static constexpr double ends[] = {0,   1,           -1,           0.5,   2.5,  255,
                                      256, 65535,       -32769,       1e-30, 1e30, 3e38,
                                      7,   2147483648., -2147483649., 1e300};
    if (bytes.one_in(32) || lists_ == std::size(numbers_)) return nullptr;
    double *list = numbers_[lists_++];
    for (uint32_t i = 0; i < std::size(numbers_[0]); ++i) {
        if (i >= 4)
            list[i] = list[i % 4];
        else if (values == Values::divisors)
            list[i] = bytes.between(1, 100);
        else if (const uint32_t k = bytes.below(20); k < std::size(ends))
            list[i] = ends[k];
        else
            list[i] = k == 16   ? std::numeric_limits<double>::quiet_NaN()
                      : k == 17 ? -std::numeric_limits<double>::infinity()
                                : bytes.any<double>();
    }
    return list;
}

kipx_seshape Trial::window() {
    kipx_seshape shape{};
    for (int axis = 0; axis < 3; ++axis) {
        shape.volume[axis] = int32_t(axis ? bytes.between(0, 9) : bytes.below(3));
        shape.anchor[axis] = int32_t(bytes.below(10)) - (bytes.one_in(8) ? 2 : 0);
    }
    if (!fair_)
        (bytes.one_in(2) ? shape.volume : shape.anchor)[bytes.below(4)] = int32_t(bytes.number());
    return shape;
}

void Trial::make_flooded() {
    kipx_arr &arr = operands_[1].arr;
    if (fair_ || bytes.one_in(2)) {
        arr.type = KIPX_U8, arr.volume[3] = 1;
        operands_[4].arr.volume[3] = 1;
    }
    if (!fair_) { // there is no destination that would keep the work small
        std::memcpy(operands_[0].arr.volume, arr.volume, sizeof arr.volume);
        bound_work();
    }
    for (uint32_t b = 0; b < room; ++b) // hills and valleys, not noise alone
        operands_[1].memory[b] = uint8_t((b / 7 * 31 ^ b / 90 * 5) + (b % 13 == 0 ? b : 0));
    std::copy_n(operands_[1].memory, room, before_.begin() + room);
}

void Trial::tell(const void *data, size_t size) {
    const auto *first = static_cast<const uint8_t *>(data);
    told_.insert(told_.end(), first, first + size);
}

void Trial::restore() const {
    for (uint32_t i = 0; i < operands; ++i)
        std::memcpy(memory().at(i), before_.data() + i * room, room);
    for (uint32_t b = 0; b < room; ++b) out_[b] = uint8_t(b * 11);
    if (fair_) return;
    std::memcpy(memory().windows[0], memory().content.data(), window_pages);
}

void Trial::mark_region(std::vector<bool> &allowed) const {
    int64_t first[4], extent[4];
    for (int axis = 0; axis < 4; ++axis) extent[axis] = extent_in(*dst, roi, axis, &first[axis]);
    const auto start = int64_t(static_cast<uint8_t *>(dst->base) + dst->offset - memory().at(0));
    const uint32_t size = kipx_elsize(dst->type);
    for (int64_t p = 0; p < extent[0]; ++p)
        for (int64_t y = 0; y < extent[1]; ++y)
            for (int64_t x = 0; x < extent[2]; ++x)
                for (int64_t c = 0; c < extent[3]; ++c) {
                    int64_t place = start + (first[1] + y) * dst->strides[1] +
                                    (first[2] + x) * dst->strides[2] +
                                    (first[3] + c) * dst->strides[3];
                    if (dst->naxes == 4) place += (first[0] + p) * dst->strides[0];
                    for (uint32_t b = 0; b < size; ++b)
                        if (place + b < room) allowed[size_t(place + b)] = true;
                }
}

void Trial::complain(const char *name, const std::string &what) const {
    std::fprintf(stderr, "%s: %s\n", name, what.c_str());
    const kipx_arr *const all[] = {dst, src[0], src[1], src[2], mask};
    for (const kipx_arr *arr : all)
        if (arr)
            std::fprintf(
                stderr,
                "  type %u axes %u volume %u %u %u %u strides %u %u %u %u offset %u base %p\n",
                arr->type, arr->naxes, arr->volume[0], arr->volume[1], arr->volume[2],
                arr->volume[3], arr->strides[0], arr->strides[1], arr->strides[2], arr->strides[3],
                arr->offset, arr->base);
    if (roi)
        for (const uint32_t *v : {roi->origin, roi->extent})
            std::fprintf(stderr, "  roi %d %d %d %d\n", int(v[0]), int(v[1]), int(v[2]), int(v[3]));
    std::fprintf(
        stderr, "  flags %llx scale %d limit %llu%s\n", static_cast<unsigned long long>(flags),
        scale, static_cast<unsigned long long>(limit_), no_environment_ ? ", no environment" : "");
    std::abort();
}

// What the call left: only the destination's region may have changed, and nothing after a refusal.
void Trial::judge(const char *name, int32_t code) const {
    if (!fair_) {
        for (int w = code < 0 ? 0 : 1; w < 2; ++w)
            if (std::memcmp(memory().windows[w], memory().content.data(), window_pages))
                complain(name, "code " + std::to_string(code) + ", and array " + std::to_string(w) +
                                   " changed");
    } else {
        std::vector<bool> allowed(room);
        if (code >= 0) mark_region(allowed);
        for (uint32_t i = 0; i < operands; ++i) {
            const uint8_t *was = before_.data() + i * room, *is = memory().at(i);
            if (!std::memcmp(was, is, room)) continue;
            for (uint32_t b = 0; b < room; ++b)
                if (was[b] != is[b] && (i || !allowed[b]))
                    complain(name, "code " + std::to_string(code) + ", array " + std::to_string(i) +
                                       " changed at " + std::to_string(b));
        }
    }
    for (uint32_t b = 0; code < 0 && b < room; ++b)
        if (out_[b] != uint8_t(b * 11))
            complain(name, "code " + std::to_string(code) + ", and results changed");
}

void Trial::run(const char *name, const Call &call) {
    const auto *records = reinterpret_cast<const uint8_t *>(operands_);
    const std::vector<uint8_t> arrays(records, records + sizeof operands_);
    const kipx_site site = site_;
    std::vector<uint8_t> first;
    static constexpr int32_t sets[] = {KIPX_SIMD_OFF, KIPX_SIMD_AVX2, KIPX_SIMD_AVX512,
                                       KIPX_SIMD_AVX512};
    for (uint32_t i = 0; i < std::size(sets); ++i) {
        kipx_set_simd(sets[i]);
        restore();
        told_.clear();
        KipxXE environment{};
        KipxXEinit(&environment, nullptr);
        ZuSMEMSTGsetlimit(KipxXEmmstack(&environment), limit_);
        const void *top = top_of(&environment);
        const int32_t code = call(no_environment_ ? nullptr : &environment);
        if (top_of(&environment) != top) complain(name, "scratch is not given back");
        KipxXEfini(&environment);
        judge(name, code);
        if (std::memcmp(arrays.data(), operands_, sizeof operands_) ||
            std::memcmp(&site, &site_, sizeof site))
            complain(name, "a descriptor or a region changed");
        tell(code), tell(out_, room);
        if (fair_) tell(memory().at(0), room);
        // A wider set asks for a little more scratch: where there is hardly any, it alone may go without.
        const bool short_of_memory = code == KIPX_ENOMEM && limit_ < 1 << 20;
        if (short_of_memory) continue;
        if (first.empty()) first = told_, ++(code < 0 ? counts().refused : counts().worked);
        if (told_ != first)
            complain(name, "code " + std::to_string(code) + ": set " + std::to_string(sets[i]) +
                               " differs from the plain form");
    }
}

} // namespace kipx::fuzz
