// output.cpp - see output.h.
#include "image/output.h"

#include "failure.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

void Sink::fail(const std::string &what) const { ::fail(name, ": ", what); }

void Sink::write(const void *data, size_t size) const {
    if (std::fwrite(data, 1, size, file) != size)
        fail(std::string("cannot write: ") + std::strerror(errno));
}

namespace {

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

Output::Output(const std::string &path) {
    std::error_code error;
    sink_.name = path;
    const fs::path target =
        fs::is_symlink(path, error) ? fs::weakly_canonical(path, error) : fs::path(path);
    target_ = target.string();
    const fs::path folder = target.has_parent_path() ? target.parent_path() : fs::path(".");
    if (!fs::is_directory(folder, error))
        sink_.fail("cannot write: the folder '" + folder.string() + "' does not exist");
    if (fs::exists(target, error) && !fs::is_regular_file(target, error))
        sink_.fail("cannot write: it exists and is not a regular file");
    std::string pattern = (folder / ".kipx-XXXXXX").string();
    const int descriptor = mkstemp(pattern.data());
    if (descriptor < 0) sink_.fail(std::string("cannot write: ") + std::strerror(errno));
    sink_.path = pattern;
    fchmod(descriptor, 0666 & ~creation_mask());
    sink_.file = fdopen(descriptor, "w+b");
    if (!sink_.file) {
        close(descriptor);
        unlink(sink_.path.c_str());
        sink_.fail(std::string("cannot write: ") + std::strerror(errno));
    }
}

Output::~Output() {
    if (sink_.file) std::fclose(sink_.file);
    if (!sink_.path.empty()) unlink(sink_.path.c_str());
}

void Output::commit() {
    std::FILE *file = sink_.file;
    sink_.file = nullptr;
    const bool failed = std::ferror(file);
    if (std::fclose(file) != 0 || failed)
        sink_.fail(std::string("cannot write: ") + std::strerror(errno));
    if (std::rename(sink_.path.c_str(), target_.c_str()) != 0)
        sink_.fail(std::string("cannot write: ") + std::strerror(errno));
    sink_.path.clear();
}
