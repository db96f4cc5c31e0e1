// The tree that `cmake --install` makes of this build, in a folder of its own, and moved before it is used.
#pragma once

#include "tests/docs/Page.h"
#include "tests/support/process/ProgramRun.h"
#include "tests/support/process/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace installtest {

using docstest::source;
using docstest::sourcePath;

// Runs commands in a folder with a plain environment: no path of this build, no proxy, HOME in that folder. What they
// print is all in Out, in order; the status is that of the first command that failed.
testsupport::Outcome shell(const std::string& commands, const std::string& folder,
                           std::map<std::string, std::string> environment = {});
// The same for what tests are to find there. Raises std::runtime_error where it fails.
void makeIn(const testsupport::TemporaryFolder& folder, const std::string& commands);

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

// The headers of the client that programs may include, with all that these include, as they are included. Those beside
// them are for the command line.
std::vector<std::string> clientHeaders();

} // namespace installtest
