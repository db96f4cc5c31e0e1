// The tree that `cmake --install` makes of this build, in a folder of its own, and moved before it is used.
#pragma once

#include "tests/support/process/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace installtest {

struct ShellOutcome {
    int Status = -1; // exit status of the first command that failed; 0: none has; -1: ended by a signal
    std::string Out; // standard output and standard error, in order
};

// Runs commands in a folder with a plain environment: no path of this build, no proxy, HOME in that folder.
ShellOutcome shell(const std::string& commands, const std::string& folder,
                   const std::map<std::string, std::string>& environment = {});

// A fixture whose tests share one tree; it is made once a process.
class InstalledTree : public testing::Test {
protected:
    static void SetUpTestSuite();
    static void TearDownTestSuite();

    static std::string prefix(); // where it lies now
    static std::string library(const std::string& file);
    static std::string scratch(const std::string& name); // a new folder for one test

private:
    static std::unique_ptr<testsupport::TemporaryFolder> Folder;
};

// Every file and link below a folder, relative to it and sorted.
std::vector<std::string> filesBelow(const std::string& folder);

// A file of the sources.
std::string source(const std::string& path);

// "-fsanitize=…" where this build has sanitizers: a program that links the library needs the same.
std::string sanitizerFlags();

} // namespace installtest
