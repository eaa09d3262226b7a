// batch.h - many jobs, several at a time, told in order.
//
// Gives    run_batch: runs work(i) for every job on so many threads, and prints what each answers
//          in the order of the jobs, failures on stderr, with a progress bar between.
// Promises a job that throws stops no other. What is printed is the same for any number of threads.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

struct Answer {
    std::string line;   // for stdout, without the end of the line
    bool worked = true; // false: there was nothing left to do
};

// Returns the number of jobs that failed.
size_t run_batch(size_t jobs, size_t threads, bool quiet,
                 const std::function<Answer(size_t)> &work);
