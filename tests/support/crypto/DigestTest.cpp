#include "tests/support/crypto/Digest.h"

#include "tests/support/process/TemporaryFolder.h"

#include <gtest/gtest.h>

namespace {

using namespace testsupport;

TEST(Digest, IsThatOfFips180AndCanBeReadInBetween) {
    Digest digest;
    EXPECT_EQ(digest.hex(), "E3B0C44298FC1C149AFBF4C8996FB92427AE41E4649B934CA495991B7852B855");
    digest.add("a");
    digest.add("bc");
    EXPECT_EQ(digest.hex(), digestOf("abc"));
    EXPECT_EQ(digest.hex(), "BA7816BF8F01CFEA414140DE5DAE2223B00361A396177A9CB410FF61F20015AD");
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
    const std::string content = generated(3U << 20U);
    EXPECT_NE(content.substr(0, 1U << 20U), content.substr(1U << 20U, 1U << 20U));
}

} // namespace
