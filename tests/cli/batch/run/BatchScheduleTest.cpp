#include "cli/batch/run/BatchSchedule.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

using namespace netrove::cli;
using namespace std::chrono_literals;
using ::testing::ElementsAre;

namespace {

constexpr BatchSchedule::Time kNow{};

BatchLine lineFor(const std::string& host, std::size_t number) {
    BatchLine line;
    line.Number = number;
    line.Url = "http://" + host + "/" + std::to_string(number);
    line.Target = std::to_string(number);
    return line;
}

void addLines(BatchSchedule& schedule, const std::string& host, std::size_t first, std::size_t last) {
    for (std::size_t i = first; i <= last; ++i) {
        schedule.add(lineFor(host, i));
    }
}

// The numbers of all that may begin now.
std::vector<std::size_t> takeAll(BatchSchedule& schedule, BatchSchedule::Time now = kNow) {
    std::vector<std::size_t> numbers;
    while (const auto job = schedule.take(now)) {
        numbers.push_back(job->Line.Number);
    }
    return numbers;
}

// Each line in turn, one at a time.
std::vector<std::size_t> doAll(BatchSchedule& schedule) {
    std::vector<std::size_t> numbers;
    while (const auto job = schedule.take(kNow)) {
        numbers.push_back(job->Line.Number);
        schedule.ended(job->Origin, 1ms);
    }
    return numbers;
}

TEST(BatchSchedule, AnOriginHasAMostOfTransfersAtATime) {
    BatchSchedule schedule(2, {.Lines = 100});
    addLines(schedule, "a", 1, 3);
    schedule.add(lineFor("a:80", 4)); // the same origin
    schedule.add(lineFor("a:81", 5));
    EXPECT_THAT(takeAll(schedule), ElementsAre(1, 5, 2));
    EXPECT_EQ(schedule.running(), 3u);
    schedule.ended("http://a:80", 1s);
    EXPECT_THAT(takeAll(schedule), ElementsAre(3));
}

// The hosts share the jobs, however long the transfers of one of them take.
TEST(BatchSchedule, ASlowHostHoldsUpNobody) {
    BatchSchedule schedule(8, {.Lines = 1000});
    addLines(schedule, "slow", 1, 50);
    addLines(schedule, "fast", 51, 60);
    const auto slow = schedule.take(kNow);
    const auto fast = schedule.take(kNow);
    EXPECT_EQ(slow->Line.Number, 1u);
    for (std::size_t i = 51; i <= 59; ++i) {
        schedule.ended("http://fast:80", 1ms);
        EXPECT_EQ(schedule.take(kNow)->Line.Number, i + 1) << "the other job is the slow host's";
    }
}

TEST(BatchSchedule, HostsGetTheSameTimeWhereThereAreMoreHostsThanJobs) {
    BatchSchedule schedule(8, {.Lines = 1000});
    addLines(schedule, "slow", 1, 9);
    addLines(schedule, "fast", 11, 19);
    schedule.take(kNow);
    schedule.ended("http://slow:80", 5ms);
    std::vector<std::size_t> numbers;
    for (int i = 0; i < 6; ++i) {
        const auto job = schedule.take(kNow);
        numbers.push_back(job->Line.Number);
        schedule.ended(job->Origin, 1ms);
    }
    EXPECT_THAT(numbers, ElementsAre(11, 12, 13, 14, 15, 2));
}

TEST(BatchSchedule, AWaitForAFurtherAttemptHoldsNoJob) {
    BatchSchedule schedule(1, {.Lines = 100});
    addLines(schedule, "a", 1, 2);
    auto job = schedule.take(kNow);
    job->Attempts = 1;
    schedule.again(std::move(*job), 1ms, kNow + 10s);
    EXPECT_EQ(schedule.nextDue(), kNow + 10s);
    EXPECT_EQ(schedule.take(kNow)->Line.Number, 2u);
    schedule.ended("http://a:80", 1ms);
    EXPECT_EQ(schedule.take(kNow + 9s), std::nullopt);
    EXPECT_FALSE(schedule.empty());
    const auto again = schedule.take(kNow + 10s);
    EXPECT_EQ(again->Line.Number, 1u);
    EXPECT_EQ(again->Attempts, 1);
    schedule.ended("http://a:80", 1ms);
    EXPECT_TRUE(schedule.empty());
}

TEST(BatchSchedule, AListThatFitsIntoTheWindowStaysInMemory) {
    BatchSchedule schedule(4, {.Lines = 100});
    addLines(schedule, "a", 1, 100);
    EXPECT_EQ(schedule.onDisk(), 0u);
    schedule.add(lineFor("a", 101));
    EXPECT_EQ(schedule.onDisk(), 1u);
}

// A few lines may be as long as many others.
TEST(BatchSchedule, TheWindowHasSoManyBytesAtMost) {
    BatchSchedule schedule(4, {.Lines = 100, .Bytes = 10'000});
    for (std::size_t i = 1; i <= 10; ++i) {
        BatchLine line = lineFor("a", i);
        line.Extras = std::make_unique<BatchExtras>();
        line.Extras->Body = std::string(4000, 'x');
        schedule.add(std::move(line));
    }
    EXPECT_EQ(schedule.onDisk(), 7u) << "with the third one it is full";
    EXPECT_THAT(doAll(schedule), ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10));
}

// Long lines that wait for a further attempt must not fill the memory either.
TEST(BatchSchedule, AHostWhoseLongLinesWaitGetsNoFurtherOnes) {
    BatchSchedule schedule(8, {.Lines = 1000, .Bytes = 10'000});
    for (std::size_t i = 1; i <= 50; ++i) {
        BatchLine line = lineFor("down", i);
        line.Text = std::string(4000, 'x');
        schedule.add(std::move(line));
    }
    std::size_t begun = 0;
    while (auto job = schedule.take(kNow)) {
        ASSERT_LE(++begun, 50u);
        schedule.again(std::move(*job), 1ms, kNow + 1s);
    }
    EXPECT_EQ(begun, 3u);
}

TEST(BatchSchedule, LinesOfOneHostBeyondItsShareWaitOnTheDiskInOrder) {
    BatchSchedule schedule(4, {.Lines = 100});
    std::vector<std::size_t> all;
    for (std::size_t i = 1; i <= 500; ++i) {
        EXPECT_TRUE(schedule.wantsMore()) << "others may follow";
        schedule.add(lineFor("a", i));
        all.push_back(i);
    }
    schedule.add(lineFor("b", 501));
    EXPECT_EQ(schedule.take(kNow)->Line.Number, 1u);
    EXPECT_EQ(schedule.take(kNow)->Line.Number, 501u);
    schedule.ended("http://a:80", 1ms);
    schedule.ended("http://b:80", 1ms);
    all.erase(all.begin());
    EXPECT_EQ(doAll(schedule), all);
    EXPECT_TRUE(schedule.empty());
}

TEST(BatchSchedule, ReadsNoFurtherWhileManyHostsHaveEnough) {
    BatchSchedule schedule(1, {.Lines = 100});
    std::size_t count = 0;
    for (; schedule.wantsMore() && count < 1000; ++count) {
        schedule.add(lineFor("host" + std::to_string(count), count));
    }
    EXPECT_EQ(count, 100u);
    EXPECT_EQ(takeAll(schedule).size(), 100u);
    EXPECT_TRUE(schedule.wantsMore()) << "all known hosts are busy, so others are looked for";
}

// What a host that is down has waiting must not fill the memory.
TEST(BatchSchedule, AHostWhoseLinesAllWaitGetsNoFurtherOnes) {
    BatchSchedule schedule(8, {.Lines = 100});
    addLines(schedule, "down", 1, 100);
    std::size_t begun = 0;
    while (auto job = schedule.take(kNow)) {
        ++begun;
        ASSERT_LE(begun, 100u);
        job->Attempts = 1;
        schedule.again(std::move(*job), 1ms, kNow + 1s);
    }
    EXPECT_EQ(begun, 10u);
    EXPECT_THAT(takeAll(schedule, kNow + 1s).size(), 8u);
}

TEST(BatchSchedule, ALineComesBackFromTheDiskAsItWas) {
    LineSpill spill;
    LineSpill::Queue queue;
    BatchLine line = lineFor("a", 7);
    line.Content = 0x1234567890abcdef;
    line.Extras = std::make_unique<BatchExtras>(BatchExtras{
        "id", "PUT", {{"X-A", "1"}, {"X-B", ""}}, std::string("a\0b", 3), "file", "digest", "user", std::nullopt});
    spill.add(queue, line);
    line.Target.reset();
    line.Extras.reset();
    spill.add(queue, line);
    const BatchLine first = spill.take(queue);
    EXPECT_EQ(first.Number, 7u);
    EXPECT_EQ(first.Content, line.Content);
    EXPECT_EQ(first.Url, line.Url);
    EXPECT_EQ(first.Target, "7");
    ASSERT_TRUE(first.Extras);
    EXPECT_EQ(first.Extras->Id, "id");
    EXPECT_EQ(first.Extras->Method, "PUT");
    ASSERT_EQ(first.Extras->Fields.size(), 2u);
    EXPECT_EQ(first.Extras->Fields[0].value, "1");
    EXPECT_EQ(first.Extras->Body, std::string("a\0b", 3));
    EXPECT_EQ(first.Extras->BodyFile, "file");
    EXPECT_EQ(first.Extras->Sha256, "digest");
    EXPECT_EQ(first.Extras->User, "user");
    EXPECT_EQ(first.Extras->Password, std::nullopt);
    const BatchLine second = spill.take(queue);
    EXPECT_EQ(second.Target, std::nullopt);
    EXPECT_FALSE(second.Extras);
    EXPECT_EQ(queue.Count, 0u);
}

} // namespace
