// What a person asked for on the command line, after parsing and before anything runs.
#pragma once

#include "cli/options/FieldText.h"
#include "cli/options/FormText.h"

#include <netrove/ratelimit.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace netrove::cli {

class CookieJar;
class Netrc;

enum class Command { None, Get, Save, Send, Batch, Proxy, Describe, Demo, Help };
enum class ColorChoice { Auto, Always, Never };
enum class OutputFormat { Default, Text, Json };
enum class StatusChoice { Fail, FailWithBody, Deliver }; // at a status of 400 and above
enum class PrettyChoice { Auto, Always, Never };

// Redirects followed by `get` and `save`, and by `send -L`.
constexpr int kDefaultRedirects = 20;

// What only `batch` uses.
struct BatchSettings {
    std::string Manifest; // "-": standard input
    int Jobs = 4;
    int MostOfHost = 8; // transfers at a time
    std::optional<std::size_t> MostFailures;
    std::string Shard;                // "I/N"; empty: by the environment
    std::string Journal;              // empty: beside the manifest
    std::string Failures;             // gets the lines that fail; empty: no file
    std::vector<std::string> Reports; // files
    std::string CommandLine;          // as typed, without secrets
    bool NoJournal = false;
    bool Fail = true; // a status of 400 and above is a failure
    bool DryRun = false;
};

// What is tried again, and when.
struct RetrySettings {
    int Count = 0;
    double Wait = 1;          // seconds before the first of them
    double LongestWait = 300; // seconds
    double MaxTime = 0;       // seconds after which no attempt begins; 0: no limit
    bool Unsafe = false;
    bool AllErrors = false;
};

// Content that becomes a file.
struct FileSettings {
    bool Continue = false;                   // what is there goes on
    std::optional<std::uint64_t> ContinueAt; // from this byte on, whatever is there
    bool SkipExisting = false;
    bool RemoteTime = false;
    bool RemoteName = false; // that of Content-Disposition
    bool MakeFolders = false;
    std::string Folder;      // for targets without one of their own from the root
    std::string Sha256;      // in hex
    std::string TagCompared; // file with the tag of what is there
    std::string TagSaved;    // file for the tag of what comes
};

struct Settings {
    cli::Command Command = Command::None;
    std::string Url;                // without user name and password, which move to User and Password
    std::string Target;             // save: the file or folder named, empty for none
    std::vector<std::string> Words; // get, save, send: URLs, and the target of save, as given
    std::vector<std::string> Urls;  // of --url
    std::size_t UrlNumber = 0;      // of Url, from 0
    std::string ConfigFile;         // empty: the usual one
    bool NoConfig = false;
    std::string Topic; // help: empty for the list of topics

    // the request
    std::string Method; // empty: GET, POST with a body, PUT with a streamed one
    std::vector<Field> Fields;
    std::vector<std::string> RemovedFields;
    std::string MoreQuery; // of --url-query
    std::optional<std::string> UserAgent;
    std::optional<std::string> Referer;
    std::vector<std::string> Cookies;               // "NAME=VALUE", of --cookie
    std::shared_ptr<const CookieJar> CookiesOfFile; // null: none

    // its content
    std::optional<std::string> BodyText;
    bool DataInQuery = false; // BodyText goes there
    std::optional<std::string> JsonText;
    std::vector<FormField> Form;
    std::string BodyFile;         // "-": standard input
    std::string StreamFile;       // "-": standard input
    std::uint64_t BufferSize = 0; // bytes asked of the provider at a time; 0: the library's choice
    int InputReaders = 0;         // options that have read standard input to its end
    bool Chunked = false;         // no Content-Length for content whose length is known

    // the response
    std::string OutputFile;                          // "-": standard output, whatever the content
    std::vector<std::optional<std::string>> Outputs; // those of several URLs; nothing: the name in the URL
    bool RemoteNames = false;                        // for URLs that have none of them
    bool Include = false;
    bool Head = false;    // only that
    std::string HeadFile; // gets the head too; "-": standard output
    std::string WriteOut; // what is said at the end
    bool Force = false;
    bool Decode = true;
    std::optional<StatusChoice> OnStatus;
    bool Compressed = false;
    bool Simple = false;
    std::optional<int> MaxRedirects; // 0: none

    std::string Range;         // "A-B", "A-" or "-N"
    std::string TimeCondition; // date, or the file whose time it is; with '-' in front: if not modified since

    RetrySettings Retry;
    FileSettings File;

    // credentials
    std::optional<std::string> User;
    std::optional<std::string> Password;
    std::optional<std::vector<std::string>> Auth;
    std::string Bearer;    // empty: none
    std::string NetrcFile; // empty: none, or the usual one with UseNetrc
    bool UseNetrc = false;
    std::shared_ptr<const Netrc> NetrcLogins; // null until the file has been read
    std::string Proxy = "auto";
    std::optional<std::string> ProxyUser;
    std::optional<std::string> ProxyPassword;
    std::optional<std::vector<std::string>> ProxyAuth;

    // several URLs
    bool Parallel = false;
    int ParallelMax = 50;
    int ParallelMaxHost = 0; // 0: no limit
    bool FailEarly = false;

    // limits; milliseconds, +infinity for none
    double ConnectTimeout;
    double ResponseTimeout;
    double DataTimeout;
    std::optional<double> MaxTime;            // seconds
    std::uint64_t LimitRate = 0;              // bytes per second of all transfers; 0: no limit
    std::uint64_t LimitRateHost = 0;          // the same for each host
    std::shared_ptr<netrove::RateLimit> Rate; // made of them, and shared by all copies of these settings
    std::optional<std::uint64_t> MaxFileSize; // bytes

    // TLS
    std::string CaFile;
    bool VerifyPeer = true;
    bool VerifyName = true;

    BatchSettings Batch;

    // what is shown
    std::optional<bool> Progress;
    bool Silent = false;     // no notes, no warnings, no failures
    bool ShowErrors = false; // …but failures
    int Debug = 0;
    int Verbose = 0;
    bool TraceTime = false;
    bool JsonErrors = false;
    OutputFormat Format = OutputFormat::Default;
    bool ShowPassword = false;
    bool ShowVersion = false;
    ColorChoice Color = ColorChoice::Auto;
    PrettyChoice Pretty = PrettyChoice::Auto; // JSON and heads

    Settings();

    bool json() const { return Format == OutputFormat::Json; }
    bool hasBody() const;
    std::string effectiveMethod() const;
    int redirectLimit() const; // of this command
    bool hidesFailures() const { return Silent && !ShowErrors && !JsonErrors && !json(); }
    StatusChoice onStatus() const;
};

// Refuses combinations that cannot work, and moves a user name and password out of the URL. Raises a usage failure.
void completeSettings(Settings& settings);

} // namespace netrove::cli
