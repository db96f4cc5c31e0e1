// The lines that failed, as a manifest of their own.
#pragma once

#include "cli/batch/manifest/BatchManifest.h"

#include <netrove/outputfile.h>

#include <string>

namespace netrove::cli {

class FailureList {
public:
    // Raises FileNotWritten, also what follows.
    explicit FailureList(const std::string& file);

    // The line as it was written, after a comment with the cause. One that is not usable is a comment too: it would
    // make the whole list be refused.
    void add(const BatchLine& line, const std::string& cause, bool usable);
    // Gives the file its name, in place of an earlier list.
    void keep();

private:
    void flush();

    OutputFile File;
    std::string Waiting;
};

} // namespace netrove::cli
