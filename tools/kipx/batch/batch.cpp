// batch.cpp - see batch.h.
#include "batch/batch.h"

#include "command.h"
#include "report/progress.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <mutex>
#include <new>
#include <optional>
#include <thread>
#include <vector>

namespace {

struct Outcome {
    Answer answer;
    std::optional<std::string> failure;
};

Outcome attempt(size_t job, const std::function<Answer(size_t)> &work) {
    try {
        return {work(job), {}};
    } catch (const std::bad_alloc &) {
        return {{}, "not enough memory for a picture of this size"};
    } catch (const std::exception &error) {
        return {{}, error.what()};
    }
}

// What has been answered, until all before it has been told.
class Teller {
public:
    Teller(size_t jobs, bool quiet) : outcomes_(jobs), progress_(jobs, quiet), quiet_(quiet) {
        progress_.show();
    }

    void take(size_t job, Outcome outcome) {
        const std::lock_guard lock(mutex_);
        progress_.hide();
        progress_.step(outcome.answer.worked);
        outcomes_[job] = std::move(outcome);
        for (; next_ < outcomes_.size() && outcomes_[next_]; ++next_) tell(*outcomes_[next_]);
        std::fflush(stdout);
        progress_.show();
    }

    size_t failures() const { return failures_; }

private:
    void tell(const Outcome &outcome) {
        if (outcome.failure) {
            std::fflush(stdout);
            complain(*outcome.failure);
            ++failures_;
        } else if (!quiet_) {
            std::printf("%s\n", outcome.answer.line.c_str());
        }
    }

    std::mutex mutex_;
    std::vector<std::optional<Outcome>> outcomes_;
    Progress progress_;
    size_t next_ = 0, failures_ = 0;
    bool quiet_;
};

} // namespace

size_t run_batch(size_t jobs, size_t threads, bool quiet,
                 const std::function<Answer(size_t)> &work) {
    Teller teller(jobs, quiet);
    std::atomic<size_t> next = 0;
    const auto run = [&] {
        for (size_t job = next++; job < jobs; job = next++) teller.take(job, attempt(job, work));
    };
    std::vector<std::thread> others;
    const size_t wanted = std::min(threads, jobs);
    while (others.size() + 1 < wanted) others.emplace_back(run);
    run();
    for (std::thread &thread : others) thread.join();
    return teller.failures();
}
