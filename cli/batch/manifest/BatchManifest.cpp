#include "cli/batch/manifest/BatchManifest.h"

#include "cli/batch/manifest/ContentDigest.h"
#include "cli/batch/manifest/JournalNames.h"
#include "cli/failures/CliFailure.h"
#include "cli/options/FieldText.h"

#include <netrove/outputfile.h>
#include <netrove/refusedurl.h>
#include <netrove/text.h>
#include <netrove/url.h>

#include <algorithm>
#include <array>
#include <sys/stat.h>
#include <utility>

namespace netrove::cli {

namespace {

// A file that is not a manifest at all has as many bad lines as it has lines.
constexpr std::size_t kMostBadLines = 100;
constexpr std::size_t kLongestProblem = 1000;
constexpr std::size_t kMostFolders = 10'000; // that are remembered
constexpr std::size_t kMostOrigins = 1000;   // likewise
constexpr const char* kJournal = "a journal of this manifest";

// Without its middle if it is too long to read: what is wrong comes at the end.
std::string shortened(std::string text) {
    if (text.size() <= kLongestProblem) {
        return text;
    }
    const auto insideCharacter = [&](std::size_t place) {
        return (static_cast<unsigned char>(text[place]) & 0xC0) == 0x80;
    };
    std::size_t head = kLongestProblem * 3 / 4;
    std::size_t tail = text.size() - (kLongestProblem - head);
    while (head > 0 && insideCharacter(head)) {
        --head;
    }
    while (tail < text.size() && insideCharacter(tail)) {
        ++tail;
    }
    return text.replace(head, tail - head, " ... ");
}

void checkUrl(const std::string& url) {
    if (url.empty()) {
        failUsage("the URL is empty");
    }
    if (hasControls(url) || !isUtf8(url)) {
        failUsage("the URL has control characters or is not UTF-8");
    }
    const UrlParts parts = splitUrl(url);
    if (parts.Scheme != "http" && parts.Scheme != "https") {
        failUsage("'" + printable(maskRefusedUrl(url)) + "' is not an http or https URL");
    }
    if (parts.Host.empty()) {
        failUsage("'" + printable(maskRefusedUrl(url)) + "' has no host");
    }
}

constexpr auto kPlain = [] {
    std::array<bool, 256> members{};
    for (const unsigned char c :
         std::string_view("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~/?=&+,:")) {
        members.at(c) = true;
    }
    return members;
}();

// True for a path and query that are valid with any origin.
bool isPlain(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](unsigned char c) { return kPlain.at(c); });
}

// Scheme, host and port, with what else is before the path.
std::string_view originIn(std::string_view url) {
    const auto mark = url.find("://");
    const auto* const first = url.begin() + (mark == url.npos ? 0 : mark + 3);
    return {url.begin(), std::find_if(first, url.end(), [](char c) { return c == '/' || c == '?' || c == '#'; })};
}

// What is under a name.
struct Entry {
    bool Link = false;
    bool Folder = false;  // links followed
    bool Special = false; // neither a folder nor a regular file
};

Entry entryAt(const std::string& path) {
    struct stat facts {};
    if (lstat(path.c_str(), &facts) != 0) {
        return {};
    }
    Entry entry{.Link = S_ISLNK(facts.st_mode)};
    if (!entry.Link || stat(path.c_str(), &facts) == 0) {
        entry.Folder = S_ISDIR(facts.st_mode);
        entry.Special = !S_ISDIR(facts.st_mode) && !S_ISREG(facts.st_mode);
    }
    return entry;
}

void takeCredentials(BatchLine& line) {
    UserInfo found = takeUserInfo(line.Url);
    if (!found.Present) {
        return;
    }
    checkUserName(found.User);
    checkPassword(found.Password.value_or(""));
    if (!line.Extras) {
        line.Extras = std::make_unique<BatchExtras>();
    }
    line.Extras->User = std::move(found.User);
    line.Extras->Password = std::move(found.Password);
}

BatchLine parseText(std::string_view text) {
    BatchLine line;
    const auto isBlank = [](char c) { return c == ' ' || c == '\t'; };
    const auto* const end = std::find_if(text.begin(), text.end(), isBlank);
    line.Url.assign(text.begin(), end);
    text.remove_prefix(static_cast<std::size_t>(std::find_if_not(end, text.end(), isBlank) - text.begin()));
    line.Target = text;
    return line;
}

