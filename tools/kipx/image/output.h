// output.h - a file that appears under its name only when it is complete.
//
// Gives    Output, a Sink on a temporary file beside the target; commit() gives it its name. The
//          name - is standard output, which gets the whole at the commit.
// Promises without a commit the temporary file is gone when the Output is, or when a signal ends
//          the program; a symbolic link is followed, so that what it points at is replaced, not the
//          link. A file that is replaced hands on its mode; one that may not be written is refused.
#pragma once

#include "image/files.h"

class Output {
public:
    // ending: of the format, where the name does not tell it.
    explicit Output(const std::string &path, const std::string &ending = "");
    ~Output();
    Output(const Output &) = delete;
    Output &operator=(const Output &) = delete;

    const Sink &sink() const { return sink_; }
    void compress(bool wanted) { sink_.compress = wanted; }
    void commit();

private:
    void open_temporary(const std::string &folder, unsigned mode);

    Sink sink_;
    std::string target_, temporary_;
    int place_ = -1; // among the names that signals take away
};

// INT, TERM and HUP take temporary files away and then end the program as they would.
void remove_temporaries_on_signals();
// Takes them away now; any thread that would make another one, or end the program as well, waits for
// the end.
void remove_temporaries_for_good();
// Takes away temporary files in a folder that were left behind by programs that were killed; those
// that a living program still writes are held by a lock, and stay.
void sweep(const std::string &folder);
// The folder is there or can be made; told in one sentence where not. Nothing is made.
void check_folder(const std::string &folder);
void make_folder(const std::string &folder);
