#include "client/failures/ClientFailure.h"
#include "client/request/RequestChecks.h"
#include "client/save/ContentRange.h"
#include "client/save/FileParts.h"
#include "client/save/SavedContent.h"
#include "client/text/HttpDate.h"

#include <netrove/descriptor.h>
#include <netrove/outputfile.h>
#include <nlohmann/json.hpp>

#include <cerrno>
#include <fcntl.h>
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

} // namespace

std::string validatorOf(const Fields& fields) {
    const std::string tag = fields["ETag"];
    if (!tag.empty()) {
        return tag.starts_with('"') && isFieldValue(tag) ? tag : "";
    }
    const auto now = WallClock::now();
    const auto modified = parseHttpDate(fields["Last-Modified"], now);
    const auto sent = parseHttpDate(fields["Date"], now);
    return modified && sent && *sent - *modified >= kOldEnough ? fields["Last-Modified"] : "";
}

namespace {

// The link itself stays, as with a file that is received anew.
fs::path withoutLink(const fs::path& target, bool replace) {
    std::error_code none;
    const fs::path real = replace && fs::is_symlink(target, none) ? fs::canonical(target, none) : fs::path();
    return real.empty() ? target : real;
}

} // namespace

fs::path partNameFor(const fs::path& target, bool replace) {
    return withoutLink(target, replace).string() + ".part";
}

fs::path noteNameFor(const fs::path& part) {
    return part.string() + ".json";
}

namespace {

constexpr std::size_t kLargestNote = 4096; // bytes

bool sameFile(const struct stat& left, const struct stat& right) {
    return left.st_dev == right.st_dev && left.st_ino == right.st_ino;
}

// A file that nobody but this user has made.
bool isOwn(const struct stat& facts) {
    return S_ISREG(facts.st_mode) && facts.st_uid == geteuid() && facts.st_nlink == 1;
}

class ResumedContent final : public SavedContent {
public:
    ResumedContent(const fs::path& target, bool replace)
        : Given(target), Target(withoutLink(target, replace)), Replace(replace), Part(Target.string() + ".part"),
          Note(noteNameFor(Part)), File(-1) {
        checkTarget();
        File.Number = openPart();
        Validator = readNote();
        if (Validator.empty()) {
            startAnew({});
        }
    }

    ~ResumedContent() override {
        // Nothing has come, so there is nothing to go on from. An error is of no interest: the file is empty.
        struct stat facts {};
        if (fstat(File.Number, &facts) == 0 && facts.st_size == 0 && isAt(Part)) {
            unlink(Part.c_str());
            unlink(Note.c_str());
        }
    }
    ResumedContent(const ResumedContent&) = delete;
    ResumedContent& operator=(const ResumedContent&) = delete;

    void ask(Request& request) override {
        Asked = size();
        request.decode = false;
        request.fields.set("Accept-Encoding", "identity");
        if (Asked != 0) {
            request.fields.set("Range", "bytes=" + std::to_string(Asked) + "-");
            request.fields.set("If-Range", Validator);
        }
    }

    bool asksForPart() const override { return Asked != 0; }

    bool begin(Response& head) override {
        End.reset();
        if (head.status != 206) {
            startAnew(validatorOf(head.fields));
            return true;
        }
        const auto range = parseContentRange(head.fields["Content-Range"]);
        const std::string seen = head.fields[Validator.starts_with('"') ? "ETag" : "Last-Modified"];
        if (Asked == 0 || !range || range->First != Asked || (!seen.empty() && seen != Validator)) {
            startAnew({});
            return false;
        }
        End = range->Total.value_or(range->Last + 1);
        if (lseek(File.Number, 0, SEEK_END) < 0) {
            failNotWritten(errno);
        }
        head.resumedAt = Asked;
        return true;
    }

    bool isWhole(Response& head) override {
        End.reset();
        const auto range = parseContentRange(head.fields["Content-Range"]);
        if (Asked != 0 && range && range->Total == Asked) {
            head.resumedAt = Asked;
            return true;
        }
        startAnew({});
        return false;
    }

    void write(std::span<const std::byte> piece) override { writeAll(File.Number, piece, Part.string()); }

    void finish(const Request& request, const Response& response) override {
        // A server may send less than was asked for. What has come is kept, and the next call goes on from there.
        if (End && size() != *End) {
            const std::string came = std::to_string(size());
            throw clientError(failure::kIncomplete, {came, std::to_string(*End)},
                              "the content is incomplete: " + came + " of " + std::to_string(*End) + " bytes came")
                .with(response, true);
        }
        try {
            finishContent(File.Number, request, response, Target.string());
        } catch (const Error& failure) {
            if (failure.identifier().ends_with(netrove::failure::kDigestMismatch)) {
                startAnew({}); // going on from it would never help
            }
            throw;
        }
    }

    void settle(bool flushed) override {
        struct stat old {};
        if (stat(Target.c_str(), &old) == 0 && S_ISREG(old.st_mode) && fchmod(File.Number, old.st_mode & 0777) != 0) {
            failNotWritten(errno);
        }
        if (const int error = flushed ? 0 : syncContent(File.Number)) {
            failNotWritten(error);
        }
    }

