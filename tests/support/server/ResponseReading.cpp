#include "tests/support/server/ResponseReading.h"

#include "tests/support/server/WireText.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <optional>
#include <utility>

namespace testsupport {
namespace {

constexpr std::string_view kBlanks = " \t";

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// The elements of a list, separated by commas; empty ones count for nothing.
std::vector<std::string_view> elements(std::string_view list) {
    std::vector<std::string_view> found;
    while (!list.empty()) {
        const std::size_t comma = list.find(',');
        if (const std::string_view element = trimmed(list.substr(0, comma)); !element.empty()) {
            found.push_back(element);
        }
        list.remove_prefix(comma == std::string_view::npos ? list.size() : comma + 1);
    }
    return found;
}

// One line, taken from the front of `rest`, without its end; nothing where it has not ended.
std::optional<std::string_view> takeLine(std::string_view& rest) {
    const std::size_t end = rest.find('\n');
    if (end == std::string_view::npos) {
        return std::nullopt;
    }
    std::string_view line = rest.substr(0, end);
    rest.remove_prefix(end + 1);
    if (line.ends_with('\r')) {
        line.remove_suffix(1);
    }
    return line;
}

// As lenient as libcurl: blanks may stand before each number, and 200 is what a line without one says.
int statusOf(const std::string& line) {
    int major = 0;
    int minor = 0;
    char separator = 0;
    int status = 0;
    if (std::sscanf(line.c_str(), "HTTP/%1d.%1d%c%3d", &major, &minor, &separator, &status) == 4 && separator == ' ') {
        return status;
    }
    return std::sscanf(line.c_str(), "HTTP/%1d %3d", &major, &status) == 2 && status >= 100 ? status : 200;
}

// How the head frames the content.
struct Framing {
    bool Chunked = false;
    bool TransferCoded = false;          // otherwise than by chunks
    std::vector<std::string> Codings;    // others than chunked
    std::optional<std::uint64_t> Length; // the largest that is announced
};

// What is not a number, or too large for one, is more than any content.
std::uint64_t lengthFrom(std::string_view text) {
    constexpr std::uint64_t most = std::numeric_limits<std::int64_t>::max();
    std::uint64_t length = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), length);
    return error == std::errc() ? std::min(length, most) : most;
}

// The field lines of a head, each with the lines that continue it.
std::vector<std::string> unfolded(const std::vector<std::string>& head) {
    std::vector<std::string> fields;
    for (std::size_t i = 1; i < head.size(); ++i) {
        if (!fields.empty() && kBlanks.find(head[i].front()) != std::string_view::npos) {
            fields.back() += head[i];
        } else {
            fields.push_back(head[i]);
        }
    }
    return fields;
}

Framing framingOf(const std::vector<std::string>& head) {
    Framing framing;
    for (const std::string_view line : unfolded(head)) {
        const std::size_t colon = std::min(line.find(':'), line.size());
        const std::string_view name = line.substr(0, colon);
        const auto values = elements(line.substr(std::min(colon + 1, line.size())));
        if (sameName(name, "Content-Length")) {
            framing.Length = std::max(framing.Length.value_or(0), values.empty() ? lengthFrom({}) : 0);
            for (const std::string_view value : values) {
                framing.Length = std::max(*framing.Length, lengthFrom(value));
            }
        }
        const bool transfer = sameName(name, "Transfer-Encoding");
        if (transfer || sameName(name, "Content-Encoding")) {
            for (const std::string_view coding : values) {
                if (transfer && sameName(coding, "chunked")) {
                    framing.Chunked = true;
                } else if (!sameName(coding, "identity")) {
                    framing.Codings.emplace_back(coding);
                    framing.TransferCoded = framing.TransferCoded || transfer;
                }
            }
        }
    }
    return framing;
}

class Reader {
public:
    Reader(std::string_view bytes, StreamEnd end, std::string_view method)
        : All(bytes), Rest(bytes), End(end), Method(method) {}

    ResponseReading read() {
        const std::string missing = readHeads() ? readContent() : "the end of the head";
        Reading.Whole = missing.empty();
        Reading.Missing = missing;
        Reading.Length = All.size() - Rest.size();
        return std::move(Reading);
    }

private:
    // Up to the end of the first head that is not interim.
    bool readHeads() {
        for (;;) {
            std::vector<std::string> head;
            for (;;) {
                const auto line = takeLine(Rest);
                if (!line || (head.empty() && !sameName(line->substr(0, 5), "HTTP/"))) {
                    return false;
                }
                if (line->empty()) {
                    break;
                }
                head.emplace_back(*line);
            }
            Reading.Status = statusOf(head.front());
            if (Reading.Status < 100 || Reading.Status > 199 || Reading.Status == 101) {
                Reading.Head = std::move(head);
                return true;
            }
        }
    }

    std::string readContent() {
        const Framing framing = framingOf(Reading.Head);
        Reading.Coded = !framing.Codings.empty();
        Reading.Gzip = framing.Codings.size() == 1 &&
                       (sameName(framing.Codings[0], "gzip") || sameName(framing.Codings[0], "x-gzip"));
        if (Method == "HEAD" || Reading.Status == 204 || Reading.Status == 304) {
            return {};
        }
        if (framing.Chunked) {
            return readChunks();
        }
        const std::uint64_t wanted = framing.Length.value_or(Rest.size());
        Reading.Content = Rest.substr(0, wanted);
        Rest.remove_prefix(Reading.Content.size());
        // By RFC 9112, section 6.3, the close ends what is coded for the transfer otherwise, whatever length is
        // announced.
        if (framing.Length && !(framing.TransferCoded && End == StreamEnd::Closed)) {
            return Reading.Content.size() == wanted ? "" : "content of the announced length";
        }
        return End == StreamEnd::Closed ? "" : "the close that ends the content";
    }

    std::string readChunks() {
        for (;;) {
            const std::size_t digits = std::min(Rest.find_first_not_of("0123456789abcdefABCDEF"), Rest.size());
            if (digits == 0 || digits > 16) {
                return "the size of a chunk";
            }
            const std::uint64_t size = std::stoull(std::string(Rest.substr(0, digits)), nullptr, 16);
            if (!takeLine(Rest)) { // with whatever extensions follow the size
                return "the line of a chunk's size";
            }
            if (size == 0) {
                break;
            }
            Reading.Content += Rest.substr(0, size);
            if (Rest.size() < size) {
                return "the rest of a chunk";
            }
            Rest.remove_prefix(size);
            const auto end = takeLine(Rest);
            if (!end || end->find_first_not_of('\r') != std::string_view::npos) {
                return "the end of a chunk";
            }
        }
        for (;;) {
            const auto line = takeLine(Rest);
            if (!line) {
                // By RFC 9112, section 8, the last chunk is enough. libcurl wants all but the last line feed.
                return Rest == "\r" && End == StreamEnd::Closed ? "" : "the end of the trailers";
            }
            if (line->empty()) {
                return {};
            }
        }
    }

    std::string_view All;
    std::string_view Rest;
    StreamEnd End;
    std::string_view Method;
    ResponseReading Reading;
};

} // namespace

ResponseReading readResponse(std::string_view bytes, StreamEnd end, std::string_view method) {
    return Reader(bytes, end, method).read();
}

ResponseReading readResponse(std::string_view bytes, StreamEnd end, std::string_view method, std::size_t nth) {
    ResponseReading reading = readResponse(bytes, end, method);
    for (std::size_t i = 1; i < nth && reading.Whole; ++i) {
        bytes.remove_prefix(reading.Length);
        reading = readResponse(bytes, end, method);
    }
    return reading;
}

} // namespace testsupport
