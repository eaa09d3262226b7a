#include "operations.h"

#include <cstring>

#include <kipx/kipx.h>

namespace kipx::test {

namespace {

// What a call gets.
struct Hands {
    const kipx_arr *dst, *a, *b, *mask;
    const double *numbers;
    double *thresholds;
};

struct Operation {
    std::string name;
    std::function<int32_t(KipxXE *, const Hands &)> call;
};

// The kinds of arrays: into bytes from wider elements, channel by channel or with odd strides; and
// sources that share bytes with the destination.
struct Kind {
    const char *name;
    uint32_t dst, src, channels;
    Layout layout;
    bool shared;
};
constexpr Kind kinds[] = {
    {"u8 of s32", KIPX_U8, KIPX_S32, 3, Layout::padded_pixels, false},
    {"u8 of f32", KIPX_U8, KIPX_F32, 1, Layout::odd_pixels, false},
    {"u8 of itself", KIPX_U8, KIPX_U8, 1, Layout::packed, true},
    {"s16 of itself", KIPX_S16, KIPX_S16, 3, Layout::packed, true},
    {"f32 of itself", KIPX_F32, KIPX_F32, 1, Layout::padded_rows, true},
};

class Arrays {
public:
    explicit Arrays(const Kind &kind)
        : kind_(kind), dst_(shape(kind.dst)), a_(shape(kind.src)), b_(shape(kind.src)),
          mask_(shape(KIPX_U8)) {
        Rng rng(1);
        for (GuardedArray *array : {&dst_, &a_, &b_}) array->fill(rng, Values::nonzero);
        mask_.for_each([&](At at) { mask_.set_integer(at, at.x % 3 != 0); });
        if (!kind.shared) return;
        shared_ = *dst_.arr(); // a row and a pixel further on
        for (int axis : {1, 2}) dst_.arr()->volume[axis] = --shared_.volume[axis];
        shared_.base = dst_.address({1, 1, 0, 0});
    }
    Hands hands() {
        return {dst_.arr(), kind_.shared ? &shared_ : a_.arr(), b_.arr(), mask_.arr(), numbers_,
                thresholds_};
    }
    // What a call may write, for comparison.
    Snapshot results() const {
        Snapshot all = dst_.snapshot();
        const auto *bytes = reinterpret_cast<const unsigned char *>(thresholds_);
        all.insert(all.end(), bytes, bytes + sizeof thresholds_);
        return all;
    }

private:
    Shape shape(uint32_t type) const {
        Shape s;
        s.type = type, s.width = 37, s.height = 15, s.channels = kind_.channels;
        s.layout = kind_.layout;
        return s;
    }
    Kind kind_;
    GuardedArray dst_, a_, b_, mask_;
    kipx_arr shared_{};
    double thresholds_[4] = {1, 2, 3, 4};
    const double numbers_[4] = {3, 90, 7, 5};
};

// ---- the operations -----------------------------------------------------------------------------

constexpr kipx_seshape window = {{0, 1, 2, 0}, {1, 3, 5, 1}};

void windows(std::vector<Operation> &all) {
    const auto add = [&](const char *name, uint32_t kind, auto call) {
        for (bool masked : {false, true})
            all.push_back(
                {std::string(name) + " " + std::to_string(kind) + (masked ? " masked" : ""),
                 [=](KipxXE *xe, const Hands &h) {
                     return call(xe, h, masked ? h.mask : nullptr, kind);
                 }});
    };
    using Mask = const kipx_arr *;
    for (uint32_t kind : {KIPX_FILTER_MIN, KIPX_FILTER_MAX, KIPX_FILTER_BOX, KIPX_FILTER_CLOSE,
                          KIPX_FILTER_OPEN, KIPX_FILTER_BOTHAT, KIPX_FILTER_TOPHAT})
        add("Filter", kind, [](KipxXE *xe, const Hands &h, Mask mask, uint32_t k) {
            return KipxFilter(xe, 0, h.a, h.dst, mask, nullptr, k, &window);
        });
    for (uint32_t op = KIPX_MORPH_ERODE; op <= KIPX_MORPH_GRADIENT; ++op)
        add("Morphop", op, [](KipxXE *xe, const Hands &h, Mask mask, uint32_t k) {
            static unsigned char members[15] = {0, 1, 1, 0, 0, 1, 1, 1, 1, 0, 1, 0, 0, 1, 1};
            kipx_strel element{};
            std::memcpy(element.anchor, window.anchor, sizeof element.anchor);
            element.mask = {{1, 3, 5, 1}, {}, {15, 5, 1, 1}, 3, 0, KIPX_U8, 0, 0, members};
            return KipxMorphop(xe, 0, h.a, h.dst, mask, nullptr, k, &element);
        });
    add("GaussianFilter", 0, [](KipxXE *xe, const Hands &h, Mask mask, uint32_t) {
        return KipxGaussianFilter(xe, 0, h.a, h.dst, mask, nullptr, &window, nullptr);
    });
    add("SepFilter", 0, [](KipxXE *xe, const Hands &h, Mask mask, uint32_t) {
        static const double weights[5] = {.125, .25, .25, .25, .125};
        const kipx_sepkernel kernel = {window, {weights, weights, weights}};
        return KipxSepFilter(xe, 0, h.a, h.dst, mask, nullptr, &kernel);
    });
    add("FireflyEx", 0, [](KipxXE *xe, const Hands &h, Mask mask, uint32_t) {
        return KipxFireflyEx(xe, 0, h.a, h.dst, mask, nullptr, &window, h.numbers, h.numbers);
    });
}

void thresholds(std::vector<Operation> &all) {
    for (uint32_t method : {KIPX_THH_OTSU, KIPX_THH_USTO, KIPX_THH_BLUR})
        all.push_back({"Threshold " + std::to_string(method), [=](KipxXE *xe, const Hands &h) {
                           const bool finds = method == KIPX_THH_OTSU || method == KIPX_THH_USTO;
                           KipxThresholdContext context{};
                           context.method = method, context.local = {3, 5, {}, 0};
                           context.thresholds =
                               finds ? h.thresholds : const_cast<double *>(h.numbers);
                           return KipxThreshold(xe, 0, h.dst, h.a, nullptr, nullptr, &context,
                                                h.numbers, nullptr);
                       }});
}

std::vector<Operation> list() {
    std::vector<Operation> all;
#define CALL(Name, ...)                                                                            \
    all.push_back(                                                                                 \
        {#Name, [](KipxXE *xe, const Hands &h) { return Kipx##Name(xe, 0, __VA_ARGS__); }})
#define BINARY(op, Name, ...)                                                                      \
    CALL(Name, h.dst, h.a, h.b, nullptr, nullptr, nullptr, -1, 0);                                 \
    CALL(Name##C, h.dst, h.a, h.numbers, nullptr, nullptr, -1, 0);
    KIPX_BINARY_OPS(BINARY)
    KIPX_BINARY_SIGNED_OPS(BINARY)
#define FUNCTION(Name) CALL(Name, h.dst, h.a, nullptr, nullptr, -1, 0)
    FUNCTION(Negate);
    FUNCTION(Negateq);
    CALL(ComputeThresholdByOtsu, h.a, nullptr, nullptr, h.thresholds, nullptr, nullptr);
    CALL(CopyEx, h.dst, h.a, h.mask, nullptr, nullptr, nullptr);
    thresholds(all);
    windows(all);
    return all;
}

// With memory it works, and then as if nothing had happened; without it nothing is written.
void attempt(Trial &trial, const Operation &operation, const Kind &kind) {
    Arrays arrays(kind);
    const Snapshot before = arrays.results();
    const auto call = [&] { return operation.call(trial.xe(), arrays.hands()); };
    const bool refused = trial.call(call) != 0;
    EXPECT_TRUE(!refused || arrays.results() == before);
    Arrays wanted(kind);
    KipxXE calm{};
    KipxXEinit(&calm, nullptr);
    EXPECT_EQ(operation.call(&calm, wanted.hands()), 0);
    KipxXEfini(&calm);
    EXPECT_TRUE(!refused || call() == 0);
    EXPECT_EQ(arrays.results(), wanted.results());
}

} // namespace

std::vector<Case> operation_cases() {
    std::vector<Case> cases;
    for (const Operation &operation : list()) {
        bool takes = false;
        for (const Kind &kind : kinds) {
            Arrays arrays(kind);
            KipxXE xe{};
            KipxXEinit(&xe, nullptr);
            refuse(-1, false);
            const int32_t code = operation.call(&xe, arrays.hands());
            KipxXEfini(&xe);
            if (code || !asked()) continue;
            cases.push_back({operation.name + ", " + kind.name, Needs::all, 1,
                             [=](Trial &trial) { attempt(trial, operation, kind); }});
            takes = true;
        }
        EXPECT_TRUE(takes) << operation.name;
    }
    return cases;
}

} // namespace kipx::test
