#include "tests/cli/ProgramFixture.h"

#include <sys/stat.h>

namespace {

using namespace clitest;

class SaveCommand : public ProgramFixture {
protected:
    Exchanged save(const Script& script, const Words& words) const {
        return runAgainst(script, Words{"save"} + words, here());
    }
    // Without a server: refused before anything is asked for.
    void expectRefused(const Words& words, const std::string& complaint) const {
        const ScriptedServer server(answering(response("new")));
        EXPECT_THAT(run(withUrl(Words{"save"} + words, server), here()),
                    ended(23, "", "netrove: NETROVE:cli:" + complaint + "\n"));
        EXPECT_EQ(server.connectionCount(), 0u) << "a request was made all the same";
    }
};

TEST_F(SaveCommand, WritesTheContentIntoAFile) {
    const std::string content = patternedBytes(3'000'000);
    for (const Words& option : {Words{}, {"--consumer"}}) {
        EXPECT_THAT(save(answering(response(content)), Words{"URL", "--force", "file.bin"} + option), ended(0, "", ""));
        EXPECT_EQ(difference(readFile(file("file.bin")), content), "");
        EXPECT_EQ(names(), Words{"file.bin"});
    }
    EXPECT_EQ(save(answering(response("")), {"URL", "empty"}).Status, 0);
    EXPECT_EQ(readFile(file("empty")), "");
}

TEST_F(SaveCommand, TakesTheNameFromTheUrl) {
    for (const Words& words :
         {Words{"URL/x/re%20port.txt?v=1"}, {"URL/%2e%2e%2fescape"}, {"URL/other", Folder.path()}}) {
        EXPECT_EQ(save(answering(response("a")), words).Status, 0);
    }
    EXPECT_EQ(names(), (Words{"_escape", "other", "re port.txt"}));
}

TEST_F(SaveCommand, ReplacesAFileOnlyWithForce) {
    writeFile(file("old"), "old");
    expectRefused({"URL", "old"}, "FileExists: old exists; use --force to replace it");
    EXPECT_EQ(readFile(file("old")), "old");
    EXPECT_EQ(save(answering(response("new")), {"--force", "URL", "old"}).Status, 0);
    EXPECT_EQ(readFile(file("old")), "new");
    EXPECT_EQ(names(), Words{"old"});
}

TEST_F(SaveCommand, RefusesPipesAndMissingFolders) {
    ASSERT_EQ(mkfifo(file("pipe").c_str(), 0600), 0);
    std::filesystem::create_symlink("pipe", file("link"));
    expectRefused({"--force", "URL", "pipe"}, "FileNotWritten: pipe: not a regular file");
    expectRefused({"--force", "URL", "link"}, "FileNotWritten: link: not a regular file");
    EXPECT_TRUE(std::filesystem::is_fifo(file("pipe")));
    expectRefused(
        {"URL", "no/such/file"},
        "FileNotWritten: cannot write no/such/file: No such file or directory. Hint: create the folder first.");
}

TEST_F(SaveCommand, KeepsAnErrorPageOnlyWhereAsked) {
    const Script missing = answering(response("sorry", {}, "404 Not Found"));
    const std::string failed = "netrove: NETROVE:cli:StatusError: the server answered 404 Not Found for URL/";
    for (const Words& options : {Words{}, {"-f"}, {"--no-fail", "--fail"}}) {
        const Exchanged saved = save(missing, options + Words{"URL", "file"});
        EXPECT_THAT(saved, ended(22, ""));
        EXPECT_EQ(saved.complaint(), failed + "; nothing was saved\n");
        EXPECT_EQ(names(), Words{});
    }
    const std::string kept = "netrove: note: the server answered 404 Not Found; file holds that response\n";
    EXPECT_THAT(save(missing, {"--no-fail", "URL", "file"}), ended(0, "", kept));
    EXPECT_EQ(readFile(file("file")), "sorry");
    const Exchanged both = save(missing, {"--fail-with-body", "--force", "URL", "file"});
    EXPECT_EQ(both.Status, 22);
    EXPECT_EQ(both.complaint(), kept + failed + "\n");
    EXPECT_EQ(readFile(file("file")), "sorry");
}

TEST_F(SaveCommand, ShowsProgressWhereAsked) {
    const Exchanged saved = save(answering(response(std::string(2048, 'x'))), {"--progress", "URL", "file"});
    EXPECT_EQ(saved.Status, 0);
    EXPECT_THAT(lastLine(saved.Err), StartsWith("received: [########################] 100%  2.0 KiB of 2.0 KiB"));
}

} // namespace
