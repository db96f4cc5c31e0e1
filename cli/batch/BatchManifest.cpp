#include "cli/batch/BatchManifest.h"

#include "cli/batch/ContentDigest.h"
#include "cli/batch/JournalNames.h"
#include "cli/failures/CliFailure.h"
#include "cli/options/FieldText.h"

#include <netrove/outputfile.h>
#include <netrove/refusedurl.h>
#include <netrove/text.h>
#include <netrove/url.h>

#include <array>
#include <cstdio>
#include <utility>

namespace netrove::cli {

namespace {

constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
// A file that is not a manifest at all has as many bad lines as it has lines.
constexpr std::size_t kMostBadLines = 100;
constexpr std::size_t kLongestProblem = 1000;
constexpr const char* kJournal = "a journal of this manifest";

std::string_view withoutLeadingBlanks(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    return text;
}

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
    digest.add(std::to_string(repetition));
    return digest.value();
}

} // namespace

std::string BatchLine::id() const {
    return Extras && !Extras->Id.empty() ? Extras->Id : digest();
}

std::string BatchLine::digest() const {
    std::array<char, 20> text{};
    std::snprintf(text.data(), text.size(), "%016llx", static_cast<unsigned long long>(Content));
    return text.data();
}

std::string BatchLine::method() const {
    if (Extras && !Extras->Method.empty()) {
        return Extras->Method;
    }
    return Extras && Extras->hasBody() ? "POST" : "GET";
}

void BatchManifestParser::reserve(const std::string& file, const std::string& what) {
    Reserved[Names.of(file)] = what;
}

void BatchManifestParser::reserveJournals(const std::string& base) {
    JournalBase = Names.ofEntry(base);
    for (const std::string& file : siblingJournals(base)) {
        reserve(file, kJournal);
    }
    reserve(base, kJournal);
}

void BatchManifestParser::feed(std::string_view piece) {
    for (auto end = piece.find('\n'); end != piece.npos; end = piece.find('\n')) {
        if (UnfinishedLine.empty()) {
            takeLine(piece.substr(0, end));
        } else {
            UnfinishedLine += piece.substr(0, end);
            takeLine(std::exchange(UnfinishedLine, {}));
        }
        piece.remove_prefix(end + 1);
    }
    UnfinishedLine += piece;
}

BatchManifest BatchManifestParser::finish() {
    if (!UnfinishedLine.empty()) {
        takeLine(std::exchange(UnfinishedLine, {}));
    }
    Targets.clear();
    Ids.clear();
    LinesWithoutTarget.clear();
    return std::move(Manifest);
}

void BatchManifestParser::takeLine(std::string_view text) {
    if (++LineNumber == 1 && text.starts_with(kByteOrderMark)) {
        text.remove_prefix(kByteOrderMark.size());
    }
    if (text.ends_with('\r')) {
        text.remove_suffix(1);
    }
    text = withoutLeadingBlanks(text);
    if (text.empty() || text.front() == '#') {
        return;
    }
    try {
        BatchLine line = text.front() == '{' ? parseBatchJson(text) : parseText(text);
        line.Number = LineNumber;
        complete(line);
        Manifest.Lines.push_back(std::move(line));
    } catch (const vantik::Failure& failure) {
        if (Manifest.Bad.size() < kMostBadLines) {
            Manifest.Bad.push_back({LineNumber, shortened(failure.message().Text)});
        } else {
            ++Manifest.MoreBad;
        }
    }
}

BatchLine BatchManifestParser::parseText(std::string_view text) const {
    BatchLine line;
    const auto end = std::min(text.find_first_of(kBlanks), text.size());
    line.Url = text.substr(0, end);
    const std::string_view target = withoutLeadingBlanks(text.substr(end));
    if (!target.empty() && kBlanks.find(target.back()) != kBlanks.npos) {
        failUsage("the line ends with a blank; write a target that ends with one as JSON");
    }
    line.Target = target;
    return line;
}

void BatchManifestParser::complete(BatchLine& line) {
    checkUrl(line.Url);
    takeCredentials(line);
    try {
        CheckUrl(line.Url);
    } catch (const vantik::Failure& failure) {
        throw vantik::Failure(withRefusedUrlMasked(failure.message(), line.Url));
    }
    settleTarget(line);
    settleId(line);
}

// Without a name of its own a target gets that of the URL, as with `save`.
void BatchManifestParser::settleTarget(BatchLine& line) {
    if (!line.Target) {
        return;
    }
    std::string& target = *line.Target;
    if (hasControls(target)) {
        failUsage("the target has control characters");
    }
    if (target.empty()) {
        target = fileNameFor(line.Url);
    } else if (target.ends_with('/')) {
        target += fileNameFor(line.Url);
    } else if (isFolder(target)) {
        target += "/" + fileNameFor(line.Url);
    }
    if (isSpecialFile(target)) {
        failUsage("the target '" + printable(target) + "' is not a regular file; \"target\":null drops the content");
    }
    const std::string name = Names.of(target);
    if (const auto found = Reserved.find(name); found != Reserved.end()) {
        failUsage("the target '" + printable(target) + "' is " + found->second);
    }
    if (!JournalBase.empty() && isJournalName(name, JournalBase)) {
        failUsage("the target '" + printable(target) + "' is " + kJournal);
    }
    const auto [found, isNew] = Targets.emplace(name, LineNumber);
    if (!isNew) {
        failUsage("the target '" + printable(target) + "' is already used by line " + std::to_string(found->second));
    }
}

void BatchManifestParser::settleId(BatchLine& line) {
    line.Content = digestOf(line, 0);
    // Lines without a target may be equal on purpose: the same request several times.
    if (!line.Target) {
        if (const std::size_t earlier = LinesWithoutTarget[line.Content]++; earlier != 0) {
            line.Content = digestOf(line, earlier);
        }
    }
    if (!line.Extras || line.Extras->Id.empty()) {
        return;
    }
    const auto [found, isNew] = Ids.emplace(line.Extras->Id, LineNumber);
    if (!isNew) {
        failUsage("the id '" + printable(line.Extras->Id) + "' is already used by line " +
                  std::to_string(found->second));
    }
}

} // namespace netrove::cli
