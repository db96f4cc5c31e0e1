#include "cli/batch/BatchJournal.h"

#include "cli/batch/JournalNames.h"
#include "cli/terminal/Output.h"
#include "tests/support/process/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace netrove::cli;
using testsupport::readFile;
using testsupport::writeFile;

BatchLine lineOf(const std::string& text) {
    BatchManifestParser parser([](const std::string&) {});
    parser.feed(text);
    BatchManifest manifest = parser.finish();
    return std::move(manifest.Lines.at(0));
}

void put(const OutputFile& file, const std::string& text) {
    ASSERT_TRUE(writeAll(file.descriptor(), text));
}

class BatchJournalFile : public testing::Test {
protected:
    testsupport::TemporaryFolder Folder;
    std::string Name = Folder.file("list.journal");
    BatchLine Line = lineOf("http://h/a " + Folder.file("a"));

    BatchHistory history() const {
        BatchHistory result;
        EXPECT_EQ(result.read(Name), 0u);
        return result;
    }
    bool isDone(const BatchLine& line) const { return history().done(line).has_value(); }
    void save(const std::string& content) {
        BatchJournal journal(Name);
        OutputFile file(*Line.Target, true);
        journal.started(Line, file);
        put(file, content);
        journal.written(Line, file);
        file.keep();
        journal.done(Line, 200, content.size());
    }
    // Another name for what has none yet, or a temporary one.
    static void keepAs(const OutputFile& file, const std::string& name) {
        const std::string own = "/proc/self/fd/" + std::to_string(file.descriptor());
        ASSERT_EQ(linkat(AT_FDCWD, own.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW), 0);
    }
    static std::string identifierOf(const std::string& name) {
        try {
            const BatchJournal journal(name);
            return "";
        } catch (const vantik::Failure& failure) {
            return failure.identifier();
        }
    }
};

TEST_F(BatchJournalFile, WhatIsDoneIsKnownToTheNextRun) {
    EXPECT_FALSE(isDone(Line)) << "no journal is an empty one";
    save("content");
    const auto ended = history().done(Line);
    ASSERT_TRUE(ended);
    EXPECT_EQ(ended->Status, 200);
    EXPECT_EQ(ended->Bytes, 7u);
}

TEST_F(BatchJournalFile, AnotherLineForTheSameFileIsNot) {
    save("content");
    EXPECT_FALSE(isDone(lineOf("http://h/b " + Folder.file("a"))));
    EXPECT_FALSE(isDone(lineOf("http://h/a " + Folder.file("b"))));
}

TEST_F(BatchJournalFile, AFileThatIsGoneOrOfAnotherSizeIsNot) {
    save("content");
    writeFile(Folder.file("a"), "content!");
    EXPECT_FALSE(isDone(Line));
    std::filesystem::remove(Folder.file("a"));
    EXPECT_FALSE(isDone(Line));
}

TEST_F(BatchJournalFile, AFileThatGotItsNameIsDoneWithoutTheLastLine) {
    {
        BatchJournal journal(Name);
        OutputFile file(*Line.Target, false);
        journal.started(Line, file);
        put(file, "all of it");
        EXPECT_FALSE(isDone(Line));
        journal.written(Line, file);
        EXPECT_FALSE(isDone(Line));
        file.keep();
    }
    ASSERT_TRUE(isDone(Line));
    EXPECT_EQ(history().done(Line)->Bytes, 9u);
    // Somebody else's file is not ours, even under that name.
    writeFile(Folder.file("other"), "all of it");
    std::filesystem::rename(Folder.file("other"), Folder.file("a"));
    EXPECT_FALSE(isDone(Line));
}

TEST_F(BatchJournalFile, AFileThatGotItsNameWithoutItsContentIsNot) {
    for (const bool said : {false, true}) {
        BatchJournal journal(Name);
        OutputFile file(*Line.Target, true);
        journal.started(Line, file);
        put(file, "all of it");
        if (said) {
            journal.written(Line, file);
        }
        file.keep();
        std::filesystem::resize_file(*Line.Target, 0);
        EXPECT_FALSE(isDone(Line)) << said;
    }
}

TEST_F(BatchJournalFile, LeftoversOfAKilledRunAreRemoved) {
    std::string leftover;
    {
        BatchJournal journal(Name);
        OutputFile file(*Line.Target, false);
        journal.started(Line, file);
        leftover = file.temporaryName();
        keepAs(file, Folder.file("kept"));
    }
    std::filesystem::create_hard_link(Folder.file("kept"), leftover); // as if nobody had cleaned up
    history().removeLeftovers();
    EXPECT_FALSE(std::filesystem::exists(leftover));
    writeFile(leftover, "somebody else's by now");
    history().removeLeftovers();
    EXPECT_EQ(readFile(leftover), "somebody else's by now");
}

