// batch.h - many jobs, several at a time, told in order.
//
// Gives    run_batch: runs work(i) for every job on so many threads, and prints what each answers
//          in the order of the jobs, failures on stderr, with a progress bar between.
// Promises a job that throws stops no other, memory that cannot be had included. What is printed is
//          the same for any number of threads; where nobody reads it any more, it ends and the work
//          goes on.
#pragma once

#include <cstddef>
#include <exception>
#include <functional>
#include <string>
#include <vector>

struct Answer {
    std::string line;   // for stdout, without the end of the line
    bool worked = true; // false: there was nothing left to do
};

// Of every job: null, or what it threw.
std::vector<std::exception_ptr> run_batch(size_t jobs, size_t threads, bool quiet,
                                          const std::function<Answer(size_t)> &work);
// What an exception says of itself.
const char *sentence_of(const std::exception_ptr &failure);
