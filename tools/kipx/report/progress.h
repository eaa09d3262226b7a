// progress.h - how far a long job is: a bar on stderr while that is a terminal, else nothing.
//
// Gives    Progress: counts what is done and draws bar, count and time left; hide() before anything
//          else is printed.
// Promises nothing is printed when stderr is no terminal or a dumb one, or quietly asked for. The bar
//          stays on its line in a terminal of any width. Takes no memory. One thread at a time.
#pragma once

#include <chrono>
#include <cstddef>

class Progress {
public:
    Progress(size_t total, bool quiet);
    ~Progress() { hide(); }
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    // One more is done; with worked false it took no time worth counting.
    void step(bool worked);
    void show();
    void hide();

private:
    size_t total_, done_ = 0, worked_ = 0;
    bool on_, shown_ = false;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};
