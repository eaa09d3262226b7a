// histogram.cpp - see histogram.h.
#include "report/histogram.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace {

// The part of a column, in eighths, as a character of one line.
const char *character(uint64_t eighths, bool blocks) {
    static const char *const parts[] = {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    if (blocks) return parts[eighths];
    return eighths >= 5 ? "#" : eighths > 0 ? "." : " ";
}

} // namespace

std::string chart_of(const std::vector<uint32_t> &counts, const Chart &chart) {
    const size_t bins = counts.size(), share = (bins + chart.columns - 1) / chart.columns;
    std::vector<uint64_t> columns((bins + share - 1) / share);
    for (size_t i = 0; i < bins; ++i) columns[i / share] += counts[i];
    const uint64_t most = *std::max_element(columns.begin(), columns.end());
    const std::string top = fmt::format("{}", most);
    const size_t before_axis = std::max<size_t>(top.size(), 8);
    std::string out;
    for (uint32_t line = chart.lines; line-- > 0;) {
        const bool first = line + 1 == chart.lines;
        out += fmt::format("{:>{}} |", first ? top : line == 0 ? "0" : "", before_axis);
        for (const uint64_t count : columns) {
            const double height = most ? double(count) / double(most) * chart.lines * 8 : 0;
            const auto eighths = std::max<uint64_t>(std::lround(height), count > 0);
            out += character(std::min<uint64_t>(eighths - std::min<uint64_t>(eighths, line * 8), 8),
                             chart.blocks);
        }
        out.erase(out.find_last_not_of(' ') + 1);
        out += '\n';
    }
    out += fmt::format("{:>{}} +{}\n", "", before_axis, std::string(columns.size(), '-'));
    const std::string low = fmt::format("{:.6g}", chart.low);
    const std::string high = fmt::format("{:.6g}", chart.high);
    const size_t room = std::max(columns.size(), low.size() + high.size() + 1);
    out += fmt::format("{:>{}}  {}{:>{}}\n", "", before_axis, low, high, room - low.size());
    return out;
}
