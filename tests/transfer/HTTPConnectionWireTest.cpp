#include "tests/transfer/ConnectionFixture.h"
#include "transfer/Trace.h"

#include <cmath>
#include <cstdlib>
#include <ctime>
#include <regex>

namespace {

class HTTPConnectionWireTest : public ConnectionFixture {
protected:
    HTTPConnectionWireTest() { connection.Limits.Deadline = SilenceLimits::kNoDeadline; }
    ~HTTPConnectionWireTest() override { connection.Settings.Debug = 0; }

    // Passed in a memory block of exactly its size, so that a sanitizer sees every read beyond it.
    void pass(curl_infotype type, const std::string& bytes) {
        std::vector<char> block(bytes.begin(), bytes.end());
        block.shrink_to_fit();
        EXPECT_EQ(debugCallback(nullptr, type, block.data(), block.size(), &connection), 0);
    }
    // What is traced of one block at a level.
    std::string trace(std::int32_t debug, curl_infotype type, const std::string& bytes) {
        const StandardOutputCapture output;
        connection.Settings.Debug = debug;
        pass(type, bytes);
        connection.Settings.Debug = 0;
        connection.Transfer.EscapedFailure = nullptr; // of a head that is malformed
        connection.SentHead.InRequestHead = false;
        return output.text();
    }
    // The same with "T" for the time stamp.
    std::string timelessTrace(std::int32_t debug, curl_infotype type, const std::string& bytes) {
        static const std::regex stamp("\\([0-9]{3}\\.[0-9]{3}\\)");
        return std::regex_replace(trace(debug, type, bytes), stamp, "(T)", std::regex_constants::format_first_only);
    }

    HTTPConnection connection;
};

TEST_F(HTTPConnectionWireTest, RequestHeadIsReadAtEveryLevel) {
    for (const std::int32_t debug : {0, 1, 2, -1}) {
        const StandardOutputCapture output;
        connection.Settings.Debug = debug;
        connection.SentHead = {};
        std::string head = "PUT /a?b=c HTTP/1.1\r\nHost: h\r\nAuthorization: \"MD5\"\r\n\r\n";
        EXPECT_EQ(debugCallback(nullptr, CURLINFO_HEADER_OUT, head.data(), head.size(), &connection), 0);
        EXPECT_EQ(connection.SentHead.EffectiveMethod, "PUT");
        EXPECT_EQ(connection.SentHead.RequestURI, "/a?b=c");
        EXPECT_EQ(connection.SentHead.RequestHTTPVersion, "HTTP/1.1");
        EXPECT_THAT(connection.SentHead.RequestHeaderLines, ElementsAre("Host: h", "Authorization: MD5  "));
        EXPECT_TRUE(connection.SentHead.Sent);
        EXPECT_EQ(output.text().empty(), debug == 0);
        EXPECT_EQ(connection.Transfer.EscapedFailure, nullptr);
    }
}

TEST_F(HTTPConnectionWireTest, BytesThatMoveMoveTheDeadline) {
    struct Row {
        curl_infotype Type;
        std::int32_t Debug;
        bool Counts;
    };
    const StandardOutputCapture output;
    connection.setTimeouts({5000.0, 1000.0});
    connection.applyTimeouts();
    curl.setClock(5 * kMs);
    for (const auto& [type, debug, counts] :
         {Row{CURLINFO_TEXT, 0, false}, Row{CURLINFO_TEXT, 1, false}, Row{CURLINFO_HEADER_IN, 0, true},
          Row{CURLINFO_HEADER_IN, 1, false}, // the record ends it; the header callback counts it
          Row{CURLINFO_HEADER_OUT, 0, true}, Row{CURLINFO_HEADER_OUT, 1, true}, Row{CURLINFO_DATA_IN, 0, true},
          Row{CURLINFO_DATA_IN, 2, true}, Row{CURLINFO_DATA_OUT, 0, true}, Row{CURLINFO_DATA_OUT, 1, true},
          Row{CURLINFO_SSL_DATA_IN, 0, false}, Row{CURLINFO_SSL_DATA_OUT, 0, false}}) {
        connection.Limits.Deadline = 1;
        connection.Settings.Debug = debug;
        pass(type, "GET / HTTP/1.1\r\n");
        EXPECT_EQ(connection.Limits.Deadline, counts ? 1005 * kMs : 1) << type << ' ' << debug;
    }
    connection.SentHead.InRequestHead = false;
    connection.Limits.Deadline = 1;
    pass(CURLINFO_HEADER_OUT, "GET\r\n");
    EXPECT_EQ(failureText([&] { connection.rethrowEscapedFailure(); }),
              internalError("No space found in request line"));
    EXPECT_EQ(connection.Limits.Deadline, 1) << "what is refused is not activity";
}

// The record of the traffic.
TEST_F(HTTPConnectionWireTest, RecordIsTextOrCount) {
    struct Row {
        std::int32_t Debug;
        curl_infotype Type;
        std::string Bytes;
        std::string Output;
    };
    const std::string longest(999, 'x');
    const std::string tooLong(1000, 'x');
    const std::string nul("a\0b", 3);
    const Row rows[] = {
        {0, CURLINFO_TEXT, "a", ""},
        {0, CURLINFO_DATA_IN, "a", ""},
        {1, CURLINFO_TEXT, "Connected\n", "IN INFO (T): Connected\n"},
        {1, CURLINFO_TEXT, longest, "IN INFO (T): " + longest + "\n"},
        {2, CURLINFO_TEXT, tooLong, "IN INFO (T): 1000 bytes\n"},
        {2, CURLINFO_TEXT, nul, "IN INFO (T): 3 bytes\n"},
        // A head is as libcurl made it, of any length, and its blank line stays raw.
        {1, CURLINFO_HEADER_OUT, "GET / HTTP/1.1\r\nAuthorization: algorithm=\"MD5\"\r\n\r\n",
         "OUT HDR (T): GET / HTTP/1.1<CRLF>\nAuthorization: algorithm=\"MD5\"<CRLF>\n\r\n"},
        {1, CURLINFO_HEADER_OUT, "G " + tooLong + " H\r\n", "OUT HDR (T): G " + tooLong + " H<CRLF>\n"},
        {1, CURLINFO_HEADER_OUT, "G /\x01 H\r\n", "OUT HDR (T): 12 bytes\n"},
        {2, CURLINFO_HEADER_IN, "HTTP/1.1 200 OK\r\n", ""},
        {2, CURLINFO_SSL_DATA_IN, "secret", ""},
        {2, CURLINFO_SSL_DATA_OUT, "secret", ""},
        {2, CURLINFO_END, "x", ""},
        // Content is counted, as it is with its marks, and shown from level 2 on.
        {-1, CURLINFO_DATA_IN, "a", "IN DATA (T): 1 bytes\n"},
        {1, CURLINFO_DATA_OUT, "ab", "OUT DATA (T): 2 bytes\n"},
        {1, CURLINFO_DATA_IN, "a\r\nb", "IN DATA (T): 9 bytes\n"},
        {2, CURLINFO_DATA_OUT, "a\tb", "OUT DATA (T): a\tb\n"},
        {2, CURLINFO_DATA_IN, longest + "\n", "IN DATA (T): " + longest + "\n"},
        {2, CURLINFO_DATA_IN, tooLong, "IN DATA (T): 1000 bytes\n"},
        {2, CURLINFO_DATA_IN, std::string(992, 'x') + "\r\nx", "IN DATA (T): 1000 bytes\n"},
        {2, CURLINFO_DATA_IN, "a\r\nb\r\nc", "IN DATA (T): a<CRLF>\nb\r\nc\n"}, // too close to the one before
        {2, CURLINFO_DATA_IN, "a\r\nbb\r\nc", "IN DATA (T): a<CRLF>\nbb<CRLF>\nc\n"},
        {3, CURLINFO_DATA_IN, nul, "IN DATA (T): 3 bytes\n"},
        {3, CURLINFO_DATA_IN, "\x1b[1m", "IN DATA (T): 4 bytes\n"},
        {3, CURLINFO_DATA_IN, "\xC3\xA4", "IN DATA (T): 2 bytes\n"},
    };
    for (const auto& [debug, type, bytes, output] : rows) {
        EXPECT_EQ(timelessTrace(debug, type, bytes), output) << debug << ' ' << type << ' ' << bytes;
    }
}

TEST_F(HTTPConnectionWireTest, RecordClosesAPendingRun) {
    const StandardOutputCapture output;
    tracePerform(1, "WRITER");
    EXPECT_EQ(timelessTrace(1, CURLINFO_DATA_IN, "a"), " 1 times\nIN DATA (T): 1 bytes\n");
    EXPECT_EQ(getLogPerformData().RepeatCount, 0);
}

// Milliseconds since midnight in local time, here half past five hours ahead of UTC.
std::int64_t localMilliseconds() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    constexpr std::int64_t ahead = (5 * 60 + 30) * 60;
    return (now.tv_sec + ahead) % (24 * 60 * 60) * 1000 + now.tv_nsec / 1'000'000;
}

