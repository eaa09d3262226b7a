// support/contest.h - one operation at one size, and who competes in it.
//
// Gives    benchmarks named family/operation/size/contestant, where the contestant is plain,
//          vector, peer:<name> or limit:<loop>, each counting pixels per second. run.py runs the
//          contestants of one contest interleaved, table.py prints the ratios.
// Promises nothing is allocated before a contestant runs, if the calls take their images from
//          images.h. A call that fails is reported as an error, not timed.
//
//     void register_contests() {
//         for (Size size : all_sizes) {
//             Contest("arith", "add u8", size)
//                 .kipx([=] { return KipxAdd(environment(), 0, image(KIPX_U8, size, 0), ...); })
//                 .peer("OpenCV", [=] { cv::add(...); })
//                 .limit({1, 1, 1});
//         }
//     }
#ifndef KIPX_BENCH_SUPPORT_CONTEST_H
#define KIPX_BENCH_SUPPORT_CONTEST_H

#include <cstdint>
#include <functional>
#include <string>

#include <kipx/env.h>

#include "support/images.h"
#include "support/limit.h"

namespace kipx::bench {

// Shared by all contests; keeps its memory from call to call.
KipxXE *environment();

class Contest {
public:
    Contest(const std::string &family, const std::string &operation, Size size);

    // The library's call, registered twice: with the vectorisation switch off and on.
    Contest &kipx(std::function<int32_t()> call);
    // Somebody else's, single-threaded.
    Contest &peer(const std::string &name, std::function<void()> call);
    // Loops that move as many bytes for every square of `side` x `side` pixels.
    Contest &limit(Traffic traffic, uint32_t side = 1);

private:
    void add(const std::string &contestant, std::function<int32_t()> call, int32_t simd);
    std::string prefix_;
    Size size_;
};

} // namespace kipx::bench

// Defined by a *_bench.cpp that has contests; the main function, which calls it, stands in
// contest.cpp. Programs whose subject is no image register their benchmarks as they start, under
// names of the same four levels; the library's contestant may then be called "kipx", when it has
// but one form, and the rate is that of SetItemsProcessed.
[[gnu::weak]] void register_contests();

#endif
