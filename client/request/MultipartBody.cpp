#include "client/request/MultipartBody.h"

#include "client/failures/ClientFailure.h"
#include "client/request/BodySource.h"

#include <algorithm>
#include <random>
#include <utility>

namespace netrove {

namespace {

// A field of a form as text(…) makes it. Browsers send those without a type, and some servers take a part with a type
// for a file.
constexpr std::string_view kPlainText = "text/plain;charset=utf-8";

std::string randomBoundary() {
    constexpr std::string_view digits = "0123456789abcdef";
    constexpr int count = 32; // 128 bits: nobody has it in a file that is streamed
    std::random_device random;
    std::uniform_int_distribution<std::size_t> digit(0, digits.size() - 1);
    std::string boundary = "netrove-";
    std::generate_n(std::back_inserter(boundary), count, [&] { return digits[digit(random)]; });
    return boundary;
}

// As the HTML standard of the WHATWG wants it; nothing else changes.
std::string escaped(std::string_view name) {
    std::string result;
    for (const char c : name) {
        switch (c) {
        case '"':
            result += "%22";
            break;
        case '\r':
            result += "%0D";
            break;
        case '\n':
            result += "%0A";
            break;
        default:
            result += c;
        }
    }
    return result;
}

// Empty for a part that is not a file.
std::string fileNameOf(const Part& part) {
    if (part.filename.empty()) {
        return BodyAccess::fileName(part.content);
    }
    std::string name = part.filename.substr(part.filename.rfind('/') + 1);
    if (name.empty()) {
        failUsage("the file name \"" + part.filename + "\" of a part ends in a folder");
    }
    return name;
}

// The fields of a part, without the line before them.
std::string headOf(const Part& part) {
    const std::string fileName = fileNameOf(part);
    std::string head = "Content-Disposition: form-data; name=\"" + escaped(part.name) + "\"";
    if (!fileName.empty()) {
        head += "; filename=\"" + escaped(fileName) + "\"";
    }
    std::string type = part.content.contentType();
    if (fileName.empty() && type == kPlainText) {
        type.clear();
    } else if (!fileName.empty() && type.empty()) {
        type = "application/octet-stream";
    }
    return head + (type.empty() ? "" : "\r\nContent-Type: " + type) + "\r\n\r\n";
}

struct Section {
    std::string Head; // from the end of the content before it
    Body Content;
};

struct Layout {
    std::vector<Section> Sections;
    std::string Tail;
};

// What a form promises when it is opened; a file may change before it is its turn.
struct Promise {
    std::vector<std::optional<std::uint64_t>> Contents;
    std::optional<std::uint64_t> Total;
};

Promise promiseOf(const Layout& layout) {
    Promise promise{{}, layout.Tail.size()};
    for (const Section& section : layout.Sections) {
        const std::optional<std::uint64_t> length = section.Content.length();
        promise.Contents.push_back(length);
        if (length && promise.Total) {
            *promise.Total += section.Head.size() + *length;
        } else {
            promise.Total.reset();
        }
    }
    return promise;
}

class MultipartReader : public BodyReader {
public:
    explicit MultipartReader(std::shared_ptr<const Layout> layout)
        : All(std::move(layout)), Promised(std::make_shared<const Promise>(promiseOf(*All))) {}

    const std::shared_ptr<const Promise>& promised() const { return Promised; }

    std::size_t read(std::span<std::byte> room) override {
        for (; Step <= 2 * All->Sections.size(); ++Step) {
            const std::size_t count = Step % 2 == 0 ? readText(room) : readContent(room);
            if (count > 0) {
                return count;
            }
        }
        return 0;
    }

private:
    std::size_t readText(std::span<std::byte> room) {
        const bool atTail = Step / 2 == All->Sections.size();
        const std::string& text = atTail ? All->Tail : All->Sections[Step / 2].Head;
        const std::size_t count = text.copy(reinterpret_cast<char*>(room.data()), room.size(), Given);
        Given = count == 0 ? 0 : Given + count;
        return count;
    }

    // A part is open while it is read only, so that a form may have more files than a process may open.
    std::size_t readContent(std::span<std::byte> room) {
        if (!Content) {
            Content = openedContent(All->Sections[Step / 2].Content, Promised->Contents[Step / 2]);
        }
        const std::size_t count = Content->read(room);
        if (count == 0) {
            Content.reset();
        }
        return count;
    }

    static std::unique_ptr<BodyReader> openedContent(const Body& content, std::optional<std::uint64_t> promised) {
        auto reader = content.open();
        if (!promised) {
            return reader;
        }
        return exactly(*promised, std::move(reader), [name = BodyAccess::fileName(content)](const std::string& what) {
            failChanged(name.empty() ? "the content of a part" : name, what);
        });
    }

    std::shared_ptr<const Layout> All;
    std::shared_ptr<const Promise> Promised;
    std::size_t Step = 0;  // heads and contents in turn, then the tail
    std::size_t Given = 0; // of the text of this step
    std::unique_ptr<BodyReader> Content;
};

class MultipartSource : public BodySource {
public:
    explicit MultipartSource(Layout layout) : All(std::make_shared<const Layout>(std::move(layout))) {}

    std::optional<std::uint64_t> length() override {
        const auto sending = Sending.lock();
        return sending ? sending->Total : promiseOf(*All).Total;
    }

    bool repeatable() const override {
        return std::all_of(All->Sections.begin(), All->Sections.end(),
                           [](const Section& section) { return section.Content.repeatable(); });
    }

    std::unique_ptr<BodyReader> open() override {
        auto reader = std::make_unique<MultipartReader>(All);
        Sending = reader->promised();
        return reader;
    }

private:
    std::shared_ptr<const Layout> All;
    std::weak_ptr<const Promise> Sending; // of the reader that was opened last, for as long as it is there
};

} // namespace

std::string freeBoundary(const std::vector<Part>& parts, const std::function<std::string()>& propose) {
    for (;;) {
        std::string boundary = propose();
        const bool taken = std::any_of(parts.begin(), parts.end(), [&](const Part& part) {
            return headOf(part).find(boundary) != std::string::npos ||
                   part.content.inMemory().value_or(std::string_view()).find(boundary) != std::string_view::npos;
        });
        if (!taken) {
            return boundary;
        }
    }
}

Body multipart(std::vector<Part> parts) {
    for (const Part& part : parts) {
        if (part.name.empty()) {
            failUsage("a part of a form has no name");
        }
    }
    const std::string boundary = freeBoundary(parts, randomBoundary);
    Layout layout;
    std::string before = "--" + boundary;
    for (Part& part : parts) {
        std::string head = before + "\r\n" + headOf(part);
        layout.Sections.push_back({std::move(head), std::move(part.content)});
        before = "\r\n--" + boundary;
    }
    layout.Tail = before + "--\r\n";
    return BodyAccess::make(std::make_shared<MultipartSource>(std::move(layout)),
                            "multipart/form-data; boundary=" + boundary);
}

} // namespace netrove
