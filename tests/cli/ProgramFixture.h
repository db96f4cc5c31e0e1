// What the tests of whole runs share: the program, a server that answers it with exact bytes, a folder to run in.
#pragma once

#include "tests/support/process/ProgramRun.h"
#include "tests/support/process/TemporaryFolder.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/WireText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace testsupport {

inline void PrintTo(const Outcome& outcome, std::ostream* out) {
    *out << "status " << outcome.Status << "\nOut: " << outcome.Out.substr(0, 2000) << "\nErr: " << outcome.Err;
}

} // namespace testsupport

namespace clitest {

using namespace testsupport;
using testing::_;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using Words = std::vector<std::string>;
using Text = testing::Matcher<std::string>;

const std::string kOk = "HTTP/1.1 200 OK\r\n";

inline Script answering(const std::string& bytes) {
    return {step::expectHead(), step::send(bytes), step::awaitPeerEnd()};
}

inline Script takingBody(std::size_t length, const std::string& answer = response("done")) {
    return {step::expectHead(), step::expectBody(length), step::send(answer), step::awaitPeerEnd()};
}

// An answer to a request with a body, with which the connection ends: libcurl may not have seen the end of the content
// yet when the answer comes, and then it would keep no connection; so that nothing depends on that, the server closes.
inline Script closingAfterBody(std::size_t length, const std::string& answer) {
    return {step::expectHead(), step::expectBody(length), step::send(answer), step::close()};
}

inline Words operator+(Words words, const Words& more) {
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

// "URL" at the beginning of a word stands for the server: "URL", "URL/path".
inline Words withUrl(Words words, const ScriptedServer& server) {
    for (std::string& word : words) {
        if (word.starts_with("URL")) {
            word = server.url(word.size() > 3 ? word.substr(3) : "/");
        }
    }
    return words;
}

// How a run ended: its exit status, and what it wrote.
inline testing::Matcher<const Outcome&> ended(const testing::Matcher<int>& status, const Text& out = _,
                                              const Text& err = _) {
    return AllOf(testing::Field("Status", &Outcome::Status, status), testing::Field("Out", &Outcome::Out, out),
                 testing::Field("Err", &Outcome::Err, err));
}

// A run, and what the server saw of its last connection.
struct Exchanged : Outcome {
    std::string Url; // of the server, with "/"
    std::size_t Connections = 0;
    Record Seen{};

    // A field of the request of that number.
    std::optional<std::string> field(const std::string& name, std::size_t request = 0) const {
        return fieldValue(Seen.Heads.at(request), name);
    }
    std::string requestLine(std::size_t request = 0) const { return startLine(Seen.Heads.at(request)); }
    // Standard error, with "URL/" for the server's own.
    std::string complaint() const {
        std::string text = Err;
        for (auto at = text.find(Url); at != text.npos; at = text.find(Url)) {
            text.replace(at, Url.size(), "URL/");
        }
        return text;
    }
};

inline Exchanged runAgainst(const std::vector<Script>& connections, const Words& words,
                            const Surroundings& around = {}) {
    const ScriptedServer server(connections);
    Exchanged result{run(withUrl(words, server), around), server.url()};
    result.Connections = server.connectionCount();
    result.Seen = server.waitUntilDone(connections.size() - 1);
    return result;
}
inline Exchanged runAgainst(const Script& script, const Words& words, const Surroundings& around = {}) {
    return runAgainst(std::vector<Script>{script}, words, around);
}

// Names of everything in a folder, hidden ones included.
inline Words namesIn(const std::string& folder) {
    Words names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

class ProgramFixture : public testing::Test {
protected:
    TemporaryFolder Folder;

    std::string file(const std::string& name) const { return Folder.file(name); }
    Words names() const { return namesIn(Folder.path()); }
    Surroundings here() const { return {.Folder = Folder.path()}; }
    Surroundings onTerminal() const { return {.Folder = Folder.path(), .Terminal = true}; }
};

} // namespace clitest
