#include "client/request/MultipartBody.h"

#include "tests/client/request/MultipartReading.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netrove/error.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>

namespace {

using clienttest::readBack;
using clienttest::ReadPart;
using clienttest::readWhole;
using netrove::Body;
using netrove::Part;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

std::string boundaryOf(const Body& form) {
    const std::string prefix = "multipart/form-data; boundary=";
    EXPECT_TRUE(form.contentType().starts_with(prefix)) << form.contentType();
    return form.contentType().substr(prefix.size());
}

const std::vector<std::string> kDispositionOnly = {"Content-Disposition"};
const std::vector<std::string> kWithType = {"Content-Disposition", "Content-Type"};

Body once(const std::string& content, std::optional<std::uint64_t> length = {}) {
    return netrove::generator(
        [content, given = false]() mutable -> std::span<const std::byte> {
            return std::exchange(given, true) ? std::span<const std::byte>() : std::as_bytes(std::span(content));
        },
        length);
}

TEST(MultipartBody, BytesOnTheWire) {
    const Body form = netrove::multipart(
        {{"title", netrove::text("A day")}, {"data", netrove::bytes(std::as_bytes(std::span("xyz", 3))), "a.bin"}});
    const std::string boundary = boundaryOf(form);
    const std::string expected = "--" + boundary +
                                 "\r\nContent-Disposition: form-data; name=\"title\"\r\n\r\nA day"
                                 "\r\n--" +
                                 boundary +
                                 "\r\nContent-Disposition: form-data; name=\"data\"; filename=\"a.bin\"\r\n"
                                 "Content-Type: application/octet-stream\r\n\r\nxyz"
                                 "\r\n--" +
                                 boundary + "--\r\n";
    for (const std::size_t room : {1U, 7U, 100000U}) {
        EXPECT_EQ(readWhole(form, room), expected) << room;
    }
    EXPECT_EQ(form.length(), expected.size());
    EXPECT_TRUE(form.repeatable());
}

TEST(MultipartBody, BoundaryIsLegalAndDiffersEachTime) {
    std::set<std::string> seen;
    for (int i = 0; i < 20; ++i) {
        const std::string boundary = boundaryOf(netrove::multipart({}));
        // Without characters that would need quotes in Content-Type.
        EXPECT_TRUE(std::regex_match(boundary, std::regex("[0-9A-Za-z_.-]{1,70}"))) << boundary;
        EXPECT_TRUE(seen.insert(boundary).second);
    }
}

TEST(MultipartBody, BoundaryThatOccursInAPartIsNotUsed) {
    const std::vector<Part> parts = {{"in-name", netrove::text("x in-content y")},
                                     {"b", netrove::text("", "a/in-type"), "in-filename"},
                                     {"c", once("in-stream")}};
    std::vector<std::string> proposals = {"in-content", "in-name", "in-type", "in-filename", "form-data", "free"};
    const std::string chosen = netrove::freeBoundary(parts, [&] {
        std::string next = proposals.front();
        proposals.erase(proposals.begin());
        return next;
    });
    EXPECT_EQ(chosen, "free");
}

// A part has no other field.
TEST(MultipartBody, PythonReadsWhatWasWritten) {
    const testsupport::TemporaryFolder folder;
    testsupport::writeFile(folder.file("photo.jpg"), "\xFF\xD8");
    testsupport::writeFile(folder.file("data"), "");
    std::string allBytes;
    for (int byte = 0; byte < 256; ++byte) {
        allBytes += static_cast<char>(byte);
    }
    std::string hex;
    for (const char c : allBytes) {
        constexpr const char* digits = "0123456789abcdef";
        hex += digits[static_cast<unsigned char>(c) / 16];
        hex += digits[static_cast<unsigned char>(c) % 16];
    }
    const Body form = netrove::multipart({
        {"title", netrove::text("\xC3\xA9\r\n--x")},
        {"empty", netrove::text("")},
        {"none", {}},
        {"note", netrove::text("n", "text/markdown")},
        {"data", netrove::bytes(std::as_bytes(std::span(allBytes)))},
        {"photo", netrove::file(folder.file("photo.jpg"))},
        {"renamed", netrove::file(folder.file("photo.jpg")), "other.png"},
        {"unknown", netrove::file(folder.file("data"))},
        {"attached", netrove::text("t"), "t.txt"},
        {"untyped", Body(), "u"},
        {"made", once("generated")},
    });
    const std::string octets = "application/octet-stream";
    EXPECT_THAT(readBack(form), ElementsAre(ReadPart{"title", {}, kDispositionOnly, "", "c3a90d0a2d2d78"},
                                            ReadPart{"empty", {}, kDispositionOnly, "", ""},
                                            ReadPart{"none", {}, kDispositionOnly, "", ""},
                                            ReadPart{"note", {}, kWithType, "text/markdown", "6e"},
                                            ReadPart{"data", {}, kWithType, octets, hex},
                                            ReadPart{"photo", "photo.jpg", kWithType, "image/jpeg", "ffd8"},
                                            ReadPart{"renamed", "other.png", kWithType, "image/jpeg", "ffd8"},
                                            ReadPart{"unknown", "data", kWithType, octets, ""},
                                            ReadPart{"attached", "t.txt", kWithType, "text/plain;charset=utf-8", "74"},
                                            ReadPart{"untyped", "u", kWithType, octets, ""},
                                            ReadPart{"made", {}, kWithType, octets, "67656e657261746564"}));
}

TEST(MultipartBody, FileNameIsItsLastSegment) {
    const auto sent = [](const std::string& name) {
        return readWhole(netrove::multipart({{"f", netrove::text(""), name}}));
    };
    EXPECT_THAT(sent("/home/me/a.txt"), HasSubstr("; filename=\"a.txt\"\r\n"));
    EXPECT_THAT(sent("../a.txt"), HasSubstr("; filename=\"a.txt\"\r\n"));
    EXPECT_THAT(sent("a\\b.txt"), HasSubstr("; filename=\"a\\b.txt\"\r\n")); // a character like others
    EXPECT_THROW(sent("folder/"), netrove::Error);
}

TEST(MultipartBody, NamesAreUtf8WithThreeEscapes) {
    const std::string name = "\xC3\xA9 \"x\"\r\n%22;'\\";
    const std::string escaped = "\xC3\xA9 %22x%22%0D%0A%22;'\\";
    const std::string content = readWhole(netrove::multipart({{name, netrove::text(""), name}}));
    EXPECT_THAT(content, HasSubstr("form-data; name=\"" + escaped + "\"; filename=\"" + escaped + "\"\r\n"));
    EXPECT_THAT(content, Not(HasSubstr("filename*")));
    EXPECT_THAT(
        readBack(netrove::multipart({{"\xC3\x89t\xC3\xA9", netrove::text(""), "\xE6\x96\x87 \xF0\x9F\x98\x80.txt"}})),
        ElementsAre(ReadPart{"\xC3\x89t\xC3\xA9", "\xE6\x96\x87 \xF0\x9F\x98\x80.txt", kWithType,
                             "text/plain;charset=utf-8", ""}));
}

TEST(MultipartBody, FilesOfOneFieldAreSeveralPartsInOrder) {
    EXPECT_THAT(
        readBack(netrove::multipart(
            {{"f", netrove::text("2", "a/b"), "b"}, {"g", netrove::text("0")}, {"f", netrove::text("1", "a/b"), "a"}})),
        ElementsAre(ReadPart{"f", "b", kWithType, "a/b", "32"}, ReadPart{"g", {}, kDispositionOnly, "", "30"},
                    ReadPart{"f", "a", kWithType, "a/b", "31"}));
}

TEST(MultipartBody, LengthIsKnownWhereThatOfEachPartIs) {
    const testsupport::TemporaryFolder folder;
    testsupport::writeFile(folder.file("data"), std::string(12345, 'x'));
    const Body known = netrove::multipart(
        {{"a", netrove::text("abc")}, {"b", netrove::file(folder.file("data"))}, {"c", once("xy", 2)}});
    ASSERT_TRUE(known.length());
    EXPECT_EQ(*known.length(), readWhole(known).size());
    EXPECT_EQ(netrove::multipart({{"a", netrove::text("abc")}, {"c", once("xy")}}).length(), std::nullopt);
}

TEST(MultipartBody, FileThatChangesInTransitFails) {
    const testsupport::TemporaryFolder folder;
    testsupport::writeFile(folder.file("data"), "0123456789");
    const Body form = netrove::multipart({{"a", netrove::text("abc")}, {"b", netrove::file(folder.file("data"))}});
    const auto reader = form.open();
    const auto promised = form.length();
    std::array<std::byte, 10> room{};
    ASSERT_EQ(reader->read(room), room.size()); // the file is not open yet
    std::ofstream(folder.file("data"), std::ios::app) << "more";
    EXPECT_EQ(form.length(), promised);
    try {
        while (reader->read(room) > 0) {
        }
        ADD_FAILURE();
    } catch (const netrove::Error& error) {
        EXPECT_EQ(error.identifier(), "NETROVE:client:ContentChanged");
        EXPECT_EQ(error.kind(), netrove::ErrorKind::File);
        EXPECT_THAT(error.what(), HasSubstr("changed while it was being sent: it has more than 10 bytes"));
    }
    EXPECT_EQ(readWhole(form).size(), *promised + 4); // sent anew, as it is now
}

TEST(MultipartBody, IsRepeatableWhereAllItsPartsAre) {
    const Body form = netrove::multipart({{"a", netrove::text("abc")}, {"c", once("xy")}});
    EXPECT_FALSE(form.repeatable());
    readWhole(form);
    EXPECT_THROW(form.open(), netrove::Error);
}

TEST(MultipartBody, PartNeedsAName) {
    try {
        netrove::multipart({{"a", netrove::text("")}, {"", netrove::text("")}});
        ADD_FAILURE();
    } catch (const netrove::Error& error) {
        EXPECT_EQ(error.kind(), netrove::ErrorKind::Usage);
    }
}

TEST(MultipartBody, WithoutPartsIsOnlyItsEnd) {
    const Body form = netrove::multipart({});
    EXPECT_EQ(readWhole(form), "--" + boundaryOf(form) + "--\r\n");
}

// More files than a process may have open at a time.
TEST(MultipartBody, FilesAreOpenOneAtATime) {
    const testsupport::TemporaryFolder folder;
    testsupport::writeFile(folder.file("data"), "x");
    const auto openFiles = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                             std::filesystem::directory_iterator());
    };
    std::vector<Part> parts;
    for (int i = 0; i < 50; ++i) {
        parts.push_back({"f", netrove::file(folder.file("data"))});
    }
    const auto before = openFiles();
    const auto reader = netrove::multipart(std::move(parts)).open();
    std::array<std::byte, 64> room{};
    do {
        EXPECT_LE(openFiles(), before + 1);
    } while (reader->read(room) > 0);
    EXPECT_EQ(openFiles(), before);
}

} // namespace