BatchLine parsed(std::size_t number, std::string_view text) {
    BatchLine line = text.starts_with('{') ? parseBatchJson(text) : parseText(text);
    line.Number = number;
    line.Text = text;
    return line;
}

// Without credentials: the digest goes into the journal, where a guessed password could be checked against it.
std::uint64_t digestOf(const BatchLine& line, std::size_t repetition) {
    ContentDigest digest;
    digest.add(line.Url);
    digest.add(line.Target ? "file" : "none");
    digest.add(line.Target.value_or(""));
    digest.add(line.method());
    if (line.Extras && line.Extras->hasBody()) {
        digest.add("body");
        digest.add(line.Extras->Body.value_or(""));
        digest.add(line.Extras->BodyFile);
    }
    if (line.Extras) {
        for (const Field& field : line.Extras->Fields) {
            digest.add(field.name);
            digest.add(isSecretField(field.name) ? std::string_view() : std::string_view(field.value));
        }
    }
    if (line.Extras && !line.Extras->Sha256.empty()) {
        digest.add("sha256");
        digest.add(line.Extras->Sha256);
    }
    digest.add(std::to_string(repetition));
    return digest.value();
}

} // namespace

std::string BatchLine::id() const {
    return Extras && !Extras->Id.empty() ? Extras->Id : digest();
}

std::string BatchLine::digest() const {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text(16, '0');
    std::uint64_t rest = Content;
    for (auto place = text.rbegin(); rest != 0; ++place, rest >>= 4) {
        *place = digits[rest & 15];
    }
    return text;
}

std::string BatchLine::method() const {
    if (Extras && !Extras->Method.empty()) {
        return Extras->Method;
    }
    return Extras && Extras->hasBody() ? "POST" : "GET";
}

void BadLines::add(std::size_t number, const std::string& problem) {
    if (First.size() < kMostBadLines) {
        First.push_back({number, shortened(problem)});
    } else {
        ++More;
    }
}

void ManifestLines::reserve(const std::string& file, const std::string& what) {
    Reserved[Names.of(file)] = what;
}

void ManifestLines::reserveJournals(const std::string& base) {
    JournalBase = Names.ofEntry(base);
    for (const std::string& file : siblingJournals(base)) {
        reserve(file, kJournal);
    }
    reserve(base, kJournal);
}

void ManifestLines::check(std::size_t number, std::string_view text) {
    bool inFolder = false;
    checked(number, text, CheckUrl, inFolder);
    InFolder.push_back(inFolder);
}

BatchLine ManifestLines::placed(std::size_t number, std::string_view text) const {
    BatchLine line = parsed(number, text);
    if (line.Target && !Folder.empty() && !line.Target->starts_with('/')) {
        line.Target = Folder + (Folder.ends_with('/') ? "" : "/") + *line.Target;
    }
    return line;
}

BatchLine ManifestLines::again(std::size_t number, std::string_view text) {
    BatchLine line = placed(number, text);
    takeCredentials(line);
    settleTarget(line, InFolder.at(Taken++));
    settleDigest(line);
    return line;
}

BatchLine ManifestLines::once(std::size_t number, std::string_view text) {
    bool inFolder = false;
    BatchLine line = checked(number, text, {}, inFolder);
    settleDigest(line);
    return line;
}

// The literal null is in every line without a target; others need no look.
void ManifestLines::pass(std::string_view text) noexcept {
    if (text.front() != '{' || text.find("null") == text.npos) {
        return;
    }
    try {
        BatchLine line = parseBatchJson(text);
        takeCredentials(line);
        if (!line.Target) {
            settleDigest(line);
        }
    } catch (const vantik::Failure&) { // its own shard reports it
    }
}

BatchLine ManifestLines::checked(std::size_t number, std::string_view text, const UrlCheck& checkFurther,
                                 bool& inFolder) {
    BatchLine line = placed(number, text);
    if (!isKnown(line.Url)) {
        checkUrl(line.Url);
        takeCredentials(line);
        if (checkFurther) {
            checkAgain(line.Url, checkFurther);
        }
    }
    if (line.Target) {
        inFolder = checkTarget(line);
    }
    if (line.Extras && !line.Extras->Id.empty()) {
        const std::string& id = line.Extras->Id;
        ContentDigest digest;
        digest.add(id);
        const auto earlier = Ids.add(digest.value(), {digest.value(1), number});
        if (earlier && earlier->Digest == digest.value(1)) {
            failUsage("the id '" + printable(id) + "' is already used by line " + std::to_string(earlier->Number));
        }
    }
    return line;
}

