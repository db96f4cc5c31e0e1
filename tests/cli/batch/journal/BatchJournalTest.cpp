#include "cli/batch/journal/BatchJournal.h"

#include "cli/batch/journal/BatchHistory.h"
#include "cli/batch/manifest/JournalNames.h"
#include "cli/terminal/Output.h"
#include "tests/support/host/HostFixture.h"
#include "tests/support/process/TemporaryFolder.h"

#include <Poco/Checksum.h>
#include <netrove/outputfile.h>

#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <iomanip>
#include <limits>
#include <memory>
#include <span>
#include <sstream>
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
    return ManifestLines([](const std::string&) {}).once(1, text);
}

class BatchJournalFile : public testing::Test {
protected:
    const testsupport::TemporaryFolder Folder;
    const std::string Name = Folder.file("list.journal");
    const std::string Temporary = Folder.file(".a.abcdefghijklmnop.part"); // as if the file had one
    BatchLine Line = lineOf("http://h/a " + Folder.file("a"));

    std::unique_ptr<BatchHistory> history() const {
        auto result = std::make_unique<BatchHistory>();
        EXPECT_EQ(result->read(Name), 0u);
        return result;
    }
    bool isDone(const BatchLine& line) const { return history()->done(line).has_value(); }
    // Begins the line and writes its file, which has no name yet; `then` goes on.
    void start(const std::function<void(BatchJournal&, OutputFile&)>& then) const {
        BatchJournal journal(Name);
        OutputFile file(*Line.Target, true);
        journal.begun(Line, Temporary, file.descriptor());
        file.write(std::as_bytes(std::span("content", 7)));
        journal.flush();
        then(journal, file);
        journal.flush();
    }
    void write(BatchJournal& journal, const OutputFile& file) const {
        struct stat facts {};
        ASSERT_EQ(fstat(file.descriptor(), &facts), 0);
        journal.written(Line, 200, file.size(), facts.st_ino);
        journal.flush();
    }
    // The journal of a run that has done the line, as text.
    std::string save() const {
        start([this](BatchJournal& journal, OutputFile& file) {
            write(journal, file);
            file.keep();
            journal.kept();
        });
        return readFile(Name);
    }
    static void fail(const std::string& name, const BatchLine& line) {
        BatchJournal journal(name);
        journal.failed(line, {"NETROVE:cli", "StatusError", {}, "x"});
        journal.sync();
    }
    static void finish(const std::string& name, const BatchLine& line) {
        BatchJournal journal(name);
        journal.done(line, 200, 7);
        journal.sync();
    }
    // As versions before wrote them.
    std::string jsonJournal(const std::string& records) const {
        const std::string head =
            R"({"id":"x","key":"=)" + *Line.Target + R"(","line":")" + Line.digest() + R"(","state":)";
        std::string text = std::string(kJsonJournalHeader) + "\n";
        std::istringstream words(records);
        for (std::string word; words >> word;) {
            struct stat facts {};
            const bool there = stat(Line.Target->c_str(), &facts) == 0;
            text += head +
                    (word == "started" ? R"("started","temporary":"=t","device":)" + std::to_string(facts.st_dev) +
                                             R"(,"inode":)" + std::to_string(there ? facts.st_ino : 1)
                     : word == "written" ? R"("written","bytes":7)"
                     : word == "done"    ? R"("done","status":200,"bytes":7)"
                                         : R"("failed","identifier":"NETROVE:cli:StatusError")") +
                    "}\n";
        }
        return text;
    }
    static std::string identifierOf(const std::string& name) {
        return testsupport::failureOf([&] { const BatchJournal journal(name); }).identifier();
    }
};

TEST_F(BatchJournalFile, RecordsWhatIsDoneForTheNextRun) {
    EXPECT_FALSE(isDone(Line)) << "no journal is an empty one";
    save();
    const auto ended = history()->done(Line);
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
        write(journal, file);
        EXPECT_FALSE(isDone(Line));
        file.keep();
    });
    ASSERT_TRUE(isDone(Line));
    EXPECT_EQ(history()->done(Line)->Bytes, 7u);
    // Somebody else's file is not ours, even under that name.
    writeFile(Folder.file("other"), "content");
    std::filesystem::rename(Folder.file("other"), Folder.file("a"));
    EXPECT_FALSE(isDone(Line));
}

TEST_F(BatchJournalFile, DoesNotCountAFileThatGotItsNameWithoutItsContent) {
    for (const bool written : {false, true}) {
        start([&](BatchJournal& journal, OutputFile& file) {
            if (written) {
                write(journal, file);
            }
            file.keep();
        });
        std::filesystem::resize_file(*Line.Target, 0);
        EXPECT_FALSE(isDone(Line)) << written;
    }
}

