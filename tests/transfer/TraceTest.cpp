#include "transfer/Trace.h"

#include "tests/support/host/ScopeFixture.h"
#include "tests/support/process/StandardOutputCapture.h"

#include <gtest/gtest.h>

#include <iostream>
#include <memory>
#include <sstream>

using namespace netrove;

namespace {

class TraceTest : public testsupport::ScopeFixture {
protected:
    testsupport::StandardOutputCapture output;
};

// Notes what has been written at each flush.
class FlushRecord : public std::stringbuf {
public:
    std::vector<std::string> Flushed;

private:
    int sync() override {
        Flushed.push_back(str());
        return 0;
    }
};

TEST_F(TraceTest, OnlyLevelNoughtIsSilent) {
    traceLine(0, "line");
    traceText(0, "text");
    tracePerform(0, "READER");
    flushRepeats();
    EXPECT_EQ(output.text(), "");
    EXPECT_EQ(getLogPerformData().RepeatCount, 0);
    EXPECT_EQ(getLogPerformData().LastText, "");
    traceLine(1, "one");
    traceLine(-1, "minus one");
    traceText(7, "text");
    traceText(7, "");
    EXPECT_EQ(output.text(), "one\nminus one\ntext");
}

TEST_F(TraceTest, RunOfEqualPassesIsOneLineClosedByItsCount) {
    for (int i = 0; i < 5; ++i) {
        tracePerform(1, "READER");
    }
    EXPECT_EQ(output.text(), "PERFORM IN READER");
    tracePerform(1, "READER ");
    tracePerform(1, "reader");
    EXPECT_EQ(output.text(), "PERFORM IN READER 5 times\nPERFORM IN READER  1 times\nPERFORM IN reader");
    EXPECT_EQ(getLogPerformData().RepeatCount, 1);
    EXPECT_EQ(getLogPerformData().LastText, "reader");
    flushRepeats();
    flushRepeats(); // writes the count once
    EXPECT_EQ(output.text(), "PERFORM IN READER 5 times\nPERFORM IN READER  1 times\nPERFORM IN reader 1 times\n");
    EXPECT_EQ(getLogPerformData().RepeatCount, 0);
    EXPECT_EQ(getLogPerformData().LastText, "");
}

TEST_F(TraceTest, EveryOtherWriteClosesTheRunUnlessItIsSilent) {
    tracePerform(1, "READER");
    traceLine(0, "line");
    traceText(0, "text");
    tracePerform(0, "WRITER");
    EXPECT_EQ(output.text(), "PERFORM IN READER");
    traceLine(1, "line");
    tracePerform(1, "READER");
    traceText(1, "text");
    tracePerform(1, "READER");
    traceText(1, "");
    EXPECT_EQ(output.text(),
              "PERFORM IN READER 1 times\nline\nPERFORM IN READER 1 times\ntextPERFORM IN READER 1 times\n");
}

TEST_F(TraceTest, EveryWriteIsFlushed) {
    FlushRecord record;
    std::streambuf* previous = std::cout.rdbuf(&record);
    tracePerform(1, "READER");
    traceLine(1, "line");
    traceText(1, "text");
    std::cout.rdbuf(previous);
    const std::string first = "PERFORM IN READER";
    EXPECT_EQ(record.Flushed, (std::vector<std::string>{first, first + " 1 times\n", first + " 1 times\nline\n",
                                                        first + " 1 times\nline\ntext"}));
}

TEST_F(TraceTest, EachScopeHasItsOwnRun) {
    tracePerform(1, "READER");
    {
        const vantik::detail::ScopeEntry entry(std::make_shared<vantik::detail::Scope>());
        EXPECT_EQ(getLogPerformData().RepeatCount, 0);
        traceLine(1, " inner");
    }
    flushRepeats();
    EXPECT_EQ(output.text(), "PERFORM IN READER inner\n 1 times\n");
}

} // namespace
