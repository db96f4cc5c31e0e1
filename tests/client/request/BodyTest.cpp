#include "tests/client/request/BodyReading.h"

#include <gtest/gtest.h>
#include <netrove/error.h>

#include <array>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <sys/stat.h>
#include <thread>

namespace {

using clienttest::python;
using clienttest::readWhole;
using netrove::Body;
using netrove::Error;
using netrove::ErrorKind;

std::span<const std::byte> asBytes(std::string_view text) {
    return std::as_bytes(std::span(text.data(), text.size()));
}

std::string identifierOf(const std::function<void()>& call, ErrorKind kind = ErrorKind::Usage) {
    try {
        call();
    } catch (const Error& error) {
        EXPECT_EQ(error.kind(), kind) << error.what();
        return error.identifier();
    }
    return "nothing";
}

std::string textOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const Error& error) {
        return error.what();
    }
    return "nothing";
}

// Each call of the result returns the next piece, then nothing, and never goes on after that.
netrove::Generator pieces(std::vector<std::string> list) {
    return [list = std::move(list), next = std::size_t{0}]() mutable -> std::span<const std::byte> {
        if (next > list.size()) {
            throw std::logic_error("called after its end");
        }
        const std::size_t now = next++;
        return now == list.size() ? std::span<const std::byte>() : asBytes(list[now]);
    };
}

TEST(Body, WithoutContentIsEmpty) {
    const Body none;
    EXPECT_FALSE(none);
    EXPECT_EQ(none.length(), 0U);
    EXPECT_TRUE(none.repeatable());
    EXPECT_EQ(none.contentType(), "");
    EXPECT_EQ(none.inMemory(), "");
    EXPECT_EQ(readWhole(none), "");
    EXPECT_FALSE(none.as("text/plain"));
}

TEST(Body, TextIsSentAsItIs) {
    const std::string content("t\xC3\xA9xt\r\n\0 end", 12);
    const Body body = netrove::text(content);
    EXPECT_TRUE(body);
    EXPECT_EQ(body.contentType(), "text/plain;charset=utf-8");
    EXPECT_EQ(body.length(), content.size());
    EXPECT_EQ(body.inMemory(), content);
    for (const std::size_t room : {1U, 5U, 4096U}) {
        EXPECT_EQ(readWhole(body, room), content) << room;
    }
}

TEST(Body, BytesAreCopied) {
    std::array<std::byte, 3> content = {std::byte{0}, std::byte{0xFF}, std::byte{'x'}};
    const Body body = netrove::bytes(content);
    content.fill(std::byte{'-'});
    EXPECT_EQ(body.contentType(), "application/octet-stream");
    EXPECT_EQ(readWhole(body), std::string("\0\xFFx", 3));
}

TEST(Body, ReaderOutlivesTheBody) {
    auto reader = netrove::text("content").open();
    std::array<std::byte, 7> room{};
    EXPECT_EQ(reader->read(room), room.size());
    EXPECT_EQ(std::memcmp(room.data(), "content", room.size()), 0);
}

TEST(Body, SameContentUnderAnotherType) {
    const Body once = netrove::generator(pieces({"a"}));
    const Body other = once.as("text/csv");
    EXPECT_EQ(once.contentType(), "application/octet-stream");
    EXPECT_EQ(other.contentType(), "text/csv");
    EXPECT_EQ(readWhole(other), "a");
    EXPECT_EQ(identifierOf([&] { readWhole(once); }), "NETROVE:client:ContentNotRewound");
}

TEST(Body, TypeThatWouldBreakTheHeadIsRefused) {
    for (const std::string& type :
         {std::string("a/b\r\nX: y"), std::string("a/b\n"), std::string("a\0b", 3), std::string("\xC3\xA9")}) {
        EXPECT_EQ(identifierOf([&] { netrove::text("", type); }), "NETROVE:client:Usage");
        EXPECT_EQ(identifierOf([&] { netrove::text("").as(type); }), "NETROVE:client:Usage");
        EXPECT_EQ(identifierOf([&] { netrove::generator(pieces({}), {}, type); }), "NETROVE:client:Usage");
    }
}

