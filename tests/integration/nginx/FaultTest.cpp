// Answers that go wrong: what is reported and what has been delivered by then, in each way of receiving,
// directly and through nghttpx, which makes HTTP/2 of them; and what the command line makes of those that fail. Content
// that is merely cut is in tests/cli/commands/CutAnswerTest.cpp.
#include "tests/integration/nginx/Nghttpx.h"
#include "tests/integration/support/IntegrationFixture.h"
#include "tests/support/server/Gzip.h"
#include "tests/support/server/WireText.h"

#include <curl/curl.h>
#include <fnmatch.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <filesystem>
#include <map>
#include <thread>

namespace {

using namespace integrationtest;

// What is reported, and what has been delivered by then. Both are patterns, with * where libcurl's words differ
// from version to version, and with " | " between alternatives where it is a matter of moments. "URL" stands for the
// URL, "VANTIK:webservices:" is left out. Fields are those whose name begins with "X-", which no server and no proxy
// adds by itself: exact, in lower case, "name: value" and a line feed each. After a failure they are not asked for.
//   "200"                          the status of an exchange that came to its end
//   "200 warned PartialFileWarning(2, 9, *)"
//   "Timeout(URL, 0.300, ...)"     a failure
struct Outcome {
    std::string Reported{};  // empty: this front is left out
    std::string Delivered{}; // to a consumer and into a file; as bytes only where nothing failed
    std::string Fields{};
};

struct Row {
    const char* Name;
    std::string Answer; // after the request's head; then comes the end
    Outcome Direct;
    Outcome Nghttpx{};
    Step End = step::close();
};

// All of them say that the connection ends: a proxy must not use it for the next request.
std::string head(const std::string& fields) {
    return "HTTP/1.1 200 OK\r\nConnection: close\r\n" + fields + "\r\n";
}
std::string response(const std::string& body, std::vector<std::string> fields = {}) {
    fields.push_back("Connection: close");
    return testsupport::response(body, fields);
}
std::string repeated(const std::string& text, int count) {
    std::string result;
    for (int index = 0; index < count; ++index) {
        result += text;
    }
    return result;
}

const std::string kHello = "hello hello hello hello";
const std::string kGzipped( // Hello; the last eight bytes are its sum and length
    "\x1f\x8b\x08\x00\x00\x00\x00\x00\x02\x03\xcb\x48\xcd\xc9\xc9\x57\xc8\x40\x27\x01\xe3\x51\x3d\x8d\x17\x00\x00\x00",
    28);

// The page that nghttpx makes of an answer which it does not pass on.
const Outcome kByNghttpx{"502", "<!DOCTYPE html>*<h1>502 Bad Gateway</h1><footer>nghttpx</footer></body></html>"};
// Of a transfer that nobody can go on with; how much has arrived by then is a matter of moments.
Outcome streamBroken(const std::string& part = "") {
    return {"CopyContentToDataStreamError(HTTP/2 stream * was not closed cleanly: INTERNAL_ERROR*(CURLE code 92), URL)",
            part.empty() ? "" : " | " + part};
}
Outcome good(const std::string& content, const std::string& fields = "") {
    return {"200", content, fields};
}
Outcome partial(const std::string& received, const std::string& announced, const std::string& content) {
    return {"200 warned PartialFileWarning(" + received + ", " + announced + ", *)", content};
}
// A status, and less of its response than the whole.
Outcome cut(const std::string& status, const std::string& fields = "") {
    return {status + " warned PartialFileWarning(0, -1, *)", "", fields};
}
// Libcurl reports its own refusals too with the code of a connection that broke.
Outcome refused(const std::string& words, const std::string& part = "") {
    return {"ConnectionRefused(URL, *" + words + "*)", part.empty() ? "" : " | " + part};
}
Outcome undecodable(const std::string& encoding, const std::string& words) {
    return {"DecodingError(" + encoding + ", *" + words + "*)"};
}
Outcome weird(const std::string& words) {
    return {"CopyContentToDataStreamError(" + words + " (CURLE code 8), URL)"};
}
Outcome unclear(const std::string& content) {
    return {"200 warned PartialFileWarning(*, *does not say for certain*)", content};
}
// libcurl may count what it has not used.
Outcome cutGzip(const std::string& length) {
    return {"200 warned PartialFileWarning(*, " + length + ", *)", kHello};
}

// clang-format off
std::vector<Row> brokenOffRows() {
    const std::string hints = "HTTP/1.1 103 Early Hints\r\nX-A: 1\r\n\r\n";
    const Outcome failedPart{"502 warned PartialFileWarning(*, 9, *)", "part"};
    return {
        {"InPlaceOfAnAnswer", "", {"CopyContentToDataStreamError(Empty reply from server (CURLE code 52), URL)"}, kByNghttpx},
        {"ByAResetInTheHead", "HTTP/1.1 200 OK\r\n", refused("reset by peer"), {}, step::reset()},
        {"InTheHead", "HTTP/1.1 200 OK\r\nX-A: 1\r\n", cut("200", "x-a: 1\n"), kByNghttpx},
        {"InAFieldLine", "HTTP/1.1 200 OK\r\nX-A", cut("200")},
        {"InAFailedHead", "HTTP/1.1 404 Not Found\r\nX-A: 1\r\n", cut("404", "x-a: 1\n")},
        {"AfterALocation", "HTTP/1.1 302 Found\r\nLocation: http://127.0.0.1/a\r\n", cut("302")},
        {"InALocation", "HTTP/1.1 302 Found\r\nLocation: http://127.0.0.1/a", cut("302")},
        {"AfterHints", hints, cut("103", "x-a: 1\n"), kByNghttpx},
        {"InGarbageAfterHints", hints + "garbage\r\n\r\nmore", cut("103", "x-a: 1\n")},
        {"InTheContentOfAFailedStatus", "HTTP/1.1 502 Bad\r\nConnection: close\r\nContent-Length: 9\r\n\r\npart", failedPart,
         {failedPart.Reported + " | " + streamBroken().Reported, " | part"}},
        {"InPlaceOfTheContent", head("Content-Length: 9\r\n"), partial("0", "9", ""), streamBroken()},
    };
}

std::vector<Row> strangeHeadRows() {
    const std::string hints = "HTTP/1.1 103 Early Hints\r\nLink: x\r\nX-Dropped: 1\r\n\r\n";
    const Outcome after = good("after", "x-after: 2\n");
    const auto longField = [](std::size_t length) { return good("after", "x-long: " + std::string(length, 'f') + "\n"); };
    const Outcome plain{"CopyContentToDataStreamError(Received HTTP/0.9 when not allowed (CURLE code 1), URL)"};
    const Outcome notHttp{"CopyContentToDataStreamError(*Unsupported*HTTP* (CURLE code 1), URL)"};
    // libcurl 7.88 refuses such a line, newer ones take the first three digits.
    const Outcome fourDigits = curl_version_info(CURLVERSION_NOW)->version_num < 0x080000 ? notHttp : good("body");
    // Out of memory is what libcurl says of a line of more than 100 KiB before its version 8.6; then it has a code of
    // its own, and no words for it.
    const Outcome lineTooLong{"RandomError(URL) | CopyContentToDataStreamError(*(CURLE code 100), URL)"};
    return {
        {"ThreeHeads", repeated(hints, 2) + response("after", {"X-After: 2"}), after, after},
        {"TwoAnswers", response("first") + response("second"), good("first"), good("first")},
        {"MoreThanAnnounced", response("first") + "surplus", good("first"), good("first")},
        {"FieldOf20KiB", response("after", {"X-Long: " + std::string(20480, 'f')}), longField(20480), longField(20480)},
        {"FieldsOf20KiB", response("after", std::vector<std::string>(500, "X-Many: " + std::string(32, 'f'))), good("after", repeated("x-many: " + std::string(32, 'f') + "\n", 500))},
        {"FieldOf90KiB", response("after", {"X-Long: " + std::string(92160, 'f')}), longField(92160)},
        {"FloodOfContinues", repeated("HTTP/1.1 100 Continue\r\n\r\n", 50000), {cut("100").Reported + " | " + refused("").Reported}},
        {"FloodOfHints", repeated("HTTP/1.1 103 Early Hints\r\n\r\n", 50000), cut("103")},
        {"FieldOf200KiB", response("after", {"X-Long: " + std::string(204800, 'f')}), lineTooLong},
        {"FieldsOf400KiB", response("after", std::vector<std::string>(400, "X-Many: " + std::string(1024, 'f'))), refused("Too large response headers")},
        {"StatusLineOf200KiB", "HTTP/1.1 200 " + std::string(204800, 'r') + "\r\nConnection: close\r\nContent-Length: 0\r\n\r\n", lineTooLong, good("")},
        {"NoBlankInTheStatusLine", "HTTP/1.1200\r\nContent-Length: 4\r\n\r\nbody", notHttp},
        {"NoStatus", "HTTP/1.1\r\nContent-Length: 4\r\n\r\nbody", notHttp},
        {"LettersForAStatus", "HTTP/1.1 abc OK\r\nContent-Length: 4\r\n\r\nbody", notHttp},
        {"StatusOfTwoDigits", "HTTP/1.1 20 OK\r\nContent-Length: 4\r\n\r\nbody", notHttp},
        {"StatusOfFourDigits", "HTTP/1.1 2000 OK\r\nConnection: close\r\nContent-Length: 4\r\n\r\nbody", fourDigits},
        {"Version09", "all of it is content", plain},
        {"VersionOfTheFuture", "HTTP/9.9 200 OK\r\nContent-Length: 4\r\n\r\nbody", notHttp},
        {"LineFeedsOnly", "HTTP/1.1 200 OK\nContent-Length: 4\n\nbody", {"InternalError(CRLF not found at the end of the received headers)"}},
        {"FoldedField", response("after", {"X-Folded: one\r\n two"}), good("after", "x-folded: one\n"), good("after", "x-folded: one two\n")},
        {"FieldWithoutAColon", response("after", {"no colon"}), weird("Header without colon")},
        {"NulInAField", response("after", {std::string("X-Nul: a\0b", 10)}), weird("Nul byte in header")},
        {"LengthBeyond63Bits", head("Content-Length: 9223372036854775808\r\n") + "body", unclear("body")},
        {"LengthOfManyDigits", head("Content-Length: 99999999999999999999999999\r\n") + "body", unclear("body")},
        {"NegativeLength", head("Content-Length: -4\r\n") + "body", weird("Invalid Content-Length: value")},
        {"LengthThatIsNotANumber", head("Content-Length: four\r\n") + "body", weird("Invalid Content-Length: value")},
        {"TwoLengths", head("Content-Length: 4\r\nContent-Length: 6\r\n") + "bodies", unclear("bodies")},
        {"TwoLengthsInALine", head("Content-Length: 4, 6\r\n") + "bodies", unclear("*")},
        {"FoldedTransferEncoding", head("Transfer-Encoding:\r\n chunked\r\n") + "4\r\nbo", unclear("*")},
        {"OneLengthTwice", head("Content-Length: 4\r\nContent-Length: 4\r\n") + "body", good("body")},
        {"LengthAndChunks", head("Content-Length: 3\r\nTransfer-Encoding: chunked\r\n") + "4\r\nbody\r\n0\r\n\r\n", good("body")},
        {"UnknownTransferEncoding", head("Transfer-Encoding: fancy\r\n") + "body", undecodable("", "coding")},
        {"ContentWhereNoneMayBe", "HTTP/1.1 204 No Content\r\nConnection: close\r\nContent-Length: 4\r\n\r\nbody", {"204"}},
    };
}

std::vector<Row> wrongContentRows() {
    const std::string chunks = head("Transfer-Encoding: chunked\r\n");
    const std::string zip = "Content-Encoding: gzip\r\n";
    const std::string trailers = repeated("X-Trailer: " + std::string(1000, 'x') + "\r\n", 1200);
    const Outcome tooManyTrailers{refused("Heads and trailers").Reported + " | CopyContentToDataStreamError(*(CURLE code 100), URL)", " | body"};
    const Outcome redirect{"302", "body", "x-a: 1\n"};
    return {
        {"WrongFirstChunk", chunks + "zz\r\nbody\r\n0\r\n\r\n", refused("hex")},
        {"WrongSecondChunk", chunks + "4\r\nbody\r\nzz\r\n", refused("hex", "body"), streamBroken("body")},
        {"ChunkLongerThanItsSize", chunks + "2\r\nbody\r\n0\r\n\r\n", refused("chunk", "bo")},
        {"ChunkBeyond64Bits", chunks + "10000000000000000\r\nbody\r\n0\r\n\r\n", refused("hex")},
        {"NegativeChunk", chunks + "-4\r\nbody\r\n0\r\n\r\n", refused("hex")},
        {"ChunksWithoutAnEnd", chunks + "4\r\nbody\r\n", partial("4", "-1", "body"), streamBroken("body")},
        {"ChunksCutShort", chunks + "4\r\nbody\r\n9\r\npart", partial("8", "-1", "bodypart")},
        {"NoChunkAtAll", chunks, partial("0", "-1", "")},
        {"Trailer", chunks + "4\r\nbody\r\n0\r\nX-Trailer: 1\r\n\r\n", good("body"), good("body")},
        {"TrailerOfARedirect", "HTTP/1.1 302 Found\r\nConnection: close\r\nX-A: 1\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nbody\r\n0\r\nX-Trailer: 1\r\n\r\n", redirect, redirect},
        {"EndlessTrailers", chunks + "4\r\nbody\r\n0\r\n" + trailers, tooManyTrailers},
        {"TrailerWithoutAnEnd", chunks + "4\r\nbody\r\n0\r\nX-Trailer: 1\r\n", partial("4", "-1", "body"), streamBroken("body")},
        {"ChunkExtensionOf20KiB", chunks + "4;" + std::string(20480, 'x') + "\r\nbody\r\n0\r\n\r\n", good("body")},
        {"NotCompressed", response("plain text", {"Content-Encoding: gzip"}), undecodable("gzip", ""), undecodable("gzip", "")},
        {"CompressedAndCutShort", head(zip + "Content-Length: 28\r\n") + kGzipped.substr(0, 20), partial("20", "28", kHello), streamBroken(kHello)},
        {"CompressedAndCutShortInTheServer", head(zip + "Content-Length: 20\r\n") + kGzipped.substr(0, 20), cutGzip("20"), cutGzip("20")},
        {"CompressedAndCutShortInItsSum", head(zip + "Content-Length: 27\r\n") + kGzipped.substr(0, 27), cutGzip("27")},
        {"CompressedAndCutShortByTheClose", head(zip) + kGzipped.substr(0, 20), cutGzip("-1"), cutGzip("*")},
        {"CompressedAndCutShortInAChunk", head(zip + "Transfer-Encoding: chunked\r\n") + "14\r\n" + kGzipped.substr(0, 20) + "\r\n0\r\n\r\n", cutGzip("-1")},
        {"CompressedInChunks", head(zip + "Transfer-Encoding: chunked\r\n") + "14\r\n" + kGzipped.substr(0, 20) + "\r\n8;x\r\n" + kGzipped.substr(20) + "\r\n0\r\n\r\n", good(kHello)},
        {"CompressedAndCutShortInItsHead", head(zip + "Content-Length: 5\r\n") + kGzipped.substr(0, 5), {cutGzip("5").Reported}},
        {"CompressedWithAWrongSum", head(zip + "Content-Length: 28\r\n") + kGzipped.substr(0, 20) + "\1\2\3\4" + kGzipped.substr(24), undecodable("gzip", "incorrect data check"), undecodable("gzip", "incorrect data check")},
        {"CompressedAndMoreAfterIt", head(zip + "Content-Length: 33\r\n") + kGzipped + "extra", cutGzip("33")},
        {"CompressedTwiceOver", head(zip + "Content-Length: 56\r\n") + kGzipped + kGzipped, cutGzip("56")},
        {"CompressedSixTimes", head("Content-Encoding: gzip, gzip, gzip, gzip, gzip, gzip\r\nContent-Length: 28\r\n") + kGzipped, undecodable("", "more than 5 content encodings")},
    };
}
// clang-format on

std::string replaced(std::string text, const std::string& what, const std::string& by) {
    for (std::size_t place = text.find(what); place != std::string::npos; place = text.find(what, place + by.size())) {
        text.replace(place, what.size(), by);
    }
    return text;
}

std::string fieldsOf(const Object& connection) {
    std::string lines;
    for (std::string field : fieldTexts(connection.call("getResponseFields"))) {
        const auto end = field.begin() + static_cast<std::ptrdiff_t>(std::min(field.find(':'), field.size()));
        std::transform(field.begin(), end, field.begin(), [](unsigned char letter) { return std::tolower(letter); });
        if (field.starts_with("x-")) {
            lines += field + "\n";
        }
    }
    return lines;
}

// Whether one of the alternatives fits: see Outcome.
bool matches(const std::string& text, const std::string& alternatives) {
    const std::string separator = " | ";
    for (std::size_t start = 0, end = 0; end != std::string::npos; start = end + separator.size()) {
        end = alternatives.find(separator, start);
        const std::string pattern = alternatives.substr(start, end == std::string::npos ? end : end - start);
        if (::fnmatch(pattern.c_str(), text.c_str(), 0) == 0) {
            return true;
        }
    }
    return false;
}

enum class Way { Bytes, File, Consumer };

class Fault : public IntegrationFixture {
protected:
    Object openAt(const std::string& url) {
        return open(url, {.CertificateFile = Front == nullptr ? "" : Front->certificateFile()});
    }

