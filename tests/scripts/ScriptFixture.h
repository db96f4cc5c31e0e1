#pragma once

#include "tests/support/process/ProgramRun.h"
#include "tests/support/process/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

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
    // A copy of a script of the sources, which goes by the folder that it is in.
    void copy(const std::string& script) const {
        std::filesystem::create_directory(Folder.file("scripts"));
        std::filesystem::copy_file(NETROVE_SOURCES "/" + script, Folder.file(script));
        standIn("scripts/deps", "");
    }
    // Runs it with the stand-ins of the folder bin in the PATH.
    testsupport::Outcome run(const std::string& script, std::vector<std::string> arguments) const {
        return testsupport::run(std::move(arguments), {.Environment = {{"PATH", Folder.file("bin") + ":/usr/bin:/bin"}},
                                                       .Folder = Folder.path(),
                                                       .Executable = Folder.file(script)});
    }

    const testsupport::TemporaryFolder Folder;
};
