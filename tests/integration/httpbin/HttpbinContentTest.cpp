// Content of httpbin: compressed, in chunks, slow, late, and redirected.
#include "tests/integration/httpbin/HttpbinFixture.h"
#include "tests/support/process/ProgramRun.h"

#include <gmock/gmock.h>

namespace {

using namespace integrationtest;
using nlohmann::json;
using testsupport::Outcome;
using testsupport::resultTexts;
using testsupport::run;
using vantik::Array;
using vantik::Object;

using Texts = std::vector<std::string>;

// The interpreter that the server runs in, so that what it imports is there.
std::string python(const std::string& program, const std::string& input = {}) {
    const Outcome outcome = run({"-B", "-c", program}, {.Input = input, .Executable = "/usr/bin/python3"});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    return outcome.Out;
}

// As somebody else decodes it.
json decodedJson(const std::string& encoding, const std::string& content) {
    return json::parse(python("import sys, zlib, brotli\ncontent = sys.stdin.buffer.read()\nsys.stdout.buffer.write(" +
                                  std::string(encoding == "br" ? "brotli.decompress(content)"
                                                               : "zlib.decompress(content, 47)") + // zlib's or gzip's
                                  ")",
                              content));
}

class HttpbinContent : public HttpbinFixture {};

TEST_F(HttpbinContent, CompressedContentIsDecodedUnlessToldNotTo) {
    struct Row {
        const char* Path;
        const char* Encoding;
        const char* Mark; // what the server puts into its answer
    };
    for (const Row& row :
         {Row{"/gzip", "gzip", "gzipped"}, Row{"/deflate", "deflate", "deflated"}, Row{"/brotli", "br", "brotli"}}) {
        for (const bool optionsMode : {true, false}) {
            SCOPED_TRACE(std::string(row.Path) + ", " + modeName(optionsMode));
            const Object connection = openPath(row.Path, optionsMode);
            const json seen = receiveJson(connection);
            EXPECT_EQ(seen.at(row.Mark), true);
            EXPECT_EQ(connection.get("ContentEncoding").text(), row.Encoding);
            EXPECT_EQ(seen.at("headers").value("Accept-Encoding", "none"), "none") << "asked for by no field";

            connection.call("closeConnection");
            connection.set("Decode", false);
            connection.call("openConnection");
            const std::string raw = receiveBytes(connection);
            EXPECT_EQ(raw.size(), std::stoul(responseField(connection, "Content-Length")));
            EXPECT_EQ(decodedJson(row.Encoding, raw), seen);
            EXPECT_EQ(connection.get("ContentEncoding").text(), row.Encoding);
            connection.set("Decode", true);
            expectServerUsable(connection);
        }
    }
}

TEST_F(HttpbinContent, CommandLineDecodesToo) {
    const Outcome decoded = run({"get", server().url("/brotli")});
    EXPECT_EQ(decoded.Status, 0) << decoded.Err;
    EXPECT_EQ(json::parse(decoded.Out).at("brotli"), true);
    const Outcome raw = run({"get", "--no-decode", server().url("/brotli")});
    EXPECT_EQ(raw.Status, 0) << raw.Err;
    EXPECT_EQ(decodedJson("br", raw.Out), json::parse(decoded.Out));
}

// The server's numbers come from a generator whose results are the same for the same seed.
TEST_F(HttpbinContent, ChunksOfEverySizeGiveTheSameBytes) {
    struct Row {
        const char* Path;
        std::size_t Size;
        const char* Digest;
    };
    for (const Row& row :
         {Row{"/stream-bytes/0?seed=7", 0, "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
          Row{"/stream-bytes/1?seed=7", 1, "6922e93e3827642ce4b883c756b31abf80036649d3614bf5fcb3adda43b8ea32"},
          Row{"/stream-bytes/5000?seed=7&chunk_size=1", 5000,
              "805d5b9ac16bfc9bec1a36dda603da147c5126086c2087e09eaf59db83a4bebb"},
          Row{"/stream-bytes/5000?seed=7&chunk_size=4999", 5000,
              "805d5b9ac16bfc9bec1a36dda603da147c5126086c2087e09eaf59db83a4bebb"},
          Row{"/stream-bytes/102400?seed=7&chunk_size=777", 102400,
              "5f4f7d6b6978b3f4486a95e854dc551e9a976de5721eea250a81061216b463df"},
          Row{"/stream-bytes/102400?seed=7&chunk_size=102400", 102400,
              "5f4f7d6b6978b3f4486a95e854dc551e9a976de5721eea250a81061216b463df"},
          Row{"/bytes/102400?seed=7", 102400, "5f4f7d6b6978b3f4486a95e854dc551e9a976de5721eea250a81061216b463df"}}) {
        for (const bool optionsMode : {true, false}) {
            SCOPED_TRACE(std::string(row.Path) + ", " + modeName(optionsMode));
            const Object connection = openPath(row.Path, optionsMode);
            const Digest digest = receiveDigest(connection);
            EXPECT_EQ(digest.size(), row.Size);
            EXPECT_EQ(digest.hex(), row.Digest);
            const bool chunked = std::string_view(row.Path).starts_with("/stream");
            EXPECT_EQ(responseField(connection, "Transfer-Encoding"), chunked ? "chunked" : "");
            EXPECT_EQ(connection.get("ContentType").text(), "application/octet-stream");
            expectServerUsable(connection);
        }
    }
}

TEST_F(HttpbinContent, ContentGoesToFilesByteForByte) {
    const std::string file = folder().file("received");
    const Object connection = openPath("/stream-bytes/102400?seed=7&chunk_size=777");
    connection.call("copyContentToFile", {Array(file)});
    EXPECT_EQ(digestOfFile(file), "5f4f7d6b6978b3f4486a95e854dc551e9a976de5721eea250a81061216b463df");
    expectServerUsable(connection);
    const std::string saved = folder().file("saved");
    const Outcome outcome = run({"save", server().url("/stream-bytes/102400?seed=7"), saved});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(digestOfFile(saved), "5f4f7d6b6978b3f4486a95e854dc551e9a976de5721eea250a81061216b463df");
}

TEST_F(HttpbinContent, RangeIsAPartOfTheWhole) {
    const Object connection = openPath("/range/1000");
    std::string whole; // the server's: the alphabet again and again
    for (int index = 0; index < 1000; ++index) {
        whole += static_cast<char>('a' + index % 26);
    }
    EXPECT_EQ(receiveBytes(connection), whole);
    connection.call("closeConnection");
    connection.call("openConnection");
    connection.call("setRequestProperty", {"Range", "bytes=100-299"});
    EXPECT_EQ(receiveBytes(connection), whole.substr(100, 200));
    EXPECT_EQ(connection.get("ResponseCode").number(), 206.0);
    EXPECT_EQ(responseField(connection, "Content-Range"), "bytes 100-299/1000");
    expectServerUsable(connection);
}

TEST_F(HttpbinContent, ImagesArriveAsTheTypeAskedFor) {
    struct Row {
        const char* Accept;
        const char* File; // of the server's own
    };
    const std::string folder = python("import importlib.util, os\nprint(os.path.dirname(importlib.util.find_spec("
                                      "'httpbin').origin), end='/templates/images/')");
    for (const Row& row : {Row{"image/png", "pig_icon.png"}, Row{"image/jpeg", "jackal.jpg"},
                           Row{"image/webp", "wolf_1.webp"}, Row{"image/svg+xml", "svg_logo.svg"}}) {
        for (const bool optionsMode : {true, false}) {
            SCOPED_TRACE(std::string(row.Accept) + ", " + modeName(optionsMode));
            const Object connection = openPath("/image", optionsMode);
            connection.call("setRequestProperty", {"Accept", row.Accept});
            const std::string content = receiveBytes(connection);
            EXPECT_EQ(digestOf(content), digestOfFile(folder + row.File));
            EXPECT_EQ(content.size(), std::stoul(responseField(connection, "Content-Length")));
            EXPECT_EQ(connection.get("ContentType").text(), row.Accept);
            expectServerUsable(connection);
        }
    }
}

// Whatever the fields say about an encoding of the text, content stays the bytes that were sent.
TEST_F(HttpbinContent, CharsetOfTheContentTypeChangesNothing) {
    for (const char* type : {"text/plain; charset=iso-8859-2", "text/html;charset=UTF-16LE",
                             "text/plain; charset=\"x y\"", "text/plain; charset=no-such", "no type at all"}) {
        SCOPED_TRACE(type);
        std::string escaped;
        for (const char c : std::string_view(type)) {
            escaped += c == ' ' ? "%20" : c == ';' ? "%3B" : c == '"' ? "%22" : std::string(1, c);
        }
        const Object connection = openPath("/response-headers?Content-Type=" + escaped);
        const std::string content = receiveBytes(connection);
        EXPECT_EQ(json::parse(content).at("Content-Type"), (json{"application/json", type}));
        EXPECT_EQ(content.size(), std::stoul(responseField(connection, "Content-Length")));
        EXPECT_EQ(connection.get("ContentType").text(), type);
        expectServerUsable(connection);
    }
    const Object plain = openPath("/encoding/utf8");
    const std::string content = receiveBytes(plain);
    EXPECT_EQ(content.size(), std::stoul(responseField(plain, "Content-Length")));
    EXPECT_EQ(plain.get("ContentType").text(), "text/html; charset=utf-8");
    expectServerUsable(plain);
}

// The property is libcurl's, which takes the last one.
TEST_F(HttpbinContent, FieldThatComesTwiceIsListedTwice) {
    const Object connection = openPath("/response-headers?Content-Type=text/plain%3B%20charset%3Diso-8859-2");
    receiveBytes(connection);
    EXPECT_EQ(responseField(connection, "Content-Type"), "application/json");
    EXPECT_EQ(connection.get("ContentType").text(), "text/plain; charset=iso-8859-2");
    EXPECT_THAT(
        testsupport::fieldTexts(connection.call("getResponseFields")),
        testing::IsSupersetOf({"Content-Type: application/json", "Content-Type: text/plain; charset=iso-8859-2"}));
    expectServerUsable(connection);
}

TEST_F(HttpbinContent, PausesShorterThanTheDataTimeoutAreWaitedFor) {
    const Object connection = openPath("/drip?numbytes=4&duration=1.2", Array::doubles({5000, 10000, 3000}));
    EXPECT_EQ(receiveBytes(connection), "****");
    expectServerUsable(connection);
}

TEST_F(HttpbinContent, PausesLongerThanTheDataTimeoutEndTheTransfer) {
    const std::string path = "/drip?numbytes=3&duration=30";
    std::string text; // the same in both interfaces, and what the command line prints
    for (const bool optionsMode : {true, false}) {
        SCOPED_TRACE(modeName(optionsMode));
        const Object connection = openPath(path, Array::doubles({5000, 10000, 3000}), optionsMode);
        const vantik::Message failure = failureOf([&] { receiveBytes(connection); });
        EXPECT_EQ(describe(failure), "VANTIK:webservices:Timeout(" + server().url(path) +
                                         ", 3.000, the server stopped sending, HTTPOptions.DataTimeout)");
        EXPECT_EQ(connection.get("ResponsePayload").byteText(), "*");
        text = failure.Text;
        expectServerUsable(connection);
    }
    const std::string file = folder().file("slow");
    const Outcome outcome = run({"save", "--data-timeout", "3000", server().url(path), file});
    EXPECT_EQ(outcome.Status, 28);
    EXPECT_EQ(outcome.Err, "netrove: VANTIK:webservices:Timeout: " + text +
                               " Hint: --data-timeout MS sets that limit, 0 lifts it.\n");
    EXPECT_TRUE(std::filesystem::is_empty(folder().path()));
}

// A response that is late ends with its own limit; one that is late within it arrives.
TEST_F(HttpbinContent, ResponseThatIsLate) {
    std::string text; // of the newer interface, which the command line uses
    for (const bool optionsMode : {false, true}) {
        SCOPED_TRACE(modeName(optionsMode));
        const Object patient = openPath("/delay/0.6", Array::doubles({5000, 5000}), optionsMode);
        EXPECT_EQ(receiveJson(patient).at("url"), server().url("/delay/0.6"));
        expectServerUsable(patient);
        patient.call("closeConnection");
        const Object hasty = openPath("/delay/3", Array::doubles({5000, 300}), optionsMode);
        const vantik::Message failure = failureOf([&] { receiveBytes(hasty); });
        EXPECT_EQ(describe(failure), "VANTIK:webservices:Timeout(" + server().url("/delay/3") +
                                         ", 0.300, the server sent no response, " +
                                         (optionsMode ? "HTTPOptions.ResponseTimeout" : "weboptions.Timeout") + ")");
        text = failure.Text;
        expectServerUsable(hasty);
    }
    const Outcome outcome = run({"get", "--response-timeout", "300", server().url("/delay/3")});
    EXPECT_EQ(outcome.Status, 28);
    EXPECT_EQ(outcome.Err, "netrove: VANTIK:webservices:Timeout: " + text +
                               " Hint: --response-timeout MS sets that limit, 0 lifts it.\n");
}

class HttpbinRedirect : public HttpbinFixture {};

TEST_F(HttpbinRedirect, TargetIsWholeAndFollowedByTheCaller) {
    for (const char* kind : {"/redirect/", "/relative-redirect/", "/absolute-redirect/"}) {
        SCOPED_TRACE(kind);
        const Object connection = openPath(std::string(kind) + "3");
        for (int left = 3; left > 0; --left) {
            EXPECT_EQ(connection.get("ResponseCode").number(), 302.0);
            const std::string target = connection.get("RedirectURL").text();
            const std::string_view next = std::string_view(kind) == "/redirect/" ? "/relative-redirect/" : kind;
            EXPECT_EQ(target, server().url(left == 1 ? "/get" : std::string(next) + std::to_string(left - 1)));
            connection.call("closeConnection");
            connection.set("URL", target);
            connection.call("openConnection");
        }
        EXPECT_EQ(receiveJson(connection).at("url"), server().url("/get"));
        expectServerUsable(connection);
    }
}

TEST_F(HttpbinRedirect, EveryFormOfTheTargetIsResolved) {
    struct Row {
        const char* Sent; // what the server puts into the field, escaped
        std::string Target;
    };
    for (const Row& row :
         {Row{"/a/b", server().url("/a/b")}, Row{"a/b", server().url("/a/b")}, Row{"../x/./y", server().url("/x/y")},
          Row{"%3Fq%3D1", server().url("/redirect-to?q=1")}, Row{"/a%20b", server().url("/a%20b")},
          Row{"//other.test/p", "http://other.test/p"}, Row{"https://other.test", "https://other.test"}}) {
        SCOPED_TRACE(row.Sent);
        const Object connection = openPath(std::string("/redirect-to?url=") + row.Sent);
        EXPECT_EQ(connection.get("ResponseCode").number(), 302.0);
        EXPECT_EQ(connection.get("RedirectURL").text(), row.Target);
        EXPECT_EQ(receiveBytes(connection), "");
        expectServerUsable(connection);
    }
}

TEST_F(HttpbinRedirect, CommandLineFollowsUpToItsLimit) {
    for (const char* kind : {"/redirect/", "/relative-redirect/", "/absolute-redirect/"}) {
        SCOPED_TRACE(kind);
        Outcome outcome = run({"get", server().url(std::string(kind) + "5")});
        EXPECT_EQ(outcome.Status, 0) << outcome.Err;
        EXPECT_EQ(json::parse(outcome.Out).at("url"), server().url("/get"));
        outcome = run({"get", "--follow", "4", server().url(std::string(kind) + "5")});
        EXPECT_EQ(outcome.Status, 47);
        EXPECT_EQ(outcome.Err, "netrove: NETROVE:cli:TooManyRedirects: more than 4 redirects, the next to " +
                                   server().url("/get") + "\n");
    }
}

// 303 turns every method into GET; 307 and 308 keep method and content.
TEST_F(HttpbinRedirect, CommandLineKeepsTheMethodWhereTheStatusSaysSo) {
    for (const char* status : {"307", "308"}) {
        SCOPED_TRACE(status);
        const Outcome outcome = run({"send", "-L", "-X", "PUT", "-d", "content",
                                     server().url(std::string("/redirect-to?url=/put&status_code=") + status)});
        EXPECT_EQ(outcome.Status, 0) << outcome.Err;
        EXPECT_EQ(json::parse(outcome.Out).at("form"), (json{{"content", ""}}));
    }
    const Outcome outcome =
        run({"send", "-L", "-X", "PUT", "-d", "content", server().url("/redirect-to?url=/get&status_code=303")});
    EXPECT_EQ(outcome.Status, 0) << outcome.Err;
    EXPECT_EQ(json::parse(outcome.Out).at("headers").value("Content-Length", "none"), "none");
}

} // namespace
