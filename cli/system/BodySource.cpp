#include "cli/system/BodySource.h"

#include "cli/failures/CliFailure.h"

#include <netrove/descriptor.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace netrove::cli {

namespace {

constexpr std::size_t kPiece = std::size_t{1} << 20;

std::string shownName(const std::string& file) {
    return file == "-" ? "standard input" : file;
}

int openForReading(const std::string& file) {
    if (file == "-") {
        return -1;
    }
    const int descriptor = retried([&] { return open(file.c_str(), O_RDONLY | O_CLOEXEC); });
    if (descriptor < 0) {
        failSystem(failure::kFileNotRead, file, errno);
    }
    return descriptor;
}

} // namespace

struct FileReader::State {
    State(const std::string& file, std::optional<Clock::time_point> deadline)
        : Name(shownName(file)), File(openForReading(file)), Input(file == "-" ? STDIN_FILENO : File.Number),
          Deadline(deadline) {
        struct stat facts {};
        int error = fstat(Input, &facts) == 0 ? 0 : errno;
        if (error == 0 && S_ISDIR(facts.st_mode)) {
            error = EISDIR;
        }
        if (error != 0) {
            failSystem(failure::kFileNotRead, Name, error);
        }
        Regular = S_ISREG(facts.st_mode);
        if (Regular) {
            // Some of standard input may have been read before.
            Start = std::max<std::int64_t>(0, lseek(Input, 0, SEEK_CUR));
            Length = static_cast<std::uint64_t>(std::max<std::int64_t>(0, facts.st_size - Start));
        }
    }

    void rewind() const {
        if (Regular && lseek(Input, Start, SEEK_SET) < 0) {
            failSystem(failure::kFileNotRead, Name, errno);
        }
    }

    std::size_t read(std::span<std::byte> room) const {
        for (;;) {
            if (!Regular && waitReadable(Input, Deadline) != Waited::Ready) {
                // A signal or the end of the time allowed; the program knows which.
                throw vantik::Interrupted(cliMessage(failure::kInterrupted, {}, "interrupted"), false);
            }
            const ssize_t count = ::read(Input, room.data(), room.size());
            if (count >= 0) {
                return static_cast<std::size_t>(count);
            }
            if (errno != EINTR && errno != EAGAIN) {
                failSystem(failure::kFileNotRead, Name, errno);
            }
        }
    }

    std::string Name;
    Descriptor File; // none for standard input, which is not ours to close
    int Input;
    bool Regular = false;
    std::int64_t Start = 0; // where the content begins in a regular file
    std::optional<std::uint64_t> Length;
    std::optional<Clock::time_point> Deadline;
};

FileReader::FileReader(const std::string& file, std::optional<Clock::time_point> deadline)
    : Own(std::make_shared<State>(file, deadline)) {}

FileReader::~FileReader() = default;

std::size_t FileReader::read(std::span<std::byte> room) {
    return Own->read(room);
}

netrove::Body streamedContent(const std::string& file, bool lengthIsKnown, std::optional<Clock::time_point> deadline) {
    // From the start, and no more than the length that was promised: a file may grow while it is sent.
    class Content final : public netrove::BodyReader {
    public:
        Content(std::shared_ptr<FileReader::State> file, std::optional<std::uint64_t> promised)
            : File(std::move(file)), Promised(promised), Left(promised.value_or(0)) {
            File->rewind();
        }
        std::size_t read(std::span<std::byte> room) override {
            if (!Promised) {
                return File->read(room);
            }
            if (Left == 0) {
                return 0;
            }
            const std::size_t count = File->read(room.first(std::min<std::uint64_t>(room.size(), Left)));
            if (count == 0) {
                fail(failure::kContentChanged, {File->Name}, File->Name + " became shorter while it was being sent");
            }
            Left -= count;
            return count;
        }

    private:
        std::shared_ptr<FileReader::State> File;
        std::optional<std::uint64_t> Promised;
        std::uint64_t Left;
    };
    const FileReader opened(file, deadline);
    const auto promised = lengthIsKnown ? opened.Own->Length : std::nullopt;
    return {[state = opened.Own, promised] { return std::make_unique<Content>(state, promised); }, promised,
            opened.Own->Regular, ""};
}

std::string readWhole(const std::string& file, std::optional<Clock::time_point> deadline) {
    FileReader reader(file, deadline);
    std::vector<std::byte> piece(kPiece);
    std::string content;
    while (const std::size_t count = reader.read(piece)) {
        if (content.size() + count > kLargestInMemory) {
            fail(failure::kFileNotRead, {shownName(file), "more than 1 GiB"},
                 shownName(file) + " is too large to be held in memory; use --stream-file");
        }
        content.append(reinterpret_cast<const char*>(piece.data()), count);
    }
    return content;
}

} // namespace netrove::cli