    // What came of receiving, as Outcome has it but without patterns.
    Outcome receive(const Object& connection, Way way) {
        const std::string url = connection.get("URL").text();
        const auto report = [&](const vantik::Message& message) {
            return replaced(replaced(describe(message), "VANTIK:webservices:", ""), url, "URL");
        };
        const std::size_t warningsBefore = warnings().size();
        const std::string path = folder().file("received");
        std::filesystem::remove(path);
        Outcome outcome;
        const ScriptedConsumer consumer = makeScriptedConsumer(host());
        try {
            if (way == Way::File) {
                connection.call("copyContentToFile", {path});
            } else if (way == Way::Bytes) {
                outcome.Delivered = receiveBytes(connection);
            } else {
                connection.set("Consumer", consumer);
                connection.call("copyContentToByteArray", {false});
            }
            outcome.Reported = std::to_string(static_cast<int>(status(connection)));
            outcome.Fields = fieldsOf(connection);
        } catch (const vantik::Failure& failure) {
            EXPECT_NE(failure.message().Text, "");
            if (Failed.Text.empty()) {
                Failed = failure.message();
            }
            outcome.Reported = report(failure.message());
        }
        for (std::size_t index = warningsBefore; index < warnings().size(); ++index) {
            outcome.Reported += " warned " + report(warnings()[index]);
        }
        if (way == Way::File && std::filesystem::exists(path)) {
            outcome.Delivered = readFile(path);
        } else if (way == Way::Consumer) {
            outcome.Delivered = consumer->content();
            // Whoever is started is closed, once. A failure before the content leaves it alone.
            if (!consumer->Calls.empty()) {
                EXPECT_EQ(consumer->Calls.front(), "start");
                EXPECT_EQ(std::count(consumer->Calls.begin(), consumer->Calls.end(), "close"), 1);
            }
            connection.set("Consumer", Array());
        }
        return outcome;
    }

