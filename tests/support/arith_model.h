// support/arith_model.h - the binary arithmetic by exact numbers, one element at a time.
//
// Gives    the operations and their type triples as tables made from the library's own lists; what
//          a kernel or a public function must write for two elements; the road a triple of types
//          takes through exchange and narrowing; the comparison of a whole array with all this.
// Promises integer results are formed in 128 bits and rounded by looking at remainders, products
//          and quotients of binary32 in a wider format whose second rounding is known to be
//          harmless. Nothing here shares a line with the row loops.
#ifndef KIPX_TESTS_SUPPORT_ARITH_MODEL_H
#define KIPX_TESTS_SUPPORT_ARITH_MODEL_H

#include <cstdint>
#include <string>
#include <vector>

#include <kipx/arith.h>

#include "support/guarded.h"

namespace kipx::test {

#define KIPX_MODEL_ENUM(op, Name, triples, code, mirror) op,
enum class ModelOp { KIPX_BINARY_OPS(KIPX_MODEL_ENUM) };
#undef KIPX_MODEL_ENUM

struct Triple {
    uint32_t dst, src1, src2;
    bool operator==(const Triple &) const = default;
};

// The one scale list: nothing, ordinary shifts, both sides of every modulus, and the ends.
inline constexpr int32_t all_scales[] = {0,   1,   2,   7,   31,  32,        33,       62,
                                         63,  64,  65,  -1,  -2,  -7,        -9,       -10,
                                         -24, -31, -32, -33, -64, INT32_MIN, INT32_MAX};

using PublicFunction = int32_t (*)(KipxXE *, uint64_t, const kipx_arr *, const kipx_arr *,
                                   const kipx_arr *, const kipx_site *, const kipx_pos *,
                                   const kipx_pos *, int32_t, int32_t);
using TableFunction = kipx_binary_kernel (*)(uint32_t, uint32_t, uint32_t, int32_t *);

struct NamedKernel {
    Triple types;
    kipx_binary_kernel kernel;
    const char *name;
};

struct OpInfo {
    ModelOp op, mirror;
    const char *name;
    uint32_t code;
    PublicFunction function;
    TableFunction table;
    std::vector<NamedKernel> kernels;
};
const std::vector<OpInfo> &all_ops();
const OpInfo &info(ModelOp op);

// A public function: an operation, or one of those that write the signed counterpart.
struct FunctionInfo {
    const char *name;
    uint32_t code;
    PublicFunction function;
    ModelOp op;
    bool into_signed;
};
const std::vector<FunctionInfo> &all_functions();

// ---- one element ------------------------------------------------------------------------------

// Elements are their bits, zero-extended.
uint64_t load_bits(uint32_t type, const void *address);
std::string show(uint32_t type, uint64_t bits);

// What the kernel for these types gives. No integer is divided by zero.
uint64_t model_element(ModelOp op, Triple types, int32_t scale, uint64_t a, uint64_t b);
// The narrowing conversion.
uint64_t model_convert(uint32_t dst, uint32_t src, uint64_t bits);
// A truncating integer division by one of these would fault.
bool faults(ModelOp op, uint32_t type, uint64_t a, uint64_t b);

// ---- the road of a call -----------------------------------------------------------------------

struct Route {
    int32_t status; // 0, or what the call answers
    ModelOp op;     // of the kernel
    bool exchanged;
    Triple kernel;
    uint32_t dst; // differs from kernel.dst in size where the result is narrowed
};
bool type_valid(uint32_t type);
bool has_kernel(ModelOp op, Triple types);
Route route_of(const FunctionInfo &function, Triple types);
// a and b are the elements of the public call, in its order. `same`: both sources are one array.
uint64_t model_element(const Route &route, int32_t scale, uint64_t a, uint64_t b,
                       bool same = false);

// ---- arrays -----------------------------------------------------------------------------------

// The elements of an array as they were: sources are kept before a call that may overwrite them.
struct Elements {
    uint32_t type, width, channels;
    std::vector<uint64_t> bits;
    explicit Elements(const GuardedArray &array);
    uint64_t at(uint32_t y, uint32_t x, uint32_t c) const {
        return bits[(size_t{y} * width + x) * channels + c];
    }
};

// Empty when every element of dst is the model's for the elements at the same place; else the first
// one that is not.
std::string wrong_element(const GuardedArray &dst, const Route &route, int32_t scale,
                          const Elements &a, const Elements &b, bool same = false);
// Makes every divisor of an integer division something else than 0.
void avoid_zero_divisors(ModelOp op, GuardedArray &a, GuardedArray &b);

} // namespace kipx::test

#endif
