#include "tests/integration/faults/FaultRows.h"

#include "tests/support/server/WireText.h"

#include <curl/curl.h>

namespace integrationtest {

using testsupport::Script;
namespace step = testsupport::step;

namespace {

Script closing(const std::string& answer) {
    return {step::send(answer), step::close()};
}

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

const FaultOutcome kByNginx{"502", kNginxPage};
const FaultOutcome kByNghttpx{"502", kNghttpxPage};
// Of a transfer that nobody can go on with; how much has arrived by then is a matter of moments.
FaultOutcome streamBroken(const std::string& part = "") {
    return {"CopyContentToDataStreamError(HTTP/2 stream * was not closed cleanly: INTERNAL_ERROR*(CURLE code 92), URL)",
            part.empty() ? "" : " | " + part};
}
FaultOutcome good(const std::string& content, const std::string& fields = "") {
    return {"200", content, fields};
}
FaultOutcome partial(const std::string& received, const std::string& announced, const std::string& content) {
    return {"200 warned PartialFileWarning(" + received + ", " + announced + ", *)", content};
}
// A status, and less of its response than the whole.
FaultOutcome cut(const std::string& status, const std::string& fields = "") {
    return {status + " warned PartialFileWarning(0, -1, *)", "", fields};
}
const FaultOutcome kNoAnswer{"CopyContentToDataStreamError(Empty reply from server (CURLE code 52), URL)"};
const FaultOutcome kNotHttp{"CopyContentToDataStreamError(*Unsupported*HTTP* (CURLE code 1), URL)"};
const FaultOutcome kWrongLength{"CopyContentToDataStreamError(Invalid Content-Length: value (CURLE code 8), URL)"};
const FaultOutcome kSilentHead{"Timeout(URL, 0.300, the server sent no response, HTTPOptions.ResponseTimeout)"};
FaultOutcome silentContent(const std::string& content) {
    return {"Timeout(URL, 3.000, the server stopped sending, HTTPOptions.DataTimeout)", content};
}
FaultOutcome reset(const std::string& part = "") {
    return {"ConnectionRefused(URL, *Connection reset by peer)", part.empty() ? "" : " | " + part};
}
// Also of libcurl's own refusals: it reports them with the code of a connection that broke.
FaultOutcome refused(const std::string& words, const std::string& part = "") {
    return {"ConnectionRefused(URL, *" + words + "*)", part.empty() ? "" : " | " + part};
}
FaultOutcome undecodable(const std::string& encoding, const std::string& words) {
    return {"DecodingError(" + encoding + ", *" + words + "*)"};
}
// Out of memory is what libcurl says of a line of more than 100 KiB before its version 8.6; then it has a code of its
// own, and no words for it.
const FaultOutcome kLineTooLong{"RandomError(URL) | CopyContentToDataStreamError(*(CURLE code 100), URL)"};

} // namespace

const FaultOutcome& FaultRow::on(Front front) const {
    const FaultOutcome* outcomes[] = {&Direct, &Tls, &Nginx, &Nghttpx};
    return *outcomes[static_cast<int>(front)];
}

std::string sentBy(const Script& script) {
    std::string bytes;
    for (const testsupport::Step& step : script) {
        if (step.What == testsupport::Step::Kind::Send) {
            bytes += step.Text;
        }
    }
    return bytes;
}

// clang-format off
std::vector<FaultRow> brokenOffRows() {
    const std::vector<double> response300 = {60000, 300};
    // The shorter limit holds for the head too, which comes from another process: it must not be a matter of moments.
    const std::vector<double> data3000 = {60000, 60000, 3000};
    return {
        {"SilentBeforeTheHead", {step::awaitPeerEnd()}, response300, kSilentHead, {}, kSilentHead, kSilentHead},
        {"SilentInTheHead", {step::send("HTTP/1.1 200 OK\r\nX-A: 1\r\n"), step::awaitPeerEnd()},
         response300, kSilentHead, {}, kSilentHead, kSilentHead},
        {"SilentBehindTheHead", {step::send(head("Content-Length: 9\r\n")), step::awaitPeerEnd()},
         data3000, silentContent(""), {}, silentContent(""), silentContent("")},
        {"SilentInTheContent", {step::send(head("Content-Length: 9\r\n") + "part"), step::awaitPeerEnd()},
         data3000, silentContent("part"), {}, silentContent("part"), silentContent("part")},
        {"SilentInAChunk", {step::send(head("Transfer-Encoding: chunked\r\n") + "9\r\npart"), step::awaitPeerEnd()},
         data3000, silentContent("part"), {}, silentContent("part"), silentContent("part")},
        {"ClosedInTheHead", closing("HTTP/1.1 200 OK\r\nX-A: 1\r\n"),
         {}, cut("200", "x-a: 1\n"), cut("200", "x-a: 1\n"), kByNginx, kByNghttpx},
        {"ClosedInAFieldLine", closing("HTTP/1.1 200 OK\r\nX-A"),
         {}, cut("200"), cut("200"), kByNginx, kByNghttpx},
        {"ClosedInAFailedHead", closing("HTTP/1.1 404 Not Found\r\nX-A: 1\r\n"),
         {}, cut("404", "x-a: 1\n"), cut("404", "x-a: 1\n"), kByNginx, kByNghttpx},
        {"ClosedAfterALocation", closing("HTTP/1.1 302 Found\r\nLocation: http://127.0.0.1/a\r\n"),
         {}, cut("302"), cut("302"), kByNginx, kByNghttpx},
        {"ClosedInALocation", closing("HTTP/1.1 302 Found\r\nLocation: http://127.0.0.1/a"),
         {}, cut("302"), cut("302"), kByNginx, kByNghttpx},
        {"ClosedAfterHints", closing("HTTP/1.1 103 Early Hints\r\nX-A: 1\r\n\r\n"),
         {}, cut("103", "x-a: 1\n"), cut("103", "x-a: 1\n"), cut("103", "x-a: 1\n"), kByNghttpx},
        {"ResetAfterHints", {step::send("HTTP/1.1 103 Early Hints\r\nX-A: 1\r\n\r\n"), step::reset()},
         {}, {cut("103").Told + " | " + reset().Told, "", "x-a: 1\n"}, {}, cut("103", "x-a: 1\n"), kByNghttpx},
        {"GarbageAfterHints", closing("HTTP/1.1 103 Early Hints\r\nX-A: 1\r\n\r\ngarbage\r\n\r\nmore"),
         {}, cut("103", "x-a: 1\n"), cut("103", "x-a: 1\n"), cut("103", "x-a: 1\n"), kByNghttpx},
        {"SilentAfterHints", {step::send("HTTP/1.1 103 Early Hints\r\nX-A: 1\r\n\r\n"), step::awaitPeerEnd()},
         response300, kSilentHead, {}, kSilentHead, kSilentHead},
        {"ResetInTheHead", {step::send("HTTP/1.1 200 OK\r\nX-A: 1\r\n"), step::reset()},
         {}, reset(), {}, kByNginx, kByNghttpx},
        {"ResetInTheContent", {step::send(head("Content-Length: 9\r\n") + "part"), step::reset()},
         {}, reset("part"), {}, partial("4", "9", "part"), streamBroken("part")},
        {"ResetInAChunk", {step::send(head("Transfer-Encoding: chunked\r\n") + "9\r\npart"), step::reset()},
         {}, reset("part"), {}, partial("4", "-1", "part"), streamBroken("part")},
        {"ShortContent", closing(head("Content-Length: 9\r\n") + "part"),
         {}, partial("4", "9", "part"), partial("4", "9", "part"), partial("4", "9", "part"), streamBroken("part")},
        {"ShortContentOfAFailedStatus", closing("HTTP/1.1 502 Bad\r\nConnection: close\r\nContent-Length: 9\r\n\r\npart"),
         {}, {"502 warned PartialFileWarning(*, 9, *)", "part"}, {"502 warned PartialFileWarning(*, 9, *)", "part"},
         {"502 warned PartialFileWarning(*, 9, *)", "part"},
         {"502 warned PartialFileWarning(*, 9, *) | " + streamBroken().Told, " | part"}},
        {"NoContentWhereSomeIsAnnounced", closing(head("Content-Length: 9\r\n")),
         {}, partial("0", "9", ""), partial("0", "9", ""), partial("0", "9", ""), streamBroken()},
    };
}

std::vector<FaultRow> strangeHeadRows() {
    const FaultOutcome after = good("after", "x-after: 2\n");
    const auto longField = [](std::size_t length) { return good("after", "x-long: " + std::string(length, 'f') + "\n"); };
    const FaultOutcome many = good("after", repeated("x-many: " + std::string(32, 'f') + "\n", 500));
    const FaultOutcome lineFeed{"InternalError(CRLF not found at the end of the received headers)"};
    const FaultOutcome plain{"CopyContentToDataStreamError(Received HTTP/0.9 when not allowed (CURLE code 1), URL)"};
    const auto unclear = [](const std::string& content) { return FaultOutcome{"200 warned PartialFileWarning(*, *does not say for certain*)", content}; };
    // libcurl 7.88 refuses such a line, newer ones take the first three digits.
    const FaultOutcome fourDigits = curl_version_info(CURLVERSION_NOW)->version_num < 0x080000 ? kNotHttp : good("body");
    const auto noField = [](const std::string& words) { return FaultOutcome{"CopyContentToDataStreamError(" + words + " (CURLE code 8), URL)"}; };
    return {
        {"InterimHeadWithFields", closing("HTTP/1.1 100 Continue\r\nX-Dropped: 1\r\n\r\n" + response("after", {"X-After: 2"})),
         {}, after, after, after, after},
        {"EarlyHints", closing("HTTP/1.1 103 Early Hints\r\nLink: x\r\nX-Dropped: 1\r\n\r\n" + response("after", {"X-After: 2"})),
         {}, after, after, after, after},
        {"ThreeHeads", closing(repeated("HTTP/1.1 103 Early Hints\r\nLink: x\r\nX-Dropped: 1\r\n\r\n", 2) + response("after", {"X-After: 2"})),
         {}, after, after, after, after},
        {"TwoAnswers", closing(response("first") + response("second")),
         {}, good("first"), good("first"), good("first"), good("first")},
        {"MoreThanAnnounced", closing(response("first") + "surplus"),
         {}, good("first"), good("first"), good("first"), good("first")},
        {"FieldOf20KiB", closing(response("after", {"X-Long: " + std::string(20480, 'f')})),
         {}, longField(20480), longField(20480), longField(20480), longField(20480)},
        {"FieldsOf20KiB", closing(response("after", std::vector<std::string>(500, "X-Many: " + std::string(32, 'f')))),
         {}, many, many, many, kByNghttpx},
        {"FieldOf90KiB", closing(response("after", {"X-Long: " + std::string(92160, 'f')})),
         {}, longField(92160), longField(92160), kByNginx, kByNghttpx},
        {"FloodOfContinues", closing(repeated("HTTP/1.1 100 Continue\r\n\r\n", 50000)),
         {}, {cut("100").Told + " | " + refused("").Told}, {cut("100").Told + " | " + refused("").Told}, {}, {}},
        {"FloodOfHints", closing(repeated("HTTP/1.1 103 Early Hints\r\n\r\n", 50000)),
         {}, cut("103"), cut("103"), {}, {}},
        {"FieldOf200KiB", closing(response("after", {"X-Long: " + std::string(204800, 'f')})),
         {}, kLineTooLong, kLineTooLong, kByNginx, kByNghttpx},
        {"FieldsOf400KiB", closing(response("after", std::vector<std::string>(400, "X-Many: " + std::string(1024, 'f')))),
         {}, refused("Too large response headers"), refused("Too large response headers"), kByNginx, kByNghttpx},
        {"StatusLineOf200KiB", closing("HTTP/1.1 200 " + std::string(204800, 'r') + "\r\nConnection: close\r\nContent-Length: 0\r\n\r\n"),
         {}, kLineTooLong, kLineTooLong, kByNginx, good("")},
        {"LineFeedsOnly", closing("HTTP/1.1 200 OK\nContent-Length: 4\n\nbody"),
         {}, lineFeed, lineFeed, good("body"), kByNghttpx},
        {"NoBlankInTheStatusLine", closing("HTTP/1.1200\r\nContent-Length: 4\r\n\r\nbody"),
         {}, kNotHttp, kNotHttp, kNotHttp, kByNghttpx},
        {"NoStatus", closing("HTTP/1.1\r\nContent-Length: 4\r\n\r\nbody"),
         {}, kNotHttp, kNotHttp, kNotHttp, kByNghttpx},
        {"LettersForAStatus", closing("HTTP/1.1 abc OK\r\nContent-Length: 4\r\n\r\nbody"),
         {}, kNotHttp, kNotHttp, kNotHttp, kByNghttpx},
        {"StatusOfTwoDigits", closing("HTTP/1.1 20 OK\r\nContent-Length: 4\r\n\r\nbody"),
         {}, kNotHttp, kNotHttp, kNotHttp, kByNghttpx},
        {"StatusOfFourDigits", closing("HTTP/1.1 2000 OK\r\nConnection: close\r\nContent-Length: 4\r\n\r\nbody"),
         {}, fourDigits, fourDigits, fourDigits, kByNghttpx},
        {"Version09", closing("all of it is content"), {}, plain, plain, plain, kByNghttpx},
        {"VersionOfTheFuture", closing("HTTP/9.9 200 OK\r\nContent-Length: 4\r\n\r\nbody"),
         {}, kNotHttp, kNotHttp, good("body"), kByNghttpx},
        {"FoldedField", closing(response("after", {"X-Folded: one\r\n two"})),
         {}, good("after", "x-folded: one\n"), good("after", "x-folded: one\n"), kByNginx, good("after", "x-folded: one two\n")},
        {"FieldWithoutAColon", closing(response("after", {"no colon"})),
         {}, noField("Header without colon"), noField("Header without colon"), kByNginx, kByNghttpx},
        {"NulInAField", closing(response("after", {std::string("X-Nul: a\0b", 10)})),
         {}, noField("Nul byte in header"), noField("Nul byte in header"), kByNginx, kByNghttpx},
        {"LengthBeyond63Bits", closing(head("Content-Length: 9223372036854775808\r\n") + "body"),
         {}, unclear("body"), unclear("body"), good("body"), kByNghttpx},
        {"LengthOfManyDigits", closing(head("Content-Length: 99999999999999999999999999\r\n") + "body"),
         {}, unclear("body"), unclear("body"), good("body"), kByNghttpx},
        {"NegativeLength", closing(head("Content-Length: -4\r\n") + "body"),
         {}, kWrongLength, kWrongLength, good("body"), kByNghttpx},
        {"LengthThatIsNoNumber", closing(head("Content-Length: four\r\n") + "body"),
         {}, kWrongLength, kWrongLength, good("body"), kByNghttpx},
        {"TwoLengths", closing(head("Content-Length: 4\r\nContent-Length: 6\r\n") + "bodies"),
         {}, unclear("bodies"), unclear("bodies"), good("bodies"), kByNghttpx},
        {"TwoLengthsInALine", closing(head("Content-Length: 4, 6\r\n") + "bodies"),
         {}, unclear("*"), unclear("*"), {}, {}},
        {"FoldedTransferEncoding", closing(head("Transfer-Encoding:\r\n chunked\r\n") + "4\r\nbo"),
         {}, unclear("*"), unclear("*"), {}, {}},
        {"OneLengthTwice", closing(head("Content-Length: 4\r\nContent-Length: 4\r\n") + "body"),
         {}, good("body"), good("body"), good("body"), kByNghttpx},
        {"LengthAndChunks", closing(head("Content-Length: 3\r\nTransfer-Encoding: chunked\r\n") + "4\r\nbody\r\n0\r\n\r\n"),
         {}, good("body"), good("body"), good("body"), kByNghttpx},
        {"UnknownTransferEncoding", closing(head("Transfer-Encoding: fancy\r\n") + "body"),
         {}, undecodable("", "coding"), undecodable("", "coding"), good("body"), good("body")},
        {"ContentWhereNoneMayBe", closing("HTTP/1.1 204 No Content\r\nConnection: close\r\nContent-Length: 4\r\n\r\nbody"),
         {}, {"204"}, {"204"}, {"204"}, kByNghttpx},
    };
}

std::vector<FaultRow> wrongContentRows() {
    const std::string chunks = head("Transfer-Encoding: chunked\r\n");
    const std::string zip = "Content-Encoding: gzip\r\n";
    // libcurl may count what it has not used.
    const auto cutGzip = [](const std::string& length) { return FaultOutcome{"200 warned PartialFileWarning(*, " + length + ", *)", kHello}; };
    const FaultOutcome tooManyTrailers{refused("Heads and trailers").Told + " | CopyContentToDataStreamError(*(CURLE code 100), URL)", " | body"};
    return {
        {"WrongFirstChunk", closing(chunks + "zz\r\nbody\r\n0\r\n\r\n"),
         {}, refused("hex"), refused("hex"), kNoAnswer, streamBroken()},
        {"WrongSecondChunk", closing(chunks + "4\r\nbody\r\nzz\r\n"),
         {}, refused("hex", "body"), refused("hex", "body"), kNoAnswer, streamBroken("body")},
        {"ChunkLongerThanItsSize", closing(chunks + "2\r\nbody\r\n0\r\n\r\n"),
         {}, refused("chunk", "bo"), refused("chunk", "bo"), kNoAnswer, streamBroken("bo")},
        {"ChunkBeyond64Bits", closing(chunks + "10000000000000000\r\nbody\r\n0\r\n\r\n"),
         {}, refused("hex"), refused("hex"), kNoAnswer, streamBroken()},
        {"NegativeChunk", closing(chunks + "-4\r\nbody\r\n0\r\n\r\n"),
         {}, refused("hex"), refused("hex"), kNoAnswer, streamBroken()},
        {"ChunksWithoutAnEnd", closing(chunks + "4\r\nbody\r\n"),
         {}, partial("4", "-1", "body"), partial("4", "-1", "body"), partial("4", "-1", "body"), streamBroken("body")},
        {"ChunksCutShort", closing(chunks + "4\r\nbody\r\n9\r\npart"),
         {}, partial("8", "-1", "bodypart"), partial("8", "-1", "bodypart"), partial("8", "-1", "bodypart"), streamBroken("bodypart")},
        {"NoChunkAtAll", closing(chunks),
         {}, partial("0", "-1", ""), partial("0", "-1", ""), partial("0", "-1", ""), streamBroken()},
        {"Trailer", closing(chunks + "4\r\nbody\r\n0\r\nX-Trailer: 1\r\n\r\n"),
         {}, good("body"), good("body"), good("body"), good("body")},
        {"TrailerOfARedirect", closing("HTTP/1.1 302 Found\r\nConnection: close\r\nX-A: 1\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nbody\r\n0\r\nX-Trailer: 1\r\n\r\n"),
         {}, {"302", "body", "x-a: 1\n"}, {"302", "body", "x-a: 1\n"}, {"302", "body", "x-a: 1\n"}, {"302", "body", "x-a: 1\n"}},
        {"EndlessTrailers", closing(chunks + "4\r\nbody\r\n0\r\n" + repeated("X-Trailer: " + std::string(1000, 'x') + "\r\n", 1200)),
         {}, tooManyTrailers, tooManyTrailers, {}, {}},
        {"TrailerWithoutAnEnd", closing(chunks + "4\r\nbody\r\n0\r\nX-Trailer: 1\r\n"),
         {}, partial("4", "-1", "body"), partial("4", "-1", "body"), partial("4", "-1", "body"), streamBroken("body")},
        {"ChunkExtensionOf20KiB", closing(chunks + "4;" + std::string(20480, 'x') + "\r\nbody\r\n0\r\n\r\n"),
         {}, good("body"), good("body"), good("body"), good("body")},
        {"CompressedAndCutShort", closing(head(zip + "Content-Length: 28\r\n") + kGzipped.substr(0, 20)),
         {}, partial("20", "28", kHello), partial("20", "28", kHello), partial("20", "28", kHello), streamBroken(kHello)},
        {"CompressedAndCutShortInTheServer", closing(head(zip + "Content-Length: 20\r\n") + kGzipped.substr(0, 20)),
         {}, cutGzip("20"), cutGzip("20"), cutGzip("20"), cutGzip("20")},
        {"CompressedAndCutShortInItsSum", closing(head(zip + "Content-Length: 27\r\n") + kGzipped.substr(0, 27)),
         {}, cutGzip("27"), cutGzip("27"), cutGzip("27"), cutGzip("27")},
        {"CompressedAndCutShortByTheClose", closing(head(zip) + kGzipped.substr(0, 20)),
         {}, cutGzip("-1"), cutGzip("-1"), cutGzip("-1"), cutGzip("*")},
        {"CompressedAndCutShortInAChunk", closing(head(zip + "Transfer-Encoding: chunked\r\n") + "14\r\n" + kGzipped.substr(0, 20) + "\r\n0\r\n\r\n"),
         {}, cutGzip("-1"), cutGzip("-1"), cutGzip("-1"), cutGzip("-1")},
        {"CompressedInChunks", closing(head(zip + "Transfer-Encoding: chunked\r\n") + "14\r\n" + kGzipped.substr(0, 20) + "\r\n8;x\r\n" + kGzipped.substr(20) + "\r\n0\r\n\r\n"),
         {}, good(kHello), good(kHello), good(kHello), good(kHello)},
        {"CompressedAndCutShortInItsHead", closing(head(zip + "Content-Length: 5\r\n") + kGzipped.substr(0, 5)),
         {}, {cutGzip("5").Told}, {cutGzip("5").Told}, {cutGzip("5").Told}, {cutGzip("5").Told}},
        {"CompressedWithAWrongSum",
         closing(head(zip + "Content-Length: 28\r\n") + kGzipped.substr(0, 20) + "\1\2\3\4" + kGzipped.substr(24)),
         {},
         undecodable("gzip", "incorrect data check"),
         undecodable("gzip", "incorrect data check"),
         undecodable("gzip", "incorrect data check"),
         undecodable("gzip", "incorrect data check")},
        {"CompressedAndMoreBehindIt", closing(head(zip + "Content-Length: 33\r\n") + kGzipped + "extra"),
         {}, cutGzip("33"), cutGzip("33"), cutGzip("33"), cutGzip("33")},
        {"CompressedTwiceOver", closing(head(zip + "Content-Length: 56\r\n") + kGzipped + kGzipped),
         {}, cutGzip("56"), cutGzip("56"), cutGzip("56"), cutGzip("56")},
        {"NotCompressedAtAll", closing(head(zip + "Content-Length: 10\r\n") + "plain text"),
         {}, undecodable("gzip", "incorrect header check"), undecodable("gzip", "incorrect header check"), undecodable("gzip", "incorrect header check"), undecodable("gzip", "incorrect header check")},
        {"UnknownCompression",
         closing(head("Content-Encoding: fancy\r\nContent-Length: 4\r\n") + "body"),
         {},
         undecodable("fancy", "Unrecognized content encoding"),
         undecodable("fancy", "Unrecognized content encoding"),
         undecodable("fancy", "Unrecognized content encoding"),
         undecodable("fancy", "Unrecognized content encoding")},
        {"CompressedSixTimes",
         closing(head("Content-Encoding: gzip, gzip, gzip, gzip, gzip, gzip\r\nContent-Length: 28\r\n") + kGzipped),
         {},
         undecodable("", "more than 5 content encodings"),
         undecodable("", "more than 5 content encodings"),
         undecodable("", "more than 5 content encodings"),
         undecodable("", "more than 5 content encodings")},
    };
}
// clang-format on

} // namespace integrationtest
