#include "cli/commands/Commands.h"
#include "cli/exchange/Exchange.h"
#include "cli/exchange/ResponseJson.h"
#include "cli/failures/CliFailure.h"
#include "cli/system/Descriptor.h"
#include "cli/system/OutputFile.h"
#include "cli/terminal/Progress.h"
#include "cli/text/SafeText.h"
#include "cli/text/UrlText.h"

#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace netrove::cli {

namespace {

// Limit for the content in the object of --json. Several copies are held while the object is made, and a control byte
// takes six characters in it.
constexpr std::uint64_t kLargestJsonContent = std::uint64_t{16} << 20;

// One command that delivers content somewhere.
class Transfer {
public:
    Transfer(Session& session, const Settings& settings, const Console& console)
        : TheSession(session), TheSettings(settings), TheConsole(console) {}

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
    // Sends, and refuses the response if the settings say so. Nothing has been written by then.
    Response send(Exchange& exchange) {
        Response response = exchange.send();
        Facts.UntilHead = Clock::now() - Start;
        if (TheSettings.Fail && response.Status >= kFirstErrorStatus) {
            exchange.close();
            throw vantik::Failure(response.statusError());
        }
        return response;
    }

    void toDescriptor(int descriptor, const std::string& name, bool guardTerminal) {
        const bool terminal = isatty(descriptor) == 1;
        BodySink sink(descriptor, name, terminal && guardTerminal, TheSession.Deadline);
        Exchange exchange(TheSession, TheSettings, TheConsole);
        const Response response = send(exchange);
        writeHead(sink, response, terminal);
        ProgressMeter meter("received", TheSettings.Progress.value_or(false), TheConsole.errIsTerminal());
        meter.expect(exchange.announcedLength(response));
        const std::uint64_t delivered = exchange.receive(sink, meter);
        meter.finish();
        exchange.finish();
        if (TheSettings.Json) {
            printFacts(response, delivered);
        }
    }

    // The content goes into the object, so it is collected first, in a file in memory.
    void toJson() {
        const Descriptor memory(memfd_create("content", MFD_CLOEXEC));
        if (memory.Number < 0) {
            failSystem(failure::kFileNotWritten, "memory for the content", errno);
        }
        BodySink sink(memory.Number, "memory for the content", false, TheSession.Deadline);
        sink.limit(kLargestJsonContent,
                   cliMessage(failure::kContentTooLarge, {std::int64_t{kLargestJsonContent}},
                              "the content is larger than " + std::to_string(kLargestJsonContent >> 20) +
                                  " MiB, the most that --json puts into its object; use --output FILE"));
        Exchange exchange(TheSession, TheSettings, TheConsole);
        const Response response = send(exchange);
        ProgressMeter meter("received", TheSettings.Progress.value_or(false), TheConsole.errIsTerminal());
        const std::uint64_t delivered = exchange.receive(sink, meter);
        meter.finish();
        exchange.finish();
        Facts.Content = contentOf(memory.Number, delivered);
        printFacts(response, delivered);
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

    void printFacts(const Response& response, std::uint64_t delivered) {
        Facts.Bytes = delivered;
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
        Exchange exchange(TheSession, TheSettings, TheConsole);
        const Response response = send(exchange);
        ProgressMeter meter("received", TheSettings.Progress.value_or(TheConsole.errIsTerminal()),
                            TheConsole.errIsTerminal());
        meter.expect(exchange.announcedLength(response));
        // By descriptor and never by name: anyone who may write in the folder could put a link there.
        BodySink sink(file.descriptor(), target, false, TheSession.Deadline);
        writeHead(sink, response, false);
        const std::uint64_t delivered = exchange.receive(sink, meter);
        meter.finish();
        exchange.finish();
        file.keep();
        if (TheSettings.Json) {
            return printFacts(response, delivered);
        }
        if (response.Status >= kFirstErrorStatus) {
            TheConsole.note("the server answered " + std::to_string(response.Status) + " " + response.Reason + "; " +
                            target + " holds that response");
        } else if (TheConsole.errIsTerminal() && TheSettings.Progress.value_or(true)) {
            TheConsole.note("saved " + target + " (" + sizeText(delivered) + ")");
        }
    }

    void writeHead(BodySink& sink, const Response& response, bool terminal) {
        if (!TheSettings.Include) {
            return;
        }
        const std::string head = response.head();
        if (!sink.write(terminal ? printableLines(head) : head)) {
            throw sink.failure() ? vantik::Failure(*sink.failure())
                                 : vantik::Interrupted(cliMessage(failure::kInterrupted, {}, "interrupted"), false);
        }
    }

    Session& TheSession;
    const Settings& TheSettings;
    const Console& TheConsole;
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

int runTransfer(Session& session, const Settings& settings, const Console& console) {
    Transfer(session, settings, console).run();
    return kExitDone;
}

} // namespace netrove::cli
