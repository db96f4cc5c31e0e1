// The list of transfers for `batch`, line by line. How it is read: ManifestSource.h.
#pragma once

#include "cli/batch/manifest/DigestStore.h"
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
#include <unordered_set>
#include <vector>

namespace netrove::cli {

// What few lines have. Separate, so that a list of a million plain lines stays small.
struct BatchExtras {
    std::string Id;     // as written in the line
    std::string Method; // empty: GET, or POST with a body
    std::vector<Field> Fields;
    std::optional<std::string> Body;
    std::string BodyFile;
    std::string Sha256;              // of the content; empty for none
    std::optional<std::string> User; // of the URL
    std::optional<std::string> Password;

    bool hasBody() const { return Body || !BodyFile.empty(); }
};

// One transfer.
struct BatchLine {
    std::size_t Number = 0;            // of its line, from 1
    std::uint64_t Content = 0;         // digest of everything that defines the transfer, except credentials
    std::string Text;                  // as written
    std::string Url;                   // without user name and password
    std::optional<std::string> Target; // the file; nothing if the content is read and discarded
    std::unique_ptr<BatchExtras> Extras;

    std::string id() const;     // as written, else the digest
    std::string digest() const; // 16 hexadecimal digits
    std::string method() const;
};

// What is wrong with a list that is checked before anything runs.
struct BadLines {
    struct One {
        std::size_t Number;
        std::string Problem;
    };
    std::vector<One> First;
    std::size_t More = 0; // than those

    void add(std::size_t number, const std::string& problem);
};

// The lines of a manifest, in their order: each by itself, and what they have to do with each other. A line is a URL
// and, after blanks, a target; or a JSON object with the keys url, target, method, fields, body, body_file, sha256 and
// id. However many lines there are, little memory is taken.
class ManifestLines {
public:
    // Raises a failure for a URL that cannot be used.
    using UrlCheck = std::function<void(const std::string& url)>;

    explicit ManifestLines(UrlCheck check) : CheckUrl(std::move(check)) {}

    // A file that no line may have as its target, and what it is ("the manifest").
    void reserve(const std::string& file, const std::string& what);
    // The same for journals: this file, and those that shards have or will have beside it.
    void reserveJournals(const std::string& base);
    // Where targets are that are not absolute; empty for the current folder.
    void targetsBelow(std::string folder) { Folder = std::move(folder); }
    // A folder that is missing is a fault of the first line that needs it.
    void requireFolders() { FoldersRequired = true; }

    // Raise a usage failure for a bad line. `text` has neither blanks nor a line end around it.
    //
    // For a list that is read twice: the first time each line is checked, the second time it is taken.
    void check(std::size_t number, std::string_view text);
    BatchLine again(std::size_t number, std::string_view text);
    // For a list that is read once, and perhaps on another thread: the check of URLs is left to their transfers.
    BatchLine once(std::size_t number, std::string_view text);
    // A line of another shard. Only equal requests without a target have to do with it, while lines are taken.
    void pass(std::string_view text) noexcept;

private:
    // What came before, with a second digest so that equal ones are equal texts.
    struct Seen {
        std::uint64_t Digest;
        std::uint64_t Number;
    };
    BatchLine checked(std::size_t number, std::string_view text, const UrlCheck& checkFurther, bool& inFolder);
    static void settleTarget(BatchLine& line, bool inFolder);
    // True where nothing of the URL is left to check.
    bool isKnown(std::string_view url) const;
    void checkAgain(const std::string& url, const UrlCheck& checkFurther);
    bool checkTarget(BatchLine& line);
    void checkFolder(const std::string& target);
    void settleDigest(BatchLine& line);

    // A line by itself, its target where it belongs.
    BatchLine placed(std::size_t number, std::string_view text) const;

    struct TextHash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
    };

    UrlCheck CheckUrl;
    // Some of those whose URLs were checked further.
    std::unordered_set<std::string, TextHash, std::equal_to<>> OriginsSeen;
    std::string Folder;
    RealNames Names;
    std::map<std::string, std::string> Reserved; // by the real name
    std::string JournalBase;                     // a link at its end not followed; empty for none
    bool FoldersRequired = false;
    std::unordered_set<std::string> FoldersThere; // some of them, as they are written
    std::unordered_set<std::string> FoldersMissing;
    DigestStore<Seen> Targets;                     // by their real names
    DigestStore<Seen> Ids;                         // given ones
    DigestStore<std::uint64_t> LinesWithoutTarget; // how many have this content
    // Of each line that was checked: its target was a folder then, whatever the run has made since.
    std::vector<bool> InFolder;
    std::size_t Taken = 0; // lines of those
};

// BatchManifestJson.cpp: a line that is a JSON object. The target stays as given. Raises a usage failure.
BatchLine parseBatchJson(std::string_view text);

} // namespace netrove::cli
