#include "cli/exchange/FileTransfer.h"

#include "cli/exchange/BodySink.h"
#include "cli/exchange/Conditions.h"
#include "cli/failures/CliFailure.h"
#include "cli/options/FieldText.h"
#include "cli/terminal/Progress.h"

#include <netrove/outputfile.h>
#include <netrove/text.h>
#include <netrove/url.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

namespace netrove::cli {

namespace {

constexpr int kNotModified = 304;

void makeFolders(const std::string& folder) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) {
        failSystem(failure::kFileNotWritten, folder, error.value());
    }
}

// In the folder of --output-dir.
std::filesystem::path placed(const std::string& target, const FileSettings& settings) {
    return std::filesystem::path(settings.Folder) / target;
}

// The head goes into the file too, which only the command line does.
netrove::Response withHead(Exchange& exchange, const std::string& target, bool replace) {
    OutputFile file(target, replace); // first, so that a bad target costs no request
    file.removeLeftovers();
    // By descriptor and never by name: anyone who may write in the folder could put a link there.
    BodySink sink(file.descriptor(), target, false, exchange.Deadline);
    netrove::Response response = exchange.run(sink, true, false);
    file.keep();
    return response;
}

void reportSaved(const Exchange& exchange, const netrove::Response& response, const std::string& target) {
    const Settings& settings = exchange.TheSettings;
    const Console& console = exchange.TheConsole;
    const std::uint64_t there = response.resumedAt;
    if (response.failed() && there == 0) {
        console.note("the server answered " + std::to_string(response.status) + " " + response.reason + "; " + target +
                     " holds that response");
        return;
    }
    // Whoever named no file, and whose URL names none either, does not know where to look.
    const bool unnamed = settings.Command == Command::Save &&
                         (settings.File.RemoteName || !hasFileName(settings.Url)) &&
                         (settings.Target.empty() || isTargetFolder(settings));
    if (unnamed || (console.errIsTerminal() && settings.Progress.value_or(true))) {
        console.note("saved " + target + " (" + sizeText(response.received) +
                     (there == 0 ? "" : ", " + sizeText(there) + " of them before") + ")");
    }
    if (response.unproven) {
        console.note(response.received == there
                         ? target + " has as many bytes as the server's content; --digest would prove that it is that"
                         : "nothing proves that what was in " + target +
                               " is the beginning of the same content; --digest would");
    }
}

} // namespace

bool isTargetFolder(const Settings& settings) {
    const std::string target = placed(settings.Target, settings.File).string();
    return !settings.Target.empty() && (isFolder(target) || (settings.File.MakeFolders && target.ends_with('/')));
}

void toFile(Exchange& exchange, const std::string& given, bool replace) {
    const Settings& settings = exchange.TheSettings;
    const std::filesystem::path place = placed(given, settings.File);
    if (settings.File.MakeFolders && place.has_parent_path()) {
        makeFolders(place.parent_path().string());
    }
    const std::string target = place.string();
    if (settings.File.SkipExisting && !isFolder(target) && fileExists(target)) {
        exchange.TheConsole.note(target + " exists and is left as it is");
        return;
    }
    const bool named = settings.Command == Command::Save && settings.File.RemoteName;
    const bool folder = target.empty() || isFolder(target);
    if (named ? !folder : target.empty() || target.ends_with('/') || folder) {
        failSystem(failure::kFileNotWritten, given, named && fileExists(target) ? ENOTDIR : folder ? EISDIR : ENOENT);
    }
    const bool contentOnly = !settings.Include && !equalsIgnoringCase(settings.effectiveMethod(), "HEAD");
    netrove::Response response;
    try {
        response = contentOnly ? exchange.save(target, replace) : withHead(exchange, target, replace);
    } catch (const netrove::Error& error) {
        // The name came with the response.
        if (!named || !settings.File.SkipExisting || !error.identifier().ends_with(failure::kFileExists)) {
            throw;
        }
        exchange.TheConsole.note(std::string(error.what()) + " and is left as it is");
        return;
    }
    if (response.file.empty()) {
        response.file = target;
    }
    saveTag(settings, response);
    if (settings.json()) {
        return exchange.printFacts(response);
    }
    if (response.status == kNotModified) {
        exchange.TheConsole.note("not modified: " + target + " is left as it is");
        return;
    }
    reportSaved(exchange, response, response.file.string());
}

} // namespace netrove::cli