// What is wrong with most URLs is wrong with their origin, which few lines have for themselves. Those that are kept are
// without credentials.
bool ManifestLines::isKnown(std::string_view url) const {
    const std::string_view origin = originIn(url);
    return OriginsSeen.contains(origin) && isPlain(url.substr(origin.size()));
}

void ManifestLines::checkAgain(const std::string& url, const UrlCheck& checkFurther) {
    if (isKnown(url)) { // now that it is without them
        return;
    }
    try {
        checkFurther(url);
    } catch (const vantik::Failure& failure) {
        throw vantik::Failure(withRefusedUrlMasked(failure.message(), url));
    }
    if (OriginsSeen.size() >= kMostOrigins) {
        OriginsSeen.clear();
    }
    OriginsSeen.emplace(originIn(url));
}

// Without a name of its own a target gets that of the URL, as with `save`.
void ManifestLines::settleTarget(BatchLine& line, bool inFolder) {
    if (!line.Target) {
        return;
    }
    std::string& target = *line.Target;
    if (target.empty() || target.ends_with('/')) {
        target += fileNameFor(line.Url);
    } else if (inFolder) {
        target += "/" + fileNameFor(line.Url);
    }
}

// Returns whether it is a folder, in which the file gets the name of the URL.
bool ManifestLines::checkTarget(BatchLine& line) {
    const std::string& target = *line.Target;
    if (hasControls(target)) {
        failUsage("the target has control characters");
    }
    const bool named = !target.empty() && !target.ends_with('/');
    Entry entry = named ? entryAt(target) : Entry();
    const bool inFolder = entry.Folder;
    settleTarget(line, inFolder);
    if (!named || inFolder) {
        entry = entryAt(target);
    }
    if (entry.Special) {
        failUsage("the target '" + printable(target) + "' is not a regular file; \"target\":null drops the content");
    }
    checkFolder(target);
    const std::string name = entry.Link ? Names.of(target) : Names.ofEntry(target);
    if (const auto found = Reserved.find(name); found != Reserved.end()) {
        failUsage("the target '" + printable(target) + "' is " + found->second);
    }
    if (!JournalBase.empty() && isJournalName(name, JournalBase)) {
        failUsage("the target '" + printable(target) + "' is " + kJournal);
    }
    ContentDigest digest;
    digest.add(name);
    const auto earlier = Targets.add(digest.value(), {digest.value(1), line.Number});
    if (earlier && earlier->Digest == digest.value(1)) {
        failUsage("the target '" + printable(target) + "' is already used by line " + std::to_string(earlier->Number));
    }
    return inFolder;
}

void ManifestLines::checkFolder(const std::string& target) {
    const auto slash = target.rfind('/');
    if (!FoldersRequired || slash == target.npos || slash == 0) {
        return;
    }
    const std::string folder = target.substr(0, slash);
    if (FoldersThere.contains(folder)) {
        return;
    }
    if (isFolder(folder)) {
        if (FoldersThere.size() >= kMostFolders) {
            FoldersThere.clear();
        }
        FoldersThere.insert(folder);
        return;
    }
    // Beyond so many, each line says it.
    if (FoldersMissing.size() < kMostFolders ? FoldersMissing.insert(folder).second
                                             : !FoldersMissing.contains(folder)) {
        failUsage("there is no folder '" + printable(folder) + "' for the target; --create-dirs creates it");
    }
}

// Lines without a target may be equal on purpose: the same request several times.
void ManifestLines::settleDigest(BatchLine& line) {
    line.Content = digestOf(line, 0);
    if (line.Target) {
        return;
    }
    const std::uint64_t earlier = LinesWithoutTarget.find(line.Content).value_or(0);
    LinesWithoutTarget.put(line.Content, earlier + 1);
    if (earlier != 0) {
        line.Content = digestOf(line, earlier);
    }
}

} // namespace netrove::cli
