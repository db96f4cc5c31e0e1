// Fixture for exchanges with servers that nobody here wrote, on the road of a real host.
#pragma once

#include "tests/support/crypto/Digest.h"
#include "tests/support/host/HostFixture.h"
#include "tests/support/host/ScriptedObjects.h"
#include "tests/support/process/TemporaryFolder.h"

#include <string>

namespace integrationtest {

using testsupport::describe;
using testsupport::Digest;
using testsupport::digestOf;
using testsupport::digestOfFile;
using testsupport::failureOf;
using testsupport::generated;
using testsupport::receiveBytes;

class IntegrationFixture : public testsupport::HostFixture {
protected:
    // Receives the response piece by piece through a consumer object, so that its size does not matter.
    Digest receiveDigest(const vantik::Object& connection);

    const testsupport::TemporaryFolder& folder() const { return Folder; }

private:
    testsupport::TemporaryFolder Folder;
    int ConsumerClasses = 0;
};

} // namespace integrationtest