    void name() override {
        if (!isAt(Part)) {
            fail(failure::kFileNotWritten, {Part.string(), "somebody replaced it"},
                 Part.string() + ": somebody replaced it");
        }
        const unsigned how = Replace ? 0 : RENAME_NOREPLACE;
        if (renameat2(AT_FDCWD, Part.c_str(), AT_FDCWD, Target.c_str(), how) != 0) {
            if (errno == EEXIST && !Replace) {
                failExists();
            }
            failNotWritten(errno);
        }
        unlink(Note.c_str()); // without the other file it says nothing
    }

    int descriptor() const override { return File.Number; }
    std::string temporaryName() const override { return Part; }
    const fs::path& target() const override { return Given; }

private:
    // As for a file that is received anew: a device is not replaced by a file.
    void checkTarget() const {
        if (isFolder(Target)) {
            failNotWritten(EISDIR);
        }
        if (isSpecialFile(Target)) {
            fail(failure::kFileNotWritten, {Target.string(), "not a regular file"},
                 Target.string() + ": not a regular file");
        }
        if (!Replace && fileExists(Target)) {
            failExists();
        }
    }

    // The file may be of anybody who may write in the folder, so only one of our own is taken. Nobody may read from it
    // what the file that it replaces would not let them read.
    int openPart() const {
        struct stat old {};
        const mode_t mode = stat(Target.c_str(), &old) == 0 ? old.st_mode & 0666 : 0666;
        for (;;) {
            Descriptor file(retried([&] {
                return open(Part.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, mode);
            }));
            struct stat facts {};
            if (file.Number < 0 || fstat(file.Number, &facts) != 0) {
                failSystem(failure::kFileNotWritten, Part.string(), errno);
            }
            if (!isOwn(facts)) {
                fail(failure::kFileNotWritten, {Part.string(), "not a file of this user alone"},
                     Part.string() + ": not a file of this user alone");
            }
            if (flock(file.Number, LOCK_EX | LOCK_NB) != 0) {
                fail(failure::kFileNotWritten, {Part.string(), "in use"},
                     Part.string() + " is in use: another program is receiving the same file");
            }
            // Another program may have held the lock until just now, and given the file its final name.
            struct stat there {};
            if (lstat(Part.c_str(), &there) == 0 && sameFile(facts, there)) {
                return std::exchange(file.Number, -1);
            }
        }
    }

    bool isAt(const fs::path& path) const {
        struct stat own {};
        struct stat there {};
        return fstat(File.Number, &own) == 0 && lstat(path.c_str(), &there) == 0 && sameFile(own, there);
    }

    // Empty if there is none that can be used: a strong tag or a date, on one line.
    std::string readNote() const {
        const Descriptor file(
            retried([&] { return open(Note.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }));
        struct stat facts {};
        if (file.Number < 0 || fstat(file.Number, &facts) != 0 || !isOwn(facts)) {
            return {};
        }
        std::string text(kLargestNote, '\0');
        const ssize_t count = retried([&] { return read(file.Number, text.data(), text.size()); });
        text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
        const nlohmann::json note = nlohmann::json::parse(text, nullptr, false);
        const auto found = note.is_object() ? note.find("validator") : note.end();
        const std::string validator =
            note.is_object() && found != note.end() && found->is_string() ? found->get<std::string>() : "";
        return isFieldValue(validator) ? validator : "";
    }

    // A new file, so that no link of somebody else leads the writing elsewhere.
    void writeNote() const {
        const std::string text =
            nlohmann::json{{"validator", Validator}}.dump(-1, ' ', true, nlohmann::json::error_handler_t::replace) +
            '\n';
        const Descriptor file(
            retried([&] { return open(Note.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600); }));
        if (file.Number < 0) {
            failSystem(failure::kFileNotWritten, Note.string(), errno);
        }
        writeAll(file.Number, std::as_bytes(std::span(text)), Note.string());
    }

    // From now on the content is that of this validator, from its first byte.
    void startAnew(const std::string& validator) {
        restart(File.Number, Target.string());
        Validator = validator;
        Asked = 0;
        unlink(Note.c_str());
        if (!validator.empty()) {
            writeNote();
        }
    }

    std::uint64_t size() const {
        struct stat facts {};
        if (fstat(File.Number, &facts) != 0) {
            failNotWritten(errno);
        }
        return static_cast<std::uint64_t>(facts.st_size);
    }

    [[noreturn]] void failExists() const { fail(failure::kFileExists, {Target.string()}, Target.string() + " exists"); }
    [[noreturn]] void failNotWritten(int error) const { failSystem(failure::kFileNotWritten, Target.string(), error); }

    fs::path Given;
    fs::path Target; // the file itself
    bool Replace;
    fs::path Part;
    fs::path Note;
    Descriptor File;
    std::string Validator; // of the content in Part; empty: it cannot be resumed
    std::uint64_t Asked = 0;
    std::optional<std::uint64_t> End; // of the content, as the server said with the part
};

} // namespace

std::unique_ptr<SavedContent> resumedContent(const fs::path& target, bool replace) {
    return std::make_unique<ResumedContent>(target, replace);
}

} // namespace netrove