    // Plays the answer to each way of receiving, by turns with a good one, each on a connection of its own.
    void expectOutcome(const Row& row, bool http2) {
        const Script faulty = {step::expectHead(), step::send(row.Answer), row.End};
        const Script again = {step::expectHead(), step::send(response("good again")), step::close()};
        ScriptedServer& server = serve({faulty, again, faulty, again, faulty, again, faulty, faulty});
        Front = http2 ? std::make_unique<Nghttpx>(server.port()) : nullptr;
        const std::string url = http2 ? Front->url("/p") : server.url("/p");
        const Outcome& expected = http2 ? row.Nghttpx : row.Direct;
        for (const Way way : {Way::Bytes, Way::File, Way::Consumer}) {
            SCOPED_TRACE(way == Way::Bytes ? "bytes" : way == Way::File ? "file" : "consumer");
            const Object connection = openAt(url);
            const Outcome outcome = receive(connection, way);
            EXPECT_TRUE(matches(outcome.Reported, expected.Reported)) << outcome.Reported << "\nin place of\n"
                                                                      << expected.Reported;
            const bool failed = std::isdigit(static_cast<unsigned char>(outcome.Reported.at(0))) == 0;
            const std::string delivered = way == Way::Bytes && failed ? "" : expected.Delivered;
            EXPECT_TRUE(matches(outcome.Delivered, delivered)) << shown(outcome.Delivered) << "\nin place of\n"
                                                               << delivered;
            EXPECT_EQ(shown(outcome.Fields), failed ? "" : shown(expected.Fields));
            expectScopeUsable(connection);
            const Object next = openAt(url);
            EXPECT_EQ(receiveBytes(next), "good again");
            EXPECT_EQ(status(next), 200);
            next.call("closeConnection");
        }
        const bool byMoments = expected.Reported.find(" | ") != std::string::npos;
        if (std::isdigit(static_cast<unsigned char>(expected.Reported.at(0))) == 0 && !byMoments) {
            expectCommandFails(url);
        }
    }

