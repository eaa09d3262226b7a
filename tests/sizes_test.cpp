// sizes_test.cpp - arrays that reach to the end of 32-bit offsets, the memory that floods take, and
// that a long life takes no more of it.
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/mman.h>

#include <kipx/kipx.h>

#include "support/conformance.h"
#include "support/environment.h"

namespace kipx::test {
namespace {

constexpr uint32_t width = 150, rows = 3;
constexpr uint64_t reach = uint64_t{1} << 32;

// An image of bytes whose rows lie anywhere in 4 GiB, of which only the rows take memory.
class Far {
public:
    Far() { EXPECT_NE(memory_, MAP_FAILED); }
    ~Far() { munmap(memory_, reach); }
    Far(const Far &) = delete;

    kipx_arr arr(uint32_t stride) const {
        return {{1, rows, width, 1}, {}, {0, stride, 1, 1}, 3, 0, KIPX_U8, 0, 0, memory_};
    }
    uint8_t *row(uint32_t y, uint32_t stride) const {
        return static_cast<uint8_t *>(memory_) + uint64_t{y} * stride;
    }
    void fill(uint32_t stride, uint64_t seed) const {
        Rng rng(seed);
        for (uint32_t y = 0; y < rows; ++y)
            for (uint32_t x = 0; x < width; ++x) row(y, stride)[x] = uint8_t(rng.next());
    }

private:
    void *memory_ = mmap(nullptr, reach, PROT_READ | PROT_WRITE,
                         MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
};

struct Images {
    const kipx_arr *dst, *a, *b;
};
struct Row {
    const char *name;
    int32_t (*call)(KipxXE *, const Images &, double *found);
};
constexpr double numbers[1] = {77};
constexpr kipx_seshape window = {{0, 1, 2, 0}, {1, 3, 5, 1}};
const Row operations[] = {
    {"add",
     [](KipxXE *xe, const Images &i, double *) {
         return KipxAdd(xe, 0, i.dst, i.a, i.b, nullptr, nullptr, nullptr, -1, 0);
     }},
    {"compare",
     [](KipxXE *xe, const Images &i, double *) {
         return KipxCompareC(xe, 0, i.dst, i.a, numbers, nullptr, nullptr, KIPX_CMPOP_LESS);
     }},
    {"copy through a mask",
     [](KipxXE *xe, const Images &i, double *) {
         return KipxCopyEx(xe, 0, i.dst, i.a, i.b, nullptr, nullptr, nullptr);
     }},
    {"convert", [](KipxXE *xe, const Images &i,
                   double *) { return KipxConvert(xe, 0, i.dst, i.a, nullptr, nullptr, .5, 3); }},
    {"top-hat",
     [](KipxXE *xe, const Images &i, double *) {
         return KipxFilter(xe, 0, i.a, i.dst, nullptr, nullptr, KIPX_FILTER_TOPHAT, &window);
     }},
    {"Gaussian",
     [](KipxXE *xe, const Images &i, double *) {
         return KipxGaussianFilter(xe, 0, i.a, i.dst, nullptr, nullptr, &window, nullptr);
     }},
    {"mean",
     [](KipxXE *xe, const Images &i, double *found) {
         return KipxMean(xe, 0, i.a, nullptr, nullptr, nullptr, found, found + 1);
     }},
    {"stable regions",
     [](KipxXE *xe, const Images &i, double *found) {
         KipxMSERContext m{};
         m.delta = 4, m.polarity = 2, m.max_area_fraction = m.max_variation = 1;
         const int32_t code = KipxGenerateFMSERs(xe, 0, i.a, nullptr, &m);
         for (uint64_t r = 0; r < m.list.count; ++r) found[0] += m.list.entries[r]->area;
         found[1] = double(m.list.count);
         KipxMSERrelease(&m);
         return code;
     }},
};

// Rows next to each other, and rows of which one lies across 2^31 and the last ends at 2^32: the same.
TEST(FarRows, AreWorkedLikeNearOnes) {
    const Far images[3];
    for (const int32_t set : all_sets())
        for (const Row &operation : operations) {
            const SimdSwitch forced(set);
            std::vector<uint8_t> near;
            for (uint32_t stride : {160u, 0x80000000u - width / 2}) {
                Environment xe;
                double found[2] = {};
                for (int i : {0, 1, 2}) images[i].fill(stride, uint64_t(i) + 1);
                const kipx_arr dst = images[0].arr(stride), a = images[1].arr(stride),
                               b = images[2].arr(stride);
                ASSERT_EQ(operation.call(xe, {&dst, &a, &b}, found), 0) << operation.name;
                std::vector<uint8_t> all(sizeof found);
                std::memcpy(all.data(), found, sizeof found);
                for (uint32_t y = 0; y < rows; ++y)
                    all.insert(all.end(), images[0].row(y, stride),
                               images[0].row(y, stride) + width);
                if (near.empty()) near = all;
                EXPECT_EQ(all, near) << operation.name << ", set " << set << ", stride " << stride;
            }
        }
}

// ---- memory -------------------------------------------------------------------------------------

struct Picture {
    std::vector<uint8_t> bytes;
    kipx_arr arr;
    Picture(uint32_t height, uint32_t side) : bytes(size_t{height} * side) {
        Rng rng(5);
        for (size_t i = 0; i < bytes.size(); ++i)
            bytes[i] = uint8_t(i % side / 3 + i / side * 2 + rng.below(9));
        arr = {{1, height, side, 1}, {}, {0, side, 1, 1}, 3, 0, KIPX_U8, 0, 0, bytes.data()};
    }
};

int32_t flood(KipxXE *xe, const kipx_arr &arr, bool fast, bool listens = false,
              const kipx_arr *mask = nullptr) {
    KipxWTSLSC levelset{};
    KipxWTSFDs moments;
    KipxWTSMFinitFeatureDs(&moments, nullptr);
    if (listens) levelset.descriptors = &moments, levelset.count = 1;
    KipxWatershedContext w{};
    w.levelset = &levelset;
    w.builder = fast ? &KipxFWTSRESopen(nullptr, nullptr, nullptr, nullptr)->builder
                     : KipxWTSTBopen(nullptr, nullptr, nullptr, nullptr);
    const int32_t code =
        KipxWatershedEx(xe, fast ? KIPX_FLAG_FAST : 0, &arr, mask, nullptr, nullptr, &w);
    KipxSTBclose(w.builder, 0);
    return code;
}

// Bytes a pixel that docs/behaviour.md tells, within 2 %.
TEST(Scratch, OfFloodsIsWhatIsTold) {
    const Picture picture(1000, 1500);
    const double pixels = double(picture.bytes.size());
    const struct {
        bool fast, listens, masked;
        double told; // there are pixels of level 255
    } floods[] = {{false, true, false, 8.125},
                  {false, false, false, 6},
                  {true, false, false, 5},
                  {true, false, true, 6}};
    for (const auto &row : floods) {
        Environment xe;
        const kipx_arr *mask = row.masked ? &picture.arr : nullptr;
        ASSERT_EQ(flood(xe, picture.arr, row.fast, row.listens, mask), 0);
        const double taken = double(ZuSMEMSTGpeak(xe.stack())) / pixels;
        EXPECT_NEAR(taken, row.told, row.told * .02) << row.fast << row.masked;
    }
}

TEST(Scratch, TenThousandLivesTakeNoMore) {
    const Picture picture(20, 30), out(20, 30);
    size_t after_few = 0;
    for (int life = 0; life < 10000; ++life) {
        if (life == 100) after_few = mallinfo2().uordblks;
        Environment xe;
        ASSERT_EQ(flood(xe, picture.arr, life % 2), 0);
        double found[2] = {};
        const Row &operation = operations[size_t(life) % std::size(operations)];
        ASSERT_EQ(operation.call(xe, {&out.arr, &picture.arr, &picture.arr}, found), 0);
    }
    EXPECT_EQ(mallinfo2().uordblks, after_few);
}

} // namespace
} // namespace kipx::test