// Whoever writes in the folder could have written the journal.
TEST_F(BatchJournalFile, NothingElseIsRemovedWhateverTheJournalSays) {
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

TEST_F(BatchJournalFile, ATornEndIsCutOffAndTheRestCounts) {
    save("content");
    const std::string whole = readFile(Name);
    for (std::size_t length = 0; length < whole.size(); ++length) {
        writeFile(Name, whole.substr(0, length));
        const BatchLine other = lineOf("http://h/b " + Folder.file("b"));
        {
            BatchJournal journal(Name);
            journal.failed(other, {"NETROVE:cli", "StatusError", {}, "x"});
        }
        BatchHistory result;
        EXPECT_EQ(result.read(Name), 0u) << "unreadable lines, cut at " << length;
        EXPECT_FALSE(result.done(other));
        const std::string now = readFile(Name);
        EXPECT_EQ(now.find("{\"journal\""), 0u);
        EXPECT_EQ(now.rfind("{\"journal\""), 0u);
    }
}

TEST_F(BatchJournalFile, LinesThatCannotBeReadAreCounted) {
    save("content");
    const std::string whole = readFile(Name);
    writeFile(Name, whole + "nonsense\n{\"key\":\"=x\"}\n{\"key\":\"=x\",\"state\":\"done\",\"line\":7}\n[]\n");
    BatchHistory result;
    EXPECT_EQ(result.read(Name), 4u);
    EXPECT_TRUE(result.done(Line));
}

TEST_F(BatchJournalFile, ADamagedLineDoesNotCountWhateverItHolds) {
    save("content");
    const std::string whole = readFile(Name);
    const std::string digest = Line.digest();
    const BatchLine ping = lineOf(R"({"url":"http://h/ping","target":null,"id":"ping"})");
    const auto started = [&](const std::string& temporary, const std::string& inode = "1") {
        return R"({"key":"=x","line":")" + digest + R"(","state":"started","temporary":)" + temporary +
               R"(,"device":1,"inode":)" + inode + "}";
    };
    const auto done = [&](const std::string& numbers) {
        return R"({"key":"@ping","line":")" + ping.digest() + R"(","state":"done")" + numbers + "}";
    };
    for (const std::string& line :
         {started("\"#zz\""), started("\"#6\""), started("\"#6 \""), started("\"#-1\""), started("\"#610\""),
          started("\"a\""), started("\"\""), started("7"), started("\"=a\"", "1e300"), started("\"=a\"", "-1"),
          done(""), done(R"(,"status":200)"), done(R"(,"status":200,"bytes":"7")"),
          done(R"(,"status":200,"bytes":1e300)"), std::string(100'000, '[') + std::string(100'000, ']')}) {
        writeFile(Name, whole + line + "\n");
        BatchHistory result;
        EXPECT_EQ(result.read(Name), 1u) << line.substr(0, 200);
        EXPECT_TRUE(result.done(Line)) << line.substr(0, 200);
        EXPECT_FALSE(result.done(ping)) << line.substr(0, 200);
    }
    // Whole, they count.
    writeFile(Name, whole + started("\"#61ff\"") + "\n" + done(R"(,"status":200,"bytes":7)") + "\n");
    EXPECT_TRUE(isDone(ping));
}

TEST_F(BatchJournalFile, WhatIsNoJournalIsRefusedAndStaysAsItIs) {
    for (const std::string text : {"x", "a text\nof two lines", "{\"journal\":\"netrove batch\",\"version\":2}\n"}) {
        writeFile(Name, text);
        EXPECT_EQ(identifierOf(Name), "NETROVE:cli:NoJournal") << text;
        EXPECT_EQ(readFile(Name), text);
    }
    EXPECT_EQ(identifierOf("/dev/null"), "NETROVE:cli:NoJournal");
    EXPECT_EQ(identifierOf(Folder.file("no/such/folder")), "NETROVE:cli:FileNotWritten");
}

TEST_F(BatchJournalFile, OneRunAtATimeHasIt) {
    const BatchJournal journal(Name);
    EXPECT_EQ(identifierOf(Name), "NETROVE:cli:JournalInUse");
}

TEST_F(BatchJournalFile, NamesThatAreNoTextAreKnownAgain) {
    Line = lineOf("http://h/a " + Folder.file("\xFF\xFEname"));
    save("content");
    EXPECT_TRUE(isDone(Line));
}

TEST_F(BatchJournalFile, ThreadsWriteWholeLines) {
    constexpr int kThreads = 4;
    constexpr int kLines = 200;
    {
        BatchJournal journal(Name);
        std::vector<std::thread> threads;
        for (int thread = 0; thread < kThreads; ++thread) {
            threads.emplace_back([&journal, thread] {
                for (int i = 0; i < kLines; ++i) {
                    journal.done(lineOf("{\"url\":\"http://h/" + std::to_string(thread) + "/" + std::to_string(i) +
                                        "\",\"target\":null}"),
                                 200, 1);
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    const BatchHistory result = history();
    for (int thread = 0; thread < kThreads; ++thread) {
        for (int i = 0; i < kLines; ++i) {
            EXPECT_TRUE(result.done(lineOf("{\"url\":\"http://h/" + std::to_string(thread) + "/" + std::to_string(i) +
                                           "\",\"target\":null}")));
        }
    }
}

TEST_F(BatchJournalFile, JournalsOfOtherShardsAreFound) {
    for (const char* name : {"list.journal", "list.journal.1-of-3", "list.journal.12-of-30", "list.journal.x-of-3",
                             "list.journal.old", "list.journal.1-of-", "other.journal"}) {
        writeFile(Folder.file(name), "");
    }
    EXPECT_EQ(siblingJournals(Name), (std::vector<std::string>{Name, Name + ".1-of-3", Name + ".12-of-30"}));
}

} // namespace