TEST_F(HTTPConnectionWireTest, TimeStampIsTheLocalTimeOfDayModuloAThousandSeconds) {
    setenv("TZ", "XST-05:30", 1);
    tzset();
    std::int64_t before = 0;
    std::int64_t after = 0;
    std::string text;
    do {
        before = localMilliseconds();
        text = trace(1, CURLINFO_TEXT, "x");
        after = localMilliseconds();
    } while (after < before); // midnight came in between
    unsetenv("TZ");
    tzset();
    ASSERT_TRUE(text.starts_with("IN INFO (")) << text;
    const auto stamp = std::llround(std::stod(text.substr(9)) * 1000.0);
    EXPECT_LE((stamp - before % 1'000'000 + 1'000'000) % 1'000'000, after - before) << text;
}

// Search from the start; put seven or six characters in the place of a pair; go on nine characters after its place.
std::string marked(std::string text) {
    std::size_t from = 0;
    while (from + 2 <= text.size()) {
        const std::size_t pair = text.find("\r\n", from);
        if (pair == std::string::npos) {
            break;
        }
        text.replace(pair, 2, pair + 2 < text.size() ? "<CRLF>\n" : "<CRLF>");
        from = pair + 9;
    }
    if (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    return text;
}

// Each text of up to seven characters over those three.
TEST_F(HTTPConnectionWireTest, LineEndsOfEveryShortTextAreMarkedByTheRule) {
    const std::string alphabet = "\r\na";
    std::vector<std::string> texts{""};
    for (std::size_t next = 0; next < texts.size(); ++next) {
        const std::string text = texts[next];
        const std::string count = std::to_string(marked(text).size()) + " bytes\n";
        EXPECT_EQ(timelessTrace(1, CURLINFO_TEXT, text), "IN INFO (T): " + marked(text) + "\n");
        EXPECT_EQ(timelessTrace(1, CURLINFO_HEADER_OUT, text), "OUT HDR (T): " + marked(text) + "\n");
        EXPECT_EQ(timelessTrace(1, CURLINFO_DATA_IN, text), "IN DATA (T): " + count);
        for (const char last : text.size() < 7 ? alphabet : std::string()) {
            texts.push_back(text + last);
        }
    }
    EXPECT_EQ(texts.size(), 3280U); // 1 + 3 + 9 + ... + 2187
}

} // namespace
