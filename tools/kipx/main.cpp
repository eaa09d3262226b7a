// main.cpp - the program: its global options, its list of commands, and how it ends.
//
// Promises exit status 0 when the work is done, 2 with one line on stderr when it is not; no signal
//          ends it that a full disk or a closed pipe could raise.
#include "command.h"
#include "failure.h"
#include "image/files.h"
#include "options.h"

#include <csignal>
#include <cstdio>
#include <new>

namespace {

constexpr const char *examples = R"(Examples:
  kipx scene -o scene.png --truth labels.tif     a picture to work on, with its true cells
  kipx info scene.png labels.tif                 sizes, types, smallest, largest and mean values
  kipx sub scene.png dark.png -o clean.png --overflow saturate
  kipx add a.png b.png -o mean.png --scale -1    (a + b) / 2
  kipx mser cells/*.tif -o found --jobs 2        stable regions: tables, labels, overlays
  kipx tree scene.png -o tree.svg                the tree of nested regions, drawn
  kipx demo photo.jpg -o out                     the main job on a picture of yours

Exit status: 0 done, 2 bad input or a failure, told in one line on stderr.)";

// The exit status of work that is done. A flush on the way may have failed and dropped its text; then
// the last one succeeds, and only the error flag remembers.
int told() {
    if (std::fflush(stdout) != 0 || std::ferror(stdout))
        return complain("cannot write to standard output");
    return 0;
}

int run(int count, char **arguments) {
    CLI::App app("Kipx: image arithmetic and region analysis on image files.", "kipx");
    Globals globals;
    app.footer(examples);
    app.set_version_flag("--version", std::string("kipx ") + KIPX_VERSION);
    app.set_help_all_flag("--help-all", "Show the help of every command");
    app.add_option("--simd", globals.simd,
                   "Vector forms of the kernels: on (default) or off; same results")
        ->type_name("on|off");
    app.add_option("--max-pixels", globals.max_pixels,
                   "Refuse image files with more pixels (default 268435456)")
        ->type_name("N")
        ->check(filled);
    app.add_flag("-q,--quiet", globals.quiet, "Print nothing but errors");
    app.fallthrough();
    app.require_subcommand(0, 1);
    app.parse_complete_callback([&] {
        globals.pixel_limit();
        kipx_set_simd(choice<int32_t>("--simd", globals.simd, {{"on", 1}, {"off", 0}}));
    });
    add_arith_commands(app, globals);
    add_info_command(app, globals);
    add_scene_command(app, globals);
    add_mser_command(app, globals);
    add_tree_command(app, globals);
    add_demo_command(app, globals);
    try {
        app.parse(count, arguments);
    } catch (const CLI::Success &asked) {
        app.exit(asked);
        return told();
    } catch (const CLI::ParseError &error) {
        return complain(std::string(error.what()) + "; `kipx --help` tells how");
    }
    if (app.get_subcommands().empty())
        return complain("no command given; `kipx --help` lists them");
    return told();
}

} // namespace

int main(int count, char **arguments) {
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    try {
        return run(count, arguments);
    } catch (const AlreadyTold &) {
        std::fflush(stdout);
        return 2;
    } catch (const std::bad_alloc &) {
        return complain("not enough memory for pictures of this size");
    } catch (const std::exception &error) {
        return complain(error.what());
    }
}

int complain(std::string text) {
    for (char &c : text)
        if (static_cast<unsigned char>(c) < 32 || c == 127) c = ' ';
    std::fprintf(stderr, "kipx: %s\n", text.c_str());
    return 2;
}

uint64_t Globals::pixel_limit() const {
    if (max_pixels.empty()) return default_max_pixels;
    return uint64_t(whole_number("--max-pixels", max_pixels, 1, int64_t(1) << 32));
}

Image Globals::load(const std::string &path) const { return read_image(path, pixel_limit()); }

void Globals::store(const Image &image, const std::string &path, const std::string &what) const {
    write_image(image, path);
    if (!quiet)
        std::printf("%s: %s, %s\n", path.c_str(), what.c_str(), describe(image.shape()).c_str());
}

void check_answer(int32_t answer, const std::string &what) {
    switch (answer) {
    case 0:
        return;
    case KIPX_EINVAL:
        fail(what, ": the library refuses the arguments");
    case KIPX_ENOTSUP:
        fail(what, ": the library has no kernel for these types");
    case KIPX_ENOMEM:
        fail(what, ": not enough memory");
    case KIPX_EEMPTY:
        fail(what, ": the region is empty");
    default:
        fail(what, ": the library answers ", answer);
    }
}
