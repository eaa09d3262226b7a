// histogram.h - counts drawn as columns of text.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct Chart {
    double low = 0, high = 1; // the least and the greatest value that the bins may hold
    uint32_t columns = 72, lines = 8;
    bool blocks = false; // eighths of characters as UTF-8; else # and .
};

// Bins side by side share a column, as many in each, where there are more bins than columns. The
// highest column fills the lines; one that is not empty shows at least its foot. Below stand low
// and high.
std::string chart_of(const std::vector<uint32_t> &counts, const Chart &chart);
