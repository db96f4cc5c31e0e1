// A Kerberos realm of its own: MIT's key distribution centre with a database in a folder.
#pragma once

#include "tests/integration/support/PeerProcess.h"
#include "tests/support/process/TemporaryFolder.h"

#include <map>
#include <memory>
#include <string>

namespace integrationtest {

class Kerberos {
public:
    static constexpr const char* kPrincipal = "alice@NETROVE.TEST"; // whoever holds a ticket

    Kerberos();

    // Key tables of the service HTTP/localhost: the one in use, and one from before its key was changed.
    std::string keytab() const { return Folder.file("http.keytab"); }
    std::string outdatedKeytab() const { return Folder.file("outdated.keytab"); }

    // Where a ticket cache is, or would be, for programs that find it in their environment.
    std::map<std::string, std::string> environment(const std::string& cache) const;

    // Fetches a ticket for the principal into a cache.
    void fetchTicket(const std::string& cache) const;

private:
    testsupport::TemporaryFolder Folder;
    std::unique_ptr<PeerProcess> Center; // goes first
};

} // namespace integrationtest
