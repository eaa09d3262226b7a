// geometry/exact.h - arithmetic that does not lose what rounding drops.
//
// Gives    numbers as unevaluated sums of two doubles (Twofold); the sign of a difference of two
//          products of differences, on which every turn rests; and ExactSum, which adds any number of
//          products of two doubles without rounding.
// Promises sign_of and ExactSum are right for all finite numbers. Twofold holds its error bound (some
//          2^-104 of the result) while products stay between 2^-900 and 2^900.
// Costs    sign_of decides almost always from four rounded differences; where these are exact, as
//          between whole numbers, from two products and what their rounding dropped; and else by an
//          ExactSum of eight products, a fraction of a microsecond.
// Sources  Dekker 1971 and Knuth for sums and products with their rounding error, Shewchuk 1997 for
//          the bound of the first stage.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kipx::geometry {

// value + tail, value being the sum rounded.
struct Twofold {
    double value = 0, tail = 0;
};

inline Twofold two_sum(double a, double b) {
    const double sum = a + b, from_b = sum - a;
    return {sum, (a - (sum - from_b)) + (b - from_b)};
}

// For |a| >= |b|, or a = 0.
inline Twofold quick_two_sum(double a, double b) {
    const double sum = a + b;
    return {sum, b - (sum - a)};
}

inline Twofold two_product(double a, double b) {
    constexpr double splitter = 134217729; // 2^27 + 1: leaves 26 bits in either half
    const double product = a * b, ca = splitter * a, cb = splitter * b;
    const double a_high = ca - (ca - a), a_low = a - a_high;
    const double b_high = cb - (cb - b), b_low = b - b_high;
    const double rest = ((product - a_high * b_high) - a_low * b_high) - a_high * b_low;
    return {product, a_low * b_low - rest};
}

inline Twofold operator+(Twofold a, Twofold b) {
    const Twofold high = two_sum(a.value, b.value), low = two_sum(a.tail, b.tail);
    const Twofold sum = quick_two_sum(high.value, high.tail + low.value);
    return quick_two_sum(sum.value, sum.tail + low.tail);
}

inline Twofold operator-(Twofold a) { return {-a.value, -a.tail}; }
inline Twofold operator-(Twofold a, Twofold b) { return a + -b; }

inline Twofold operator*(Twofold a, Twofold b) {
    const Twofold product = two_product(a.value, b.value);
    return quick_two_sum(product.value, product.tail + (a.value * b.tail + a.tail * b.value));
}

// a b - c d, with a relative error of some 2^-53 however much cancels.
inline Twofold difference_of_products(double a, double b, double c, double d) {
    return two_product(a, b) - two_product(c, d);
}

// The sum of two, its tail rounded.
inline Twofold rounded_sum(Twofold a, Twofold b) {
    const Twofold sum = two_sum(a.value, b.value);
    return {sum.value, sum.tail + (a.tail + b.tail)};
}

// A sum that keeps what rounding dropped, to be added at the end. Of n terms whose amounts sum to s it is
// wrong by n^2 2^-105 s at most.
class Compensated {
public:
    void add(double term) {
        const Twofold sum = two_sum(value_, term);
        value_ = sum.value;
        tail_ += sum.tail;
    }
    void add(Twofold term) {
        add(term.value);
        tail_ += term.tail;
    }
    Twofold both() const { return two_sum(value_, tail_); }
    double total() const { return value_ + tail_; }

private:
    double value_ = 0, tail_ = 0;
};

// Sum of products of two finite doubles, up to 2^32 of them, in units of 2^-2148, the square of the
// smallest double. What is added and what is taken away are kept apart, so that carries stay short.
class ExactSum {
public:
    void add(double a, double b) { put(a, b, false); }
    void subtract(double a, double b) { put(a, b, true); }
    int sign() const;
    // Half the sum, rounded to nearest, ties to even; infinite beyond the range.
    double half() const;

private:
    static constexpr int limbs = 68; // 2 x 2098 bits, 32 bits of count, and a spare one
    void put(double a, double b, bool negative);
    uint64_t added_[limbs] = {}, taken_[limbs] = {};
};

// minuend - subtrahend, not yet formed.
struct Difference {
    double minuend, subtrahend;
};

// Sign of a b - c d by the slow stages.
int sign_of_close(Difference a, Difference b, Difference c, Difference d);

// Sign of a b - c d.
inline int sign_of(Difference a, Difference b, Difference c, Difference d) {
    const double ab = (a.minuend - a.subtrahend) * (b.minuend - b.subtrahend);
    const double cd = (c.minuend - c.subtrahend) * (d.minuend - d.subtrahend);
    const double difference = ab - cd, size = (ab < 0 ? -ab : ab) + (cd < 0 ? -cd : cd);
    // (3 + 16 u) u with u = 2^-53, and eight times the smallest number for what underflow loses. All
    // comparisons are false when something has overflowed.
    const double bound = size * 3.3306690738754716e-16 + 0x1p-1071;
    if (difference > bound) return 1;
    if (-difference > bound) return -1;
    return sign_of_close(a, b, c, d);
}

// Sign of |p - c|^2 - r^2. Exact.
int sign_of_distance(double px, double py, double cx, double cy, double radius);

} // namespace kipx::geometry
