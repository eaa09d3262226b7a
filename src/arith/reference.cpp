// arith/reference.cpp - plain loops over at most 256 elements.
#include <kipx/arith.h>

namespace {

constexpr uint32_t most = 256;

template<class T, class Op>
void loop(T *destination, const T *source1, const T *source2, uint32_t count, Op op) {
    const T *first = source1 ? source1 : destination;
    for (uint32_t i = 0; i < count && i < most; ++i)
        destination[i] = static_cast<T>(op(first[i], source2[i]));
}

} // namespace

#define KIPX_REFERENCE(name, type, expression)                                                     \
    void C_kipx_##name(type *destination, const type *source1, const type *source2,                \
                       uint32_t count) {                                                           \
        loop(destination, source1, source2, count, [](type a, type b) { return expression; });     \
    }

extern "C" {
KIPX_REFERENCE(addLE256_8, uint8_t, a + b)
KIPX_REFERENCE(addLE256_16, uint16_t, a + b)
KIPX_REFERENCE(subaLE256_8, uint8_t, a - b)
KIPX_REFERENCE(subaLE256_16, uint16_t, a - b)
KIPX_REFERENCE(addvcf, float, a + b)
KIPX_REFERENCE(subvcf, float, a - b)
KIPX_REFERENCE(rsubvcf, float, b - a)
KIPX_REFERENCE(mulvcf, float, a *b)
KIPX_REFERENCE(divvcf, float, a / b)
KIPX_REFERENCE(rdivvcf, float, b / a)
}