TEST_F(BatchJournalFile, RemovesTheLeftoversOfAKilledRun) {
    const std::string& leftover = Temporary;
    start([&](BatchJournal&, const OutputFile& file) {
        // Another name for what has none yet, or a temporary one.
        const std::string own = "/proc/self/fd/" + std::to_string(file.descriptor());
        ASSERT_EQ(linkat(AT_FDCWD, own.c_str(), AT_FDCWD, Folder.file("kept").c_str(), AT_SYMLINK_FOLLOW), 0);
    });
    std::filesystem::create_hard_link(Folder.file("kept"), leftover); // as if nobody had cleaned up
    history()->removeLeftovers();
    EXPECT_FALSE(std::filesystem::exists(leftover));
    writeFile(leftover, "somebody else's by now");
    history()->removeLeftovers();
    EXPECT_EQ(readFile(leftover), "somebody else's by now");
}

// Whoever writes in the folder could have written the journal.
TEST_F(BatchJournalFile, RemovesNothingElseWhateverTheJournalSays) {
    writeFile(Folder.file("precious"), "x");
    struct stat facts {};
    ASSERT_EQ(stat(Folder.file("precious").c_str(), &facts), 0);
    { const BatchJournal journal(Name); }
    const std::string header = readFile(Name);
    for (const std::string& record :
         {R"({"key":"=a","line":"0","state":"started","temporary":"=)" + Folder.file("precious") + R"(","device":)" +
              std::to_string(facts.st_dev) + R"(,"inode":)" + std::to_string(facts.st_ino) + "}\n",
          recordText({.State = JournalState::Begun,
          .Device = facts.st_dev,
          .Inode = facts.st_ino,
          .Name = Folder.file("precious")})}) {
        writeFile(Name, header + record);
        history()->removeLeftovers();
        EXPECT_EQ(readFile(Folder.file("precious")), "x");
    }
}

