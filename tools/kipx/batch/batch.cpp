// batch.cpp - see batch.h. Between a job and its line nothing takes memory: what a job threw is kept
// as it is.
#include "batch/batch.h"

#include "command.h"
#include "report/progress.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>

namespace {

struct Outcome {
    Answer answer;
    std::exception_ptr failure;
    bool done = false;
};

// What has been answered, until all before it has been told.
class Teller {
public:
    Teller(std::vector<Outcome> &outcomes, bool quiet)
        : outcomes_(outcomes), progress_(outcomes.size(), quiet), quiet_(quiet) {
        progress_.show();
    }

    void take(size_t job) {
        const std::lock_guard lock(mutex_);
        progress_.hide();
        progress_.step(outcomes_[job].answer.worked);
        outcomes_[job].done = true;
        for (; next_ < outcomes_.size() && outcomes_[next_].done; ++next_) tell(outcomes_[next_]);
        flush();
        progress_.show();
    }

private:
    void tell(const Outcome &outcome) {
        if (outcome.failure) {
            flush();
            complain(sentence_of(outcome.failure));
        } else if (!quiet_) {
            std::fputs(outcome.answer.line.c_str(), stdout);
            std::fputc('\n', stdout);
        }
    }

    void flush() {
        if (std::fflush(stdout) != 0 && errno == EPIPE)
            quiet_ = std::freopen("/dev/null", "w", stdout);
    }

    std::mutex mutex_;
    std::vector<Outcome> &outcomes_;
    Progress progress_;
    size_t next_ = 0;
    bool quiet_;
};

} // namespace

const char *sentence_of(const std::exception_ptr &failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const std::bad_alloc &) {
        return "not enough memory for a picture of this size";
    } catch (const std::exception &error) {
        return error.what(); // lives as long as the pointer
    }
}

std::vector<std::exception_ptr> run_batch(size_t jobs, size_t threads, bool quiet,
                                          const std::function<Answer(size_t)> &work) {
    std::vector<Outcome> outcomes(jobs);
    std::vector<std::exception_ptr> failures(jobs);
    Teller teller(outcomes, quiet);
    std::atomic<size_t> next = 0;
    const auto run = [&] {
        for (size_t job = next++; job < jobs; job = next++) {
            try {
                outcomes[job].answer = work(job);
            } catch (...) {
                outcomes[job].failure = failures[job] = std::current_exception();
            }
            teller.take(job);
        }
    };
    {
        std::vector<std::jthread> others;
        const size_t wanted = std::min(threads, jobs);
        try {
            others.reserve(wanted);
            while (others.size() + 1 < wanted) others.emplace_back(run);
        } catch (const std::bad_alloc &) {
            // Fewer threads do the work as well.
        } catch (const std::system_error &) {
        }
        run();
    }
    return failures;
}
