#include "client/failures/ClientFailure.h"
#include "client/request/BodySource.h"
#include "client/request/MediaType.h"

#include <netrove/descriptor.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <utility>

namespace netrove {

namespace {

struct FileState {
    bool Regular = false; // has a length, and can be read again
    std::uint64_t Size = 0;
    std::int64_t ChangedSeconds = 0;
    std::int64_t ChangedNanoseconds = 0;
    bool operator==(const FileState&) const = default;
};

// `call` is stat or fstat.
template <class Call>
FileState stateOf(const std::string& file, Call call) {
    struct stat facts {};
    int error = call(facts) == 0 ? 0 : errno;
    if (error == 0 && S_ISDIR(facts.st_mode)) {
        error = EISDIR;
    }
    if (error != 0) {
        failSystem(failure::kFileNotRead, file, error);
    }
    return {S_ISREG(facts.st_mode), static_cast<std::uint64_t>(facts.st_size), facts.st_mtim.tv_sec,
            facts.st_mtim.tv_nsec};
}

FileState stateOf(const std::string& file) {
    return stateOf(file, [&](struct stat& facts) { return ::stat(file.c_str(), &facts); });
}

class FileReader : public BodyReader {
public:
    explicit FileReader(const std::string& name)
        : Name(name), File(retried([&] { return ::open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY); })) {
        if (File.Number < 0) {
            failSystem(failure::kFileNotRead, Name, errno);
        }
        AtOpen = std::make_shared<const FileState>(state());
    }

    const std::shared_ptr<const FileState>& atOpen() const { return AtOpen; }

    std::size_t read(std::span<std::byte> room) override {
        const ssize_t count = retried([&] { return ::read(File.Number, room.data(), room.size()); });
        if (count < 0) {
            failSystem(failure::kFileNotRead, Name, errno);
        }
        // The same length may be another content: half of it old, half of it new.
        if (count == 0 && AtOpen->Regular && !(state() == *AtOpen)) {
            failChanged(Name, "was written to");
        }
        return static_cast<std::size_t>(count);
    }

private:
    FileState state() const {
        return stateOf(Name, [&](struct stat& facts) { return ::fstat(File.Number, &facts); });
    }

    std::string Name;
    Descriptor File;
    std::shared_ptr<const FileState> AtOpen;
};

class FileSource : public BodySource {
public:
    explicit FileSource(const std::filesystem::path& path)
        : Name(path.string()), FileName(path.filename().string()), Regular(stateOf(Name).Regular) {
        // Shows now whether it may be read. Opening a pipe would wait for its writer.
        if (Regular) {
            const FileReader reader(Name);
        }
    }

    std::optional<std::uint64_t> length() override {
        if (!Regular) {
            return {};
        }
        const auto sending = Sending.lock();
        return sending ? sending->Size : stateOf(Name).Size;
    }

    bool repeatable() const override { return Regular; }

    std::unique_ptr<BodyReader> open() override {
        auto reader = std::make_unique<FileReader>(Name);
        if (!Regular) {
            return reader;
        }
        const std::shared_ptr<const FileState> now = reader->atOpen();
        if (!now->Regular) {
            failChanged(Name, "is not a regular file any more");
        }
        Sending = now;
        return exactly(now->Size, std::move(reader),
                       [name = Name](const std::string& what) { failChanged(name, what); });
    }

    std::string fileName() const override { return FileName; }

private:
    std::string Name;
    std::string FileName;
    bool Regular;
    std::weak_ptr<const FileState> Sending; // of the reader that was opened last, for as long as it is there
};

} // namespace

void failChanged(const std::string& file, const std::string& what) {
    fail(failure::kContentChanged, {file}, file + ": changed while it was being sent: it " + what);
}

Body file(const std::filesystem::path& path, std::string contentType) {
    auto source = std::make_shared<FileSource>(path);
    if (contentType.empty()) {
        contentType = mediaTypeOf(source->fileName());
    }
    return BodyAccess::make(std::move(source), std::move(contentType));
}

} // namespace netrove
