// text.cpp - see text.h.
#include "regions/text.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>

void append(std::string &out, const char *format, ...) {
    char text[401];
    va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): va_start has just set it
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    out.append(text, size_t(std::clamp(length, 0, int(sizeof text) - 1)));
}

std::string json_number(double value) {
    std::string out;
    if (std::isfinite(value)) append(out, "%.10g", value);
    return out.empty() ? "null" : out;
}

namespace {

// Length of the UTF-8 character at a place, or 0 where there is none.
size_t character(const std::string &text, size_t at) {
    const auto byte = [&](size_t i) { return i < text.size() ? uint8_t(text[i]) : uint8_t(0); };
    const uint8_t head = byte(at);
    const size_t length = head < 0x80                   ? 1
                          : head >= 0xC2 && head < 0xE0 ? 2
                          : head >= 0xE0 && head < 0xF0 ? 3
                          : head >= 0xF0 && head < 0xF5 ? 4
                                                        : 0;
    for (size_t i = 1; i < length; ++i)
        if ((byte(at + i) & 0xC0) != 0x80) return 0;
    // Longer than needed, surrogates, and beyond the last code point.
    const uint8_t second = byte(at + 1);
    if ((head == 0xE0 && second < 0xA0) || (head == 0xED && second > 0x9F) ||
        (head == 0xF0 && second < 0x90) || (head == 0xF4 && second > 0x8F))
        return 0;
    return length;
}

template<class Escape> std::string escaped(const std::string &text, Escape &&escape) {
    std::string out;
    for (size_t at = 0; at < text.size();) {
        const size_t length = character(text, at);
        const std::string special = length == 1 ? escape(text[at]) : "";
        if (length == 0)
            out += "\xEF\xBF\xBD";
        else if (special.empty())
            out.append(text, at, length);
        else
            out += special;
        at += std::max<size_t>(length, 1);
    }
    return out;
}

} // namespace

std::string json_text(const std::string &text) {
    std::string out(1, '"');
    out += escaped(text, [](char c) {
        std::string special;
        if (c == '"' || c == '\\')
            append(special, "\\%c", c);
        else if (uint8_t(c) < 32)
            append(special, "\\u%04x", unsigned(uint8_t(c)));
        return special;
    });
    out += '"';
    return out;
}

std::string xml_text(const std::string &text) {
    return escaped(text, [](char c) -> std::string {
        if (c == '<') return "&lt;";
        if (c == '&') return "&amp;";
        return uint8_t(c) < 32 ? " " : "";
    });
}
