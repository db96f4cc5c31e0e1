// Heads made at random: whatever comes before, the callback leaves the lines of the last head and nothing else.
#include "tests/transfer/ConnectionFixture.h"

#include <rapidcheck.h>

#include <algorithm>

namespace {

using Lines = std::vector<std::string>;

struct Head {
    int Status = 0;
    Lines Fields; // any bytes, a CR or LF too: only the end of a line is looked at
};

void showValue(const Head& head, std::ostream& stream) {
    stream << head.Status;
    for (const std::string& field : head.Fields) {
        stream << " | ";
        rc::show(field, stream);
    }
}

template <class Value>
rc::Gen<std::vector<Value>> fewOf(rc::Gen<Value> value) {
    return rc::gen::scale(0.1, rc::gen::container<std::vector<Value>>(rc::gen::scale(10.0, std::move(value))));
}

rc::Gen<std::string> fieldLine() {
    // An empty line is the end of a head and no field.
    return rc::gen::nonEmpty(rc::gen::container<std::string>(rc::gen::weightedOneOf<char>(
        {{8, rc::gen::inRange<char>(' ', '\x7f')}, {1, rc::gen::element('\r', '\n', '\t', '\0', '\xe4')}})));
}

rc::Gen<Head> headWith(const rc::Gen<int>& status) {
    return rc::gen::build<Head>(rc::gen::set(&Head::Status, status),
                                rc::gen::set(&Head::Fields, fewOf<std::string>(fieldLine())));
}

bool isFinal(int status) {
    return status == 101 || status >= 200;
}

rc::Gen<Head> finalHead() {
    return headWith(rc::gen::suchThat(rc::gen::inRange(101, 1000), isFinal));
}

class HeadLinesPropertyTest : public ConnectionFixture {
protected:
    HeadLinesPropertyTest() {
        curl.giveInfo(CURLINFO_RESPONSE_CODE, 0L);
        connection.Limits.Deadline = SilenceLimits::kNoDeadline;
    }

    // libcurl is free to cut a line in items of any size: here of the largest one up to `Items` that divides it.
    void take(std::string line) {
        std::size_t count = std::max<std::size_t>(std::min(Items, line.size()), 1);
        while (line.size() % count != 0) {
            --count;
        }
        RC_ASSERT(headerCallback(line.data(), line.size() / count, count, &connection) == line.size());
    }
    static std::string statusLine(const Head& head) { return "HTTP/1.1 " + std::to_string(head.Status) + " Reason"; }
    void takeHead(const Head& head) {
        take(statusLine(head) + "\r\n");
        for (const std::string& field : head.Fields) {
            take(field + "\r\n");
        }
        RC_ASSERT(!connection.ReceivedHead.HeadersComplete);
        take("\r\n");
    }
    static Lines linesOf(const Head& head) {
        Lines lines{statusLine(head)};
        lines.insert(lines.end(), head.Fields.begin(), head.Fields.end());
        return lines;
    }
    void startAfresh() {
        Items = *rc::gen::inRange<std::size_t>(1, 40);
        connection.ReceivedHead.begin();
        connection.ReceivedHead.ResponseCode = 0;
        connection.Transfer.CallbackFailure = nullptr;
    }

    std::size_t Items = 1;
    HTTPConnection connection;
};

TEST_F(HeadLinesPropertyTest, InterimHeadsLeaveNothingBehind) {
    EXPECT_TRUE(rc::check("the last head's lines are stored, those of interim heads are not", [&] {
        startAfresh();
        for (const Head& interim : *fewOf<Head>(headWith(rc::gen::just(100)))) {
            takeHead(interim);
            RC_ASSERT(connection.ReceivedHead.ResponseHeaderLines.empty());
            RC_ASSERT(!connection.ReceivedHead.HeadersComplete);
        }
        const Head last = *finalHead();
        takeHead(last);
        RC_ASSERT(connection.ReceivedHead.HeadersComplete);
        RC_ASSERT(connection.ReceivedHead.ResponseCode == last.Status);
        RC_ASSERT(connection.ReceivedHead.ResponseHeaderLines == linesOf(last));
        RC_ASSERT(connection.Transfer.CallbackFailure == nullptr);
    }));
}

TEST_F(HeadLinesPropertyTest, LastOfAnyHeadsCounts) {
    EXPECT_TRUE(rc::check("challenges, redirects and interim heads are replaced by the last head", [&] {
        startAfresh();
        const auto any = rc::gen::oneOf(headWith(rc::gen::inRange(100, 104)), finalHead());
        for (const Head& earlier : *fewOf<Head>(any)) {
            takeHead(earlier);
            RC_ASSERT(connection.ReceivedHead.HeadersComplete == isFinal(earlier.Status));
            RC_ASSERT(connection.ReceivedHead.ResponseHeaderLines ==
                      (earlier.Status == 100 ? Lines{} : linesOf(earlier)));
        }
        const Head last = *finalHead();
        takeHead(last);
        RC_ASSERT(connection.ReceivedHead.ResponseHeaderLines == linesOf(last));
        RC_ASSERT(connection.ReceivedHead.ResponseCode == last.Status);
    }));
}

// Lines without a proper end in between are refused one by one, and the others stay.
TEST_F(HeadLinesPropertyTest, RefusedLinesAreLeftOut) {
    EXPECT_TRUE(rc::check("only lines that end in CR LF are stored", [&] {
        startAfresh();
        take("HTTP/1.1 200 OK\r\n");
        Lines stored{"HTTP/1.1 200 OK"};
        bool refused = false;
        for (const std::string& field : *fewOf<std::string>(fieldLine())) {
            const std::string end = *rc::gen::element<std::string>("\r\n", "\n", "\r", "", "\n\r");
            const std::string line = field + end;
            if (line == "\r\n") {
                continue; // the end of the head
            }
            take(line);
            if (line.ends_with("\r\n")) {
                stored.push_back(line.substr(0, line.size() - 2));
            } else {
                refused = true;
            }
        }
        RC_ASSERT(connection.ReceivedHead.ResponseHeaderLines == stored);
        RC_ASSERT(connection.ReceivedHead.ResponseCode == 200);
        RC_ASSERT((connection.Transfer.CallbackFailure != nullptr) == refused);
        RC_ASSERT(connection.Transfer.EscapedFailure == nullptr);
    }));
}

} // namespace
