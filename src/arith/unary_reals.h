// arith/unary_reals.h - the numbers of which exponential, logarithm and sigmoid are made. For row files only.
//
// Coefficients are those of near-minimax fits of the functions named beside them. Points of the logarithm
// are reciprocals of half a number's bits. Their logarithms have so few bits that any multiple of the high part
// of ln 2 is added exactly.
#pragma once

#include "core/lanes.h"

namespace kipx::KIPX_SET {

template<class T> struct Real;

template<> struct Real<f32> {
    using Word = u32;
    static constexpr int digits = 23;
    static constexpr u32 window = 1024;
    static constexpr f32 least = -104, most = 89, normal = 0x1p-126f;
    static constexpr f32 steps_in_one = 0x1.715476p4f; // 16 / ln 2
    static constexpr f32 step_high = 0x1.62ep-5f,
                         step_low = 0x1.0bfbe8p-19f; // the first of 12 bits
    static constexpr f32 roots[16] = {
        0x1p+0f,        0x1.0b5586p+0f, 0x1.172b84p+0f, 0x1.2387a6p+0f,
        0x1.306fep+0f,  0x1.3dea64p+0f, 0x1.4bfdaep+0f, 0x1.5ab07ep+0f,
        0x1.6a09e6p+0f, 0x1.7a1148p+0f, 0x1.8ace54p+0f, 0x1.9c4918p+0f,
        0x1.ae89fap+0f, 0x1.c199bep+0f, 0x1.d5818ep+0f, 0x1.ea4afap+0f};
    // What the true roots are more than these, as parts of them.
    static constexpr f32 root_rests[16] = {0,
                                           0x1.8d96d4p-25f,
                                           -0x1.9c0c22p-27f,
                                           0x1.964904p-25f,
                                           0x1.125002p-25f,
                                           0x1.370be4p-25f,
                                           -0x1.0a3550p-25f,
                                           -0x1.00d8acp-27f,
                                           0x1.26055cp-26f,
                                           -0x1.05cb44p-25f,
                                           0x1.67a1cap-28f,
                                           0x1.a3b5e4p-28f,
                                           -0x1.f9c304p-27f,
                                           -0x1.6961b4p-28f,
                                           -0x1.a5217cp-28f,
                                           0x1.61428ep-28f};
    // (e^r - 1 - r) / r^2
    static constexpr f32 exp_tail[2] = {0x1.000148p-1f, 0x1.55565cp-3f};
    // (2^(r / 16) - 1) / r
    static constexpr f32 power_tail[3] = {0x1.62e43p-5f, 0x1.ebfff4p-11f, 0x1.c6ae3ep-17f};

    static constexpr f32 least_simple = 0x1p-64f; // up to its reciprocal
    static constexpr u32 lowest_point = 0x3f3c0000, upper_half = ~u32{0xfff};
    static constexpr f32 points[16] = {0x1.568p+0f, 0x1.484p+0f, 0x1.3ap+0f,  0x1.2f6p+0f,
                                       0x1.25ap+0f, 0x1.1c6p+0f, 0x1.1p+0f,   0x1.07ep+0f,
                                       0x1p+0f,     0x1.e2p-1f,  0x1.c76p-1f, 0x1.afp-1f,
                                       0x1.9a8p-1f, 0x1.864p-1f, 0x1.758p-1f, 0x1.624p-1f};
    static constexpr f32 logs[16] = {-0x1.2a14p-2f, -0x1.fd2p-3f,  -0x1.a238p-3f,
                                     -0x1.5bcp-3f,  -0x1.18d8p-3f, -0x1.ae9p-4f,
                                     -0x1.f0ap-5f,  -0x1.f08p-6f,  0,
                                     0x1.eeap-5f,   0x1.e01p-4f,   0x1.60bp-3f,
                                     0x1.c48p-3f,   0x1.160cp-2f,  0x1.42f8p-2f,
                                     0x1.7928p-2f};
    // What their logarithms are more.
    static constexpr f32 log_rests[16] = {-0x1.33eec6p-19f, -0x1.f7eeep-20f, -0x1.e0ff16p-18f,
                                          0x1.fd076p-18f,   0x1.3e040ep-18f, 0x1.85efb2p-20f,
                                          -0x1.86008cp-20f, 0x1.8b7fa8p-18f, 0,
                                          0x1.8e0036p-20f,  0x1.47fc72p-21f, 0x1.880584p-18f,
                                          0x1.8000bap-20f,  0x1.d0025ep-18f, 0x1.f3ff62p-18f,
                                          0x1.55fdf4p-18f};
    // (ln (1 + f) - f) / f^2
    static constexpr f32 log_tail[4] = {-0x1.fffffep-2f, 0x1.555568p-2f, -0x1.00321p-2f,
                                        0x1.98cfaep-3f};
    // Exponents are numbers in units of 2^-23; of 16 bits each.
    static constexpr f32 ln2_high = 0x1.62e4p-24f, ln2_low = 0x1.7f7ep-43f, exponent_unit = 0x1p23f;
    static Vector<f32> exponent(Vector<u32> bits) {
        return __builtin_convertvector(reinterpret_cast<Vector<s32>>(bits), Vector<f32>);
    }
};

template<> struct Real<f64> {
    using Word = u64;
    static constexpr int digits = 52;
    static constexpr u64 window = 8192;
    static constexpr f64 least = -746, most = 710, normal = 0x1p-1022;
    static constexpr f64 steps_in_one = 0x1.71547652b82fep4, steps_rest = 0x1.777d0ffda0d24p-52;
    static constexpr f64 step_high = 0x1.62e42fefap-5, step_low = 0x1.cf79abc9ep-44; // 38 bits
    static constexpr f64 roots[16] = {0x1p+0,
                                      0x1.0b5586cf9890fp+0,
                                      0x1.172b83c7d517bp+0,
                                      0x1.2387a6e756238p+0,
                                      0x1.306fe0a31b715p+0,
                                      0x1.3dea64c123422p+0,
                                      0x1.4bfdad5362a27p+0,
                                      0x1.5ab07dd485429p+0,
                                      0x1.6a09e667f3bcdp+0,
                                      0x1.7a11473eb0187p+0,
                                      0x1.8ace5422aa0dbp+0,
                                      0x1.9c49182a3f09p+0,
                                      0x1.ae89f995ad3adp+0,
                                      0x1.c199bdd85529cp+0,
                                      0x1.d5818dcfba487p+0,
                                      0x1.ea4afa2a490dap+0};
    // What the true roots are more than these, as parts of them.
    static constexpr f64 root_rests[16] = {0x0p+0,
                                           0x1.79aa65d837b6dp-54,
                                           -0x1.01b15eaa59348p-55,
                                           0x1.68efde3a8a894p-54,
                                           0x1.34d754db0abb6p-55,
                                           0x1.59f48a72a4c6dp-55,
                                           0x1.690cebb7aafbp-56,
                                           0x1.063e1e21c5409p-54,
                                           -0x1.3b3efbf5e2228p-54,
                                           -0x1.b32dcb94da51dp-56,
                                           0x1.db72fc1f0eab4p-55,
                                           0x1.1affc2b91ce27p-56,
                                           0x1.c1a7792cb3387p-55,
                                           0x1.36eae30af0cb3p-56,
                                           0x1.4a385a63d07a7p-56,
                                           -0x1.ff7128fd391fp-55};
    static constexpr f64 exp_tail[6] = {0x1.0000000000001p-1,  0x1.5555555555556p-3,
                                        0x1.55555554e8d7bp-5,  0x1.11111110e0d94p-7,
                                        0x1.6c17ede661f5cp-10, 0x1.a01b0cb76698bp-13};
    static constexpr f64 power_tail[6] = {0x1.62e42fefa39fdp-5,  0x1.ebfbdff82c59dp-11,
                                          0x1.c6b08d6e8cc71p-17, 0x1.3b2ab6fa93f3ep-23,
                                          0x1.5d89bd649645bp-30, 0x1.430a9c00a6d39p-37};

    static constexpr f64 least_simple = 0x1p-512;
    static constexpr u64 lowest_point = 0x3fe7800000000000, upper_half = ~u64{0x3ffffff};
    static constexpr f64 points[16] = {
        0x1.55441cp+0, 0x1.479f388p+0, 0x1.3b00388p+0, 0x1.2f5bc98p+0, 0x1.247ccfp+0, 0x1.1a6ad9p+0,
        0x1.11014ap+0, 0x1.0835a08p+0, 0x1p+0,         0x1.e1d6b5p-1,  0x1.c70f2cp-1, 0x1.af1516p-1,
        0x1.9985dcp-1, 0x1.860163p-1,  0x1.744fe28p-1, 0x1.641757p-1};
    static constexpr f64 logs[16] = {-0x1.266273c583p-2, -0x1.f934e5d01cp-3, -0x1.a8c03f1f58p-3,
                                     -0x1.5b9f95179ep-3, -0x1.10e28b9d98p-3, -0x1.924329247p-4,
                                     -0x1.076cda835p-4,  -0x1.02943f0b58p-5, 0,
                                     0x1.f16109351p-5,   0x1.e2e7eca0ap-4,   0x1.604ee099b8p-3,
                                     0x1.c96232daa2p-3,  0x1.16b228a236p-2,  0x1.463d0de6a7p-2,
                                     0x1.73da671b61p-2};
    // What their logarithms are more.
    static constexpr f64 log_rests[16] = {
        -0x1.8fffeb33d3b47p-47, 0x1.15bfffa8fd91p-45,   0x1.217fff22124c1p-44,
        0x1.177ff63931a2cp-46,  -0x1.200011d0987d7p-48, 0x1.588ffffa769fp-44,
        -0x1.2a90000af1104p-44, -0x1.caa00076f1f33p-44, 0,
        0x1.3300001b60c3ap-45,  0x1.f380038c87765p-47,  -0x1.63c0024db5f58p-45,
        0x1.c1fff2e3845cdp-47,  0x1.2fffff30e25b1p-44,  0x1.467ffed122f47p-45,
        0x1.3e80019527aeap-44};
    static constexpr f64 log_tail[9] = {-0.5,
                                        0x1.5555555555512p-2,
                                        -0x1.00000000010d3p-2,
                                        0x1.9999999b04cabp-3,
                                        -0x1.5555552cd43d1p-3,
                                        0x1.249235e3e7bfep-3,
                                        -0x1.000106ddad3e8p-3,
                                        0x1.c7e909cdfc9b9p-4,
                                        -0x1.959f4ff76d378p-4};
    static constexpr f64 ln2_high = 0x1.62e42fefa38p-1, ln2_low = 0x1.ef35793c768p-45,
                         exponent_unit = 1; // of 42 bits each
    // Not every set has a conversion of 64 bits: by way of a number that has them in its last bits.
    static Vector<f64> exponent(Vector<u64> bits) {
        const Vector<u64> biased = bits + (u64{1024} << 52);
        return reinterpret_cast<Vector<f64>>(biased >> 52 | u64{0x4330000000000000}) -
               (0x1p52 + 1024);
    }
};

} // namespace kipx::KIPX_SET
