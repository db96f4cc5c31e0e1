// Fixture for whole exchanges through the class with every libcurl call on record: the library is linked into the test,
// behind the interposer; the network and the other side are real.
#pragma once

#include "hostclass/ModuleEntry.h"
#include "tests/support/curl/CurlInterposer.h"
#include "tests/support/host/HostFixture.h"
#include "tests/support/host/ScopeFixture.h"
#include "tests/support/host/ScriptedObjects.h"
#include "tests/support/server/ScriptedServer.h"
#include "tests/support/server/WireText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace testsupport {

class RecordedFixture : public ScopeFixture {
protected:
    RecordedFixture() { VKInitialize_netrove(); }

    vantik::Object makeAdapter(bool optionsMode = true) { return host().create(kAdapterClass, {optionsMode}); }

    // A server that lives until after the scope's objects.
    ScriptedServer& serve(std::vector<Script> scripts) {
        Servers.push_back(std::make_unique<ScriptedServer>(std::move(scripts)));
        return *Servers.back();
    }

    CurlInterposer curl;

private:
    std::vector<std::unique_ptr<ScriptedServer>> Servers;
};

} // namespace testsupport
