// What each exit status means: one table.
#pragma once

#include "cli/failures/Circumstances.h"
#include "vantik/Failure.h"

#include <netrove/error.h>

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace netrove::cli {

enum ExitStatus : int {
    kExitDone = 0,
    kExitFailure = 1,
    kExitUsage = 2,
    kExitUrl = 3,
    kExitUnknownHost = 6,
    kExitConnect = 7,
    kExitIncomplete = 18,
    kExitStatus = 22,
    kExitNotWritten = 23,
    kExitNotRead = 26,
    kExitTimeout = 28,
    kExitRange = 33,
    kExitOffset = 36,
    kExitStopped = 42,
    kExitRedirects = 47,
    kExitTls = 60,
    kExitDecoding = 61,
    kExitTooLarge = 63,
    kExitDigest = 105,
    kExitHungUp = 129,      // 128 and the number of SIGHUP
    kExitInterrupted = 130, // 128 and the number of SIGINT
    kExitTerminated = 143,  // 128 and the number of SIGTERM
};

// One exit status and its meaning, for help texts.
struct ExitMeaning {
    int Status;
    std::string_view Meaning;
};
std::span<const ExitMeaning> exitMeanings();

// The exit status of a failure.
int exitStatus(const vantik::Message& message);

struct Verdict {
    vantik::Message Message;
    int Status;
    std::string Hint = {}; // empty: that of the message
};
std::string hintOf(const Verdict& verdict);

// The failure as it is reported. An interrupt while a request goes out surfaces as a failed connection, so what the
// program itself knows overrides the identifier: after a signal it is an interrupt, after --max-time a timeout.
Verdict judge(const vantik::Message& message, const Circumstances& circumstances);
Verdict judge(const netrove::Error& error, Circumstances circumstances);

} // namespace netrove::cli