TEST_F(BatchJournalFile, LosesATornEndAndKeepsTheRest) {
    const std::string whole = save();
    const std::size_t lastLine = whole.rfind('\n', whole.size() - 2) + 1;
    const BatchLine other = lineOf("http://h/b " + Folder.file("b"));
    for (std::size_t length = 0; length < whole.size(); ++length) {
        writeFile(Name, whole.substr(0, length));
        fail(Name, other);
        // Its file got its name before the last record was to be written, and the one before knows it.
        EXPECT_TRUE(length < lastLine || isDone(Line)) << "cut at " << length;
        EXPECT_FALSE(isDone(other)) << "cut at " << length;
        const std::string now = readFile(Name);
        EXPECT_EQ(now.find(kJournalHeader), 0u);
        EXPECT_EQ(now.rfind(kJournalHeader), 0u);
    }
    // What a power cut left may be longer than what is read at a time, and without any text.
    writeFile(Name, whole + std::string(200'000, '\0'));
    fail(Name, other);
    EXPECT_TRUE(isDone(Line));
}

TEST_F(BatchJournalFile, EveryDamagedByteIsFoundAndCounted) {
    finish(Name, Line);
    writeFile(*Line.Target, "content");
    const std::string whole = readFile(Name);
    ASSERT_TRUE(isDone(Line));
    for (std::size_t place = whole.find('\n') + 1; place + 1 < whole.size(); ++place) {
        for (const char mask : {1, 2, 16}) {
            std::string damaged = whole;
            damaged[place] = static_cast<char>(damaged[place] ^ mask);
            writeFile(Name, damaged);
            BatchHistory result;
            EXPECT_NE(result.read(Name), 0u) << damaged;
            EXPECT_FALSE(result.done(Line)) << damaged;
        }
    }
}

// One after another for each file, and the one at the end for all.
TEST_F(BatchJournalFile, AGroupIsDoneButForTheFilesThatFailed) {
    const auto target = [this](int i) { return Folder.file(std::to_string(i)); };
    const auto lineFor = [&](int i) { return lineOf("http://h/" + std::to_string(i) + " " + target(i)); };
    {
        BatchJournal journal(Name);
        for (int i = 0; i < 4; ++i) {
            writeFile(target(i), "content"); // also where it belongs to somebody else
            journal.written(lineFor(i), 200, 7, 1);
        }
        journal.failed(lineFor(2), {"NETROVE:cli", "FileExists", {}, "x"});
        journal.flush();
        EXPECT_FALSE(isDone(lineFor(0))) << "that is not the file which was written";
        journal.kept();
        journal.written(lineFor(3), 200, 7, 1); // again, by a later group
        journal.sync();
    }
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(isDone(lineFor(i)), i != 2) << i;
    }
    // Without the record of the one that failed, nobody knows which.
    std::string text = readFile(Name);
    text[text.find("failed")] = 'F';
    writeFile(Name, text);
    BatchHistory result;
    EXPECT_EQ(result.read(Name), 1u);
    EXPECT_FALSE(result.done(lineFor(0)));
    EXPECT_FALSE(result.done(lineFor(2)));
}

TEST_F(BatchJournalFile, TakesAtMostAHundredBytesForAFile) {
    constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
    for (const JournalState state : {JournalState::Written, JournalState::Done}) {
        EXPECT_LE(
            recordText({.State = state, .Line = kMost, .Key = kMost, .Status = 999, .Bytes = kMost, .Inode = kMost})
                .size(),
            100u);
    }
    { BatchJournal(Name).sync(); }
    const std::size_t before = readFile(Name).size();
    {
        BatchJournal journal(Name);
        journal.failed(Line, {std::string(100, 'a'), std::string(100, 'b'), {}, "x"});
        journal.sync();
    }
    EXPECT_LE(readFile(Name).size() - before, 100u);
}

TEST_F(BatchJournalFile, ReadsJournalsOfEarlierVersionsAndGoesOnWithThem) {
    const std::pair<const char*, bool> rows[] = {
        {"", false},
        {"started", false},
        {"started written", true}, // it has the inode number and the size of its file
        {"written", false},
        {"started written done", true},
        {"done", true},
        {"failed", false},
        {"done failed", true},
        {"done started", true},
        {"started written failed", false},
    };
    writeFile(*Line.Target, "content");
    const BatchLine other = lineOf(R"({"url":"http://h/ping","target":null,"id":"ping"})");
    for (const auto& [records, expected] : rows) {
        const std::string text = jsonJournal(records);
        writeFile(Name, text);
        EXPECT_EQ(isDone(Line), expected) << records;
        finish(Name, other);
        EXPECT_EQ(readFile(Name).find(text), 0u) << "nothing of it is lost";
        EXPECT_EQ(isDone(Line), expected) << records;
        EXPECT_TRUE(isDone(other)) << records;
        finish(Name, Line);
        EXPECT_TRUE(isDone(Line)) << records;
    }
    const BatchLine raw = lineOf("http://h/a " + Folder.file("\xFF"));
    std::string digits;
    for (const char c : *raw.Target) {
        digits += "0123456789abcdef"[static_cast<unsigned char>(c) >> 4];
        digits += "0123456789abcdef"[static_cast<unsigned char>(c) & 15];
    }
    const std::string tail = R"(,"state":"done","status":200,"bytes":7})";
    writeFile(Name, std::string(kJsonJournalHeader) + "\n" + R"({"key":"#)" + digits + R"(","line":")" + raw.digest() +
                        "\"" + tail + "\n" + R"({"key":"@ping","line":")" + other.digest() + "\"" + tail + "\n");
    writeFile(*raw.Target, "content");
    EXPECT_TRUE(isDone(raw));
    EXPECT_TRUE(isDone(other));
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
    // The sum is right, and the rest is not.
    const auto summed = [](const std::string& text) {
        Poco::Checksum sum(Poco::Checksum::TYPE_CRC32);
        sum.update(text);
        std::ostringstream digits;
        digits << std::hex << std::setw(8) << std::setfill('0') << sum.checksum();
        return text + " " + digits.str();
    };
    const std::string key = ping.digest() + " " + (std::ostringstream() << std::hex << journalKey(ping)).str();
    std::string all;
    std::size_t count = 0;
    for (const std::string& line : {std::string("nonsense"),
                                    std::string(R"({"key":"=x"})"),
                                    std::string(R"({"key":"x","state":"failed"})"),
                                    std::string(R"({"key":"=x","state":"done","line":7})"),
                                    std::string("[]"),
                                    started("\"#zz\""),
                                    started("\"#6\""),
                                    started("\"#6 \""),
                                    started("\"#-1\""),
                                    started("\"#610\""),
                                    started("\"a\""),
                                    started("\"\""),
                                    started("7"),
                                    started("\"=a\"", "1e300"),
                                    started("\"=a\"", "-1"),
                                    done(""),
                                    done(R"(,"status":200)"),
                                    done(R"(,"status":200,"bytes":"7")"),
                                    done(R"(,"status":200,"bytes":1e300)"),
                                    std::string(100'000, '[') + std::string(100'000, ']'),
                                    std::string("done " + key + " 200 7 00000000"),
                                    summed("done " + key),
                                    summed("done " + key + " 200"),
                                    summed("done " + key + " 200 -7"),
                                    summed("done " + key + " 2x0 7"),
                                    summed("done " + key + " 200 7 7"),
                                    summed("done  200 7 7"),
                                    summed("done " + key + " 99999999999 7"),
                                    summed("gone " + key + " 200 7"),
                                    summed("kept 1"),
                                    summed("")}) {
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
    writeFile(Name, whole + summed("done " + key + " 200 7") + "\n");
    EXPECT_TRUE(isDone(ping));
    writeFile(Name, whole + started("\"#61ff\"") + "\n" + done(R"(,"status":200,"bytes":7)") + "\n");
    EXPECT_TRUE(isDone(ping));
}

TEST_F(BatchJournalFile, RefusesAndSparesWhatIsNotAJournal) {
    for (const std::string text : {"x", "a text\nof two lines", "important\n", "{\"journal\":\"something else\"}\n",
                                   "{\"journal\":\"netrove batch\",\"version\":2}\n", "netrove batch journal 3\n",
                                   "netrove batch journal 22\n"}) {
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
                    journal.flush();
                }
            });
        }
    }
    const auto result = history();
    for (int line = 0; line < kThreads * kLines; ++line) {
        EXPECT_TRUE(result->done(lineOfThread(line / kLines, line % kLines)));
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
