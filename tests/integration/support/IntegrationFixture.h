// Fixture for exchanges with servers that nobody here wrote, as a real host makes them.
#pragma once

#include "tests/support/crypto/Digest.h"
#include "tests/support/host/HostFixture.h"
#include "tests/support/host/ScriptedObjects.h"
#include "tests/support/process/TemporaryFolder.h"

#include <string>
#include <vector>

namespace integrationtest {

using namespace testsupport;
using vantik::Array;
using vantik::Object;
namespace step = testsupport::step;

using Texts = std::vector<std::string>;
using Schemes = std::vector<std::string>; // names of authentication schemes, as the host's enumeration has them

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
