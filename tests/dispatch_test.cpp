// The road from a public function to its kernel: what is checked and in which order, which kernel
// the table gives, how sources are exchanged.
#include <kipx/arith.h>
#include <kipx/array.h>

#include <array>
#include <functional>
#include <map>
#include <set>

#include <gtest/gtest.h>

#include "support/arith_model.h"
#include "support/environment.h"
#include "support/guarded.h"

using namespace kipx::test;

namespace {

// ---- tables ------------------------------------------------------------------------------------

// All codes of a byte, and some whose low bits look like valid ones.
TEST(Tables, AnswerEveryTripleOfCodes) {
    std::vector<uint32_t> codes(256);
    for (uint32_t i = 0; i < 256; i++) codes[i] = i;
    const auto *einval = reinterpret_cast<void *>(kipxa_proc_einval);
    const auto *enotsup = reinterpret_cast<void *>(kipxa_proc_enotsup);
    for (const OpInfo &op : all_ops()) {
        std::map<std::array<uint32_t, 3>, kipx_binary_kernel> kernels;
        for (const NamedKernel &k : op.kernels)
            kernels[{k.types.dst, k.types.src1, k.types.src2}] = k.kernel;
        ASSERT_EQ(kernels.size(), op.kernels.size());
        const auto check = [&](uint32_t d, uint32_t a, uint32_t b) {
            const bool valid = type_valid(d) && type_valid(a) && type_valid(b);
            int32_t status = 1;
            const auto found = reinterpret_cast<void *>(op.table(d, a, b, &status));
            const auto known = valid ? kernels.find({d, a, b}) : kernels.end();
            if (known != kernels.end())
                return found == reinterpret_cast<void *>(known->second) && status == 0;
            return found == (valid ? enotsup : einval) &&
                   status == (valid ? KIPX_ENOTSUP : KIPX_EINVAL);
        };
        for (uint32_t d : codes)
            for (uint32_t a : codes)
                for (uint32_t b : codes)
                    if (!check(d, a, b)) FAIL() << op.name << " " << d << " " << a << " " << b;
        for (uint32_t high : {0x101u, 0x11u, 0x80000001u, 0xffffffffu, 0x1000000du}) {
            EXPECT_TRUE(check(high, 1, 1));
            EXPECT_TRUE(check(1, high, 1));
            EXPECT_TRUE(check(1, 1, high));
        }
        EXPECT_EQ(reinterpret_cast<void *>(op.table(0, 1, 1, nullptr)), einval);
        EXPECT_EQ(op.table(0, 0, 0, nullptr)(nullptr, 0, 3, nullptr, nullptr, nullptr, nullptr,
                                             nullptr, nullptr, nullptr, 0, 0),
                  KIPX_EINVAL);
        EXPECT_EQ(op.table(4, 4, 4, nullptr)(nullptr, 0, 3, nullptr, nullptr, nullptr, nullptr,
                                             nullptr, nullptr, nullptr, 0, 0),
                  KIPX_ENOTSUP);
    }
}

// ---- the order of the checks -------------------------------------------------------------------

struct Call {
    GuardedArray arrays[3];
    kipx_arr dst, src1, src2;
    const kipx_arr *src1_used = nullptr;
    Environment environment;
    KipxXE *xe = environment;
    kipx_site roi = rectangle(0, 0, 9, 4);
    kipx_pos at1 = position(0, 0), at2 = position(0, 0);
    uint32_t code = 0x61616464;
    uint64_t flags = 0;

