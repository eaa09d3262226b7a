// fuzz/trial.h - one call of the library, drawn from bytes and judged.
//
// Gives    Trial: arrays, regions, positions and numbers for a call, and run(), which makes the call
//          once with each instruction set and twice with the best.
// Promises run() stops the process with a sentence when a refusal has changed anything, a byte outside
//          the destination's region has changed, a record has changed that the callee only reads, the
//          environment's storage is not where it was, or two runs differ in code or bytes (but for
//          runs that found no memory where there was hardly any).
//          Most trials are fair: every array has just the bytes that its descriptor tells, the last
//          of them, or the first, beside a page that faults. In the others any value may stand
//          anywhere in a descriptor or a region; the arrays then lie in windows of 4 GiB, which hold
//          every byte that a descriptor can reach, and only the code and what a refusal leaves are
//          looked at.
// Costs    four calls and some 200 KiB of copies; the windows are 256 KiB, mapped over and over.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <kipx/kipx.h>

#include "fuzz/bytes.h"

namespace kipx::fuzz {

enum class Values { any, divisors }; // divisors: whole numbers from 1 on, in whatever type

class Trial {
public:
    Trial(const uint8_t *data, size_t size, Values values = Values::any);
    ~Trial();
    Trial(const Trial &) = delete;
    Trial &operator=(const Trial &) = delete;

    Bytes bytes;
    const kipx_arr *dst, *src[3], *mask; // some null
    const kipx_site *roi;
    const kipx_pos *at[4]; // the last one is the mask's
    uint64_t flags;
    int32_t scale, aux;
    // A number for each channel, or null.
    const double *numbers(Values values = Values::any);
    kipx_seshape window();
    // Room for results that are no array: kept as it is by a refusal, else compared between runs.
    template<class T> T *out() { return reinterpret_cast<T *>(out_); }

    using Call = std::function<int32_t(KipxXE *)>;
    void run(const char *name, const Call &call);
    // More of what a run found, for comparison.
    void tell(const void *data, size_t size);
    template<class T> void tell(const T &value) { tell(&value, sizeof value); }
    // Channels are not chosen: the region has those from its first one on.
    void take_all_channels() { site_.extent[3] = 15; }
    // The one array of a flood: bytes, one channel.
    void make_flooded();

private:
    struct Operand {
        kipx_arr arr;
        uint8_t *memory; // of its own
    };
    void draw_array(Operand &operand, uint32_t which, uint32_t type);
    void spoil();
    void bound_work();
    void mark_region(std::vector<bool> &allowed) const;
    void restore() const;
    void judge(const char *name, int32_t code) const;
    [[noreturn]] void complain(const char *name, const std::string &what) const;

    uint32_t axes_ = 3, height_, width_, channels_;
    Values values_;
    bool fair_ = true;
    Operand operands_[5]; // destination, sources, mask
    kipx_site site_{};
    kipx_pos positions_[4]{};
    double numbers_[8][16];
    uint32_t lists_ = 0;
    uint64_t limit_ = 0;
    bool no_environment_ = false;
    uint8_t *out_;
    std::vector<uint8_t> told_;
    std::vector<uint8_t> before_; // all operands' memory as the call finds it
};

inline constexpr uint32_t room = 16384; // of one operand, and of out()

// Of the trials so far.
struct Counts {
    size_t worked, refused;
};
Counts &counts();

} // namespace kipx::fuzz
