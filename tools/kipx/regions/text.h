// text.h - the small parts of which tables, JSON and SVG are written.
#pragma once

#include <string>

// Appends at most 400 characters.
[[gnu::format(printf, 2, 3)]] void append(std::string &out, const char *format, ...);
// "null" when it is not finite.
std::string json_number(double value);
// In quotes, with what JSON does not allow escaped; bytes that are no UTF-8 become U+FFFD.
std::string json_text(const std::string &text);
std::string xml_text(const std::string &text);
