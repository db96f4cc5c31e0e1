#include "cli/options/UrlList.h"

#include "cli/failures/CliFailure.h"

#include <netrove/refusedurl.h>
#include <netrove/text.h>
#include <netrove/url.h>

#include <string>
#include <utility>

namespace netrove::cli {

namespace {

bool hasScheme(const std::string& word) {
    return word.find("://") != word.npos;
}

[[noreturn]] void failUnexpected(const std::string& word, Command command) {
    const std::string shown = printable(maskRefusedUrl(word));
    const bool content = command == Command::Send && word.find('=') != word.npos && !hasScheme(word);
    failUsage("unexpected argument '" + shown + "' for " +
              (command == Command::Get    ? "get"
               : command == Command::Save ? "save"
                                          : "send") +
              (content ? "; --body, --form and --json take content, as in --body " + shown : ""));
}

// The first word is a URL whatever it looks like; after that, what has no scheme is a file. The other way around is the
// order of other programs.
std::vector<std::string> filesAmong(const Settings& asked, std::vector<std::string>& urls) {
    const std::vector<std::string>& words = asked.Words;
    if (urls.empty() && words.size() > 1 && words.front().find(':') == std::string::npos && !hasScheme(words.front()) &&
        hasScheme(words[1])) {
        const std::string first = printable(maskRefusedUrl(words.front()));
        failUsage("'" + first + "' is not a URL" +
                  (asked.Command == Command::Save ? "; the file follows the URL: netrove save URL " + first : ""));
    }
    std::vector<std::string> files;
    for (const std::string& word : words) {
        (urls.empty() || hasScheme(word) ? urls : files).push_back(word);
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
