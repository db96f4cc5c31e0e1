// Uploads that a server refuses first, so that libcurl sends their content again with a login.
#pragma once

#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/WireText.h"

#include <string>
#include <vector>

namespace testsupport {

inline const std::string kChallenge = response(
    "", {"WWW-Authenticate: Digest realm=\"r\", nonce=\"abc\", qop=\"auth\", algorithm=MD5"}, "401 Unauthorized");

// libcurl may close the connection after the challenge, since content was sent on it, or go on using it. The steps of
// `beforeTheChallenge` come once the content is there.
inline std::vector<Script> challengedUpload(const Step& content, const Script& beforeTheChallenge = {}) {
    const Script answered{step::expectHead(), step::continueIfExpected(), content, step::send(response("taken"))};
    Script challenged{step::expectHead(), step::continueIfExpected(), content};
    challenged.insert(challenged.end(), beforeTheChallenge.begin(), beforeTheChallenge.end());
    challenged.push_back(step::send(kChallenge));
    challenged.insert(challenged.end(), answered.begin(), answered.end());
    return {challenged, answered};
}

// Those that came whole, on all connections.
inline std::vector<std::string> allBodies(const ScriptedServer& server) {
    std::vector<std::string> bodies;
    for (std::size_t index = 0; index < server.connectionCount(); ++index) {
        for (const std::string& body : server.record(index).Bodies) {
            bodies.push_back(body);
        }
    }
    return bodies;
}

} // namespace testsupport
