// Where content goes that may come in several parts.
#pragma once

#include "client/save/ContentState.h"

#include <netrove/request.h>
#include <netrove/response.h>
#include <netrove/transport.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <string>

namespace netrove {

class ContentStore {
public:
    virtual ~ContentStore() = default;

    virtual std::uint64_t size() const = 0; // bytes that are there
    // What is known of them; nothing where there are none, or nobody knows where they are from.
    virtual const std::optional<ContentState>& state() const = 0;
    // True where content must come without a coding: what is there has none.
    virtual bool plain() const { return false; }
    // True if these bytes are there from `at` on.
    virtual bool holds(std::uint64_t at, std::span<const std::byte> bytes) const = 0;

    // The whole follows, in place of what is there. False: what is there has been passed on and cannot be taken back.
    virtual bool restart(const Response& head) = 0;
    virtual bool restarts() const { return true; }
    // What follows `at` follows: the rest is dropped. False: what is there is older than what comes, unless `forced`.
    virtual bool goOn(std::uint64_t at, const Response& head, bool forced) = 0;
    // False: no more is wanted.
    virtual bool write(std::span<const std::byte> piece) = 0;
    // What is there is wrong.
    virtual void discard() {}

    // The content has come: checks it. Nothing is kept if this or what follows is not reached or raises, except what
    // may be resumed.
    virtual void finish(const Request&, const Response&) {}
    // Brings it to the disk, or has found it there.
    virtual void settle(bool) {}
    // Gives it its name, which must not be on the disk before the content.
    virtual void name() {}
    virtual int descriptor() const { return -1; }
    // Of the file that a killed program leaves; empty for none.
    virtual std::string temporaryName() const { return {}; }
    virtual std::filesystem::path target() const { return {}; }
};

// A file that is whole or not there. Raises an Error of kind File where it cannot be made.
// `tidy`: what killed programs have left of the same target is removed, temporary files at once and the part of a file
// that was to go on once the whole has its name.
std::unique_ptr<ContentStore> wholeFile(const std::filesystem::path& target, bool replace, bool tidy);

// The same in a folder, tidied, under the name that Content-Disposition (RFC 6266) or else the URL gives it.
std::unique_ptr<ContentStore> namedFile(const std::filesystem::path& folder, bool replace);

// A file that goes on where an earlier call ended. It is collected in TARGET.part; TARGET.part.json says which content
// of the server it is the beginning of. With `adopt`, TARGET itself goes on where there is no such part. Raises an
// Error of kind File, also while another program does the same.
std::unique_ptr<ContentStore> partFile(const std::filesystem::path& target, bool replace, bool adopt);

// Removes such a part and its note, unless another program uses it or nothing says that it is one. Raises nothing.
void removePart(const std::filesystem::path& target);

// Where such a part is, and the note that says what it is.
std::filesystem::path partNameFor(const std::filesystem::path& target, bool replace);
std::filesystem::path noteNameFor(const std::filesystem::path& part);

// For a list of files: wholeFile where the content is short, partFile where the server announces at least so many
// bytes (nothing: never), or an earlier call has left something that can go on. A file FILE.part of somebody else is
// left alone. `onTemporary` is called before anything is written to a file that a killed program leaves.
using OnTemporary = std::function<void(const std::string& name, int descriptor)>;
std::unique_ptr<ContentStore> listedFile(const std::filesystem::path& target, bool replace, bool decodes,
                                         std::optional<std::uint64_t> resumedFrom, OnTemporary onTemporary);

// What a program consumes as it comes. `onHead` is called with each head, until content has been passed on.
std::unique_ptr<ContentStore> passedOn(std::function<Taker(const Response& head)> onHead);

} // namespace netrove
