#include "cli/exchange/StreamTransfer.h"

#include "cli/exchange/BodySink.h"
#include "cli/failures/CliFailure.h"

#include <netrove/descriptor.h>

#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace netrove::cli {

namespace {

// Limit for the content in the object of --format json. Several copies are held while the object is made, and a control
// byte takes six characters in it.
constexpr std::uint64_t kLargestJsonContent = std::uint64_t{16} << 20;

std::string contentOf(int descriptor, std::uint64_t length) {
    std::string content(static_cast<std::size_t>(length), '\0');
    std::size_t done = 0;
    while (done < content.size()) {
        const ssize_t count = pread(descriptor, content.data() + done, content.size() - done, static_cast<off_t>(done));
        if (count <= 0) {
            failSystem(failure::kFileNotRead, "memory for the content", count == 0 ? EIO : errno);
        }
        done += static_cast<std::size_t>(count);
    }
    return content;
}

void toDescriptor(Exchange& exchange, int descriptor, const std::string& name, bool guardTerminal, Looks looks) {
    const bool terminal = isatty(descriptor) == 1;
    BodySink sink(descriptor, name, terminal && guardTerminal, exchange.Deadline);
    sink.look(looks);
    const netrove::Response response = exchange.run(sink, false, terminal);
    if (exchange.TheSettings.json()) {
        exchange.printFacts(response);
    }
}

} // namespace

void toStandardOutput(Exchange& exchange, bool guardTerminal) {
    const PrettyChoice choice = exchange.TheSettings.Pretty;
    const bool always = choice == PrettyChoice::Always;
    const bool automatic = choice == PrettyChoice::Auto && exchange.TheConsole.outIsTerminal();
    toDescriptor(exchange, STDOUT_FILENO, "standard output", guardTerminal,
                 {exchange.TheConsole.outHasColor() && choice != PrettyChoice::Never, always || automatic, always});
}

void toSpecialFile(Exchange& exchange, const std::string& name) {
    const Descriptor file(retried([&] { return open(name.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY); }));
    if (file.Number < 0) {
        failSystem(failure::kFileNotWritten, name, errno);
    }
    toDescriptor(exchange, file.Number, name, false, {});
}

// The content goes into the object, so it is collected first, in a file in memory.
void toJson(Exchange& exchange) {
    const Descriptor memory(memfd_create("content", MFD_CLOEXEC));
    if (memory.Number < 0) {
        failSystem(failure::kFileNotWritten, "memory for the content", errno);
    }
    BodySink sink(memory.Number, "memory for the content", false, exchange.Deadline);
    sink.limit(kLargestJsonContent,
               cliMessage(failure::kContentTooLarge, {std::int64_t{kLargestJsonContent}},
                          "the content is larger than " + std::to_string(kLargestJsonContent >> 20) +
                              " MiB, the most that --format json puts into its object; use --output FILE"));
    const netrove::Response response = exchange.run(sink, false, false);
    exchange.Facts.Content = contentOf(memory.Number, response.received);
    exchange.printFacts(response);
}

} // namespace netrove::cli
