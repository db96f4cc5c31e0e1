// A journal that earlier runs, or anybody else, left behind: it is read or refused, and the next run knows what is then
// written to it. The first byte says whether the rest follows a good first line.
#include "cli/batch/journal/BatchHistory.h"
#include "cli/batch/journal/BatchJournal.h"
#include "fuzz/FuzzInput.h"
#include "tests/support/server/SocketHandle.h"

#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>

namespace {

using namespace netrove::cli;

BatchLine lineWithoutTarget() {
    return ManifestLines([](const std::string&) {}).once(1, R"({"url":"http://h/","target":null,"id":"a"})");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    static const BatchLine line = lineWithoutTarget();
    std::string text;
    if (data[0] % 2 != 0) {
        text = std::string(data[0] % 4 == 1 ? kJsonJournalHeader : kJournalHeader) + "\n";
    }
    text += textOf(data + 1, size - 1);
    const testsupport::SocketHandle memory(::memfd_create("journal", MFD_CLOEXEC));
    const std::string file = "/proc/self/fd/" + std::to_string(memory.get());
    require(::write(memory.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()), "memory takes bytes");
    std::size_t unreadable = 0;
    try {
        BatchHistory before;
        unreadable = before.read(file);
        static_cast<void>(before.done(line));
    } catch (const vantik::Failure&) {
        return 0; // not a journal
    }
    require(unreadable <= linesOf(text).size(), "no more lines are unreadable than there are");
    {
        BatchJournal journal(file);
        journal.done(line, 200, 3);
        journal.sync();
    }
    BatchHistory after;
    require(after.read(file) == unreadable, "a journal that goes on is read as before");
    const auto ended = after.done(line);
    require(ended && ended->Status == 200 && ended->Bytes == 3, "what is done is known to the next run");
    return 0;
}
