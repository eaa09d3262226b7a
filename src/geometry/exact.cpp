// geometry/exact.cpp - the slow stages of exact signs. See exact.h.
#include "geometry/exact.h"

#include <cmath>
#include <cstring>

namespace kipx::geometry {

namespace {

using Wide = unsigned __int128;

// A double as mantissa * 2^(exponent - 1075), the exponent at least 1.
struct Parts {
    uint64_t mantissa;
    int exponent;
    bool negative;
};

Parts parts_of(double number) {
    uint64_t bits;
    memcpy(&bits, &number, sizeof bits);
    const int field = static_cast<int>(bits >> 52 & 0x7FF);
    const uint64_t fraction = bits & 0xFFFFFFFFFFFFF;
    return {field ? fraction | uint64_t{1} << 52 : fraction, field ? field : 1, bits >> 63 != 0};
}

// A difference of two numbers between 2^-400 and 2^400 in size, or 0, and nothing dropped.
bool plain(Difference d, double &value) {
    const Twofold both = two_sum(d.minuend, -d.subtrahend);
    value = both.value;
    const double size = std::fabs(value);
    return both.tail == 0 && (size == 0 || (size > 0x1p-400 && size < 0x1p400));
}

// sum += or -= (a.minuend - a.subtrahend) (b.minuend - b.subtrahend)
void put(ExactSum &sum, Difference a, Difference b, bool negative) {
    const double first[] = {a.minuend, -a.subtrahend}, second[] = {b.minuend, -b.subtrahend};
    for (const double x : first)
        for (const double y : second) {
            if (negative)
                sum.subtract(x, y);
            else
                sum.add(x, y);
        }
}

} // namespace

void ExactSum::put(double a, double b, bool negative) {
    const Parts x = parts_of(a), y = parts_of(b);
    uint64_t *limb = negative ^ x.negative ^ y.negative ? taken_ : added_;
    const auto shift = static_cast<unsigned>(x.exponent + y.exponent - 2);
    limb += shift / 64;
    const Wide product = Wide{x.mantissa} * y.mantissa; // 106 bits
    const unsigned within = shift % 64;
    const uint64_t low = static_cast<uint64_t>(product),
                   high = static_cast<uint64_t>(product >> 64);
    const uint64_t words[] = {low << within, static_cast<uint64_t>(product << within >> 64),
                              within ? high >> (64 - within) : 0};
    uint64_t carry = 0;
    for (const uint64_t word : words) {
        const Wide sum = Wide{*limb} + word + carry;
        *limb++ = static_cast<uint64_t>(sum);
        carry = static_cast<uint64_t>(sum >> 64);
    }
    while (carry) carry = ++*limb++ == 0;
}

int ExactSum::sign() const {
    for (int i = limbs; i-- > 0;)
        if (added_[i] != taken_[i]) return added_[i] > taken_[i] ? 1 : -1;
    return 0;
}

double ExactSum::half() const {
    const int direction = sign();
    if (direction == 0) return 0;
    const uint64_t *more = direction > 0 ? added_ : taken_, *less = direction > 0 ? taken_ : added_;
    uint64_t sum[limbs];
    uint64_t borrow = 0;
    for (int i = 0; i < limbs; i++) {
        const Wide rest = Wide{more[i]} - less[i] - borrow;
        sum[i] = static_cast<uint64_t>(rest);
        borrow = static_cast<uint64_t>(rest >> 64) & 1;
    }
    const auto bit = [&](int i) { return sum[i / 64] >> i % 64 & 1; };
    int top = limbs * 64 - 1;
    while (!bit(top)) top--;
    // The unit of half the sum is 2^-2149; the last place of a double is 2^-1074 at least.
    constexpr int unit = -2149;
    const int last = top - 52 > -1074 - unit ? top - 52 : -1074 - unit;
    uint64_t kept = 0;
    for (int i = top; i >= last; i--) kept = kept << 1 | bit(i);
    bool beyond = false; // anything below the first dropped bit
    for (int i = 0; i + 1 < last && !beyond; i++) beyond = bit(i);
    if (bit(last - 1) && (beyond || (kept & 1))) kept++;
    return direction * std::ldexp(static_cast<double>(kept), last + unit);
}

int sign_of_close(Difference a, Difference b, Difference c, Difference d) {
    double x, y, z, w;
    if (plain(a, x) && plain(b, y) && plain(c, z) && plain(d, w)) {
        // Rounding is monotone: equal products round alike, and unlike ones tell the order.
        const Twofold xy = two_product(x, y), zw = two_product(z, w);
        if (xy.value < zw.value || xy.value > zw.value) return xy.value > zw.value ? 1 : -1;
        return (xy.tail > zw.tail) - (xy.tail < zw.tail);
    }
    ExactSum sum;
    put(sum, a, b, false);
    put(sum, c, d, true);
    return sum.sign();
}

int sign_of_distance(double px, double py, double cx, double cy, double radius) {
    const double dx = px - cx, dy = py - cy;
    const double square = dx * dx + dy * dy, limit = radius * radius, difference = square - limit;
    // Differences, squares and sums have lost five units of 2^-53 of either side at most.
    const double bound = (square + limit) * 0x1p-50 + 0x1p-1070;
    if (difference > bound) return 1;
    if (-difference > bound) return -1;
    if (square > 0x1p-700 && square < 0x1p900) {
        const Twofold x = two_sum(px, -cx), y = two_sum(py, -cy);
        const Twofold close = x * x + y * y - two_product(radius, radius);
        if (std::fabs(close.value) > (square + limit) * 0x1p-98) return close.value > 0 ? 1 : -1;
    }
    ExactSum sum;
    put(sum, {px, cx}, {px, cx}, false);
    put(sum, {py, cy}, {py, cy}, false);
    sum.subtract(radius, radius);
    return sum.sign();
}

} // namespace kipx::geometry
