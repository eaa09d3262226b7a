// convert/copy.h - elements from one place to another, for the roads that end in a copy.
//
// Gives    copy_elements(), which moves the first source of a call into its destination; and
//          fill_elements(), which writes a value per channel.
// Promises neither checks anything nor looks at flags; types are equal and have a size. The mask of
//          the call counts. Operands that lie across each other (call.across) behave as if the
//          source had been copied away first.
// Costs    copy_needs_scratch() tells whether scratch is taken: a copy of the source's region.
#pragma once

#include "core/call.h"

namespace kipx {

// What is wrong with the types and channels of a copy, or 0.
int32_t check_copy(const Call &call);
bool copy_needs_scratch(const Call &call);
// 0, or KIPX_ENOMEM with nothing written. The call is used up.
int32_t copy_elements(Call &call);
void fill_elements(Call &call, const double *values);

} // namespace kipx
