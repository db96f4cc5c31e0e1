#include "cli/exchange/BodySink.h"

#include "cli/failures/CliFailure.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace netrove::cli {

namespace {

bool isRegular(int descriptor) {
    struct stat facts {};
    return fstat(descriptor, &facts) == 0 && S_ISREG(facts.st_mode);
}

} // namespace

BodySink::BodySink(int descriptor, std::string name, bool guardTerminal, std::optional<Clock::time_point> deadline)
    : Descriptor(descriptor), Name(std::move(name)), GuardTerminal(guardTerminal), Regular(isRegular(descriptor)),
      Deadline(deadline) {}

bool BodySink::write(std::string_view bytes) {
    while (!bytes.empty()) {
        // A pipe that is ready takes PIPE_BUF bytes without blocking; more could block us past a signal or the time
        // limit.
        const auto piece = Regular ? bytes : bytes.substr(0, PIPE_BUF);
        if (!writePiece(piece)) {
            return false;
        }
        bytes.remove_prefix(piece.size());
    }
    return true;
}

bool BodySink::writePiece(std::string_view bytes) {
    while (!bytes.empty()) {
        if (!Regular && waitWritable(Descriptor, Deadline) != Waited::Ready) {
            return false; // a signal or the end of the time allowed; the program knows which
        }
        const ssize_t count = ::write(Descriptor, bytes.data(), bytes.size());
        if (count > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(count));
        } else if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
            const std::string reason = systemText(count == 0 ? ENOSPC : errno);
            Failed = cliMessage(failure::kFileNotWritten, {Name, reason}, Name + ": " + reason);
            return false;
        }
    }
    return true;
}

void BodySink::limit(std::uint64_t most, vantik::Message excess) {
    Most = most;
    Excess = std::move(excess);
}

vantik::ContentConsumer BodySink::consumer() {
    vantik::ContentConsumer result;
    result.start = []() -> std::optional<double> { return std::nullopt; };
    result.write = [this](std::span<const std::byte> piece) -> std::optional<double> {
        const std::string_view bytes(reinterpret_cast<const char*>(piece.data()), piece.size());
        if (GuardTerminal && Controls.findsIn(bytes)) {
            Failed = cliMessage(failure::kBinaryToTerminal, {},
                                "the content has control characters and is not shown on a terminal; use --output FILE, "
                                "or '-o -' to show it anyway");
            return std::nullopt;
        }
        if (piece.size() > Most - Taken) {
            Failed = Excess;
            return std::nullopt;
        }
        if (!write(bytes)) {
            return std::nullopt;
        }
        Taken += piece.size();
        if (WriteHandler) {
            WriteHandler(Taken);
        }
        return static_cast<double>(piece.size());
    };
    result.close = [] {};
    result.interrupted = [] {};
    result.savedOnFailure = [](std::span<const std::byte>) {};
    return result;
}

} // namespace netrove::cli
