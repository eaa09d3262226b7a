// core/sets.h - one table of row loops per instruction set, and the choice among them.
//
// Gives    KIPX_SET_TABLES (Type, name, count): declares the tables that a rows file defines as
//          name[count] in each set's namespace, and name##_of (set), which picks one.
// Promises every set gives the same bits; nothing above the kernel can see the choice.
#pragma once

#include "core/simd.h"

#if defined(__x86_64__)
#define KIPX_SET_TABLES(Type, name, count)                                                         \
    namespace baseline {                                                                           \
    extern const Type name[count];                                                                 \
    }                                                                                              \
    namespace avx2 {                                                                               \
    extern const Type name[count];                                                                 \
    }                                                                                              \
    namespace avx512 {                                                                             \
    extern const Type name[count];                                                                 \
    }                                                                                              \
    inline const Type *name##_of(Set set) {                                                        \
        return set == Set::avx512 ? avx512::name : set == Set::avx2 ? avx2::name : baseline::name; \
    }
#else
#define KIPX_SET_TABLES(Type, name, count)                                                         \
    namespace baseline {                                                                           \
    extern const Type name[count];                                                                 \
    }                                                                                              \
    inline const Type *name##_of(Set) { return baseline::name; }
#endif
