// Fixture for exchanges with servers that nobody here wrote, as a real host makes them.
#pragma once

#include "tests/support/crypto/Digest.h"
#include "tests/support/host/HostFixture.h"
#include "tests/support/host/ScriptedObjects.h"
#include "tests/support/process/ProgramRun.h"
#include "tests/support/process/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace integrationtest {

using namespace testsupport;
using vantik::Array;
using vantik::Object;
namespace step = testsupport::step;

using Texts = std::vector<std::string>;
using Schemes = std::vector<std::string>; // names of authentication schemes, as the host's enumeration has them

// A text that is short enough to read, or its size and digest.
inline std::string shown(const std::string& content) {
    constexpr std::size_t readable = 60;
    return content.size() <= readable ? content : std::to_string(content.size()) + " bytes, " + digestOf(content);
}

// How a run of the program went: it printed the content and nothing else, or a complaint and nothing else.
inline void expectGot(const Outcome& outcome, const std::string& content) {
    EXPECT_EQ(outcome.Status, 0);
    EXPECT_EQ(shown(outcome.Out), shown(content));
    EXPECT_EQ(outcome.Err, "");
}
inline void expectFailed(const Outcome& outcome, int status, const testing::Matcher<std::string>& complaint) {
    EXPECT_EQ(outcome.Status, status);
    EXPECT_EQ(outcome.Out, "");
    EXPECT_THAT(outcome.Err, complaint);
}

struct OpenOptions {
    std::string CertificateFile{};
    std::vector<double> Limits{}; // ms: TimeoutInMilliseconds; empty: left as they are
    bool OptionsMode = true;
};

class IntegrationFixture : public HostFixture {
protected:
    using HostFixture::open;
    Object open(const std::string& url, const OpenOptions& options);

    // Receives the response piece by piece through a consumer object, so that its size does not matter.
    Digest receiveDigest(const Object& connection);

    // Sets the content of a request, from memory or from a provider.
    void setContent(const Object& connection, const std::string& content, bool byProvider);
    // Receives the content of a response with status 200 and compares it.
    void expectContent(const Object& connection, const std::string& content);

    static double status(const Object& connection) { return connection.get("ResponseCode").number(); }
    // A field of the response; empty where there is none.
    static std::string field(const Object& connection, const std::string& name);
    static void allow(const Object& connection, const Schemes& schemes, bool ofProxy = false);

    const TemporaryFolder& folder() const { return Folder; }

private:
    TemporaryFolder Folder;
    int ConsumerClasses = 0;
};

} // namespace integrationtest
