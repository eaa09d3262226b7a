// compare/typed_compare.h - the typed level of the comparisons, one routine for all of them.
//
// Gives    work_compare(), from a Call to its pixels; work_chosen(), the same from a chosen kernel
//          on; the look-up of kernels.
// Promises types come first, then the kernel, then the operator, channels and values, then the flags.
//          Nothing is written before all these have passed; no work fails afterwards.
#pragma once

#include <kipx/compare.h>

#include "core/call.h"

namespace kipx {

// What a comparison is given besides its operands.
struct Comparison {
    kipx_cmpop cmpop;
    const double *values;                     // null where there is a second array
    const double *true_values, *false_values; // or markers
};

enum class Form : uint32_t { array, constant };
enum class Result : uint32_t { mask, chosen };
// call.params is a Comparison.
template<Form form, Result result> int32_t work_compare(Call &call);

// A kernel, and its values as elements.
struct Chosen {
    uint32_t pair; // see compare_rows.h
    kipx_cmpop cmpop;
    bool same_elements; // the destination takes the source's as they are
    Form form;
    Result result;
    const void *values;                     // of the source's type
    const void *true_values, *false_values; // of the destination's type; the second may be a marker
};

// Values per channel as elements of a type.
struct Vectors {
    alignas(16) unsigned char values[16], true_values[16], false_values[16];
};

// equal with not equal, less with greater or equal, less or equal with greater. Operators that are
// not defined give others that are not.
kipx_cmpop negated(kipx_cmpop cmpop);

// 0, or what is wrong with a pair of type codes.
int32_t find_compare(uint32_t dst_type, uint32_t src_type, Result result, uint32_t &pair);
// What is written where: chosen.result, its values, and the operator turned round where they are given
// the other way round. 0, or what is wrong with the values.
int32_t settle_result(const Comparison &given, const Call &call, Chosen &chosen, Vectors &room);
// Compares one by one; kept is what the marker for the source's element means. No checks.
void compare(Call &call, const Chosen &chosen, const Operand &kept);
// call.dst and call.src have types of their operands' sizes; channels are 1 to 4.
int32_t work_chosen(Call &call, const Chosen &chosen);

} // namespace kipx
