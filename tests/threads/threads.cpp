// threads.cpp - sixteen threads at once, each with an environment of its own. Made to run under the
// thread sanitizer, whose report ends the program.
//
// Gives    exit status 0 when every thread of every round found what one thread alone finds. A round is
//          a process of its own, so that each begins with the switch undecided: in even rounds all
//          threads ask for it at once, in odd ones half of them set it meanwhile.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include <kipx/kipx.h>

namespace {

constexpr uint32_t side = 61, threads = 16;

struct Picture {
    std::vector<uint8_t> bytes = std::vector<uint8_t>(side * side);
    kipx_arr arr{};
    explicit Picture(uint32_t seed) {
        for (uint32_t i = 0; i < side * side; ++i)
            bytes[i] = uint8_t((i % side * 3 + i / side * 5) ^ (i * seed >> 9));
        arr.volume[0] = 1, arr.volume[1] = arr.volume[2] = side, arr.volume[3] = 1;
        arr.strides[1] = side, arr.strides[2] = arr.strides[3] = 1;
        arr.naxes = 3, arr.type = KIPX_U8, arr.base = bytes.data();
    }
    Picture(const Picture &) = delete;
};

// A number over the results of calls from every family; all threads read the same two pictures.
uint64_t work(const Picture &a, const Picture &b, uint32_t seed) {
    KipxXE environment{}, *xe = &environment;
    KipxXEinit(xe, nullptr);
    uint64_t sum = 14695981039346656037u;
    const auto add = [&](uint64_t value) { sum = (sum ^ value) * 1099511628211u; };
    Picture c(seed);
    const auto made = [&](int32_t code) {
        add(uint64_t(code));
        for (uint8_t byte : c.bytes) add(byte);
    };
    const double numbers[1] = {90. + seed}, weights[3] = {.25, .5, .25};
    kipx_sepkernel kernel{};
    kernel.shape = {{0, 1, 1, 0}, {1, 3, 3, 1}};
    kernel.weights[1] = kernel.weights[2] = weights;
    made(KipxAddq(xe, 0, &c.arr, &a.arr, &b.arr, nullptr, nullptr, nullptr, -1, 0));
    made(KipxMulC(xe, 0, &c.arr, &a.arr, numbers, nullptr, nullptr, -5, 0));
    made(KipxXor(xe, 0, &c.arr, &a.arr, &b.arr, nullptr, nullptr, nullptr));
    made(KipxCompareC(xe, 0, &c.arr, &a.arr, numbers, nullptr, nullptr, KIPX_CMPOP_LESS));
    KipxThresholdContext otsu{};
    otsu.method = KIPX_THH_OTSU;
    made(KipxThreshold(xe, 0, &c.arr, &a.arr, nullptr, nullptr, &otsu, nullptr, nullptr));
    made(KipxFilter(xe, 0, &a.arr, &c.arr, nullptr, nullptr, KIPX_FILTER_TOPHAT, nullptr));
    made(KipxSepFilter(xe, 0, &a.arr, &c.arr, nullptr, nullptr, &kernel));
    made(KipxMorphop(xe, 0, &a.arr, &c.arr, nullptr, nullptr, 3, nullptr));
    double mean = 0, deviation = 0;
    made(KipxMean(xe, 0, &a.arr, nullptr, nullptr, nullptr, &mean, &deviation));
    add(uint64_t(mean * 1e6)), add(uint64_t(deviation * 1e6));
    for (const auto generate : {KipxGenerateMSERs, KipxGenerateFMSERs}) {
        KipxMSERContext context{};
        context.delta = 5, context.max_area_fraction = context.max_variation = .5f,
        context.polarity = 2;
        made(generate(xe, 0, &a.arr, nullptr, &context));
        for (uint64_t i = 0; i < context.list.count; ++i)
            add(uint64_t(context.list.entries[i]->area));
        KipxMSERrelease(&context);
    }
    KipxXEfini(xe);
    return sum;
}

int run_round(uint32_t round) {
    std::atomic<bool> go{false};
    const Picture a(round), b(round + 1);
    std::vector<uint64_t> found(threads);
    std::vector<std::thread> all;
    for (uint32_t i = 0; i < threads; ++i)
        all.emplace_back([&, i] {
            while (!go) std::this_thread::yield();
            if (round % 2 && i % 2) kipx_set_simd(KIPX_SIMD_BEST);
            kipx_use_simd(0);
            found[i] = work(a, b, i / 2);
        });
    go = true;
    for (std::thread &thread : all) thread.join();
    for (uint32_t i = 0; i < threads; ++i)
        if (found[i] != work(a, b, i / 2))
            return std::fprintf(stderr, "thread %u found something else\n", i), 1;
    return 0;
}

} // namespace

int main(int count, char **arguments) {
    const uint32_t rounds = count > 1 ? uint32_t(std::atoi(arguments[1])) : 20;
    for (uint32_t round = 0; round < rounds; ++round) {
        const pid_t child = fork();
        if (child == 0) return run_round(round);
        int status = 0;
        if (child < 0 || waitpid(child, &status, 0) != child || status) {
            std::fprintf(stderr, "round %u failed\n", round);
            return 1;
        }
    }
    std::printf("%u rounds of %u threads\n", rounds, threads);
    return rounds ? 0 : 1;
}
