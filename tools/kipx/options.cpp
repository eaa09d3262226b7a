// options.cpp - see options.h.
#include "options.h"

#include "failure.h"

#include <charconv>

namespace {

bool parse(const std::string &text, int64_t &value) {
    const char *end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    return result.ec == std::errc() && result.ptr == end;
}

} // namespace

int64_t whole_number(const std::string &option, const std::string &text, int64_t least,
                     int64_t greatest) {
    int64_t value = 0;
    if (!parse(text, value) || value < least || value > greatest)
        fail(option, ": got '", text, "', expected a whole number from ", least, " to ", greatest);
    return value;
}

double real_number(const std::string &option, const std::string &text, double least,
                   double greatest) {
    double value = 0;
    const char *end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    if (result.ec != std::errc() || result.ptr != end || !(value >= least && value <= greatest))
        fail(option, ": got '", text, "', expected a number from ", least, " to ", greatest);
    return value;
}

std::string filled(const std::string &text) {
    return text.empty() ? "got '', expected a value" : "";
}

void no_such_choice(const std::string &option, const std::string &text,
                    const std::vector<const char *> &known) {
    std::string list;
    for (size_t i = 0; i < known.size(); ++i)
        list += std::string(i == 0 ? "" : i + 1 == known.size() ? " or " : ", ") + known[i];
    fail(option, ": got '", text, "', expected ", list);
}

std::vector<uint32_t> numbers(const std::string &option, const std::string &text, char separator,
                              size_t count, const char *form, uint32_t least) {
    std::vector<uint32_t> out;
    size_t start = 0;
    while (start <= text.size() && out.size() <= count) {
        const size_t end = std::min(text.find(separator, start), text.size());
        int64_t value = 0;
        if (!parse(text.substr(start, end - start), value) || value < least || value > INT32_MAX)
            break;
        out.push_back(uint32_t(value));
        start = end + 1;
    }
    if (out.size() != count || start != text.size() + 1)
        fail(option, ": got '", text, "', expected ", form, " with whole numbers from ", least,
             " to ", INT32_MAX);
    return out;
}
