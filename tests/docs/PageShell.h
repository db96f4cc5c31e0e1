// Where the commands of the pages are run: a folder with what the pages take for granted, and a server in the place of
// example.org.
#pragma once

#include "tests/support/process/ProgramRun.h"
#include "tests/support/process/TemporaryFolder.h"

#include <memory>
#include <string>

namespace docstest {

struct PageServer;

class PageShell {
public:
    PageShell();

    // In a folder with the files that the pages mention, the program in the PATH and a project that builds in no time:
    // the scripts and the presets are those of the sources, its targets do what the scripts need. What `before` does
    // comes first, in the same shell.
    testsupport::Outcome run(const std::string& command, const std::string& before) const;

    // In a folder that has all of the sources, with builds of its own. Where the command ends with a build, that only
    // says what it would do; `target` is really built after it.
    testsupport::Outcome runInSources(const std::string& command, const std::string& target) const;

    // A file of the first folder.
    std::string file(const std::string& name) const { return Folder.file("work/" + name); }
    // The folder with the sources, or a file of it.
    std::string sources(const std::string& name = ".") const { return Folder.file("sources/" + name); }

    // A text of a page as it is here: the server for example.org.
    std::string here(std::string text) const;

private:
    const std::shared_ptr<PageServer> Server;
    const testsupport::TemporaryFolder Folder;

    testsupport::Outcome bash(const std::string& script, const std::string& folder) const;
};

} // namespace docstest
