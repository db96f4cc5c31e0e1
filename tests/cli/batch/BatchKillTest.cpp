// A batch of large and small files that is killed again and again, at random moments, and does the rest each time:
// nothing is under its name that is not whole, and nothing is fetched twice but what was on its way.
#include "tests/cli/CountingServer.h"
#include "tests/cli/ProgramFixture.h"
#include "tests/support/process/BuiltFile.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <map>
#include <random>
#include <set>
#include <stdexcept>

namespace {

using namespace clitest;

constexpr int kLargeFiles = 5;
constexpr int kSmallFiles = 40;
constexpr int kJobs = 4;
const int kKills = testsupport::isSanitized() ? 12 : 50; // under sanitizers a start takes ten times as long
constexpr std::size_t kHeaderLength = 30;                // of a journal

class BatchKill : public ProgramFixture {
protected:
    CountingServer Server;
    std::map<std::string, std::string> Contents;
    std::mt19937 Random;

    void writeManifest() {
        std::string text;
        const auto add = [&](const std::string& name) {
            Contents[name] = CountingServer::contentOf(name);
            text += Server.url(name) + " " + name + "\n";
        };
        for (int i = 0; i < kSmallFiles; ++i) {
            add("s" + std::to_string(i));
            if (i % (kSmallFiles / kLargeFiles) == 0) {
                add("l" + std::to_string(i));
            }
        }
        writeFile(file("list"), text);
    }
    static Words batchWords(int run) {
        return {"batch", "list", "-j", std::to_string(kJobs), "-H", "X-Run: " + std::to_string(run)};
    }
    std::uint64_t anyOf(std::uint64_t first, std::uint64_t last) {
        return std::uniform_int_distribution<std::uint64_t>(first, last)(Random);
    }

    // Names of the files that are there, all of which are whole.
    std::set<std::string> kept() const {
        std::set<std::string> found;
        for (const auto& [name, content] : Contents) {
            if (std::filesystem::exists(file(name))) {
                EXPECT_TRUE(readFile(file(name)) == content) << name << " is not whole";
                found.insert(name);
            }
        }
        return found;
    }
    // How much of each large file has come.
    std::map<std::string, std::size_t> parts() const {
        std::map<std::string, std::size_t> found;
        for (const auto& [name, content] : Contents) {
            if (std::filesystem::exists(file(name + ".part.json"))) {
                found[name] = std::filesystem::file_size(file(name + ".part"));
            }
        }
        return found;
    }
    std::size_t journalSize() const {
        std::error_code missing;
        const auto size = std::filesystem::file_size(file("list.journal"), missing);
        return missing ? 0 : size;
    }
    // One run, to its end or killed, once so many bytes have gone out or, without that, with its first records, which
    // are written before names and after them. True if it was killed.
    bool runAndKill(std::optional<std::uint64_t> allowed) {
        const int number = Server.beginRun(allowed.value_or(std::numeric_limits<std::uint64_t>::max()));
        const std::size_t before = journalSize();
        Program program(batchWords(number), here());
        try {
            program.awaitCondition([&] { return allowed ? Server.sentAll() : journalSize() > before + kHeaderLength; },
                                   "bytes or records");
        } catch (const std::runtime_error&) { // it has ended
            const Outcome outcome = program.wait();
            EXPECT_EQ(outcome.Status, 0) << outcome.Err << outcome.Out;
            return false;
        }
        program.signal(SIGKILL);
        return program.wait().Status == -1;
    }
};

TEST_F(BatchKill, EveryFileIsWholeAndNothingIsFetchedTwice) {
    const char* const given = std::getenv("NETROVE_TEST_SEED");
    const unsigned seed = given != nullptr ? static_cast<unsigned>(std::stoul(given)) : std::random_device{}();
    SCOPED_TRACE("NETROVE_TEST_SEED=" + std::to_string(seed));
    RecordProperty("seed", std::to_string(seed));
    Random.seed(seed);
    writeManifest();
    std::uint64_t needed = 0;
    for (const auto& [name, content] : Contents) {
        needed += content.size();
    }
    std::set<std::string> whole;
    std::map<std::string, std::size_t> begun;
    std::uint64_t sent = 0;
    int lists = 0;
    for (int kills = 0; kills < kKills;) {
        const bool killed = anyOf(1, 5) == 1 ? runAndKill({}) : runAndKill(anyOf(1, needed / 6));
        sent += Server.sent();
        for (const auto& [name, places] : Server.begins()) {
            EXPECT_FALSE(whole.contains(name)) << name << " had its name and was fetched again";
            EXPECT_EQ(places, std::vector{begun.contains(name) ? begun[name] : std::size_t{0}})
                << name << " goes on where it was";
        }
        whole = kept();
        begun = parts();
        kills += killed ? 1 : 0;
        if (whole.size() == Contents.size()) { // begins anew
            ++lists;
            EXPECT_EQ(begun.size(), 0U);
            for (const std::string& name : names()) {
                EXPECT_TRUE(whole.erase(name) == 1 || name.starts_with("list")) << name << " is left";
            }
            for (const auto& [name, content] : Contents) {
                std::filesystem::remove(file(name));
            }
            std::filesystem::remove(file("list.journal"));
            whole.clear();
        }
        ASSERT_FALSE(HasFailure());
    }
    runAndKill(2 * needed);
    sent += Server.sent();
    EXPECT_EQ(kept().size(), Contents.size());
    const std::uint64_t most =
        (lists + 1) * needed + kKills * (kJobs * kOnItsWay + kSmallFiles * CountingServer::kSmall);
    std::printf("seed %u: %d lists of %llu bytes, %llu bytes sent, most %llu\n", seed, lists + 1,
                static_cast<unsigned long long>(needed), static_cast<unsigned long long>(sent),
                static_cast<unsigned long long>(most));
    EXPECT_LE(sent, most);
}

} // namespace
