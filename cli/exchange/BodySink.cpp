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

// "application/json", "application/problem+json", "application/x-ndjson", whatever parameters follow.
bool isJson(std::string_view contentType) {
    std::string_view type = contentType.substr(0, contentType.find_first_of("; \t"));
    type.remove_prefix(std::min(type.find_last_of("/+-.") + 1, type.size()));
    return equalsIgnoringCase(type, "json") || equalsIgnoringCase(type, "ndjson") || equalsIgnoringCase(type, "jsonl");
}

} // namespace

BodySink::BodySink(int descriptor, std::string name, bool guardTerminal, std::optional<Clock::time_point> deadline)
    : Descriptor(descriptor), Name(std::move(name)), GuardTerminal(guardTerminal), Regular(isRegular(descriptor)),
      Deadline(deadline) {}

namespace {

// Content of transfers that run at the same time goes to standard output one after the other.
std::mutex theOutput;

} // namespace

void BodySink::write(std::string_view bytes) {
    if (Descriptor == STDOUT_FILENO && !Turn.owns_lock()) {
        Turn = std::unique_lock(theOutput);
    }
    while (!bytes.empty()) {
        // A pipe that is ready takes PIPE_BUF bytes without blocking; more could block us past a signal or the time
        // limit.
        const auto piece = Regular ? bytes : bytes.substr(0, PIPE_BUF);
        writePiece(piece);
        bytes.remove_prefix(piece.size());
    }
}

void BodySink::endTurn() {
    if (Turn.owns_lock()) {
        Turn.unlock();
    }
}

void BodySink::writePiece(std::string_view bytes) {
    while (!bytes.empty()) {
        if (!Regular && waitWritable(Descriptor, Deadline) != Waited::Ready) {
            // A signal or the end of the time allowed; the program knows which.
            throw vantik::Interrupted(cliMessage(failure::kInterrupted, {}, "interrupted"), false);
        }
        const ssize_t count = ::write(Descriptor, bytes.data(), bytes.size());
        if (count > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(count));
        } else if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
            failSystem(failure::kFileNotWritten, Name, count == 0 ? ENOSPC : errno);
        }
    }
}

void BodySink::limit(std::uint64_t most, vantik::Message excess) {
    Most = most;
    Excess = std::move(excess);
}

void BodySink::take(std::span<const std::byte> piece) {
    const std::string_view bytes(reinterpret_cast<const char*>(piece.data()), piece.size());
    if (GuardTerminal && Controls.findsIn(bytes)) {
        fail(failure::kBinaryToTerminal, {},
             "the content has control characters and is not shown on a terminal; use --output FILE, or '-o -' to show "
             "it anyway");
    }
    if (Most && piece.size() > *Most - Taken) {
        throw vantik::Failure(Excess);
    }
    if (Indenter) {
        Indenter->take(bytes);
    } else {
        write(bytes);
    }
    Taken += piece.size();
}

void BodySink::begin(std::string_view contentType) {
    Indenter.reset();
    if (TheLooks.IndentsJson && (TheLooks.IndentsAnyType || isJson(contentType))) {
        Indenter.emplace([this](std::string_view text) { write(text); }, TheLooks.Colored);
    }
}

void BodySink::finish() {
    if (Indenter) {
        Indenter->finish();
        Indenter.reset();
    }
}

} // namespace netrove::cli
