// Content that comes in one response, or in several parts where one breaks off (RFC 9110, sections 13 to 15): what is
// asked for, and whether what comes belongs to what is there.
#pragma once

#include "client/save/ContentStore.h"

#include <memory>
#include <optional>
#include <utility>

namespace netrove {

enum class Piece { Taken, Enough, Wrong };

class JoinedContent {
public:
    struct Ways {
        bool Unproven = false;                // goes on though nothing is known of what is there
        std::optional<std::uint64_t> At = {}; // goes on exactly there, whatever is known
    };
    JoinedContent(std::unique_ptr<ContentStore> store, Ways ways) : Store(std::move(store)), Allowed(ways) {}

    // Before each request: asks for what is missing only, where some is there.
    void ask(Request& request);
    // True if the last request asked for a part.
    bool asksForPart() const { return Asked.has_value(); }
    // True if another request can follow the last one, and nothing is passed on twice.
    bool mayFollow() const;

    // A head that is not a failure. Sets `resumedAt`. False: it brings what is of no use, so something else is asked
    // for next.
    bool begin(Response& head);
    // The server has no more of the part (416). True: what is there is whole, which sets `resumedAt`; otherwise
    // something else is asked for next.
    bool isWhole(Response& head);
    // Wrong: the part does not fit to what is there, so the whole is asked for next.
    Piece write(std::span<const std::byte> piece);

    // The response was complete, and the content is not.
    bool wantsMore() const { return End && Store->size() < *End; }
    std::uint64_t size() const { return Store->size(); }
    std::uint64_t end() const { return End.value_or(0); }
    // What is there is wrong. False: it came in one piece, so another download would be no better.
    bool discard();
    // What has come is what was wanted: checks it.
    void finish(const Request& request, Response& response);
    ContentStore& store() { return *Store; }
    std::unique_ptr<ContentStore> release() { return std::move(Store); }

private:
    bool continues() const;
    bool beginPart(Response& head);
    bool beginWhole(Response& head);
    bool useless();

    std::unique_ptr<ContentStore> Store;
    Ways Allowed;
    bool Repeatable = false;            // the last request may ask for a part
    bool Decodes = false;               // what comes is decoded before it is here
    bool Fresh = false;                 // the whole is asked for next
    bool Probes = false;                // the last byte is asked for, to learn whether it is the last
    bool Joined = false;                // of several responses
    bool Proven = true;                 // they are of the same content
    std::optional<std::uint64_t> Asked; // from which byte on
    std::uint64_t Compared = 0;         // where the part is compared with what is there
    std::uint64_t Kept = 0;             // up to here
    std::optional<std::uint64_t> End;   // of the content, as the server said with the part
};

} // namespace netrove
