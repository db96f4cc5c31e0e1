// What belongs to each of many digests, in little memory: beyond some thousands it is in a file without a name.
//
// Digests are spread evenly, so a table that is addressed by their first bits needs one read for a look-up and one
// write for an entry. With ten million entries that takes a third of the time of an index of SQLite's, which cannot
// make use of it.
#pragma once

#include <netrove/descriptor.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <type_traits>
#include <vector>

namespace netrove::cli {

// The table; an entry is its key and bytes after it. All raise FileNotWritten for a file that cannot be made, read or
// written.
class DigestTable {
public:
    explicit DigestTable(std::size_t valueSize);

    // The value of a key, valid until the next call; null for none.
    std::byte* find(std::uint64_t key);
    // The same, with room made for it: whether it is new is in `isNew`.
    std::byte* place(std::uint64_t key, bool& isNew);

    std::size_t size() const { return Count; }

private:
    std::byte* entry(std::size_t place);
    std::byte* search(std::uint64_t key);
    std::size_t home(std::uint64_t key) const;
    void load(std::size_t page);
    void store();
    void grow();

    std::size_t EntrySize;
    std::size_t EntriesOfPage;
    unsigned Bits;                     // of the number of pages
    std::size_t Count = 0;             // of entries
    std::vector<std::byte> All;        // while there are few
    Descriptor File{-1};               // of all pages, once there are many
    std::vector<std::byte> Page;       // the one that was needed last
    std::optional<std::size_t> Loaded; // its number
    bool Changed = false;              // since it was loaded
};

// Values are copied as bytes.
template <class Value>
class DigestStore {
    static_assert(std::is_trivially_copyable_v<Value>);

public:
    bool empty() const { return Table.size() == 0; }
    std::size_t size() const { return Table.size(); }

    std::optional<Value> find(std::uint64_t key) {
        const std::byte* const found = empty() ? nullptr : Table.find(key);
        return found == nullptr ? std::nullopt : std::optional(valueAt(found));
    }
    void put(std::uint64_t key, const Value& value) {
        bool isNew = false;
        std::memcpy(Table.place(key, isNew), &value, sizeof value);
    }
    // Unless there is one already, which is returned.
    std::optional<Value> add(std::uint64_t key, const Value& value) {
        bool isNew = false;
        std::byte* const place = Table.place(key, isNew);
        if (!isNew) {
            return valueAt(place);
        }
        std::memcpy(place, &value, sizeof value);
        return std::nullopt;
    }

private:
    static Value valueAt(const std::byte* place) {
        Value value;
        std::memcpy(&value, place, sizeof value);
        return value;
    }

    DigestTable Table{sizeof(Value)};
};

} // namespace netrove::cli
