#include "cli/batch/BatchJournal.h"

#include "cli/batch/JournalNames.h"
#include "cli/terminal/Output.h"
#include "tests/support/host/HostFixture.h"
#include "tests/support/process/TemporaryFolder.h"

#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace netrove;
using namespace netrove::cli;
using testsupport::readFile;
using testsupport::writeFile;

BatchLine lineOf(const std::string& text) {
    BatchManifestParser parser([](const std::string&) {});
    parser.feed(text);
    BatchManifest manifest = parser.finish();
    return std::move(manifest.Lines.at(0));
}

class BatchJournalFile : public testing::Test {
protected:
    const testsupport::TemporaryFolder Folder;
    const std::string Name = Folder.file("list.journal");
    BatchLine Line = lineOf("http://h/a " + Folder.file("a"));

    BatchHistory history() const {
        BatchHistory result;
        EXPECT_EQ(result.read(Name), 0u);
        return result;
    }
    bool isDone(const BatchLine& line) const { return history().done(line).has_value(); }
    // Begins the line and writes its file, which has no name yet; `then` goes on.
    void start(const std::function<void(BatchJournal&, OutputFile&)>& then) const {
        BatchJournal journal(Name);
        OutputFile file(*Line.Target, true);
        journal.started(Line, file);
        ASSERT_TRUE(writeAll(file.descriptor(), "content"));
        then(journal, file);
    }
    // The journal of a run that has done the line, as text.
    std::string save() const {
        start([this](BatchJournal& journal, OutputFile& file) {
            journal.written(Line, file);
            file.keep();
            journal.done(Line, 200, 7);
        });
        return readFile(Name);
    }
    static std::string identifierOf(const std::string& name) {
        return testsupport::failureOf([&] { const BatchJournal journal(name); }).identifier();
    }
};

TEST_F(BatchJournalFile, RecordsWhatIsDoneForTheNextRun) {
    EXPECT_FALSE(isDone(Line)) << "no journal is an empty one";
    save();
    const auto ended = history().done(Line);
    ASSERT_TRUE(ended);
    EXPECT_EQ(ended->Status, 200);
    EXPECT_EQ(ended->Bytes, 7u);
    EXPECT_FALSE(isDone(lineOf("http://h/b " + Folder.file("a"))));
    EXPECT_FALSE(isDone(lineOf("http://h/a " + Folder.file("b"))));
    // Nor is a file done that is of another size or gone.
    writeFile(Folder.file("a"), "content!");
    EXPECT_FALSE(isDone(Line));
    std::filesystem::remove(Folder.file("a"));
    EXPECT_FALSE(isDone(Line));
}

TEST_F(BatchJournalFile, KnowsAFileThatGotItsNameWithoutTheLastLine) {
    start([this](BatchJournal& journal, OutputFile& file) {
        EXPECT_FALSE(isDone(Line));
        journal.written(Line, file);
        EXPECT_FALSE(isDone(Line));
        file.keep();
    });
    ASSERT_TRUE(isDone(Line));
    EXPECT_EQ(history().done(Line)->Bytes, 7u);
    // Somebody else's file is not ours, even under that name.
    writeFile(Folder.file("other"), "content");
    std::filesystem::rename(Folder.file("other"), Folder.file("a"));
    EXPECT_FALSE(isDone(Line));
}

TEST_F(BatchJournalFile, DoesNotCountAFileThatGotItsNameWithoutItsContent) {
    for (const bool written : {false, true}) {
        start([&](BatchJournal& journal, OutputFile& file) {
            if (written) {
                journal.written(Line, file);
            }
            file.keep();
        });
        std::filesystem::resize_file(*Line.Target, 0);
        EXPECT_FALSE(isDone(Line)) << written;
    }
}

TEST_F(BatchJournalFile, RemovesTheLeftoversOfAKilledRun) {
    std::string leftover;
    start([&](BatchJournal&, const OutputFile& file) {
        leftover = file.temporaryName();
        // Another name for what has none yet, or a temporary one.
        const std::string own = "/proc/self/fd/" + std::to_string(file.descriptor());
        ASSERT_EQ(linkat(AT_FDCWD, own.c_str(), AT_FDCWD, Folder.file("kept").c_str(), AT_SYMLINK_FOLLOW), 0);
    });
    std::filesystem::create_hard_link(Folder.file("kept"), leftover); // as if nobody had cleaned up
    history().removeLeftovers();
    EXPECT_FALSE(std::filesystem::exists(leftover));
    writeFile(leftover, "somebody else's by now");
    history().removeLeftovers();
    EXPECT_EQ(readFile(leftover), "somebody else's by now");
}

// Whoever writes in the folder could have written the journal.
TEST_F(BatchJournalFile, RemovesNothingElseWhateverTheJournalSays) {
    writeFile(Folder.file("precious"), "x");
    struct stat facts {};
    ASSERT_EQ(stat(Folder.file("precious").c_str(), &facts), 0);
    { const BatchJournal journal(Name); }
    writeFile(Name, readFile(Name) + R"({"key":"=a","line":"0","state":"started","temporary":"=)" +
                        Folder.file("precious") + R"(","device":)" + std::to_string(facts.st_dev) + R"(,"inode":)" +
                        std::to_string(facts.st_ino) + "}\n");
    history().removeLeftovers();
    EXPECT_EQ(readFile(Folder.file("precious")), "x");
}

