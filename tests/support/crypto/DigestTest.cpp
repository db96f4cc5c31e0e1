#include "tests/support/crypto/Digest.h"

#include "tests/support/process/TemporaryFolder.h"

#include <gtest/gtest.h>

namespace {

using namespace testsupport;

TEST(Digest, IsThatOfFips180) {
    EXPECT_EQ(digestOf(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(digestOf("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(Digest, GrowsAndCanBeReadInBetween) {
    Digest digest;
    digest.add("a");
    EXPECT_EQ(digest.hex(), digestOf("a"));
    digest.add("bc");
    EXPECT_EQ(digest.hex(), digestOf("abc"));
    EXPECT_EQ(digest.size(), 3U);
}

TEST(Digest, OfAFileIsThatOfItsContent) {
    const TemporaryFolder folder;
    for (const std::uint64_t size : {0U, 1U, 1048576U, 2500000U}) {
        const std::string path = folder.file(std::to_string(size));
        const std::string written = writeGenerated(path, size);
        EXPECT_EQ(digestOfFile(path), written);
        EXPECT_EQ(digestOf(generated(size)), written);
        EXPECT_EQ(readFile(path).size(), size);
    }
    EXPECT_THROW(digestOfFile(folder.file("none")), std::runtime_error);
}

TEST(Digest, GeneratedBlocksDiffer) {
    const std::string content = generated(3U << 20U);
    EXPECT_NE(content.substr(0, 1U << 20U), content.substr(1U << 20U, 1U << 20U));
}

} // namespace
