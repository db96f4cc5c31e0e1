#include "client/failures/ClientFailure.h"
#include "client/save/FileParts.h"
#include "client/save/SavedContent.h"
#include "client/text/HttpDate.h"

#include <netrove/descriptor.h>
#include <nlohmann/json.hpp>

#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <fstream>
#include <optional>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace netrove {

namespace {

namespace fs = std::filesystem;

// A date proves that content is the same only if it was old when the content came (RFC 9110, section 8.8.2.2).
constexpr std::chrono::seconds kOldEnough(60);

// What stays the same as long as the server's content does; fit for If-Range (RFC 9110, section 13.1.5). Empty: nothing
// does.
std::string validatorOf(const Fields& fields) {
    const std::string tag = fields["ETag"];
    if (!tag.empty()) {
        return tag.starts_with("W/") ? "" : tag;
    }
    const auto now = WallClock::now();
    const auto modified = parseHttpDate(fields["Last-Modified"], now);
    const auto sent = parseHttpDate(fields["Date"], now);
    return modified && sent && *sent - *modified >= kOldEnough ? fields["Last-Modified"] : "";
}

struct ContentRange {
    std::optional<std::uint64_t> First; // nothing: "*"
    std::optional<std::uint64_t> Total; // nothing: "*"
};

// "bytes 5-9/10", "bytes 5-9/*", "bytes */10" (RFC 9110, section 14.4); nothing for anything else.
std::optional<ContentRange> parseContentRange(std::string_view text) {
    const auto number = [&](std::uint64_t& value) {
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
        text.remove_prefix(static_cast<std::size_t>(end - text.data()));
        return error == std::errc();
    };
    const auto literal = [&](std::string_view expected) {
        const bool there = text.starts_with(expected);
        text.remove_prefix(there ? expected.size() : 0);
        return there;
    };
    ContentRange range;
    std::uint64_t first = 0;
    std::uint64_t last = 0;
    std::uint64_t total = 0;
    if (!literal("bytes ")) {
        return std::nullopt;
    }
    if (!literal("*")) {
        if (!number(first) || !literal("-") || !number(last) || last < first) {
            return std::nullopt;
        }
        range.First = first;
    }
    if (!literal("/")) {
        return std::nullopt;
    }
    if (!literal("*")) {
        if (!number(total) || (range.First && total <= last)) {
            return std::nullopt;
        }
        range.Total = total;
    }
    return text.empty() ? std::optional(range) : std::nullopt;
}

class ResumedContent final : public SavedContent {
public:
    ResumedContent(const fs::path& target, bool replace)
        : Target(target), Replace(replace), Part(target.string() + ".part"), Note(Part.string() + ".json"),
          File(openPart()) {
        if (fs::is_directory(target)) {
            failSystem(failure::kFileNotWritten, target.string(), EISDIR);
        }
        if (!replace && fs::exists(fs::symlink_status(target))) {
            fail(failure::kFileExists, {target.string()}, target.string() + " exists");
        }
        Validator = readNote();
        if (Validator.empty()) {
            startAnew({});
        }
    }

    void ask(Request& request) override {
        Asked = size();
        request.decode = false;
        request.fields.set("Accept-Encoding", "identity");
        if (Asked != 0) {
            request.fields.set("Range", "bytes=" + std::to_string(Asked) + "-");
            request.fields.set("If-Range", Validator);
        }
    }

    bool begin(Response& head) override {
        if (Asked == 0 || head.status != 206) {
            startAnew(validatorOf(head.fields));
            return true;
        }
        const auto range = parseContentRange(head.fields["Content-Range"]);
        const std::string tag = head.fields["ETag"];
        if (!range || range->First != Asked || (!tag.empty() && Validator.starts_with('"') && tag != Validator)) {
            startAnew({});
            return false;
        }
        if (lseek(File.Number, 0, SEEK_END) < 0) {
            failNotWritten(errno);
        }
        head.resumedAt = Asked;
        return true;
    }

