#include "cli/options/UrlList.h"

#include "cli/failures/CliFailure.h"

#include <netrove/refusedurl.h>
#include <netrove/text.h>
#include <netrove/url.h>

#include <string>
#include <utility>

namespace netrove::cli {

namespace {

[[noreturn]] void failUnexpected(const std::string& word, Command command) {
    failUsage("unexpected argument '" + printable(maskRefusedUrl(word)) + "' for " +
              (command == Command::Get    ? "get"
               : command == Command::Save ? "save"
                                          : "send"));
}

// The first word is a URL whatever it looks like; after that, what has no scheme is a file.
std::vector<std::string> filesAmong(const Settings& asked, std::vector<std::string>& urls) {
    std::vector<std::string> files;
    for (const std::string& word : asked.Words) {
        (urls.empty() || word.find("://") != word.npos ? urls : files).push_back(word);
    }
    return files;
}

// Where the content of that URL goes; empty: to standard output.
std::string outputOf(const Settings& asked, std::size_t place, const std::string& url) {
    if (place < asked.Outputs.size()) {
        return asked.Outputs[place] ? *asked.Outputs[place] : fileNameFor(url);
    }
    return asked.RemoteNames ? fileNameFor(url) : "";
}

} // namespace

std::vector<Settings> settingsOfUrls(Settings asked) {
    std::vector<std::string> urls = std::exchange(asked.Urls, {});
    const std::vector<std::string> files = filesAmong(asked, urls);
    asked.Words.clear();
    if (urls.empty()) {
        failUsage("no URL; give it as in 'netrove get https://example.org/'");
    }
    const std::size_t mostFiles = asked.Command == Command::Save ? 1 : 0;
    if (files.size() > mostFiles) {
        failUnexpected(files[mostFiles], asked.Command);
    }
    if (asked.Command == Command::Send && urls.size() > 1) {
        failUnexpected(urls[1], asked.Command);
    }
    const bool save = asked.Command == Command::Save;
    if (!save && asked.Outputs.size() > urls.size()) {
        failUsage("--output and --remote-name are given " + std::to_string(asked.Outputs.size()) +
                  " times, and there " +
                  (urls.size() == 1 ? "is 1 URL" : "are " + std::to_string(urls.size()) + " URLs"));
    }
    if (asked.Parallel && urls.size() > 1 && asked.Debug != 0) {
        failUsage(
            "--debug shows one transfer at a time; leave out --parallel, or use --verbose, which marks its lines");
    }
    if (urls.size() > 1 && !asked.File.Sha256.empty()) {
        failUsage("--digest is that of one file; give one URL, or a sha256 in each line of a batch");
    }
    if (urls.size() > 1 && asked.File.ContinueAt) {
        failUsage("--continue-at with an offset is for one file; give one URL, or -C - for all of them");
    }
    std::vector<Settings> all;
    for (std::size_t i = 0; i < urls.size(); ++i) {
        Settings one = asked;
        one.Url = urls[i];
        one.Target = files.empty() ? "" : files.front();
        one.OutputFile = save ? "" : outputOf(asked, i, urls[i]);
        one.UrlNumber = i;
        completeSettings(one);
        asked.Rate = one.Rate;
        all.push_back(std::move(one));
    }
    return all;
}

} // namespace netrove::cli
