#include "client/failures/ClientFailure.h"
#include "client/request/BodySource.h"

#include <netrove/body.h>
#include <netrove/text.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstring>
#include <istream>
#include <streambuf>
#include <utility>

namespace netrove {

namespace {

class MemoryReader : public BodyReader {
public:
    explicit MemoryReader(std::shared_ptr<const std::string> content) : Content(std::move(content)) {}

    std::size_t read(std::span<std::byte> room) override {
        const std::size_t count = Content->copy(reinterpret_cast<char*>(room.data()), room.size(), Given);
        Given += count;
        return count;
    }

private:
    std::shared_ptr<const std::string> Content; // outlives the Body for as long as it is read
    std::size_t Given = 0;
};

class MemorySource : public BodySource {
public:
    explicit MemorySource(std::string content) : Content(std::make_shared<const std::string>(std::move(content))) {}

    std::optional<std::uint64_t> length() override { return Content->size(); }
    bool repeatable() const override { return true; }
    std::unique_ptr<BodyReader> open() override { return std::make_unique<MemoryReader>(Content); }
    std::optional<std::string_view> inMemory() const override { return *Content; }

private:
    std::shared_ptr<const std::string> Content;
};

class ExactReader : public BodyReader {
public:
    ExactReader(std::uint64_t length, std::unique_ptr<BodyReader> content,
                std::function<void(const std::string&)> onOther)
        : Length(length), Left(length), Content(std::move(content)), OnOther(std::move(onOther)) {}

    std::size_t read(std::span<std::byte> room) override {
        std::size_t count = 0;
        if (Left > 0) {
            room = room.first(static_cast<std::size_t>(std::min<std::uint64_t>(room.size(), Left)));
            count = Content->read(room);
            if (count > room.size()) {
                OnOther("returned more bytes than there was room for");
            }
            if (count == 0) {
                OnOther("ended after " + std::to_string(Length - Left) + " of " + std::to_string(Length) + " bytes");
            }
            Left -= count;
        }
        // Looked at with the last bytes: nobody asks for more than was announced.
        if (Left == 0 && !AtEnd) {
            AtEnd = true;
            std::byte more{};
            if (Content->read({&more, 1}) != 0) {
                OnOther("has more than " + std::to_string(Length) + " bytes");
            }
        }
        return count;
    }

private:
    std::uint64_t Length;
    std::uint64_t Left;
    bool AtEnd = false;
    std::unique_ptr<BodyReader> Content;
    std::function<void(const std::string&)> OnOther;
};

// Content that a program's callable opens.
class CallableSource : public BodySource {
public:
    CallableSource(std::function<std::unique_ptr<BodyReader>()> open, std::optional<std::uint64_t> length,
                   bool repeatable)
        : Open(std::move(open)), Length(length), Repeatable(repeatable) {}

    std::optional<std::uint64_t> length() override { return Length; }
    bool repeatable() const override { return Repeatable; }

    std::unique_ptr<BodyReader> open() override {
        std::unique_ptr<BodyReader> reader = Open();
        if (!reader) {
            failUsage("the content cannot be read: what opens it returned nothing");
        }
        if (!Length) {
            return reader;
        }
        return exactly(*Length, std::move(reader), [](const std::string& what) {
            failUsage("the content is not as long as announced: it " + what);
        });
    }

private:
    std::function<std::unique_ptr<BodyReader>()> Open;
    std::optional<std::uint64_t> Length;
    bool Repeatable;
};

class GeneratorReader : public BodyReader {
public:
    explicit GeneratorReader(Generator next) : Next(std::move(next)) {
        if (!Next) {
            failUsage("a generator is missing");
        }
    }

    std::size_t read(std::span<std::byte> room) override {
        // After its end a generator is not called again: it need not know that it has ended.
        if (Piece.empty() && !AtEnd) {
            Piece = Next();
            AtEnd = Piece.empty();
        }
        const std::size_t count = std::min(room.size(), Piece.size());
        std::copy_n(Piece.begin(), count, room.begin());
        Piece = Piece.subspan(count);
        return count;
    }

private:
    Generator Next;
    std::span<const std::byte> Piece; // what is left of it
    bool AtEnd = false;
};

// Reads the buffer of a stream: its state and its mask of exceptions stay the program's.
class StreamReader : public BodyReader {
public:
    explicit StreamReader(std::streambuf& source) : Source(source) {}

