// output.cpp - see output.h.
#include "image/output.h"

#include "failure.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <mutex>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

void Sink::fail(const std::string &what) const { ::fail("{}: {}", name, what); }

void Sink::fail_encoding(const std::string &what) const {
    for (const int refusal : {ENOSPC, EFBIG, EDQUOT, EIO, EPIPE})
        if (errno == refusal) fail(std::string("cannot write: ") + std::strerror(refusal));
    fail(what);
}

void Sink::write(const void *data, size_t size) const {
    if (std::fwrite(data, 1, size, file) != size)
        fail(std::string("cannot write: ") + std::strerror(errno));
}

namespace {

constexpr const char *prefix = ".kipx-";

// Names that a signal handler may read at any time: fixed places, and a flag that is set last.
struct Pending {
    std::atomic<bool> set = false;
    char path[4096];
};
std::array<Pending, 256> pending;
std::array<std::atomic<bool>, 256> taken;

// The place of a name. Where there is none left, or the name is too long, it is -1, and only a later
// sweep would find the file.
int remember(const std::string &path) {
    for (size_t i = 0; i < pending.size(); ++i) {
        if (path.size() >= sizeof pending[i].path || taken[i].exchange(true)) continue;
        std::memcpy(pending[i].path, path.c_str(), path.size() + 1);
        pending[i].set = true;
        return int(i);
    }
    return -1;
}

void forget(int place) {
    if (place < 0) return;
    pending[size_t(place)].set = false;
    taken[size_t(place)] = false;
}

std::mutex birth; // of temporary files

void remove_temporaries() {
    for (const Pending &file : pending)
        if (file.set) unlink(file.path);
}

extern "C" void on_signal(int number) {
    remove_temporaries();
    raise(number); // its handler was taken away when it was called
}

// Asked for once: it can only be read by setting it, which other threads would notice.
mode_t creation_mask() {
    static const mode_t mask = [] {
        const mode_t found = umask(0);
        umask(found);
        return found;
    }();
    return mask;
}

} // namespace

void remove_temporaries_for_good() {
    birth.lock();
    remove_temporaries();
}

void remove_temporaries_on_signals() {
    struct sigaction action = {};
    action.sa_handler = on_signal;
    action.sa_flags = SA_RESETHAND | SA_NODEFER;
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction found = {};
        sigaction(number, nullptr, &found);
        if (found.sa_handler != SIG_IGN) sigaction(number, &action, nullptr); // as nohup asks
    }
}

Output::Output(const std::string &path, const std::string &ending) {
    std::error_code error;
    if (path == "-") {
        sink_.name = "standard output" + ending;
        sink_.file = std::tmpfile();
        if (!sink_.file) sink_.fail(std::string("cannot write: ") + std::strerror(errno));
        return;
    }
    sink_.name = path;
    const fs::path target =
        fs::is_symlink(path, error) ? fs::weakly_canonical(path, error) : fs::path(path);
    target_ = target.string();
    const fs::path folder = target.has_parent_path() ? target.parent_path() : fs::path(".");
    if (!fs::is_directory(folder, error))
        sink_.fail("cannot write: the folder '" + folder.string() + "' does not exist");
    struct stat found = {};
    const bool old = stat(target_.c_str(), &found) == 0;
    if (old && !S_ISREG(found.st_mode))
        sink_.fail("cannot write: it exists and is not a regular file");
    if (old && ((found.st_mode & 0222) == 0 || access(target_.c_str(), W_OK) != 0))
        sink_.fail("cannot write: it exists and is read-only");
    open_temporary(folder.string(), old ? found.st_mode & 07777 : 0666 & ~creation_mask());
}

void Output::open_temporary(const std::string &folder, unsigned mode) {
    const auto refuse = [this] {
        sink_.fail(std::string("cannot write: ") + std::strerror(errno));
    };
    const std::lock_guard lock(birth);
    int descriptor = -1;
    struct stat found = {};
    while (found.st_nlink == 0) { // another program may sweep it between its birth and its lock
        if (descriptor >= 0) close(descriptor);
        std::string pattern = (fs::path(folder) / prefix).string() + "XXXXXX";
        descriptor = mkostemp(pattern.data(), O_CLOEXEC);
        if (descriptor < 0) refuse();
        temporary_ = std::move(pattern);
        flock(descriptor, LOCK_EX);
        if (fstat(descriptor, &found) != 0) break;
    }
    place_ = remember(temporary_);
    fchmod(descriptor, mode);
    sink_.file = fdopen(descriptor, "w+b");
    if (sink_.file) return;
    close(descriptor);
    forget(place_);
    unlink(temporary_.c_str());
    refuse();
}

Output::~Output() {
    if (sink_.file) std::fclose(sink_.file);
    if (temporary_.empty()) return;
    unlink(temporary_.c_str());
    forget(place_);
}

void Output::commit() {
    std::FILE *file = sink_.file;
    if (target_.empty()) {
        char block[1 << 14];
        std::rewind(file);
        for (size_t got; (got = std::fread(block, 1, sizeof block, file)) > 0;)
            std::fwrite(block, 1, got, stdout);
        if (std::ferror(file)) sink_.fail(std::string("cannot read back: ") + std::strerror(errno));
        return;
    }
    sink_.file = nullptr;
    const int lock = dup(fileno(file)); // held until the file has its name
    const bool failed = (std::ferror(file) | std::fclose(file)) != 0;
    const bool named = !failed && std::rename(temporary_.c_str(), target_.c_str()) == 0;
    const int reason = errno;
    if (lock >= 0) close(lock);
    if (!named) sink_.fail(std::string("cannot write: ") + std::strerror(reason));
    forget(place_);
    temporary_.clear();
}

void sweep(const std::string &folder) {
    std::error_code error;
    for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
        const std::string name = at->path().filename().string();
        if (name.rfind(prefix, 0) != 0 || name.size() != std::strlen(prefix) + 6) continue;
        const int descriptor =
            open(at->path().c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
        if (descriptor < 0) continue;
        struct stat found = {};
        const bool left = fstat(descriptor, &found) == 0 && S_ISREG(found.st_mode) &&
                          flock(descriptor, LOCK_EX | LOCK_NB) == 0;
        if (left) unlink(at->path().c_str());
        close(descriptor);
    }
}

void check_folder(const std::string &folder) {
    std::error_code error;
    fs::path path = fs::absolute(folder);
    while (path.has_relative_path() && !fs::exists(path, error)) path = path.parent_path();
    if (!fs::is_directory(path, error))
        fail("--output: got '{}', expected a folder or a name for a new one; {} is something else",
             folder, path == fs::absolute(folder) ? folder : path.string());
    if (access(path.c_str(), W_OK) != 0)
        fail("--output: got '{}', but nothing can be written in {}: {}", folder, path.string(),
             std::strerror(errno));
}

void make_folder(const std::string &folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) fail("{}: cannot make this folder: {}", folder, error.message());
}
