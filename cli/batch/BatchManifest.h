// The list of transfers for `batch`, read and checked before anything runs.
#pragma once

#include "cli/options/Settings.h"
#include "cli/system/RealNames.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace netrove::cli {

// What few lines have. Separate, so that a list of a million plain lines stays small.
struct BatchExtras {
    std::string Id;     // as written in the line
    std::string Method; // empty: GET, or POST with a body
    std::vector<Field> Fields;
    std::optional<std::string> Body;
    std::string BodyFile;
    std::optional<std::string> User; // of the URL
    std::optional<std::string> Password;

    bool hasBody() const { return Body || !BodyFile.empty(); }
};

// One transfer.
struct BatchLine {
    std::size_t Number = 0;            // of its line, from 1
    std::uint64_t Content = 0;         // digest of everything that defines the transfer, except credentials
    std::string Url;                   // without user name and password
    std::optional<std::string> Target; // the file; nothing if the content is read and discarded
    std::unique_ptr<BatchExtras> Extras;

    std::string id() const;     // as written, else the digest
    std::string digest() const; // 16 hexadecimal digits
    std::string method() const;
};

struct BadLine {
    std::size_t Number;
    std::string Problem;
};

struct BatchManifest {
    std::vector<BatchLine> Lines;
    std::vector<BadLine> Bad; // the first of them
    std::size_t MoreBad = 0;  // how many more there are
};

// Reads a manifest piece by piece. A line is a URL and, after blanks, a target; or a JSON object with the keys url,
// target, method, fields, body, body_file and id. Empty lines and those that begin with '#' are skipped.
class BatchManifestParser {
public:
    // Raises a failure for a URL that cannot be used.
    using UrlCheck = std::function<void(const std::string& url)>;

    explicit BatchManifestParser(UrlCheck check) : CheckUrl(std::move(check)) {}

    // A file that no line may have as its target, and what it is ("the manifest").
    void reserve(const std::string& file, const std::string& what);
    // The same for journals: this file, and those that shards have or will have beside it.
    void reserveJournals(const std::string& base);

    void feed(std::string_view piece);
    BatchManifest finish();

private:
    void takeLine(std::string_view text);
    BatchLine parseText(std::string_view text) const;
    void complete(BatchLine& line);
    void settleTarget(BatchLine& line);
    void settleId(BatchLine& line);

    UrlCheck CheckUrl;
    std::string UnfinishedLine; // its end has not come yet
    std::size_t LineNumber = 0;
    BatchManifest Manifest;
    RealNames Names;
    std::map<std::string, std::string> Reserved;          // by the real name
    std::string JournalBase;                              // a link at its end not followed; empty for none
    std::unordered_map<std::string, std::size_t> Targets; // real name, and its line
    std::unordered_map<std::string, std::size_t> Ids;     // given ones
    std::unordered_map<std::uint64_t, std::size_t>
        LinesWithoutTarget; // how many lines without a target have this content
};

// BatchManifestJson.cpp: a line that is a JSON object. The target stays as given. Raises a usage failure.
BatchLine parseBatchJson(std::string_view text);

} // namespace netrove::cli
