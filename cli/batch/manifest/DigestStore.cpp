#include "cli/batch/manifest/DigestStore.h"

#include "cli/failures/CliFailure.h"
#include "cli/system/TemporaryFile.h"

#include <netrove/text.h>

#include <cerrno>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <utility>

namespace netrove::cli {

namespace {

constexpr std::size_t kPageSize = 4096;
constexpr unsigned kHeldBits = 8; // up to so many pages are held: 1 MiB
constexpr unsigned kFirstBits = 2;
// How full the table may become, in tenths. Beyond it entries are ever further from where they are looked for.
constexpr std::size_t kFullTenths = 7;

template <class Call>
void transferAll(std::size_t length, const Call& call) {
    for (std::size_t done = 0; done < length;) {
        const ssize_t count = retried([&] { return call(done); });
        if (count <= 0) {
            failSystem(failure::kFileNotWritten, temporaryFolder(), count < 0 ? errno : EIO);
        }
        done += static_cast<std::size_t>(count);
    }
}

// Mixed, so that keys are spread evenly also where somebody has chosen them; different keys stay different. Zero marks
// an entry that is free.
std::uint64_t stored(std::uint64_t key) {
    key = (key ^ key >> 30) * 0xbf58476d1ce4e5b9;
    key = (key ^ key >> 27) * 0x94d049bb133111eb;
    key ^= key >> 31;
    return key == 0 ? 1 : key;
}

std::uint64_t keyAt(const std::byte* entry) {
    std::uint64_t key = 0;
    std::memcpy(&key, entry, sizeof key);
    return key;
}

} // namespace

DigestTable::DigestTable(std::size_t valueSize)
    : EntrySize(sizeof(std::uint64_t) + valueSize), EntriesOfPage(kPageSize / EntrySize), Bits(kFirstBits) {}

std::byte* DigestTable::find(std::uint64_t key) {
    if (Count == 0) {
        return nullptr;
    }
    std::byte* const found = search(stored(key));
    return keyAt(found) == 0 ? nullptr : found + sizeof key;
}

std::byte* DigestTable::place(std::uint64_t key, bool& isNew) {
    if (All.empty() && File.Number < 0) {
        All.resize(kPageSize << Bits);
    } else if ((Count + 1) * 10 > (EntriesOfPage << Bits) * kFullTenths) {
        grow();
    }
    key = stored(key);
    std::byte* const found = search(key);
    isNew = keyAt(found) == 0;
    if (isNew) {
        std::memcpy(found, &key, sizeof key);
        ++Count;
    }
    Changed = true;
    return found + sizeof key;
}

// The entry of the key, or the free one where it would be.
std::byte* DigestTable::search(std::uint64_t key) {
    const std::size_t all = EntriesOfPage << Bits;
    for (std::size_t place = home(key);; place = place + 1 == all ? 0 : place + 1) {
        std::byte* const here = entry(place);
        const std::uint64_t found = keyAt(here);
        if (found == key || found == 0) {
            return here;
        }
    }
}

// In the order of the keys as they are stored, so that a table that grows is copied from its start to its end.
std::size_t DigestTable::home(std::uint64_t key) const {
    const std::size_t page = key >> (64 - Bits);
    const std::uint64_t within = key << Bits >> 32;
    return page * EntriesOfPage + (within * EntriesOfPage >> 32);
}

std::byte* DigestTable::entry(std::size_t place) {
    const std::size_t page = place / EntriesOfPage;
    const std::size_t offset = place % EntriesOfPage * EntrySize;
    if (File.Number < 0) {
        return All.data() + page * kPageSize + offset;
    }
    load(page);
    return Page.data() + offset;
}

void DigestTable::load(std::size_t page) {
    if (Loaded == page) {
        return;
    }
    store();
    transferAll(kPageSize, [&](std::size_t done) {
        return pread(File.Number, Page.data() + done, kPageSize - done, static_cast<off_t>(page * kPageSize + done));
    });
    Loaded = page;
}

void DigestTable::store() {
    if (!Loaded || !std::exchange(Changed, false)) {
        return;
    }
    transferAll(kPageSize, [&](std::size_t done) {
        return pwrite(File.Number, Page.data() + done, kPageSize - done,
                      static_cast<off_t>(*Loaded * kPageSize + done));
    });
}

void DigestTable::grow() {
    DigestTable larger(EntrySize - sizeof(std::uint64_t));
    larger.Bits = Bits + 1;
    if (larger.Bits <= kHeldBits) {
        larger.All.resize(kPageSize << larger.Bits);
    } else {
        larger.File.Number = openTemporary();
        larger.Page.resize(kPageSize);
        // What is read ahead would be of no use, and makes each write slower.
        posix_fadvise(larger.File.Number, 0, 0, POSIX_FADV_RANDOM);
        if (retried([&] { return ftruncate(larger.File.Number, static_cast<off_t>(kPageSize << larger.Bits)); }) != 0) {
            failSystem(failure::kFileNotWritten, temporaryFolder(), errno);
        }
    }
    for (std::size_t place = 0; place < EntriesOfPage << Bits; ++place) {
        const std::byte* const old = entry(place);
        if (keyAt(old) != 0) {
            std::memcpy(larger.search(keyAt(old)), old, EntrySize);
            larger.Changed = true;
        }
    }
    std::swap(File.Number, larger.File.Number);
    std::swap(All, larger.All);
    std::swap(Page, larger.Page);
    std::swap(Loaded, larger.Loaded);
    std::swap(Changed, larger.Changed);
    Bits = larger.Bits;
}

} // namespace netrove::cli
