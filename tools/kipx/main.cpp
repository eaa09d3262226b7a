// main.cpp - the program: its global options, and how it ends.
//
// Promises exit status 0 when the work is done, 2 with one line on stderr when it is not, memory that
//          cannot be had included; no signal ends it that a full disk or a closed pipe could raise.
#include "command.h"
#include "failure.h"
#include "image/output.h"
#include "options.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>
#include <numeric>
#include <string_view>

namespace {

constexpr const char *examples = R"(Examples:
  kipx scene -o scene.png --truth labels.tif     a picture to work on, with its true cells
  kipx info scene.png labels.tif                 sizes, types, smallest, largest and mean values
  kipx sub scene.png dark.png -o clean.png
  kipx add a.png b.png -o mean.png --scale -1    (a + b) / 2
  kipx mser cells/ -o found --jobs 2             stable regions: tables, labels, overlays
  kipx tree scene.png -o tree.svg                the tree of nested regions, drawn
  kipx demo photo.jpg -o out                     the main job on a picture of yours

Exit status: 0 done, 2 bad input or a failure, told in one line on stderr.)";

constexpr const char *no_memory = "not enough memory for this work";

// The exit status of work that is done. A flush on the way may have failed and dropped its text; then
// the last one succeeds, and only the error flag remembers.
int told() {
    if (std::fflush(stdout) != 0 || std::ferror(stdout))
        return complain("cannot write to standard output");
    return 0;
}

// How many letters must be changed, added or taken away to make one word of another.
size_t distance(const std::string &a, const std::string &b) {
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t(0));
    for (size_t i = 0; i < a.size(); ++i) {
        size_t corner = row[0]++;
        for (size_t j = 0; j < b.size(); ++j) {
            const size_t changed = corner + (a[i] != b[j]);
            corner = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, corner + 1});
        }
    }
    return row.back();
}

// "; did you mean 'add'?", or nothing where no word is near.
std::string suggestion(const std::string &given, const std::vector<std::string> &words) {
    const std::string *best = nullptr;
    size_t least = std::max<size_t>(given.size() / 3, 1) + 1;
    for (const std::string &word : words)
        if (const size_t away = distance(given, word); away < least) {
            least = away;
            best = &word;
        }
    return best ? fmt::format("; did you mean '{}'?", *best) : "";
}

// What was given and belongs to nothing: a word that is no command, an option that the command has
// not, or one name too many.
std::string unexpected(const CLI::App &app, const CLI::App &command) {
    auto rest = command.remaining();
    if (rest.empty()) rest = app.remaining(); // what falls through a command to the program
    const std::string &first = rest.empty() ? command.get_name() : rest.front();
    std::vector<std::string> words;
    if (&command == &app && first[0] != '-') {
        for (const auto *known : app.get_subcommands({}))
            if (!known->get_group().empty()) words.push_back(known->get_name());
        return fmt::format("no command '{}'{}", first, suggestion(first, words));
    }
    if (first[0] != '-') return fmt::format("got '{}' as well, expected nothing more", first);
    for (const auto *option : command.get_options())
        for (const std::string &name : option->get_lnames()) words.push_back("--" + name);
    return fmt::format("no option '{}'{}", first, suggestion(first, words));
}

int refuse(const CLI::App &app, const CLI::ParseError &error) {
    const auto chosen = app.get_subcommands();
    const CLI::App &command = chosen.empty() ? app : *chosen.front();
    std::string text = error.what();
    if (dynamic_cast<const CLI::ExtrasError *>(&error)) text = unexpected(app, command);
    if (dynamic_cast<const CLI::ArgumentMismatch *>(&error) && text.find(" missing") != text.npos)
        text = fmt::format("{}: got no value, expected one",
                           std::string_view(text).substr(0, text.find(':')));
    const std::string help = &command == &app ? "" : command.get_name() + " ";
    return complain(fmt::format("{}; `kipx {}--help` tells how", text, help).c_str());
}

