#include "cli/system/BodySource.h"

#include "cli/failures/CliFailure.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace netrove::cli {

namespace {

// However much is asked for, no more than this is read at a time.
constexpr std::uint64_t kLargestPiece = std::uint64_t{64} << 20;

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

BodySource::BodySource(const std::string& file, std::optional<Clock::time_point> deadline)
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
    if (!Regular) {
        return;
    }
    // Some of standard input may have been read before.
    Start = std::max<std::int64_t>(0, lseek(Input, 0, SEEK_CUR));
    Length = static_cast<std::uint64_t>(std::max<std::int64_t>(0, facts.st_size - Start));
}

void BodySource::beginRequest() {
    if (Given == 0) {
        return;
    }
    if (!Regular) {
        fail(failure::kContentNotRewound, {Name},
             Name + " cannot be read a second time for the redirected request; send it from a file instead");
    }
    if (lseek(Input, Start, SEEK_SET) < 0) {
        failSystem(failure::kFileNotRead, Name, errno);
    }
    Given = 0;
}

vantik::ContentProvider BodySource::provider() {
    return {[this] { rewind(); }, [this](std::uint64_t wanted) { return read(wanted); }};
}

void BodySource::rewind() {
    if (Given == 0) {
        return;
    }
    // Within one request the library goes on with what it holds of the content, so a second reading from the start
    // would send the content twice or in part. A clear failure is all that can be done.
    failWith(cliMessage(failure::kContentNotRewound, {Name},
                        "the server asks for the content of " + Name +
                            " a second time, for example after authentication; name one scheme with --auth, or send "
                            "from memory with --body-file"));
}

vantik::Array BodySource::read(std::uint64_t wanted) {
    std::uint64_t limit = std::clamp<std::uint64_t>(wanted, 1, kLargestPiece);
    if (Promised && Length) {
        limit = std::min(limit, *Length - Given);
    }
    const std::size_t count = limit == 0 ? 0 : readSome(static_cast<std::size_t>(limit));
    if (Promised && Length && count == 0 && Given < *Length) {
        failWith(cliMessage(failure::kContentChanged, {Name}, Name + " became shorter while it was being sent"));
    }
    Given += count;
    if (ReadHandler) {
        ReadHandler(Given);
    }
    return vantik::Array::bytes(std::span<const std::byte>(Buffer.data(), count));
}

std::size_t BodySource::readSome(std::size_t wanted) {
    if (Buffer.size() < wanted) {
        Buffer.resize(wanted);
    }
    for (;;) {
        if (!Regular && waitReadable(Input, Deadline) != Waited::Ready) {
            // A signal or the end of the time allowed; the program knows which.
            throw vantik::Interrupted(cliMessage(failure::kInterrupted, {}, "interrupted"), false);
        }
        const ssize_t count = ::read(Input, Buffer.data(), wanted);
        if (count >= 0) {
            return static_cast<std::size_t>(count);
        }
        if (errno != EINTR && errno != EAGAIN) {
            const std::string reason = systemText(errno);
            failWith(cliMessage(failure::kFileNotRead, {Name, reason}, Name + ": " + reason));
        }
    }
}

void BodySource::failWith(vantik::Message message) {
    Failed = message;
    throw vantik::Failure(std::move(message));
}

std::string readWhole(const std::string& file, std::optional<Clock::time_point> deadline) {
    BodySource source(file, deadline);
    const vantik::ContentProvider provider = source.provider();
    std::string content;
    for (;;) {
        const vantik::Array piece = provider.read(1 << 20);
        if (piece.empty()) {
            return content;
        }
        if (content.size() + piece.size() > kLargestInMemory) {
            fail(failure::kFileNotRead, {shownName(file), "more than 1 GiB"},
                 shownName(file) + " is too large to be held in memory; use --stream-file");
        }
        content += piece.byteText();
    }
}

} // namespace netrove::cli
