// A save that is killed again and again, at random moments, and goes on each time: nothing is under its name that is
// not whole, and nothing is fetched twice but what was on its way.
#include "tests/cli/CountingServer.h"
#include "tests/cli/ProgramFixture.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <stdexcept>

namespace {

using namespace clitest;

constexpr int kKills = 10;

class SaveKill : public ProgramFixture {
protected:
    CountingServer Server;
    const std::string Content = CountingServer::contentOf("large");

    std::size_t partSize() const {
        const bool known = std::filesystem::exists(file("f.part.json")) && std::filesystem::exists(file("f.part"));
        return known ? std::filesystem::file_size(file("f.part")) : 0;
    }
    // One run, which is killed once so many bytes have gone out; false where it ended before.
    bool runAndKill(const Words& options, std::uint64_t allowed) {
        const int number = Server.beginRun(allowed);
        Program program(Words{"save", Server.url("large"), "f", "-H", "X-Run: " + std::to_string(number)} + options,
                        here());
        try {
            program.awaitCondition([&] { return Server.sentAll(); }, "bytes");
        } catch (const std::runtime_error&) { // it has ended
            EXPECT_THAT(program.wait(), ended(0, "", ""));
            return false;
        }
        program.signal(SIGKILL);
        return program.wait().Status == -1;
    }
    void expectWhole() const {
        EXPECT_EQ(names(), Words{"f"});
        EXPECT_TRUE(readFile(file("f")) == Content);
    }
};

TEST_F(SaveKill, TheFileIsWholeAndNothingIsFetchedTwice) {
    const char* const given = std::getenv("NETROVE_TEST_SEED");
    const unsigned seed = given != nullptr ? static_cast<unsigned>(std::stoul(given)) : std::random_device{}();
    SCOPED_TRACE("NETROVE_TEST_SEED=" + std::to_string(seed));
    RecordProperty("seed", std::to_string(seed));
    std::mt19937 random(seed);
    const auto anyOf = [&](std::uint64_t first, std::uint64_t last) {
        return std::uniform_int_distribution<std::uint64_t>(first, last)(random);
    };
    std::uint64_t sent = 0;
    std::uint64_t files = 1;
    for (int kills = 0; kills < kKills;) {
        const bool goesOn = anyOf(1, 4) != 1; // one that does not is no harm to what has come before
        const std::size_t begun = partSize();
        const bool killed = runAndKill(goesOn ? Words{"-C", "-"} : Words{}, anyOf(1, Content.size() / 3));
        sent += goesOn ? Server.sent() : 0;
        for (const auto& [name, places] : Server.begins()) {
            EXPECT_EQ(places, std::vector{goesOn ? begun : std::size_t{0}});
        }
        kills += killed ? 1 : 0;
        if (std::filesystem::exists(file("f"))) { // its end has come, or nearly so
            EXPECT_TRUE(readFile(file("f")) == Content);
            std::filesystem::remove(file("f"));
            ++files;
        } else {
            EXPECT_GE(partSize(), begun);
        }
        ASSERT_FALSE(HasFailure());
    }
    runAndKill({"-C", "-"}, 2 * Content.size());
    sent += Server.sent();
    expectWhole();
    const std::uint64_t most = files * Content.size() + kKills * kOnItsWay;
    std::printf("seed %u: %llu bytes sent, most %llu\n", seed, static_cast<unsigned long long>(sent),
                static_cast<unsigned long long>(most));
    EXPECT_LE(sent, most);
}

} // namespace
