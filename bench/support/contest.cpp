#include "support/contest.h"

#include <utility>

#include <benchmark/benchmark.h>

#if defined(KIPX_BENCH_OPENCV)
#include <opencv2/core.hpp>
#endif

namespace kipx::bench {
namespace {

unsigned char *pixels_of(uint32_t bytes, Size size, int role) {
    return bytes ? static_cast<unsigned char *>(image(KIPX_U8, size, role, bytes)->base) : nullptr;
}

} // namespace

KipxXE *environment() {
    static KipxXE xe;
    return KipxXEinit(&xe, nullptr);
}

Contest::Contest(const std::string &family, const std::string &operation, Size size)
    : prefix_(family + "/" + operation + "/" + std::to_string(size.width) + "x" +
              std::to_string(size.height) + "/"),
      size_(size) {}

void Contest::add(const std::string &contestant, std::function<int32_t()> call, int32_t simd) {
    const double pixels = static_cast<double>(size_.width) * size_.height;
    auto run = [call = std::move(call), simd, pixels](benchmark::State &state) {
        kipx_set_simd(simd);
        const int32_t code = call(); // makes the images, warms the caches
        if (code < 0) {
            state.SkipWithError(("the call answers " + std::to_string(code)).c_str());
            return;
        }
        for (auto step : state) {
            (void)step;
            benchmark::DoNotOptimize(call());
            benchmark::ClobberMemory();
        }
        state.counters["Mpixel/s"] =
            benchmark::Counter(pixels / 1e6, benchmark::Counter::kIsIterationInvariantRate);
    };
    benchmark::RegisterBenchmark((prefix_ + contestant).c_str(), std::move(run));
}

Contest &Contest::kipx(std::function<int32_t()> call) {
    add("plain", call, 0);
    add("vector", std::move(call), 1);
    return *this;
}

Contest &Contest::peer(const std::string &name, std::function<void()> call) {
    auto answering = [call = std::move(call)] {
        call();
        return 0;
    };
    add("peer:" + name, std::move(answering), 0);
    return *this;
}

Contest &Contest::limit(Traffic traffic, uint32_t side) {
    const Size size = {size_.width / side, size_.height / side};
    for (Move move : all_moves) {
        auto call = [=] {
            // Whole lines of 64, since stores past the cache want them.
            move_bytes(move, traffic, size_t{size.width} * size.height / 64 * 64,
                       pixels_of(traffic.write, size, 0), pixels_of(traffic.read1, size, 1),
                       pixels_of(traffic.read2, size, 2), pixels_of(traffic.read3, size, 3));
            return 0;
        };
        add(std::string("limit:") + move_name(move), std::move(call), 0);
    }
    return *this;
}

} // namespace kipx::bench

int main(int argc, char **argv) {
#if defined(KIPX_BENCH_OPENCV)
    cv::setNumThreads(1);
#endif
    if (register_contests) register_contests();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
