#include "client/text/HttpDate.h"

#include <gtest/gtest.h>

using namespace netrove;
using namespace std::chrono_literals;

namespace {

const WallClock::time_point kNow{784111777s};

TEST(RetryAfter, ThreeFormsOfADateAreTheSameMoment) {
    for (const char* text :
         {"Sun, 06 Nov 1994 08:49:37 GMT", "Sunday, 06-Nov-94 08:49:37 GMT", "Sun Nov  6 08:49:37 1994"}) {
        EXPECT_EQ(parseRetryAfter(text, kNow - 90s), 90.0) << text;
        EXPECT_EQ(parseRetryAfter(text, kNow + 90s), 0.0) << text;
    }
}

TEST(RetryAfter, AYearOfTwoDigitsIsTheNearOne) {
    const auto in2026 = WallClock::time_point(std::chrono::sys_days(std::chrono::year(2026) / 1 / 1));
    EXPECT_EQ(parseRetryAfter("Thursday, 01-Jan-26 00:00:05 GMT", in2026), 5.0);
    EXPECT_EQ(parseRetryAfter("Sunday, 06-Nov-94 08:49:37 GMT", in2026), 0.0) << "1994, not 2094";
}

TEST(RetryAfter, ADateFarAwayIsAsFarAsItSays) {
    // A clock that counts nanoseconds ends in 2262 and begins in 1677.
    for (const auto& [text, seconds] :
         {std::pair{"Tue, 01 Jan 2261 00:00:00 GMT", 8398998623.0},
          std::pair{"Sun, 01 Jan 2299 00:00:00 GMT", 9598144223.0},
          std::pair{"Fri, 31 Dec 9999 23:59:59 GMT", 252618189022.0},
          std::pair{"Fri Dec 31 23:59:59 9999", 252618189022.0}, std::pair{"Mon, 01 Jan 1601 00:00:00 GMT", 0.0},
          std::pair{"Sat, 01 Jan 0000 00:00:00 GMT", 0.0}}) {
        EXPECT_EQ(parseRetryAfter(text, kNow), seconds) << text;
    }
    EXPECT_EQ(parseRetryAfter("Fri, 31 Dec 9999 23:59:59 GMT", kNow + 250ms), 252618189021.75);
}

TEST(RetryAfter, AnythingElseIsNothing) {
    for (const char* text :
         {"", "-1", "1.5", "1 ", "soon", "Sun, 06 Nov 1994 08:49:37", "Sun, 06 Foo 1994 08:49:37 GMT",
          "Sun, 31 Feb 1994 08:49:37 GMT", "Sun, 262 Nov 1994 08:49:37 GMT", "Sun, 06 Nov 1994 24:49:37 GMT",
          "Sun, 06 Nov 1994 08:49 GMT", "Sunday, 06-Nov-1994 08:49:37 GMT", "Sun, 06 Nov 99999 08:49:37 GMT",
          "Sun Nov 6 08:49:37 1994 GMT", "Sun, -6 Nov 1994 08:49:37 GMT", ", , , , , GMT"}) {
        EXPECT_FALSE(parseRetryAfter(text, kNow)) << text;
    }
    EXPECT_EQ(parseRetryAfter("99999999999999999999999999999999", kNow), 1e12);
}

} // namespace