TEST(Body, JsonIsSentAsItIsWritten) {
    for (const char* text :
         {R"({"name":"x"})", " [1, 2.50,\n\"\\u00e9\"] ", "null", "\"\"", "-0.1e+5", R"({"a":1,"a":2})"}) {
        const Body body = netrove::json(text);
        EXPECT_EQ(readWhole(body), text);
        EXPECT_EQ(body.contentType(), "application/json");
    }
}

TEST(Body, JsonOfALibrary) {
    const nlohmann::json value = {{"name", "x"}, {"list", {1, 2}}};
    const Body body = netrove::json(value);
    EXPECT_EQ(nlohmann::json::parse(readWhole(body)), value);
    EXPECT_EQ(body.contentType(), "application/json");
}

TEST(Body, TextThatIsNotJsonIsRefusedWithItsPlace) {
    const struct {
        std::string Text;
        std::string Reason;
    } rows[] = {
        {"", "line 1, column 1: "},
        {"{\"a\":1,}", "line 1, column 8: "},
        {"[1,\n 2,\n x]", "line 3, column 2: "},
        {"{} {}", "line 1, column 4: "},
        {"{'a':1}", "line 1, column 2: "},
        {"[01]", "line 1, column 3: "},
        {"[NaN]", "line 1, column 2: "},
        {"[1] // why", "line 1, column 5: "},
        {"\"line\nbreak\"", "line 2, column 0: "},
        {"\"\xFF\"", "line 1, column 2: "},
        {std::string("{}\0x", 4), "NUL at byte 3"},
        {"\xEF\xBB\xBF{}", "byte order mark at byte 1"},
    };
    for (const auto& row : rows) {
        const std::string text = textOf([&] { netrove::json(row.Text); });
        EXPECT_TRUE(text.starts_with("the text is not JSON: " + row.Reason)) << row.Text << "\n" << text;
        EXPECT_EQ(text.find('\n'), std::string::npos);
        EXPECT_EQ(text.find('\xFF'), std::string::npos);
    }
}

TEST(Body, DeepJsonNeedsNoStack) {
    const std::string deep = std::string(1000000, '[') + std::string(1000000, ']');
    EXPECT_EQ(netrove::json(deep).length(), deep.size());
    EXPECT_EQ(identifierOf([&] { netrove::json(deep + "]"); }), "NETROVE:client:Usage");
}

TEST(Body, OfOnesOwnReader) {
    struct Countdown : netrove::BodyReader {
        int Left = 3;
        std::size_t read(std::span<std::byte> room) override {
            room[0] = static_cast<std::byte>('0' + Left);
            return Left-- > 0 ? 1 : 0;
        }
    };
    int opened = 0;
    const auto open = [&] {
        ++opened;
        return std::make_unique<Countdown>();
    };
    const Body again(open, 3, true, "text/plain");
    EXPECT_EQ(readWhole(again), "321");
    EXPECT_EQ(readWhole(again), "321");
    EXPECT_EQ(opened, 2);
    EXPECT_FALSE(again.inMemory());

    const Body once(open, {}, false, "");
    EXPECT_EQ(once.length(), std::nullopt);
    EXPECT_FALSE(once.repeatable());
    EXPECT_EQ(readWhole(once), "321");
    EXPECT_EQ(identifierOf([&] { once.open(); }), "NETROVE:client:ContentNotRewound");
    EXPECT_EQ(opened, 3);

    EXPECT_EQ(identifierOf([] { Body(nullptr, {}, true, ""); }), "NETROVE:client:Usage");
    EXPECT_EQ(identifierOf([] { Body([] { return nullptr; }, {}, true, "").open(); }), "NETROVE:client:Usage");
}

TEST(Body, GeneratorRunsOnce) {
    const Body body = netrove::generator(pieces({"one", "t", "wo three"}));
    EXPECT_EQ(body.length(), std::nullopt);
    EXPECT_FALSE(body.repeatable());
    EXPECT_EQ(readWhole(body, 2), "onetwo three");
    EXPECT_EQ(identifierOf([&] { body.open(); }), "NETROVE:client:ContentNotRewound");
    EXPECT_EQ(identifierOf([] { netrove::generator(nullptr); }), "NETROVE:client:Usage");
}

