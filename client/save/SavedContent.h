// Where `save` puts content: a file that gets its name once it is whole.
#pragma once

#include <netrove/request.h>
#include <netrove/response.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>

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
    // Gives the content its name. Nothing is kept if this is not reached or raises, except what may be resumed.
    virtual void keep(const Request& request, const Response& response) = 0;
    virtual const std::filesystem::path& target() const = 0;
};

// Content that begins anew with each attempt. Raises an Error of kind File where it cannot be made.
std::unique_ptr<SavedContent> wholeContent(const std::filesystem::path& target, bool replace);

// The same in a folder, under the name that Content-Disposition (RFC 6266) or else the URL gives it.
std::unique_ptr<SavedContent> namedContent(const std::filesystem::path& folder, bool replace);

// Content that goes on where an earlier call ended. It is collected in TARGET.part; TARGET.part.json says which content
// of the server it is the beginning of. Raises an Error of kind File, also while another program does the same.
std::unique_ptr<SavedContent> resumedContent(const std::filesystem::path& target, bool replace);

} // namespace netrove