    bool isWhole(const Response& head) override {
        const auto range = parseContentRange(head.fields["Content-Range"]);
        if (Asked != 0 && range && range->Total == Asked) {
            return true;
        }
        startAnew({});
        return false;
    }

    void write(std::span<const std::byte> piece) override { writeAll(File.Number, piece, Part.string()); }

    void keep(const Request& request, const Response& response) override {
        try {
            finishContent(File.Number, request, response, Target.string());
        } catch (const Error& failure) {
            if (failure.identifier().ends_with(netrove::failure::kDigestMismatch)) {
                startAnew({}); // going on from it would never help
            }
            throw;
        }
        struct stat old {};
        if (stat(Target.c_str(), &old) == 0 && S_ISREG(old.st_mode) && fchmod(File.Number, old.st_mode & 0777) != 0) {
            failNotWritten(errno);
        }
        if (const int error = syncContent(File.Number)) {
            failNotWritten(error);
        }
        const unsigned how = Replace ? 0 : RENAME_NOREPLACE;
        if (renameat2(AT_FDCWD, Part.c_str(), AT_FDCWD, Target.c_str(), how) != 0) {
            failNotWritten(errno);
        }
        std::error_code ignored; // it says nothing about a file that is not there
        fs::remove(Note, ignored);
    }

    const fs::path& target() const override { return Target; }

private:
    // The file may be of anybody who may write in the folder, so only one of our own is taken.
    int openPart() const {
        Descriptor file(
            retried([&] { return open(Part.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, 0666); }));
        struct stat facts {};
        if (file.Number < 0 || fstat(file.Number, &facts) != 0) {
            failSystem(failure::kFileNotWritten, Part.string(), errno);
        }
        if (!S_ISREG(facts.st_mode) || facts.st_uid != geteuid() || facts.st_nlink != 1) {
            fail(failure::kFileNotWritten, {Part.string(), "not a file of this user alone"},
                 Part.string() + ": not a file of this user alone");
        }
        if (flock(file.Number, LOCK_EX | LOCK_NB) != 0) {
            fail(failure::kFileNotWritten, {Part.string(), "in use"},
                 Part.string() + " is in use: another program is receiving the same file");
        }
        return std::exchange(file.Number, -1);
    }

    std::string readNote() const {
        std::ifstream file(Note);
        const nlohmann::json note = nlohmann::json::parse(file, nullptr, false);
        const auto found = note.is_object() ? note.find("validator") : note.end();
        return note.is_object() && found != note.end() && found->is_string() ? found->get<std::string>() : "";
    }

    // From now on the content is that of this validator, from its first byte.
    void startAnew(const std::string& validator) {
        restart(File.Number, Target.string());
        Validator = validator;
        Asked = 0;
        std::error_code ignored;
        fs::remove(Note, ignored);
        if (validator.empty()) {
            return;
        }
        std::ofstream file(Note);
        file << nlohmann::json{{"validator", validator}}.dump() << '\n';
        if (!file.flush()) {
            failSystem(failure::kFileNotWritten, Note.string(), errno);
        }
    }

    std::uint64_t size() const {
        struct stat facts {};
        if (fstat(File.Number, &facts) != 0) {
            failNotWritten(errno);
        }
        return static_cast<std::uint64_t>(facts.st_size);
    }

    [[noreturn]] void failNotWritten(int error) const { failSystem(failure::kFileNotWritten, Target.string(), error); }

    fs::path Target;
    bool Replace;
    fs::path Part;
    fs::path Note;
    Descriptor File;
    std::string Validator; // of the content in Part; empty: it cannot be resumed
    std::uint64_t Asked = 0;
};

} // namespace

std::unique_ptr<SavedContent> resumedContent(const fs::path& target, bool replace) {
    return std::make_unique<ResumedContent>(target, replace);
}

} // namespace netrove
