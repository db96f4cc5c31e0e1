// Which pages of large memory are ready before anything is written there.
#include "http/MappedAhead.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using netrove::MappedAhead;

constexpr std::size_t kMiB = std::size_t{1} << 20;

class MappedPages : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(Memory, MAP_FAILED);
        ::madvise(Memory, kRoom + kMiB, MADV_NOHUGEPAGE); // a huge page would be ready as a whole
#ifdef MADV_POPULATE_WRITE
        Possible = ::madvise(begin() + kRoom, Page, MADV_POPULATE_WRITE) == 0;
#endif
    }
    ~MappedPages() override { ::munmap(Memory, kRoom + kMiB); }

    char* begin() const { return static_cast<char*>(Memory); }
    // How many bytes in a row are ready.
    std::size_t ready() const {
        std::vector<unsigned char> pages(kRoom / Page);
        EXPECT_EQ(::mincore(Memory, kRoom, pages.data()), 0);
        std::size_t count = 0;
        while (count != pages.size() && (pages[count] & 1) != 0) {
            ++count;
        }
        return count * Page;
    }

    static constexpr std::size_t kRoom = 4 * kMiB;
    const std::size_t Page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    void* Memory = ::mmap(nullptr, kRoom + kMiB, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    bool Possible = false; // older systems cannot do it, and leave it all to the writes
    MappedAhead Ahead;
};

TEST_F(MappedPages, AreAStepAheadOfWhatIsWrittenAndNeverBeyondTheRoom) {
    for (const auto& [used, mapped] : std::vector<std::pair<std::size_t, std::size_t>>{{0, kMiB},
                                                                                       {kMiB / 2, kMiB},
                                                                                       {kMiB / 2 + 1, 2 * kMiB},
                                                                                       {2 * kMiB, 3 * kMiB},
                                                                                       {3 * kMiB - 1, kRoom},
                                                                                       {kRoom, kRoom}}) {
        Ahead.advance(begin(), used, kRoom);
        EXPECT_EQ(ready(), Possible ? mapped : 0) << used;
    }
}

TEST_F(MappedPages, OfLittleMemoryAreLeftAlone) {
    Ahead.advance(begin(), 0, kRoom - 1);
    EXPECT_EQ(ready(), 0U);
}

} // namespace