TEST(Body, GeneratorIsNotAskedAfterItsEnd) {
    const Body body = netrove::generator(pieces({"x"}));
    const auto reader = body.open();
    std::array<std::byte, 8> room{};
    EXPECT_EQ(reader->read(room), 1U);
    EXPECT_EQ(reader->read(room), 0U);
    EXPECT_EQ(reader->read(room), 0U); // `pieces` throws when it is called once more
}

TEST(Body, GeneratorsStartAnew) {
    const Body body = netrove::generators([] { return pieces({"ab", "c"}); }, 3);
    EXPECT_EQ(body.length(), 3U);
    EXPECT_TRUE(body.repeatable());
    EXPECT_EQ(readWhole(body), "abc");
    EXPECT_EQ(readWhole(body, 1), "abc");
    EXPECT_EQ(identifierOf([] { netrove::generators(nullptr); }), "NETROVE:client:Usage");
    EXPECT_EQ(identifierOf([] { netrove::generators([] { return netrove::Generator(); }).open(); }),
              "NETROVE:client:Usage");
}

TEST(Body, ContentIsAsLongAsAnnouncedOrFails) {
    for (const std::size_t room : {1U, 3U, 100U}) {
        EXPECT_EQ(textOf([&] { readWhole(netrove::generator(pieces({"abcde"}), 6), room); }),
                  "the content is not as long as announced: it ended after 5 of 6 bytes");
        EXPECT_EQ(textOf([&] {
                      readWhole(netrove::generator(pieces({"ab", "cde"}), 4), room);
                  }),
                  "the content is not as long as announced: it has more than 4 bytes");
        EXPECT_EQ(textOf([&] { readWhole(netrove::generator(pieces({"a"}), 0), room); }),
                  "the content is not as long as announced: it has more than 0 bytes");
        EXPECT_EQ(readWhole(netrove::generator(pieces({}), 0), room), "");
    }
}

TEST(Body, WhatAGeneratorThrowsPassesUnchanged) {
    const Body body = netrove::generator([]() -> std::span<const std::byte> { throw std::out_of_range("mine"); });
    EXPECT_THROW(readWhole(body), std::out_of_range);
}

TEST(Body, StreamFromWhereItStands) {
    std::istringstream source("skipped content");
    source.ignore(8);
    const Body body = netrove::stream(source);
    EXPECT_EQ(body.length(), 7U);
    EXPECT_TRUE(body.repeatable());
    EXPECT_EQ(readWhole(body), "content");
    EXPECT_EQ(readWhole(body, 3), "content");
    EXPECT_TRUE(source.good());
}

TEST(Body, StreamAtItsEndIsEmpty) {
    std::istringstream source("word");
    std::string word;
    source >> word;
    ASSERT_TRUE(source.eof());
    const Body body = netrove::stream(source);
    EXPECT_EQ(body.length(), 0U);
    EXPECT_EQ(readWhole(body), "");
}

TEST(Body, StreamThatCannotBeMovedIsSentOnce) {
    struct Source : std::streambuf {
        std::string Text = "forward only";
        Source() { setg(Text.data(), Text.data(), Text.data() + Text.size()); }
    } buffer;
    std::istream source(&buffer);
    const Body body = netrove::stream(source);
    EXPECT_EQ(body.length(), std::nullopt);
    EXPECT_FALSE(body.repeatable());
    EXPECT_EQ(readWhole(body), "forward only");
    EXPECT_EQ(identifierOf([&] { body.open(); }), "NETROVE:client:ContentNotRewound");
}

TEST(Body, StreamThatWasNeverOpenedIsRefused) {
    std::ifstream missing("/nonexistent/file");
    EXPECT_EQ(identifierOf([&] { netrove::stream(missing); }), "NETROVE:client:Usage");
    std::istream none(nullptr);
    EXPECT_EQ(identifierOf([&] { netrove::stream(none); }), "NETROVE:client:Usage");
}

