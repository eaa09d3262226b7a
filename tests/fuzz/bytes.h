// fuzz/bytes.h - numbers drawn from a fuzzer's bytes.
//
// Gives    Bytes: each draw eats as many bytes as the range needs; behind the end all are 0.
// Promises equal bytes give equal draws on every machine, so that a found input can be kept.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>

namespace kipx::fuzz {

class Bytes {
public:
    Bytes(const uint8_t *data, size_t size) : at_(data), end_(data + size) {}

    template<class T> T any() {
        T value{};
        const size_t left = size_t(end_ - at_), wanted = sizeof value < left ? sizeof value : left;
        if (wanted) std::memcpy(&value, at_, wanted);
        at_ += wanted;
        return value;
    }
    uint32_t below(uint32_t n) { return (n <= 256 ? any<uint8_t>() : any<uint32_t>()) % n; }
    uint32_t between(uint32_t low, uint32_t high) { return low + below(high - low + 1); }
    bool one_in(uint32_t n) { return below(n) == n - 1; }
    template<class List> const auto &pick(const List &list) {
        return list[below(uint32_t(std::size(list)))];
    }
    // Numbers at which sizes, signs and types end, or any.
    uint32_t number() {
        static constexpr uint32_t ends[] = {
            0,          1,          2,          3,          4,          7,
            8,          9,          15,         16,         17,         64,
            255,        256,        65535,      65536,      0x7FFFFFFF, 0x80000000,
            0xFFFFFFFF, 0xFFFFFFF0, 0x40000000, 0x10000001, 0x00FFFFFF};
        const uint32_t k = below(uint32_t(std::size(ends)) + 2);
        return k < std::size(ends) ? ends[k] : any<uint32_t>();
    }

private:
    const uint8_t *at_, *end_;
};

} // namespace kipx::fuzz
