#pragma once

#include "tests/support/process/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

// A folder in which a script finds stand-ins for the programs that it calls.
class ScriptFixture : public testing::Test {
protected:
    // A program in bash.
    void standIn(const std::string& name, const std::string& text) const {
        write(name, "#!/usr/bin/env bash\nset -u\n" + text);
        std::filesystem::permissions(Folder.file(name), std::filesystem::perms::owner_all);
    }
    void write(const std::string& name, const std::string& text) const {
        testsupport::writeFile(Folder.file(name), text);
    }

    const testsupport::TemporaryFolder Folder;
};