    // The exit status of the failure, its identifier in one line, and no file.
    void expectCommandFails(const std::string& url) {
        const std::map<std::string, int> exits = {
            {"ConnectionRefused", 7}, {"CopyContentToDataStreamError", 1}, {"DecodingError", 61}, {"InternalError", 1}};
        const TemporaryFolder target;
        for (const char* way : {"--force", "--consumer"}) {
            SCOPED_TRACE(way);
            Texts words = {"save", url, "file", way};
            if (Front != nullptr) {
                words.insert(words.end(), {"--ca-file", Front->certificateFile()});
            }
            const testsupport::Outcome outcome = run(words, {.Folder = target.path()});
            const std::string identifier = Failed.identifier();
            expectFailed(outcome, exits.at(identifier.substr(identifier.rfind(':') + 1)),
                         testing::StartsWith("netrove: " + identifier + ": "));
            EXPECT_EQ(outcome.Err.find('\n'), outcome.Err.size() - 1) << "one line: " << outcome.Err;
            EXPECT_TRUE(std::filesystem::is_empty(target.path()));
        }
    }

    vantik::Message Failed; // the first failure, on a connection as fresh as the command line's
    std::unique_ptr<Nghttpx> Front;
};

// Whether a row is played through nghttpx.
using Case = std::pair<Row, bool>;

class Faults : public Fault, public testing::WithParamInterface<Case> {};

TEST_P(Faults, AreReported) {
    expectOutcome(GetParam().first, GetParam().second);
}

auto inEachWay(const std::vector<Row>& rows) {
    std::vector<Case> cases;
    for (const Row& row : rows) {
        cases.emplace_back(row, false);
        if (!row.Nghttpx.Reported.empty()) {
            cases.emplace_back(row, true);
        }
    }
    return testing::ValuesIn(cases);
}

const auto kNameOf = [](const testing::TestParamInfo<Case>& info) {
    return info.param.first.Name + std::string(info.param.second ? "OverHttp2" : "");
};
INSTANTIATE_TEST_SUITE_P(BrokenOff, Faults, inEachWay(brokenOffRows()), kNameOf);
INSTANTIATE_TEST_SUITE_P(StrangeHead, Faults, inEachWay(strangeHeadRows()), kNameOf);
INSTANTIATE_TEST_SUITE_P(WrongContent, Faults, inEachWay(wrongContentRows()), kNameOf);

TEST_F(Fault, ContentThatGrowsBeyondWhatAByteArrayHoldsIsAFailure) {
    const std::string bomb = gzippedZeros(std::size_t{513} << 20);
    ScriptedServer& server =
        serve({step::expectHead(), step::send(response(bomb, {"Content-Encoding: gzip"})), step::close()});
    const Object connection = openAt(server.url("/"));
    EXPECT_EQ(describe(failureOf([&] { receiveBytes(connection); })),
              "VANTIK:webservices:DecodedContentTooLarge(536870912, gzip)");
    expectScopeUsable(connection);
}

// In the head a whole line is what counts.
TEST_F(Fault, FieldLineThatTakesLongerThanTheLimitIsSilence) {
    Script script = {step::expectHead(), step::send("HTTP/1.1 200 OK\r\n")};
    for (int drop = 0; drop < 40; ++drop) {
        script.push_back(step::run([] { std::this_thread::sleep_for(std::chrono::milliseconds(20)); }));
        script.push_back(step::send("X"));
    }
    script.push_back(step::awaitPeerEnd());
    const Object connection = open(serve({script}).url("/"), {.Limits = {60000, 300}});
    EXPECT_EQ(receive(connection, Way::Bytes).Reported,
              "Timeout(URL, 0.300, the server sent no response, HTTPOptions.ResponseTimeout)");
    expectScopeUsable(connection);
}

} // namespace