class FileBody : public testing::Test {
protected:
    std::string write(const std::string& name, const std::string& content) {
        testsupport::writeFile(Folder.file(name), content);
        return Folder.file(name);
    }

    testsupport::TemporaryFolder Folder;
};

constexpr ErrorKind kFile = ErrorKind::File;

TEST_F(FileBody, IsReadFromItsStartEachTime) {
    const std::string content = std::string(100000, 'x') + std::string("\0end", 4);
    const Body body = netrove::file(write("data.bin", content));
    EXPECT_EQ(body.length(), content.size());
    EXPECT_TRUE(body.repeatable());
    EXPECT_FALSE(body.inMemory());
    EXPECT_EQ(readWhole(body), content);
    EXPECT_EQ(readWhole(body, 70001), content);
    EXPECT_EQ(readWhole(netrove::file(write("empty", ""))), "");
}

TEST_F(FileBody, TypeByTheEndOfTheName) {
    const struct {
        const char* Name;
        const char* Type;
    } rows[] = {
        {"page.html", "text/html"},
        {"PHOTO.JPG", "image/jpeg"},
        {"a.tar.gz", "application/x-compressed-tar"},
        {"a.gz", "application/gzip"},
        {"data.json", "application/json"},
        {"t\xC3\xA9xt.txt", "text/plain"},
        {"main.C", "text/x-c++src"},
        {"main.c", "text/x-csrc"},
        {"Makefile", "text/x-makefile"},
        {"no-ending", "application/octet-stream"},
        {"strange.no-such-ending", "application/octet-stream"},
        {"\xFF.png", "image/png"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(netrove::file(write(row.Name, "")).contentType(), row.Type) << row.Name;
    }
    EXPECT_EQ(netrove::file(write("page.html", ""), "text/plain").contentType(), "text/plain");
}

TEST_F(FileBody, ThatIsNotThereFailsAtOnce) {
    const std::string missing = Folder.file("missing");
    EXPECT_EQ(identifierOf([&] { netrove::file(missing); }, kFile), "NETROVE:client:FileNotRead");
    EXPECT_EQ(textOf([&] { netrove::file(missing); }), "cannot read " + missing + ": No such file or directory");
    EXPECT_EQ(textOf([&] { netrove::file(Folder.path()); }), "cannot read " + Folder.path() + ": Is a directory");
}

TEST_F(FileBody, ThatHasGoneFailsWhenItIsSent) {
    const std::string name = write("data", "content");
    const Body body = netrove::file(name);
    std::filesystem::remove(name);
    EXPECT_EQ(identifierOf([&] { body.length(); }, kFile), "NETROVE:client:FileNotRead");
    EXPECT_EQ(identifierOf([&] { body.open(); }, kFile), "NETROVE:client:FileNotRead");
}

TEST_F(FileBody, IsTakenAsItIsWhenItIsSent) {
    const std::string name = write("log", "one");
    const Body body = netrove::file(name);
    EXPECT_EQ(body.length(), 3U);
    EXPECT_EQ(readWhole(body), "one");
    write("log", "one two");
    EXPECT_EQ(body.length(), 7U);
    EXPECT_EQ(readWhole(body), "one two");
}

// What happens to a file of 10 bytes after its length was announced, and after 4 bytes were read.
TEST_F(FileBody, ThatChangesWhileItIsSentFails) {
    const struct {
        const char* What;
        std::function<void(const std::string&)> Change;
    } rows[] = {{"longer", [](const std::string& name) { std::ofstream(name, std::ios::app) << "more"; }},
                {"shorter", [](const std::string& name) { std::filesystem::resize_file(name, 7); }},
                {"shorter than what was read", [](const std::string& name) { std::filesystem::resize_file(name, 2); }},
                {"other time", [](const std::string& name) {
                     std::filesystem::last_write_time(name, std::filesystem::file_time_type() + std::chrono::hours(1));
                 }}};
    for (const auto& row : rows) {
        const std::string name = write("data", "0123456789");
        const Body body = netrove::file(name);
        ASSERT_EQ(body.length(), 10U);
        auto reader = body.open();
        std::array<std::byte, 4> room{};
        ASSERT_EQ(reader->read(room), 4U);
        row.Change(name);
        const auto readRest = [&] {
            while (reader->read(room) > 0) {
            }
        };
        EXPECT_EQ(identifierOf(readRest, kFile), "NETROVE:client:ContentChanged") << row.What;
        // Promised is promised, until it is sent anew.
        EXPECT_EQ(body.length(), 10U) << row.What;
        reader = body.open();
        EXPECT_EQ(body.length(), std::filesystem::file_size(name)) << row.What;
        reader.reset();
        EXPECT_EQ(readWhole(body), testsupport::readFile(name)) << row.What;
    }
}

TEST_F(FileBody, PipeIsReadOnceAndHasNoLength) {
    const std::string name = Folder.file("pipe");
    ASSERT_EQ(::mkfifo(name.c_str(), 0600), 0);
    const Body body = netrove::file(name); // does not wait for a writer
    EXPECT_EQ(body.length(), std::nullopt);
    EXPECT_FALSE(body.repeatable());
    std::jthread writer([&] { std::ofstream(name) << "through a pipe"; });
    EXPECT_EQ(readWhole(body), "through a pipe");
    EXPECT_EQ(identifierOf([&] { body.open(); }), "NETROVE:client:ContentNotRewound");
}

TEST_F(FileBody, DeviceIsReadOnceAndHasNoLength) {
    const Body body = netrove::file("/dev/null");
    EXPECT_EQ(body.length(), std::nullopt);
    EXPECT_FALSE(body.repeatable());
    EXPECT_EQ(readWhole(body), "");
}

// A file of the system that says that it is empty, and is not.
TEST_F(FileBody, FileOfTheSystemIsNotSentAsEmpty) {
    const Body body = netrove::file("/proc/self/status");
    ASSERT_EQ(body.length(), 0U);
    EXPECT_EQ(identifierOf([&] { readWhole(body); }, kFile), "NETROVE:client:ContentChanged");
}

TEST(FormBody, IsEncodedAsTheUrlStandardSays) {
    const Body body = netrove::form({{"a b", "c+d"}, {"", ""}, {"*-._~", "\xC3\xA9/\xFF"}, {"a b", "x=y&z"}});
    EXPECT_EQ(body.contentType(), "application/x-www-form-urlencoded");
    EXPECT_EQ(readWhole(body), "a+b=c%2Bd&=&*-._%7E=%C3%A9%2F%FF&a+b=x%3Dy%26z");
    EXPECT_EQ(body.length(), readWhole(body).size());
    EXPECT_EQ(readWhole(netrove::form({})), "");
}

TEST(FormBody, PythonReadsWhatWasWritten) {
    std::string allBytes;
    for (int byte = 0; byte < 256; ++byte) {
        allBytes += static_cast<char>(byte);
    }
    const netrove::Pairs pairs = {{"name", "value"}, {"name", "again"},        {"", "no name"},
                                  {"no value", ""},  {"line\r\nbreak", "a;b"}, {allBytes, allBytes}};
    // Latin-1 keeps each byte as a character of that number.
    const nlohmann::json read = python(R"(
import json, sys, urllib.parse
content = open(sys.argv[1], "rb").read().decode("ascii")
pairs = urllib.parse.parse_qsl(content, keep_blank_values=True, strict_parsing=True, encoding="latin-1")
print(json.dumps([[name.encode("latin-1").hex(), value.encode("latin-1").hex()] for name, value in pairs]))
)",
                                       readWhole(netrove::form(pairs)));
    const auto hex = [](const std::string& text) {
        std::string digits;
        for (const char c : text) {
            constexpr const char* hexDigits = "0123456789abcdef";
            digits += hexDigits[static_cast<unsigned char>(c) / 16];
            digits += hexDigits[static_cast<unsigned char>(c) % 16];
        }
        return digits;
    };
    nlohmann::json expected = nlohmann::json::array();
    for (const auto& [name, value] : pairs) {
        expected.push_back({hex(name), hex(value)});
    }
    EXPECT_EQ(read, expected);
}

} // namespace
