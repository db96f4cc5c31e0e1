// Answers that go wrong, and what becomes of them: in a table, because the same ones are met on several roads.
#pragma once

#include "tests/integration/faults/FrontPeer.h"
#include "tests/support/server/ScriptedServer.h"

#include <ostream>
#include <string>
#include <vector>

namespace integrationtest {

// What the caller is told, and what has been delivered by then. Both are patterns, with * where libcurl's words differ
// from version to version, and with " | " between alternatives where it is a matter of moments. "URL" stands for the
// URL, "VANTIK:webservices:" is left out. Fields are those whose name begins with "X-", which no server and no proxy
// adds by itself: exact, in lower case, "name: value" and a line feed each. Behind a failure they are not asked for.
//   "200"                          the status of an exchange that came to its end
//   "200 warned PartialFileWarning(2, 9, *)"
//   "Timeout(URL, 0.300, ...)"     a failure
struct FaultOutcome {
    std::string Told{};      // empty: this road is not taken
    std::string Delivered{}; // to a consumer and into a file; as bytes only where nothing failed
    std::string Fields{};
};

// What the proxies make of an answer that they do not pass on: a page of their own. Patterns, as in FaultOutcome.
inline constexpr const char* kNginxPage = "<html>*<h1>502 Bad Gateway</h1>*<center>nginx*</center>*</html>*";
inline constexpr const char* kNghttpxPage =
    "<!DOCTYPE html>*<h1>502 Bad Gateway</h1><footer>nghttpx</footer></body></html>";

struct FaultRow {
    const char* Name;
    testsupport::Script Answer; // behind the head of the request
    std::vector<double> Limits; // of connecting, the response, the content; ms
    FaultOutcome Direct;
    FaultOutcome Tls;
    FaultOutcome Nginx;
    FaultOutcome Nghttpx;

    const FaultOutcome& on(Front front) const;
};

inline void PrintTo(const FaultRow& row, std::ostream* stream) { // for GoogleTest
    *stream << row.Name;
}

// Silence, pieces that come slowly, and connections that end too early.
std::vector<FaultRow> brokenOffRows();
// Heads and lengths that are wrong, strange or large.
std::vector<FaultRow> strangeHeadRows();
// Chunks and compressed content.
std::vector<FaultRow> wrongContentRows();

// The bytes that a script sends.
std::string sentBy(const testsupport::Script& script);

} // namespace integrationtest
