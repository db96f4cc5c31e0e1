#include "cli/batch/manifest/DigestStore.h"

#include "tests/support/host/HostFixture.h"
#include "tests/support/process/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>
#include <unordered_map>

namespace {

using netrove::cli::DigestStore;

struct Value {
    std::uint64_t Number;
    std::uint32_t More; // so that entries do not fill a page evenly
};

// Against a table in memory; in the end there are so many that most are in the file.
TEST(DigestStore, FindsWhatWasPutInHeldOrNot) {
    DigestStore<Value> store;
    std::unordered_map<std::uint64_t, std::uint64_t> expected;
    std::mt19937_64 random(1);
    constexpr std::size_t kEntries = 150'000;
    EXPECT_FALSE(store.find(0));
    for (std::size_t i = 0; expected.size() < kEntries; ++i) {
        const std::uint64_t key = i % 3 == 0 ? i : random() % (kEntries * 4);
        const auto found = expected.find(key);
        const auto before = store.add(key, {i, 1});
        ASSERT_EQ(before.has_value(), found != expected.end()) << key;
        if (before) {
            ASSERT_EQ(before->Number, found->second);
            store.put(key, {i, 2});
        }
        expected[key] = i;
        ASSERT_EQ(store.size(), expected.size());
    }
    for (const auto& [key, number] : expected) {
        const auto found = store.find(key);
        ASSERT_TRUE(found) << key;
        ASSERT_EQ(found->Number, number);
        ASSERT_FALSE(store.find(key + kEntries * 1000));
    }
}

TEST(DigestStore, TheFirstAndTheLastKeyAreKeysToo) {
    DigestStore<std::uint64_t> store;
    for (const std::uint64_t key : {std::uint64_t{0}, std::numeric_limits<std::uint64_t>::max()}) {
        EXPECT_FALSE(store.add(key, 7));
        EXPECT_EQ(store.find(key), 7u);
        EXPECT_EQ(store.add(key, 8), 7u);
    }
    EXPECT_FALSE(store.find(1));
}

TEST(DigestStore, SaysWhereItHasNoRoomAndNeedsNoneForAFew) {
    const testsupport::TemporaryFolder folder;
    const char* const before = std::getenv("TMPDIR");
    const std::string old = before == nullptr ? "" : before;
    setenv("TMPDIR", folder.file("missing").c_str(), 1);
    DigestStore<std::uint64_t> store;
    for (std::uint64_t i = 0; i < 10'000; ++i) {
        store.put(i, i);
    }
    const vantik::Message failure = testsupport::failureOf([&] {
        for (std::uint64_t i = 0; i < 1'000'000; ++i) {
            store.put(i, i);
        }
    });
    EXPECT_EQ(failure.identifier(), "NETROVE:cli:FileNotWritten");
    EXPECT_NE(failure.Text.find(folder.file("missing")), std::string::npos) << failure.Text;
    before == nullptr ? unsetenv("TMPDIR") : setenv("TMPDIR", old.c_str(), 1);
}

} // namespace
