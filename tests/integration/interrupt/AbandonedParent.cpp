// Starts what tests start, says so, and waits to be killed: servers that run as another user or in several processes,
// and the command line in the middle of a look-up. Everything is in folders below TMPDIR.
#include "tests/integration/apache/Apache.h"
#include "tests/integration/interrupt/HeldLookup.h"
#include "tests/integration/proxy/Squid.h"
#include "tests/support/process/ProgramRun.h"

#include <iostream>
#include <unistd.h>

int main() {
    using namespace integrationtest;
    const Apache apache;
    const Squid squid(SquidLogin::None);
    const testsupport::TemporaryFolder folder;
    testsupport::Program program({"save", "-k", "http://held.test/", folder.file("target")},
                                 {.Environment = heldLookupEnvironment()});
    program.waitForOutput("looking up\n");
    std::cout << squid.port() << "\nready\n" << std::flush;
    for (;;) {
        ::pause();
    }
}
