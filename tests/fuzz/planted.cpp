// planted.cpp - calls that break each promise that a trial watches over, and one that keeps them all.
#include <array>
#include <csignal>
#include <cstdio>
#include <string>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "fuzz/trial.h"

using kipx::fuzz::Trial;

namespace {

struct Fault {
    const char *name;
    bool noticed;
    int32_t (*call)(Trial &, KipxXE *);
};

uint8_t *first_of(const kipx_arr *arr) { return static_cast<uint8_t *>(arr->base) + arr->offset; }

const Fault faults[] = {
    {"nothing", false,
     [](Trial &t, KipxXE *xe) { return KipxCopy(xe, 0, t.dst, t.src[0], nullptr, nullptr); }},
    {"a refusal that writes", true,
     [](Trial &t, KipxXE *) -> int32_t { return *first_of(t.dst) ^= 1, KIPX_EINVAL; }},
    {"a source written", true,
     [](Trial &t, KipxXE *) -> int32_t { return *first_of(t.src[1]) ^= 1, 0; }},
    {"a byte before the region", true,
     [](Trial &t, KipxXE *) -> int32_t { return first_of(t.dst)[-1] ^= 1, 0; }},
    {"a result and a refusal", true,
     [](Trial &t, KipxXE *) -> int32_t { return *t.out<uint8_t>() ^= 1, KIPX_ENOTSUP; }},
    {"a descriptor changed", true,
     [](Trial &t, KipxXE *) -> int32_t {
         return ++const_cast<kipx_arr *>(t.src[0])->reserved[0], 0;
     }},
    {"scratch kept", true,
     [](Trial &, KipxXE *xe) -> int32_t { return KipxXEalloca(xe, 100, 0) ? 0 : -1; }},
    {"another result with another set", true,
     [](Trial &t, KipxXE *) -> int32_t { return *t.out<int32_t>() = kipx_simd_set(0), 0; }},
    {"another code with another set", true, [](Trial &, KipxXE *) { return kipx_simd_set(0); }},
    {"another result the second time", true,
     [](Trial &t, KipxXE *) -> int32_t {
         static int calls;
         return t.out<int32_t>()[1] = ++calls == 4, 0;
     }},
};

// Bytes that make a fair trial of packed images, with all arrays there and an environment.
bool noticed(const Fault &fault) {
    const pid_t child = fork();
    if (child == 0) {
        const rlimit none{};
        setrlimit(RLIMIT_CORE, &none);
        if (!std::freopen("/dev/null", "w", stderr)) _exit(2);
        const std::array<uint8_t, 400> zeros{};
        Trial trial(zeros.data(), zeros.size());
        trial.run(fault.name, [&](KipxXE *xe) { return fault.call(trial, xe); });
        _exit(0);
    }
    int status = 0;
    return waitpid(child, &status, 0) == child && WIFSIGNALED(status) &&
           WTERMSIG(status) == SIGABRT;
}

} // namespace

int main() {
    int wrong = 0;
    for (const Fault &fault : faults)
        if (noticed(fault) != fault.noticed)
            std::printf("%s: not as expected\n", fault.name), ++wrong;
    std::printf("%zu planted faults, %d not as expected\n", std::size(faults), wrong);
    return wrong != 0;
}