int run(int count, char **arguments) {
    CLI::App app("Kipx: image arithmetic and region analysis on image files.", "kipx");
    Globals globals;
    app.set_version_flag("--version", std::string("kipx ") + KIPX_VERSION);
    app.set_help_all_flag("--help-all", "Show the help of every command");
    add_choice(app, "--simd", globals.simd, {{"on", true}, {"off", false}},
               "Vector forms of the kernels; the results are the same");
    add_choice(app, "--set", globals.set,
               {{"best", KIPX_SIMD_BEST}, {"avx2", KIPX_SIMD_AVX2}, {"avx512", KIPX_SIMD_AVX512}},
               "Instruction set of the vector forms");
    add_value(app, "--max-pixels", globals.max_pixels, whole(1, int64_t(1) << 32), "N",
              "Refuse image files with more pixels")
        ->capture_default_str();
    app.add_flag("--no-orient", globals.as_stored,
                 "Leave pictures as stored; otherwise they are turned as EXIF and TIFF tags ask");
    app.add_flag("-q,--quiet", globals.quiet, "Print nothing but errors");
    app.fallthrough();
    app.require_subcommand(0, 1);
    app.parse_complete_callback([&] {
        kipx_set_simd(globals.simd ? globals.set : KIPX_SIMD_OFF);
        if (globals.simd && globals.set != KIPX_SIMD_BEST && kipx_simd_set(0) != globals.set)
            throw CLI::ValidationError("--set", "got a set that this processor does not have");
    });
#define KIPX_ADD_COMMAND(name) add_##name##_commands(app, globals);
    KIPX_COMMANDS(KIPX_ADD_COMMAND)
#undef KIPX_ADD_COMMAND
    app.footer(examples);
    try {
        app.parse(count, arguments);
    } catch (const CLI::Success &asked) {
        app.exit(asked);
        return told();
    } catch (const CLI::ParseError &error) {
        return refuse(app, error);
    }
    if (app.get_subcommands().empty())
        return complain("no command given; `kipx --help` lists them");
    return told();
}

// Where memory fails in what cannot throw, an object made before main or a destructor, there is
// nothing left to catch: the same sentence, and no file that has no name yet stays behind.
[[noreturn]] void on_terminate() {
    try {
        if (const auto failure = std::current_exception()) std::rethrow_exception(failure);
    } catch (const std::bad_alloc &) {
        remove_temporaries_for_good();
        std::fflush(stdout);
        std::_Exit(complain(no_memory));
    } catch (...) {
        std::fputs("kipx: ended by a fault of its own\n", stderr);
    }
    std::abort();
}

// Before the objects of the headers that are included here are made.
[[gnu::constructor(101)]] void listen_for_terminate() { std::set_terminate(on_terminate); }

} // namespace

int main(int count, char **arguments) {
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    remove_temporaries_on_signals();
    try {
        return run(count, arguments);
    } catch (const AlreadyTold &) {
        std::fflush(stdout);
        return 2;
    } catch (const std::bad_alloc &) {
        return complain(no_memory);
    } catch (const std::exception &error) {
        return complain(error.what());
    }
}

int complain(const char *text) {
    char line[512];
    size_t length = size_t(std::snprintf(line, sizeof line, "kipx: "));
    for (; *text; ++text) {
        const auto byte = static_cast<unsigned char>(*text);
        line[length++] = byte < 32 || byte == 127 ? ' ' : char(byte);
        if (length + 1 == sizeof line) length -= std::fwrite(line, 1, length, stderr);
    }
    line[length++] = '\n';
    std::fwrite(line, 1, length, stderr);
    return 2;
}

Picture Globals::read(const std::string &path, uint32_t page) const {
    return read_picture(path, {max_pixels, page, !as_stored});
}

Image Globals::load(const std::string &path, uint32_t page) const {
    Picture picture = read(path, page);
    if (picture.pages > 1) note(fmt::format("{}: page {} of {}", path, page, picture.pages));
    return std::move(picture.image);
}

uint32_t Globals::page_beside(const std::string &path, uint32_t page) const {
    return page > 1 && path != "-" && read(path, 1).pages == 1 ? 1 : page;
}

void Globals::store(const Image &image, const Goal &goal, const std::string &what) const {
    write_image(image, goal);
    if (!quiet && goal.path != "-")
        fmt::print("{}: {}, {}\n", goal.path, what, describe(image.shape()));
}

void Globals::note(const std::string &text) const {
    if (!quiet) complain(text.c_str());
}

void check_answer(int32_t answer, const std::string &what) {
    switch (answer) {
    case 0:
        return;
    case KIPX_EINVAL:
        fail("{}: the library refuses the arguments", what);
    case KIPX_ENOTSUP:
        fail("{}: the library has no kernel for these types", what);
    case KIPX_ENOMEM:
        throw std::bad_alloc();
    case KIPX_EEMPTY:
        fail("{}: the region is empty", what);
    default:
        fail("{}: the library answers {}", what, answer);
    }
}
