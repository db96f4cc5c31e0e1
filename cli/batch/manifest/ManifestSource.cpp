#include "cli/batch/manifest/ManifestSource.h"

#include "cli/failures/CliFailure.h"
#include "cli/system/Checksum.h"
#include "cli/system/Signals.h"
#include "vantik/Failure.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace netrove::cli {

namespace {

constexpr std::size_t kBlock = std::size_t{1} << 18;
constexpr std::size_t kLongestHeld = std::size_t{4} << 20;

int opened(const std::string& file, const std::string& name) {
    const int descriptor = retried([&] {
        return file == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0) : open(file.c_str(), O_RDONLY | O_CLOEXEC);
    });
    if (descriptor < 0) {
        failSystem(failure::kFileNotRead, name, errno);
    }
    return descriptor;
}

[[noreturn]] void failInterrupted() {
    throw vantik::Interrupted(cliMessage(failure::kInterrupted, {}, "interrupted"), false);
}

} // namespace

ManifestSource::ManifestSource(const std::string& file, const BatchShard& shard, ManifestLines& lines, BadLine onBad)
    : Name(file == "-" ? "standard input" : file), Shard(shard), Lines(lines), OnBad(std::move(onBad)),
      File(opened(file, Name)), Reader([this](std::span<char> room) { return readOnce(room); }) {
    struct stat facts {};
    int error = fstat(File.Number, &facts) == 0 ? 0 : errno;
    if (error == 0 && S_ISDIR(facts.st_mode)) {
        error = EISDIR;
    }
    if (error != 0) {
        failSystem(failure::kFileNotRead, Name, error);
    }
    Twice = file != "-" && S_ISREG(facts.st_mode);
    if (Twice) {
        Reader = LineReader([this](std::span<char> room) { return readFirst(room); });
        return;
    }
    Changes.Number = epoll_create1(EPOLL_CLOEXEC);
    epoll_event readable{.events = EPOLLIN, .data = {}};
    if (Changes.Number < 0 || epoll_ctl(Changes.Number, EPOLL_CTL_ADD, Stopped.descriptor(), &readable) != 0) {
        failSystem(failure::kFileNotRead, Name, errno);
    }
    if (epoll_ctl(Changes.Number, EPOLL_CTL_ADD, File.Number, &readable) != 0) {
        if (errno != EPERM) {
            failSystem(failure::kFileNotRead, Name, errno);
        }
        Stopped.raise(); // a file, or a device like it, which never has to be waited for
    }
}

BadLines ManifestSource::check() {
    BadLines bad;
    while (const auto line = Reader.next()) {
        if (Shard.has(All++)) {
            ++Own;
            try {
                Lines.check(line->Number, line->Text);
            } catch (const vantik::Failure& failure) {
                bad.add(line->Number, failure.message().Text);
            }
        }
    }
    Length = Read;
    Read = 0;
    Reader = LineReader([this](std::span<char> room) { return readAgain(room); });
    return bad;
}

std::optional<BatchLine> ManifestSource::next() {
    while (const auto line = Reader.next()) {
        const bool isOwn = Shard.has(Place++);
        if (!isOwn) {
            Lines.pass(line->Text);
        } else if (Twice) {
            return Lines.again(line->Number, line->Text);
        } else if (auto taken = take(*line)) {
            return taken;
        }
    }
    return std::nullopt;
}

std::optional<BatchLine> ManifestSource::take(const LineReader::Line& line) {
    try {
        return Lines.once(line.Number, line.Text);
    } catch (const vantik::Interrupted&) {
        throw;
    } catch (const vantik::Failure& failure) {
        BadLines bad;
        bad.add(line.Number, failure.message().Text);
        const std::string& problem = bad.First.front().Problem;
        const std::string number = "line " + std::to_string(line.Number);
        BatchLine whole;
        whole.Number = line.Number;
        whole.Text = line.Text;
        whole.Extras = std::make_unique<BatchExtras>();
        whole.Extras->Id = number; // it has nothing else that can be shown
        OnBad(whole, cliMessage(failure::kBadManifest, {Name, number + ": " + problem}, problem));
        return std::nullopt;
    }
}

void ManifestSource::stop() noexcept {
    Stopping = true;
    Stopped.raise();
}

std::size_t ManifestSource::readOnce(std::span<char> room) {
    for (;;) {
        if (waitReadable(Changes.Number, std::nullopt) == Waited::Interrupted) {
            failInterrupted();
        }
        if (Stopping) {
            return 0;
        }
        const ssize_t count = ::read(File.Number, room.data(), room.size());
        if (count >= 0) {
            return static_cast<std::size_t>(count);
        }
        if (errno != EINTR && errno != EAGAIN) {
            failSystem(failure::kFileNotRead, Name, errno);
        }
    }
}

std::size_t ManifestSource::readFirst(std::span<char> room) {
    // A file may grow meanwhile; only the last block is shorter than the others.
    if (BlockTaken == Block.size() && Read % kBlock == 0) {
        Block.resize(kBlock);
        Block.resize(readBlock(Block, Read));
        BlockTaken = 0;
        Read += Block.size();
        Sums.push_back(checksumOf(Block));
        Read <= kLongestHeld ? Held += Block : Held = {};
    }
    return takeBlock(room);
}

std::size_t ManifestSource::readAgain(std::span<char> room) {
    if (BlockTaken == Block.size() && Read < Length) {
        const std::size_t length = std::min<std::uint64_t>(kBlock, Length - Read);
        if (Length <= kLongestHeld) {
            Block = Held.substr(Read, length);
        } else {
            Block.resize(length);
            if (readBlock(Block, Read) != length || checksumOf(Block) != Sums.at(Read / kBlock)) {
                fail(failure::kFileNotRead, {Name, "it has changed"},
                     Name + " has changed since it was checked; run the same command again");
            }
        }
        BlockTaken = 0;
        Read += length;
    }
    return takeBlock(room);
}

std::size_t ManifestSource::takeBlock(std::span<char> room) {
    const std::size_t count = Block.copy(room.data(), room.size(), BlockTaken);
    BlockTaken += count;
    return count;
}

// Less than asked for only at the end.
std::size_t ManifestSource::readBlock(std::span<char> room, std::uint64_t place) const {
    if (signalSeen() != 0) {
        failInterrupted();
    }
    std::size_t done = 0;
    while (done < room.size()) {
        const ssize_t count = retried([&] {
            return pread(File.Number, room.data() + done, room.size() - done, static_cast<off_t>(place + done));
        });
        if (count < 0) {
            failSystem(failure::kFileNotRead, Name, errno);
        }
        if (count == 0) {
            break;
        }
        done += static_cast<std::size_t>(count);
    }
    return done;
}

} // namespace netrove::cli
