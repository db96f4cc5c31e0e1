// Fixture for tests that reach inside the library or the embedded host: each test runs in a fresh scope.
#pragma once

#include "embedded/scope/Scope.h"
#include "tests/support/host/LeakCheck.h"
#include "vantik/Host.h"

#include <gtest/gtest.h>

#include <memory>

namespace testsupport {

// The functions of host/ find this scope. It ends when the fixture is destroyed, after all members of a derived
// fixture; then no array may be left.
class ScopeFixture : public ::testing::Test {
protected:
    vantik::Host& host() { return Program; }
    vantik::detail::Scope& scope() { return *Program.scope(); }

private:
    LeakCheck Leaks;
    vantik::Host Program;
    vantik::detail::ScopeEntry Entry{Program.scope()};
};

} // namespace testsupport
