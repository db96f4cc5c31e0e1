// Where `save` puts content: a file that gets its name once it is whole.
#pragma once

#include <netrove/request.h>
#include <netrove/response.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace netrove {

class SavedContent {
public:
    virtual ~SavedContent() = default;

    // Before each request: asks for what is missing only, where some is there.
    virtual void ask(Request&) {}
    // True if the last request asked for a part.
    virtual bool asksForPart() const { return false; }
    // A head that is not a failure. Sets `resumedAt`. False: it brings the wrong part, so everything is asked for anew.
    virtual bool begin(Response& head) = 0;
    // The server has no more of the part (416). True: what is there is whole, which sets `resumedAt`; otherwise
    // everything is asked for anew.
    virtual bool isWhole(Response&) { return false; }
    virtual void write(std::span<const std::byte> piece) = 0;
    // The content has come: checks it. Nothing is kept if this or what follows is not reached or raises, except what
    // may be resumed.
    virtual void finish(const Request& request, const Response& response) = 0;
    // Brings it to the disk, or has found it there.
    virtual void settle(bool flushed) = 0;
    // Gives it its name, which must not be on the disk before the content.
    virtual void name() = 0;
    virtual int descriptor() const = 0;
    // Of the file that a killed program leaves; empty for none.
    virtual std::string temporaryName() const { return {}; }
    virtual const std::filesystem::path& target() const = 0;
};

// What stays the same as long as the server's content does; fit for If-Range (RFC 9110, section 13.1.5). Empty: nothing
// does.
std::string validatorOf(const Fields& fields);
// Where content that is resumed is collected, and where the note is that says what it is.
std::filesystem::path partNameFor(const std::filesystem::path& target, bool replace);
std::filesystem::path noteNameFor(const std::filesystem::path& part);

// The same for files of a list: what begins anew with each attempt where it is short, and goes on where the server
// announces at least so many bytes (nothing: never), or an earlier call has left something that can go on. A file
// FILE.part of somebody else is left alone. `onTemporary` is called before anything is written to a file that a killed
// program leaves.
using OnTemporary = std::function<void(const std::string& name, int descriptor)>;
std::unique_ptr<SavedContent> listedContent(const std::filesystem::path& target, bool replace,
                                            std::optional<std::uint64_t> resumedFrom, OnTemporary onTemporary);

// Content that begins anew with each attempt. Raises an Error of kind File where it cannot be made.
std::unique_ptr<SavedContent> wholeContent(const std::filesystem::path& target, bool replace);

// The same in a folder, under the name that Content-Disposition (RFC 6266) or else the URL gives it.
std::unique_ptr<SavedContent> namedContent(const std::filesystem::path& folder, bool replace);

// Content that goes on where an earlier call ended. It is collected in TARGET.part; TARGET.part.json says which content
// of the server it is the beginning of. Raises an Error of kind File, also while another program does the same.
std::unique_ptr<SavedContent> resumedContent(const std::filesystem::path& target, bool replace);

} // namespace netrove