TEST_F(BatchJournalFile, LosesATornEndAndKeepsTheRest) {
    const std::string whole = save();
    const std::size_t lastLine = whole.rfind('\n', whole.size() - 2) + 1;
    const BatchLine other = lineOf("http://h/b " + Folder.file("b"));
    for (std::size_t length = 0; length < whole.size(); ++length) {
        writeFile(Name, whole.substr(0, length));
        BatchJournal(Name).failed(other, {"NETROVE:cli", "StatusError", {}, "x"});
        // Its file got its name before the last line was to be written, and the line before knows it.
        EXPECT_TRUE(length < lastLine || isDone(Line)) << "cut at " << length;
        EXPECT_FALSE(isDone(other)) << "cut at " << length;
        const std::string now = readFile(Name);
        EXPECT_EQ(now.find("{\"journal\""), 0u);
        EXPECT_EQ(now.rfind("{\"journal\""), 0u);
    }
}

TEST_F(BatchJournalFile, CountsTheLinesThatCannotBeReadAndDoesNotObeyThem) {
    const std::string whole = save();
    const BatchLine ping = lineOf(R"({"url":"http://h/ping","target":null,"id":"ping"})");
    const auto started = [this](const std::string& temporary, const std::string& inode = "1") {
        return R"({"key":"=x","line":")" + Line.digest() + R"(","state":"started","temporary":)" + temporary +
               R"(,"device":1,"inode":)" + inode + "}";
    };
    const auto done = [&](const std::string& numbers) {
        return R"({"key":"@ping","line":")" + ping.digest() + R"(","state":"done")" + numbers + "}";
    };
    std::string all;
    std::size_t count = 0;
    for (const std::string& line :
         {std::string("nonsense"), std::string(R"({"key":"=x"})"),
          std::string(R"({"key":"=x","state":"done","line":7})"), std::string("[]"), started("\"#zz\""),
          started("\"#6\""), started("\"#6 \""), started("\"#-1\""), started("\"#610\""), started("\"a\""),
          started("\"\""), started("7"), started("\"=a\"", "1e300"), started("\"=a\"", "-1"), done(""),
          done(R"(,"status":200)"), done(R"(,"status":200,"bytes":"7")"), done(R"(,"status":200,"bytes":1e300)"),
          std::string(100'000, '[') + std::string(100'000, ']')}) {
        all += line + "\n";
        ++count;
        for (const auto& [text, unreadable] : {std::pair(line + "\n", std::size_t{1}), std::pair(all, count)}) {
            writeFile(Name, whole + text);
            BatchHistory result;
            EXPECT_EQ(result.read(Name), unreadable) << line.substr(0, 200);
            EXPECT_TRUE(result.done(Line)) << line.substr(0, 200);
            EXPECT_FALSE(result.done(ping)) << line.substr(0, 200);
        }
    }
    // Whole, they count.
    writeFile(Name, whole + started("\"#61ff\"") + "\n" + done(R"(,"status":200,"bytes":7)") + "\n");
    EXPECT_TRUE(isDone(ping));
}

TEST_F(BatchJournalFile, RefusesAndSparesWhatIsNotAJournal) {
    for (const std::string text : {"x", "a text\nof two lines", "important\n", "{\"journal\":\"something else\"}\n",
                                   "{\"journal\":\"netrove batch\",\"version\":2}\n"}) {
        writeFile(Name, text);
        EXPECT_EQ(identifierOf(Name), "NETROVE:cli:NoJournal") << text;
        EXPECT_EQ(readFile(Name), text);
    }
    EXPECT_EQ(identifierOf("/dev/null"), "NETROVE:cli:NoJournal");
    EXPECT_EQ(identifierOf(Folder.file("no/such/folder")), "NETROVE:cli:FileNotWritten");
}

TEST_F(BatchJournalFile, KnowsNamesThatAreNotText) {
    Line = lineOf("http://h/a " + Folder.file("\xFF\xFEname"));
    save();
    EXPECT_TRUE(isDone(Line));
}

TEST_F(BatchJournalFile, TakesWholeLinesFromThreads) {
    constexpr int kThreads = 4;
    constexpr int kLines = 200;
    const auto lineOfThread = [](int thread, int i) {
        return lineOf("{\"url\":\"http://h/" + std::to_string(thread) + "/" + std::to_string(i) +
                      "\",\"target\":null}");
    };
    {
        BatchJournal journal(Name);
        std::vector<std::jthread> threads;
        for (int thread = 0; thread < kThreads; ++thread) {
            threads.emplace_back([&, thread] {
                for (int i = 0; i < kLines; ++i) {
                    journal.done(lineOfThread(thread, i), 200, 1);
                }
            });
        }
    }
    const BatchHistory result = history();
    for (int line = 0; line < kThreads * kLines; ++line) {
        EXPECT_TRUE(result.done(lineOfThread(line / kLines, line % kLines)));
    }
}

TEST_F(BatchJournalFile, FindsJournalsOfOtherShards) {
    for (const char* name : {"list.journal", "list.journal.1-of-3", "list.journal.12-of-30", "list.journal.x-of-3",
                             "list.journal.old", "list.journal.1-of-", "other.journal"}) {
        writeFile(Folder.file(name), "");
    }
    EXPECT_EQ(siblingJournals(Name), (std::vector<std::string>{Name, Name + ".1-of-3", Name + ".12-of-30"}));
}

} // namespace
