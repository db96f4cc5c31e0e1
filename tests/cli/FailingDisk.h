// Runs in a folder where one call of the system fails, on a file system that makes files without a name or does not.
#pragma once

#include "tests/cli/ProgramFixture.h"
#include "tests/support/process/BuiltFile.h"
#include "tests/support/process/FailingCalls.h"

#include <cerrno>
#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace clitest {

enum class Disk { Nameless, Named };

inline std::string nameOf(Disk disk) {
    return disk == Disk::Nameless ? "WithoutAName" : "ByATemporaryName";
}

inline Surroundings failingIn(const std::string& folder, Disk disk, std::vector<FailingCall> calls,
                              const std::string& record = {}) {
    if (disk == Disk::Named) {
        calls.push_back({"tmpfile", 0, EOPNOTSUPP});
    }
    return {.Environment = failingCalls(folder, calls, record), .Folder = folder};
}

// How often each call was made, of the file that recorded them.
using Calls = std::map<std::string, int>;
inline Calls takeRecord(const std::string& record) {
    std::istringstream lines(readFile(record));
    std::filesystem::remove(record);
    Calls made;
    for (std::string line; std::getline(lines, line);) {
        ++made[line];
    }
    return made;
}

struct FailureRow {
    const char* Call;
    std::vector<int> Fatal;    // error numbers that end the work whenever they come
    std::vector<int> Survived; // and those that do not
};

// `play(failing, survived)` for each call of the table that is made, each time that it is, with each error. With
// sanitizers, under which a program takes ten times as long to start, with one of the errors, in turn.
template <class Rows, class Play>
void playEachFailure(const Rows& rows, const Calls& made, Play play) {
    for (const FailureRow& row : rows) {
        const int errors = static_cast<int>(row.Fatal.size() + row.Survived.size());
        const int fatal = static_cast<int>(row.Fatal.size());
        const auto found = made.find(row.Call);
        for (int number = 1; found != made.end() && number <= found->second; ++number) {
            for (int i = 0; i < errors; ++i) {
                if (testsupport::isSanitized() && i != number % errors) {
                    continue;
                }
                const bool survived = i >= fatal;
                const int error = survived ? row.Survived[i - fatal] : row.Fatal[i];
                SCOPED_TRACE(std::string(row.Call) + " " + std::to_string(number) + " " + std::strerror(error));
                play(FailingCall{row.Call, number, error}, survived);
            }
        }
    }
}

} // namespace clitest