    explicit Call(uint32_t channels = 2)
        : arrays{GuardedArray(shape(channels)), GuardedArray(shape(channels)),
                 GuardedArray(shape(channels))} {
        Rng rng(1);
        for (GuardedArray &a : arrays) a.fill(rng);
        dst = *arrays[0].arr(), src1 = *arrays[1].arr(), src2 = *arrays[2].arr();
        src1_used = &src1;
    }
    static Shape shape(uint32_t channels) {
        Shape s;
        s.width = 9, s.height = 4, s.channels = channels, s.layout = Layout::padded_rows;
        return s;
    }
    // The code, having seen that a refusal changed nothing.
    int32_t run() {
        const Snapshot before = arrays[0].snapshot();
        const int32_t result =
            kipx_binary(code, xe, flags, &dst, src1_used, &src2, &roi, &at1, &at2, 0, 0);
        EXPECT_EQ(arrays[0].changes(before).empty(), result != 0);
        for (const GuardedArray &a : arrays) EXPECT_TRUE(a.canaries_intact());
        return result;
    }
};

struct Fault {
    const char *name;
    int32_t code;
    std::function<void(Call &)> make;
};

// In the order in which they are looked for.
const std::vector<Fault> &faults_in_order() {
    static const std::vector<Fault> list = {
        {"unknown operation", KIPX_EINVAL, [](Call &c) { c.code = 0x61616465; }},
        {"destination without channels", KIPX_EINVAL, [](Call &c) { c.dst.volume[3] = 0; }},
        {"source of other channels", KIPX_EINVAL, [](Call &c) { c.src2.volume[3] = 1; }},
        {"roi outside", KIPX_EEMPTY, [](Call &c) { c.roi.origin[2] = 9; }},
        {"second source behind its end", KIPX_EEMPTY, [](Call &c) { c.at2.at[1] = 4; }},
        {"first source behind its end", KIPX_EEMPTY, [](Call &c) { c.at1.at[2] = 9; }},
        {"four axes", KIPX_ENOTSUP, [](Call &c) { c.dst.naxes = c.src1.naxes = c.src2.naxes = 4; }},
        {"offset beyond 32 bits", KIPX_EINVAL, [](Call &c) { c.src1.strides[1] = 0xfffffff0; }},
        {"shared bytes", KIPX_EINVAL,
         [](Call &c) { c.src2 = c.dst, c.src2.base = static_cast<char *>(c.dst.base) + 1; }},
        {"invalid type", KIPX_EINVAL, [](Call &c) { c.src1.type = 5; }},
        {"types without a kernel", KIPX_ENOTSUP, [](Call &c) { c.src2.type = KIPX_S8; }},
        {"probe", KIPX_EAGAIN, [](Call &c) { c.flags |= KIPX_FLAG_PROBE; }}};
    return list;
}

TEST(Checks, TheEarlierOfTwoFaultsIsAnswered) {
    const auto &list = faults_in_order();
    EXPECT_EQ(Call().run(), 0);
    for (size_t i = 0; i < list.size(); i++) {
        Call alone;
        list[i].make(alone);
        EXPECT_EQ(alone.run(), list[i].code) << list[i].name;
        for (size_t j = i + 1; j < list.size(); j++) {
            Call both;
            list[j].make(both);
            list[i].make(both);
            EXPECT_EQ(both.run(), list[i].code) << list[i].name << " and " << list[j].name;
        }
    }
}

TEST(Checks, EveryOddDescriptorIsRefused) {
    const Fault odd[] = {
        {"null destination base", KIPX_EINVAL, [](Call &c) { c.dst.base = nullptr; }},
        {"null src1 base", KIPX_EINVAL, [](Call &c) { c.src1.base = nullptr; }},
        {"null src2 base", KIPX_EINVAL, [](Call &c) { c.src2.base = nullptr; }},
        {"2 axes", KIPX_EINVAL, [](Call &c) { c.dst.naxes = 2; }},
        {"5 axes", KIPX_EINVAL, [](Call &c) { c.dst.naxes = c.src1.naxes = c.src2.naxes = 5; }},
        {"src1 of 4 axes", KIPX_EINVAL, [](Call &c) { c.src1.naxes = 4; }},
        {"no plane", KIPX_EINVAL, [](Call &c) { c.dst.volume[0] = 0; }},
        {"2^31 planes", KIPX_EINVAL,
         [](Call &c) { c.dst.volume[0] = c.src1.volume[0] = c.src2.volume[0] = 1u << 31; }},
        {"2 planes against 3", KIPX_EINVAL,
         [](Call &c) { c.dst.volume[0] = 3, c.src1.volume[0] = 2; }},
        {"5 channels", KIPX_EINVAL,
         [](Call &c) { c.dst.volume[3] = c.src1.volume[3] = c.src2.volume[3] = 5; }},
        {"channel code 13", KIPX_EINVAL,
         [](Call &c) { c.dst.volume[3] = c.src1.volume[3] = c.src2.volume[3] = 13; }},
        {"height of 2^31", KIPX_EEMPTY, [](Call &c) { c.dst.volume[1] = 1u << 31; }},
        {"width 0", KIPX_EEMPTY, [](Call &c) { c.src2.volume[2] = 0; }},
        {"src1 without rows", KIPX_EEMPTY, [](Call &c) { c.src1.volume[1] = 0; }},
        {"roi without channels", KIPX_EEMPTY, [](Call &c) { c.roi.extent[3] = 0; }},
        {"roi of negative channels", KIPX_EEMPTY, [](Call &c) { c.roi.extent[3] = -3u; }},
        {"roi past the channels", KIPX_EEMPTY, [](Call &c) { c.roi.origin[3] = 2; }},
        {"roi without planes", KIPX_EEMPTY, [](Call &c) { c.roi.extent[0] = 0; }},
        {"roi of width -1", KIPX_EEMPTY, [](Call &c) { c.roi.extent[2] = -1u; }},
        {"roi that touches", KIPX_EEMPTY, [](Call &c) { c.roi = rectangle(-5, 0, 5, 4); }},
        {"far roi", KIPX_EEMPTY, [](Call &c) { c.roi.origin[1] = INT32_MAX; }},
        {"nearest roi", KIPX_EEMPTY, [](Call &c) { c.roi.origin[1] = 1u << 31; }},
        {"far position", KIPX_EEMPTY, [](Call &c) { c.at2.at[2] = INT32_MAX; }},
        {"position before everything", KIPX_EEMPTY, [](Call &c) { c.at2.at[2] = 1u << 31; }},
        {"src1 before everything", KIPX_EEMPTY, [](Call &c) { c.at1.at[1] = 1u << 31; }},
        {"plane behind the last", KIPX_EEMPTY, [](Call &c) { c.at1.at[0] = 1; }},
        {"destination offset too far", KIPX_EINVAL, [](Call &c) { c.dst.offset = 0xfffffff0; }},
        {"src2 pixels too far", KIPX_EINVAL, [](Call &c) { c.src2.strides[2] = 0x40000000; }},
        {"destination of one byte", KIPX_EINVAL,
         [](Call &c) { c.dst.strides[1] = c.dst.strides[2] = c.dst.strides[3] = 0; }},
        {"destination rows on each other", KIPX_EINVAL, [](Call &c) { c.dst.strides[1] = 17; }},
        {"channels on each other", KIPX_EINVAL, [](Call &c) { c.dst.strides[3] = 0; }},
    };
    for (const Fault &fault : odd) {
        Call c;
        fault.make(c);
        EXPECT_EQ(c.run(), fault.code) << fault.name;
    }
    Call c;
    c.src1_used = nullptr;
    c.src1.type = 99; // not looked at
    EXPECT_EQ(c.run(), 0);
    for (const FunctionInfo &f : all_functions()) {
        EXPECT_EQ(
            f.function(nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 0, 0),
            KIPX_EINVAL);
        EXPECT_EQ(f.function(nullptr, 0, &c.dst, nullptr, nullptr, nullptr, nullptr, nullptr, 0, 0),
                  KIPX_EINVAL);
        EXPECT_EQ(f.function(nullptr, 0, nullptr, &c.dst, &c.dst, nullptr, nullptr, nullptr, 0, 0),
                  KIPX_EINVAL);
    }
}

TEST(Checks, WhatIsOddButAllowedWorks) {
    const Fault fine[] = {
        {"channel code 9 is two", 0, [](Call &c) { c.dst.volume[3] = 9; }},
        {"one plane against many", 0, [](Call &c) { c.dst.volume[0] = 7; }},
        {"no environment", 0, [](Call &c) { c.xe = nullptr; }},
        {"a roi of everything", 0,
         [](Call &c) {
             for (int i = 0; i < 4; i++) c.roi.origin[i] = -9u, c.roi.extent[i] = INT32_MAX;
         }},
        {"the channel entries of positions", 0,
         [](Call &c) { c.at1.at[3] = 77, c.at2.at[3] = -1u; }},
        {"a plane stride of 3 axes", 0,
         [](Call &c) { c.dst.strides[0] = c.src1.strides[0] = -1u; }},
        {"a source of one pixel", 0,
         [](Call &c) { c.src2.strides[1] = c.src2.strides[2] = c.src2.strides[3] = 0; }},
    };
    for (const Fault &f : fine) {
        Call c;
        f.make(c);
        EXPECT_EQ(c.run(), 0) << f.name;
    }
}

TEST(Checks, UnknownOperationsAreRefusedBeforeAnythingIsLookedAt) {
    std::set<uint32_t> known;
    for (const FunctionInfo &f : all_functions()) {
        known.insert(f.code);
        EXPECT_EQ(kipx_binary(f.code, nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr,
                              nullptr, 0, 0),
                  KIPX_EINVAL);
        Call c;
        c.code = f.code;
        c.flags = KIPX_FLAG_PROBE;
        EXPECT_EQ(c.run(), KIPX_EAGAIN) << f.name;
    }
    EXPECT_EQ(known.size(), all_functions().size());
    const auto *trap = reinterpret_cast<const kipx_arr *>(16);
    for (uint32_t code : {0u, 0xffffffffu, 0x6e656720u, 0x61616444u, 0x00616464u})
        EXPECT_EQ(kipx_binary(code, nullptr, 0, trap, trap, trap, nullptr, nullptr, nullptr, 0, 0),
                  KIPX_EINVAL);
}

// The look-up's error, then the probe's answer, then nothing done; for all types of every function.
TEST(Flags, ProbeAndPrepareTouchNoPixel) {
    for (const FunctionInfo &f : all_functions())
        for (uint32_t d = 0; d < 18; d++)
            for (uint32_t a = 0; a < 18; a++)
                for (uint32_t b = 0; b < 18; b++) {
                    const Route route = route_of(f, {d, a, b});
                    GuardedBytes bytes[3] = {GuardedBytes(), GuardedBytes(), GuardedBytes()};
                    kipx_arr arrays[3] = {};
                    const uint32_t codes[3] = {d, a, b};
                    for (int i = 0; i < 3; i++) {
                        for (uint32_t &v : arrays[i].volume) v = 1;
                        arrays[i].naxes = 3, arrays[i].type = codes[i];
                        // Not mapped: an access would be the end.
                        arrays[i].base = reinterpret_cast<void *>(uintptr_t{4096} + i * 64);
                    }
                    KipxXE xe{}; // never opened: nothing is taken either
                    const auto call = [&](uint64_t flags) {
                        return f.function(&xe, flags, arrays, arrays + 1, arrays + 2, nullptr,
                                          nullptr, nullptr, 0, 0);
                    };
                    const uint64_t probe = KIPX_FLAG_PROBE, prepare = KIPX_FLAG_PREPARE;
                    const int32_t s = route.status;
                    ASSERT_EQ(call(probe), s ? s : KIPX_EAGAIN) << f.name << " " << d << " " << a;
                    ASSERT_EQ(call(probe | prepare), s ? s : KIPX_EAGAIN);
                    ASSERT_EQ(call(prepare), s) << f.name << " " << d << " " << a << " " << b;
                    ASSERT_EQ(xe.stack, nullptr);
                }
}

// ---- sources -----------------------------------------------------------------------------------

TEST(TypedLevel, TakesTwoOrThreeAxes) {
    uint8_t bytes[3] = {1, 2, 3};
    const uint32_t extent[4] = {1, 1, 1, 1}, strides[4] = {1, 1, 1, 1};
    const int32_t codes[] = {KIPX_EINVAL, KIPX_EINVAL, 0, 0, KIPX_ENOTSUP, KIPX_EINVAL};
    for (uint32_t n = 0; n < 6; n++)
        for (uint32_t type : {1u, 5u}) {
            bytes[0] = 1;
            const int32_t code = kipxa__add(nullptr, 0, n, extent, type, bytes, strides, type,
                                            bytes + 1, strides, type, bytes + 2, strides, 0, 0);
            EXPECT_EQ(code, type == 5 ? KIPX_EINVAL : codes[n]) << n;
            EXPECT_EQ(bytes[0], code ? 1 : 5);
        }
    for (int missing = 0; missing < 4; missing++) {
        const auto unless = [=](int which, const uint32_t *v) {
            return which == missing ? nullptr : v;
        };
        EXPECT_EQ(kipxa_add(nullptr, 0, 3, unless(0, extent), KIPX_U8, bytes, nullptr,
                            unless(1, strides), KIPX_U8, bytes + 1, nullptr, unless(2, strides),
                            KIPX_U8, bytes + 2, nullptr, unless(3, strides), 0, 0),
                  KIPX_EINVAL);
    }
}

TEST(Sources, NarrowingNeedsAnEnvironment) {
    Shape s;
    GuardedArray dst(s);
    s.type = KIPX_S32;
    GuardedArray a(s), b(s);
    const Snapshot before = dst.snapshot();
    EXPECT_EQ(KipxAdd(nullptr, 0, dst.arr(), a.arr(), b.arr(), nullptr, nullptr, nullptr, 0, 0),
              KIPX_EINVAL);
    EXPECT_EQ(dst.changes(before), "");
}

} // namespace
