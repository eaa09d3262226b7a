// failing/trial.h - one call under one shortage of memory, and what must hold whatever it answers.
#pragma once

#include <gtest/gtest.h>

#include <kipx/env.h>
#include <kipx/types.h>

#include <vector>

#include "counting.h"
#include "support/guarded.h"

namespace kipx::test {

enum class Shortage { once, from_then_on, of_room };

// Where a storage stands: where its next block would lie, and what it has drawn.
struct Place {
    ZuSMEMSTG *storage;
    const void *next;
    size_t drawn;
    explicit Place(ZuSMEMSTG *s) : storage(s), next(ZuSMEMSTGaalloc(s, 1, 0, 0)) {
        ZuSMEMSTGfree(s, const_cast<void *>(next));
        drawn = ZuSMEMSTGdrawn(s);
    }
    bool operator==(const Place &) const = default;
};

class Trial {
public:
    Trial(Shortage shortage, long k)
        : shortage_(shortage), k_(k), start_((KipxXEinit(&xe_, nullptr), KipxXEmmstack(&xe_))) {}
    ~Trial() {
        EXPECT_EQ(Place(stack()), start_) << "the stack at the end";
        KipxXEfini(&xe_);
    }
    Trial(const Trial &) = delete;
    Trial &operator=(const Trial &) = delete;

    KipxXE *xe() { return &xe_; }
    ZuSMEMSTG *stack() { return xe_.stack; }

    // What a call that fails must leave as it was: the stack, and what is named here.
    void keeps(const GuardedArray &array) { arrays_.push_back({&array, array.snapshot()}); }
    void keeps(ZuSMEMSTG *storage) { places_.push_back(Place(storage)); }

    // f (), 0 or a code, while memory is short; once a trial.
    template<class F> int32_t call(F f) {
        long heap = heap_blocks(), storages = open_storages();
        const void *next = Place(stack()).next;
        refuse(shortage_ == Shortage::of_room ? -1 : k_, shortage_ == Shortage::from_then_on);
        if (shortage_ == Shortage::of_room) limit(ZuSMEMSTGdrawn(stack()) + room());
        code_ = f();
        refused_ = refused();
        limit(0);
        refuse(-1, false);
        EXPECT_TRUE(code_ == 0 || code_ == KIPX_ENOMEM) << code_;
        EXPECT_TRUE(code_ == 0 || refused_) << "fails without need";
        if (code_ == 0) return code_;
        EXPECT_EQ(heap_blocks(), heap) << "heap blocks";
        EXPECT_EQ(open_storages(), storages) << "storages";
        EXPECT_EQ(Place(stack()).next, next) << "scratch";
        for (const auto &[array, before] : arrays_) EXPECT_EQ(array->changes(before), "");
        for (const Place &place : places_) EXPECT_EQ(Place(place.storage), place) << "a storage";
        return code_;
    }
    bool was_refused() const { return refused_ > 0; }
    int32_t code() const { return code_; }

private:
    void limit(size_t bytes) { ZuSMEMSTGsetlimit(stack(), bytes); }
    size_t room() const {
        size_t bytes = 1 << 10;
        for (long i = 0; i < k_; ++i) bytes += bytes / 2;
        return bytes;
    }

    struct Kept {
        const GuardedArray *array;
        Snapshot before;
    };
    Shortage shortage_;
    long k_, refused_ = 0;
    int32_t code_ = 0;
    KipxXE xe_{};
    Place start_;
    std::vector<Place> places_;
    std::vector<Kept> arrays_;
};

} // namespace kipx::test