    std::size_t read(std::span<std::byte> room) override {
        return static_cast<std::size_t>(
            Source.sgetn(reinterpret_cast<char*>(room.data()), static_cast<std::streamsize>(room.size())));
    }

private:
    std::streambuf& Source;
};

// It becomes a header field of the request or of a part, after the fields of the request have been checked.
void checkContentType(std::string_view contentType) {
    if (!std::all_of(contentType.begin(), contentType.end(), [](char c) { return c >= 0x20 && c < 0x7F; })) {
        failUsage("a content type is printable ASCII; this one is not: \"" + printable(contentType) + "\"");
    }
}

// The place and the reason, without what nlohmann's message quotes of the text: that may be anything, of any length.
std::string reasonOf(const nlohmann::json::exception& failure) {
    std::string text = failure.what();
    text.erase(0, text.find("] ") + 2);
    for (const std::string_view prefix : {"parse error at ", "parse error "}) {
        if (text.starts_with(prefix)) {
            text.erase(0, prefix.size());
        }
    }
    return text.substr(0, std::min(text.find("; last read"), std::size_t{200}));
}

// The parser ends at a NUL and skips a byte order mark; RFC 8259 has neither.
void checkJson(std::string_view text) {
    std::string reason;
    if (const auto nul = text.find('\0'); nul != text.npos) {
        reason = "NUL at byte " + std::to_string(nul + 1);
    } else if (text.starts_with("\xEF\xBB\xBF")) {
        reason = "byte order mark at byte 1";
    } else {
        try {
            // Only checked: no value is kept.
            [[maybe_unused]] const auto nothing = nlohmann::json::parse(
                text, [](int, nlohmann::json::parse_event_t, const nlohmann::json&) { return false; });
            return;
        } catch (const nlohmann::json::exception& failure) {
            reason = reasonOf(failure);
        }
    }
    failUsage("the text is not JSON: " + reason);
}

} // namespace

struct Body::Shared {
    std::shared_ptr<BodySource> Content; // never null; shared by bodies of several types
    std::string ContentType;
};

Body BodyAccess::make(std::shared_ptr<BodySource> source, std::string contentType) {
    checkContentType(contentType);
    Body body;
    body.Parts = std::make_shared<const Body::Shared>(Body::Shared{std::move(source), std::move(contentType)});
    return body;
}

std::string BodyAccess::fileName(const Body& body) {
    return body.Parts ? body.Parts->Content->fileName() : std::string();
}

Body memoryBody(std::string content, std::string contentType) {
    return BodyAccess::make(std::make_shared<MemorySource>(std::move(content)), std::move(contentType));
}

std::unique_ptr<BodyReader> exactly(std::uint64_t length, std::unique_ptr<BodyReader> content,
                                    std::function<void(const std::string& what)> onOther) {
    return std::make_unique<ExactReader>(length, std::move(content), std::move(onOther));
}

Body::Body(std::function<std::unique_ptr<BodyReader>()> open, std::optional<std::uint64_t> length, bool repeatable,
           std::string contentType) {
    if (!open) {
        failUsage("a callable that opens the content is missing");
    }
    *this =
        BodyAccess::make(std::make_shared<CallableSource>(std::move(open), length, repeatable), std::move(contentType));
}

std::optional<std::uint64_t> Body::length() const {
    return Parts ? Parts->Content->length() : 0;
}

bool Body::repeatable() const {
    return !Parts || Parts->Content->repeatable();
}

const std::string& Body::contentType() const {
    static const std::string none;
    return Parts ? Parts->ContentType : none;
}

Body Body::as(std::string contentType) const {
    return Parts ? BodyAccess::make(Parts->Content, std::move(contentType)) : Body();
}

std::unique_ptr<BodyReader> Body::open() const {
    if (!Parts) {
        return std::make_unique<MemoryReader>(std::make_shared<const std::string>());
    }
    BodySource& content = *Parts->Content;
    if (!content.repeatable() && std::exchange(content.Opened, true)) {
        const std::string reason = "it can be read only once";
        fail(failure::kContentNotRewound, {reason}, "the content cannot be sent again: " + reason);
    }
    return content.open();
}

std::optional<std::string_view> Body::inMemory() const {
    return Parts ? Parts->Content->inMemory() : std::string_view();
}

Body text(std::string content, std::string contentType) {
    return memoryBody(std::move(content), std::move(contentType));
}

Body bytes(std::span<const std::byte> content, std::string contentType) {
    return memoryBody(std::string(reinterpret_cast<const char*>(content.data()), content.size()),
                      std::move(contentType));
}

Body json(std::string_view text) {
    checkJson(text);
    return memoryBody(std::string(text), "application/json");
}

Body generator(Generator next, std::optional<std::uint64_t> length, std::string contentType) {
    if (!next) {
        failUsage("a generator is missing");
    }
    return {[next = std::move(next)] { return std::make_unique<GeneratorReader>(next); }, length, false,
            std::move(contentType)};
}

Body generators(std::function<Generator()> start, std::optional<std::uint64_t> length, std::string contentType) {
    if (!start) {
        failUsage("a callable that makes generators is missing");
    }
    return {[start = std::move(start)] { return std::make_unique<GeneratorReader>(start()); }, length, true,
            std::move(contentType)};
}

Body stream(std::istream& source, std::string contentType) {
    // A stream that has met its end is empty; one that was never opened, or that broke, is a mistake.
    if (source.rdbuf() == nullptr || source.bad() || (source.fail() && !source.eof())) {
        failUsage("the stream cannot be read");
    }
    std::streambuf& buffer = *source.rdbuf();
    const std::streamoff start = buffer.pubseekoff(0, std::ios::cur, std::ios::in);
    std::streamoff end = -1;
    if (start >= 0) {
        end = buffer.pubseekoff(0, std::ios::end, std::ios::in);
        buffer.pubseekpos(start, std::ios::in);
    }
    if (end < start || start < 0) {
        return {[&buffer] { return std::make_unique<StreamReader>(buffer); }, {}, false, std::move(contentType)};
    }
    const auto open = [&buffer, start] {
        if (buffer.pubseekpos(start, std::ios::in) != std::streampos(start)) {
            fail(failure::kContentNotRewound, {"the stream cannot be moved back"},
                 "the content cannot be sent again: the stream cannot be moved back");
        }
        return std::make_unique<StreamReader>(buffer);
    };
    return {open, static_cast<std::uint64_t>(end - start), true, std::move(contentType)};
}

} // namespace netrove
