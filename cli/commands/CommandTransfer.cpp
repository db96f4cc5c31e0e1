#include "cli/commands/Commands.h"
#include "cli/exchange/BodySink.h"
#include "cli/exchange/RequestOf.h"
#include "cli/exchange/ResponseJson.h"
#include "cli/failures/CliFailure.h"
#include "cli/terminal/Progress.h"

#include <netrove/client.h>
#include <netrove/descriptor.h>
#include <netrove/outputfile.h>
#include <netrove/url.h>

#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace netrove::cli {

namespace {

constexpr int kFirstErrorStatus = 400; // RFC 9110, section 15

// Limit for the content in the object of --json. Several copies are held while the object is made, and a control byte
// takes six characters in it.
constexpr std::uint64_t kLargestJsonContent = std::uint64_t{16} << 20;

// The head, each line ended by CR LF, the blank line included. The host holds text, so bytes that are not UTF-8 come
// out as replacement characters.
std::string headOf(const netrove::Response& response) {
    std::string text = response.version + " " + std::to_string(response.status) +
                       (response.reason.empty() ? "" : " " + response.reason) + "\r\n";
    for (const Field& field : response.fields) {
        text += field.name + ": " + field.value + "\r\n";
    }
    return text + "\r\n";
}

// One command that delivers content somewhere.
class Transfer {
public:
    Transfer(netrove::Client& client, const Settings& settings, const Console& console,
             std::optional<Clock::time_point> deadline)
        : TheClient(client), TheSettings(settings), TheConsole(console), Deadline(deadline) {}

    void run() {
        if (TheSettings.Command == Command::Save) {
            return toFile(saveTarget(TheSettings), TheSettings.Force);
        }
        if (TheSettings.Json && TheSettings.OutputFile.empty()) {
            return toJson();
        }
        if (TheSettings.OutputFile.empty() || TheSettings.OutputFile == "-") {
            return toDescriptor(STDOUT_FILENO, "standard output", TheSettings.OutputFile.empty());
        }
        if (isSpecialFile(TheSettings.OutputFile)) {
            return toSpecialFile();
        }
        toFile(TheSettings.OutputFile, true);
    }

private:
    // Sends, and delivers the content. Nothing is written before the head is accepted.
    netrove::Response exchange(BodySink& sink, bool progressIsUsual, bool terminal) {
        const bool errTerminal = TheConsole.errIsTerminal();
        const bool streams = !TheSettings.StreamFile.empty();
        ProgressMeter sent("sent", streams && TheSettings.Progress.value_or(false), errTerminal);
        ProgressMeter received("received", TheSettings.Progress.value_or(progressIsUsual && errTerminal), errTerminal);
        netrove::Request request = requestOf(TheSettings, Deadline);
        const bool repeatable = !request.body || request.body.repeatable();
        bool headCame = false;
        request.progress = [&](const netrove::Progress& progress) {
            if (!headCame) {
                sent.expect(progress.toSend);
                return sent.update(progress.sent);
            }
            received.expect(progress.toReceive);
            received.update(progress.received);
        };
        const auto onHead = [&](const netrove::Response& head) -> netrove::Taker {
            headCame = true;
            sent.finish();
            Facts.UntilHead = Clock::now() - Start;
            refuseSpentContent(TheSettings, head, repeatable);
            if (TheSettings.Include) {
                sink.write(terminal ? printableLines(headOf(head)) : headOf(head));
            }
            return [&](std::span<const std::byte> piece) {
                sink.take(piece);
                return true;
            };
        };
        netrove::Response response = TheClient.stream(std::move(request), onHead);
        received.finish();
        return response;
    }

    void toDescriptor(int descriptor, const std::string& name, bool guardTerminal) {
        const bool terminal = isatty(descriptor) == 1;
        BodySink sink(descriptor, name, terminal && guardTerminal, Deadline);
        const netrove::Response response = exchange(sink, false, terminal);
        if (TheSettings.Json) {
            printFacts(response);
        }
    }

    // The content goes into the object, so it is collected first, in a file in memory.
    void toJson() {
        const Descriptor memory(memfd_create("content", MFD_CLOEXEC));
        if (memory.Number < 0) {
            failSystem(failure::kFileNotWritten, "memory for the content", errno);
        }
        BodySink sink(memory.Number, "memory for the content", false, Deadline);
        sink.limit(kLargestJsonContent,
                   cliMessage(failure::kContentTooLarge, {std::int64_t{kLargestJsonContent}},
                              "the content is larger than " + std::to_string(kLargestJsonContent >> 20) +
                                  " MiB, the most that --json puts into its object; use --output FILE"));
        const netrove::Response response = exchange(sink, false, false);
        Facts.Content = contentOf(memory.Number, response.received);
        printFacts(response);
    }

    static std::string contentOf(int descriptor, std::uint64_t length) {
        std::string content(static_cast<std::size_t>(length), '\0');
        std::size_t done = 0;
        while (done < content.size()) {
            const ssize_t count =
                pread(descriptor, content.data() + done, content.size() - done, static_cast<off_t>(done));
            if (count <= 0) {
                failSystem(failure::kFileNotRead, "memory for the content", count == 0 ? EIO : errno);
            }
            done += static_cast<std::size_t>(count);
        }
        return content;
    }

    void printFacts(const netrove::Response& response) {
        Facts.Bytes = response.received;
        Facts.File = TheSettings.OutputFile;
        Facts.UntilEnd = Clock::now() - Start;
        TheConsole.print(responseJson(response, Facts) + "\n");
    }

    void toSpecialFile() {
        const std::string& name = TheSettings.OutputFile;
        const Descriptor file(retried([&] { return open(name.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY); }));
        if (file.Number < 0) {
            failSystem(failure::kFileNotWritten, name, errno);
        }
        toDescriptor(file.Number, name, false);
    }

    void toFile(const std::string& target, bool replace) {
        OutputFile file(target, replace); // first, so that a bad target costs no request
        // By descriptor and never by name: anyone who may write in the folder could put a link there.
        BodySink sink(file.descriptor(), target, false, Deadline);
        const netrove::Response response = exchange(sink, true, false);
        file.keep();
        if (TheSettings.Json) {
            return printFacts(response);
        }
        if (response.status >= kFirstErrorStatus) {
            TheConsole.note("the server answered " + std::to_string(response.status) + " " + response.reason + "; " +
                            target + " holds that response");
        } else if (TheConsole.errIsTerminal() && TheSettings.Progress.value_or(true)) {
            TheConsole.note("saved " + target + " (" + sizeText(response.received) + ")");
        }
    }

    netrove::Client& TheClient;
    const Settings& TheSettings;
    const Console& TheConsole;
    std::optional<Clock::time_point> Deadline;
    const Clock::time_point Start = Clock::now();
    ResponseFacts Facts;
};

} // namespace

std::string saveTarget(const Settings& settings) {
    if (settings.Target.empty()) {
        return fileNameFor(settings.Url);
    }
    if (!isFolder(settings.Target)) {
        return settings.Target;
    }
    return settings.Target + (settings.Target.ends_with('/') ? "" : "/") + fileNameFor(settings.Url);
}

int runTransfer(netrove::Client& client, const Settings& settings, const Console& console,
                std::optional<Clock::time_point> deadline) {
    Transfer(client, settings, console, deadline).run();
    return kExitDone;
}

} // namespace netrove::cli
