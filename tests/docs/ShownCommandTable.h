// What is done with each command that a page shows. A page may show `netrove`, `scripts/run`, the launchers and jq
// without a row: such a command is run as it stands. Any other needs one.
#pragma once

#include <span>

namespace docstest {

enum class Way {
    Here,      // run in the folder of PageShell
    Sources,   // run in a folder with all of the sources; a build only says what it would do, see Detail
    Elsewhere, // run by a test of another folder. Detail: its file, ": ", and the name that is in it
    Never,     // Detail: why a test cannot run it
};

struct CommandRow {
    const char* Page;
    const char* Command; // as shown, without its comment
    docstest::Way Way;
    const char* Detail; // Sources: a target that is really built after a build that only says what it would do; or ""
};

// What a command that is run here has to print or leave behind. Everything that says in its comment what comes of it
// has a row, unless all that it says is an exit status.
struct ResultRow {
    const char* Page;
    const char* Command;
    const char* Before; // commands that make the state which the page speaks of; or nothing
    const char* Prints; // a part of standard output; or nothing
    const char* File;   // that it writes; or nothing
    const char* Holds;  // a part of that file
};

std::span<const CommandRow> commandTable();
std::span<const ResultRow> resultTable();

} // namespace docstest
