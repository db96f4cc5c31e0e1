#include "streaming/ContentBuffer.h"

#include "tests/streaming/CopierFixture.h"

#include <algorithm>
#include <limits>

using namespace streamingtest;

namespace {

using namespace matrix::detail::noninlined::vx_array_api;

constexpr std::size_t kLong = 300'003;
constexpr std::uint64_t kGiB = std::uint64_t{1} << 30;

const void* placeOf(const HostArray& array) {
    return vxGetData(static_cast<const vxArray_tag*>(array.get()));
}
// The bytes of a column.
std::string bytesOf(const HostArray& array) {
    EXPECT_THAT(std::span(vxGetDimensions(array.get()), 2), ElementsAre(arrayElementCount(array.get()), 1U));
    return {static_cast<const char*>(placeOf(array)), arrayElementCount(array.get())};
}

class ContentBufferTest : public testsupport::ScopeFixture {
protected:
    // As libcurl's bytes land; what there is no room for is written.
    void land(std::string_view bytes) {
        const std::span<char> room = Buffer.room();
        const std::size_t landing = std::min(room.size(), bytes.size());
        std::copy_n(bytes.begin(), landing, room.begin());
        Buffer.addLanded(landing);
        Buffer << bytes.substr(landing);
    }

    ContentBuffer Buffer;
};

TEST_F(ContentBufferTest, ContentOfAnAnnouncedLengthIsReceivedInTheArrayThatIsHandedOver) {
    const std::string content(kLong, 'c');
    for (const std::string before : {"", "before "}) {
        Buffer << before;
        Buffer.expect(kLong);
        const char* const place = Buffer.room().data() - before.size();
        ASSERT_EQ(Buffer.room().size(), kLong);
        land(content.substr(0, 1000));
        Buffer.expect(kLong - 1000); // a copy that goes on
        land(content.substr(1000));
        EXPECT_EQ(Buffer.tellp(), static_cast<std::streamoff>(before.size() + kLong));
        const HostArray taken = Buffer.release();
        EXPECT_EQ(placeOf(taken), place);
        EXPECT_EQ(bytesOf(taken), before + content);
        EXPECT_EQ(bytesOf(Buffer.release()), "");
    }
}

TEST_F(ContentBufferTest, NoAnnouncementChangesWhatIsDelivered) {
    for (const std::uint64_t announced :
         {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{10'000}, std::uint64_t{kLong - 1}, std::uint64_t{kLong + 1},
          kGiB, kGiB + 1, std::numeric_limits<std::uint64_t>::max()}) {
        SCOPED_TRACE(announced);
        std::string all = "before";
        Buffer << all;
        Buffer.expect(announced);
        while (all.size() < kLong) {
            const std::string piece(all.size() % 70'000 + 1, static_cast<char>('a' + all.size() % 26));
            land(piece);
            Buffer.put('|');
            all += piece + '|';
        }
        EXPECT_EQ(Buffer.size(), all.size());
        EXPECT_EQ(bytesOf(Buffer.copy()), all);
        EXPECT_EQ(bytesOf(Buffer.release()), all);
        EXPECT_EQ(Buffer.size(), 0U);
    }
}

TEST_F(ContentBufferTest, LengthBeyondAllSenseReservesNothing) {
    for (const std::uint64_t announced : {std::uint64_t{0}, kGiB + 1, std::numeric_limits<std::uint64_t>::max()}) {
        Buffer.expect(announced);
        EXPECT_LE(Buffer.room().size(), 100'000U) << announced;
    }
}

TEST_F(ContentBufferTest, WhatComesWhileTheStreamHasFailedIsLost) {
    Buffer << "one";
    Buffer.setstate(std::ios::badbit);
    EXPECT_TRUE(Buffer.room().empty());
    Buffer << "two";
    EXPECT_EQ(bytesOf(Buffer.copy()), "one");
    Buffer.clear();
    Buffer << "three";
    EXPECT_EQ(bytesOf(Buffer.release()), "three");
}

TEST_F(ContentBufferTest, PartIsErased) {
    Buffer.expect(kLong);
    Buffer << "before received after";
    Buffer.erase(6, 9);
    EXPECT_EQ(bytesOf(Buffer.copy()), "before after");
    Buffer.erase(6, 6);
    EXPECT_EQ(bytesOf(Buffer.release()), "before");
}

} // namespace
