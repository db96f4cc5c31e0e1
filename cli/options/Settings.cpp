#include "cli/options/Settings.h"

#include "cli/failures/CliFailure.h"
#include "cli/options/FieldText.h"

#include <netrove/url.h>

namespace netrove::cli {

namespace {

// After this much silence a server is given up; a slow one that keeps sending is not.
constexpr double kDefaultConnectMs = 30'000;
constexpr double kDefaultSilenceMs = 300'000;

void refuse(bool condition, const char* text) {
    if (condition) {
        failUsage(text);
    }
}

void adoptUserInfo(Settings& settings) {
    const UserInfo found = takeUserInfo(settings.Url);
    if (!found.Present || settings.User) {
        return;
    }
    settings.User = found.User;
    if (!settings.Password && found.Password) {
        settings.Password = found.Password;
    }
}

void checkBody(const Settings& settings) {
    const bool text = settings.BodyText.has_value();
    const int bodies = int(text) + int(!settings.BodyFile.empty()) + int(!settings.StreamFile.empty()) +
                       int(settings.JsonText.has_value()) + int(!settings.Form.empty());
    refuse(bodies > 1, "only one of --body, --body-file, --stream-file, --form and --json can be given");
    refuse(settings.DataInQuery && bodies > int(text), "--get takes only what --body and its kin give");
    if (settings.hasBody() && (settings.Command == Command::Get || settings.Command == Command::Save)) {
        failUsage(std::string(settings.Command == Command::Get ? "get" : "save") +
                  " sends no content; use send, or --get to put the data into the query of the URL");
    }
    if (settings.hasBody()) {
        // The class would send such a request under another method.
        const std::string method = settings.effectiveMethod();
        refuse(equalsIgnoringCase(method, "GET") || equalsIgnoringCase(method, "HEAD"),
               "a request with the method GET or HEAD has no body; choose another with --method");
    }
    refuse(settings.Simple && !settings.StreamFile.empty(),
           "--stream-file needs the newer interface; leave out --simple");
    refuse(settings.Simple && !settings.Form.empty(), "--form needs the newer interface; leave out --simple");
    const int readers = settings.InputReaders + int(settings.BodyFile == "-") + int(settings.StreamFile == "-") +
                        int(settings.Batch.Manifest == "-");
    refuse(readers > 1, "standard input can be read for one thing only");
    refuse(settings.Chunked && !settings.hasBody(), "--chunked needs a body");
    refuse(settings.BufferSize != 0 && settings.StreamFile.empty(), "--buffer-size needs --stream-file");
}

void checkBatch(const BatchSettings& batch) {
    refuse(batch.Manifest.empty(), "the name of the manifest is empty");
    refuse(!batch.Failures.empty() && batch.Failures == batch.Manifest, "--failures names the manifest itself");
    refuse(batch.NoJournal && !batch.Journal.empty(), "--journal and --no-journal cannot be combined");
}

void checkRetry(const RetrySettings& retry) {
    refuse(retry.LongestWait < retry.Wait, "--retry-max-wait is less than --retry-wait");
}

void checkFile(const Settings& settings) {
    const FileSettings& file = settings.File;
    refuse(settings.Compressed && !settings.Range.empty(),
           "--range counts the bytes of content as it is; leave out --compressed");
    if (file.Continue) {
        const bool hasFile =
            settings.Command == Command::Save || (!settings.OutputFile.empty() && settings.OutputFile != "-");
        refuse(!hasFile, "--continue-at goes on with a file; use save, or name it with --output");
        refuse(!settings.Range.empty(), "--continue-at and --range cannot be combined");
        refuse(settings.Include, "--continue-at goes on with content alone; leave out --include");
        refuse(settings.Compressed, "--continue-at takes content as it is; leave out --compressed");
        refuse(settings.onStatus() != StatusChoice::Fail,
               "--continue-at takes no page of an error; leave out --no-fail and --fail-with-body");
        refuse(file.RemoteName,
               "--continue-at needs to know the file before the server names it; leave out --remote-header-name");
        refuse(file.SkipExisting, "--continue-at and --skip-existing cannot be combined");
        refuse(!settings.TimeCondition.empty() || !file.TagCompared.empty(),
               "--continue-at asks for a part of the content; leave out --time-cond and --etag-compare");
    }
}

} // namespace

Settings::Settings()
    : ConnectTimeout(kDefaultConnectMs), ResponseTimeout(kDefaultSilenceMs), DataTimeout(kDefaultSilenceMs) {}

bool Settings::hasBody() const {
    return (BodyText && !DataInQuery) || JsonText || !Form.empty() || !BodyFile.empty() || !StreamFile.empty();
}

std::string Settings::effectiveMethod() const {
    if (!Method.empty()) {
        return Method;
    }
    if (Head) {
        return "HEAD";
    }
    if (!StreamFile.empty()) {
        return "PUT";
    }
    return hasBody() ? "POST" : "GET";
}

int Settings::redirectLimit() const {
    if (MaxRedirects) {
        return *MaxRedirects;
    }
    return Command == Command::Send ? 0 : kDefaultRedirects;
}

StatusChoice Settings::onStatus() const {
    if (OnStatus) {
        return *OnStatus;
    }
    return Command == Command::Send ? StatusChoice::Deliver : Head ? StatusChoice::FailWithBody : StatusChoice::Fail;
}

void completeSettings(Settings& settings) {
    if (settings.Command == Command::Demo || settings.Command == Command::Describe ||
        settings.Command == Command::None) {
        return;
    }
    if (settings.Silent) {
        settings.Progress = settings.Progress.value_or(false);
    }
    if (settings.Command == Command::Batch) {
        checkBatch(settings.Batch);
    } else {
        refuse(settings.Url.empty(), "the URL is empty");
        refuse(hasControls(settings.Url), "the URL has control characters");
        adoptUserInfo(settings);
    }
    if (settings.User) {
        checkUserName(*settings.User);
    }
    if (settings.Password) {
        checkPassword(*settings.Password);
    }
    refuse(settings.Password && !settings.User, "--password needs --user");
    if (settings.Command == Command::Proxy) {
        return;
    }
    checkBody(settings);
    settings.Include |= settings.Head && !settings.json();
    checkRetry(settings.Retry);
    checkFile(settings);
    refuse(settings.ProxyPassword && !settings.ProxyUser, "--proxy-password needs --proxy-user");
    refuse(!settings.Bearer.empty() && settings.User, "--bearer and --user cannot be combined");
    refuse(settings.Auth && !settings.User, "--auth needs --user");
    refuse(settings.Simple && (settings.Auth || settings.ProxyAuth),
           "--simple allows every authentication scheme; leave out --auth and --proxy-auth");
    refuse(settings.Compressed && !settings.Decode, "--compressed and --no-decode cannot be combined");
    if (settings.LimitRate != 0 || settings.LimitRateHost != 0) {
        refuse(settings.Simple, "--simple sends content at once; leave out --limit-rate and --limit-rate-host");
        settings.Rate = settings.Rate != nullptr ? settings.Rate
                                                 : std::make_shared<netrove::RateLimit>(netrove::RateLimit::Rates{
                                                       .total = settings.LimitRate, .host = settings.LimitRateHost});
    }
    refuse(!settings.VerifyPeer && !settings.CaFile.empty(), "--ca-file and --no-verify cannot be combined");
    refuse(settings.json() && settings.Include, "--format json includes the head already; leave out --include");
    refuse(settings.json() && settings.OutputFile == "-",
           "--format json writes its object to standard output; name a file");
    refuse(settings.Target == "-", "save writes a file; use get for standard output");
}

} // namespace netrove::cli
