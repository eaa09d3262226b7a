// output.h - a file that appears under its name only when it is complete.
//
// Gives    Output, a Sink on a temporary file beside the target; commit() gives it its name.
// Promises without a commit the temporary file is gone when the Output is; a symbolic link is
//          followed, so that what it points at is replaced, not the link.
#pragma once

#include "image/files.h"

class Output {
public:
    explicit Output(const std::string &path);
    ~Output();
    Output(const Output &) = delete;
    Output &operator=(const Output &) = delete;

    const Sink &sink() const { return sink_; }
    void commit();

private:
    Sink sink_;
    std::string target_;
};
