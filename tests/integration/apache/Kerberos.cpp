#include "tests/integration/apache/Kerberos.h"

#include <filesystem>

namespace integrationtest {
namespace {

using testsupport::writeFile;

// Nothing is looked up in the domain name system, and "localhost" stays as it is.
std::string clientConfiguration(std::uint16_t port) {
    return "[libdefaults]\n"
           " default_realm = NETROVE.TEST\n"
           " dns_lookup_realm = false\n"
           " dns_lookup_kdc = false\n"
           " dns_canonicalize_hostname = false\n"
           " rdns = false\n"
           " udp_preference_limit = 1\n"
           "[realms]\n"
           " NETROVE.TEST = {\n"
           "  kdc = 127.0.0.1:" +
           std::to_string(port) +
           "\n"
           " }\n"
           "[domain_realm]\n"
           " localhost = NETROVE.TEST\n";
}

std::string centerConfiguration(const std::string& folder, std::uint16_t port) {
    return "[kdcdefaults]\n"
           " kdc_listen = \"\"\n"
           " kdc_tcp_listen = 127.0.0.1:" +
           std::to_string(port) +
           "\n"
           "[realms]\n"
           " NETROVE.TEST = {\n"
           "  database_name = " +
           folder + "/principal\n  key_stash_file = " + folder + "/stash\n  acl_file = " + folder +
           "/acl\n"
           "  max_life = 1h\n"
           "  supported_enctypes = aes256-cts-hmac-sha1-96:normal\n"
           " }\n"
           "[logging]\n kdc = STDERR\n admin_server = STDERR\n default = STDERR\n";
}

// Taking a key into a key table changes it.
constexpr const char* kCenterScript = R"(
set -e
rm -f principal* stash *.keytab
kdb5_util create -s -r NETROVE.TEST -P master
kadmin.local -r NETROVE.TEST <<END
addprinc -randkey HTTP/localhost
addprinc -randkey alice
ktadd -k outdated.keytab HTTP/localhost
ktadd -k http.keytab HTTP/localhost
ktadd -k alice.keytab alice
END
chmod 644 *.keytab
exec krb5kdc -n
)";

} // namespace

Kerberos::Kerberos() {
    std::filesystem::permissions(Folder.path(), std::filesystem::perms(0755)); // for servers of another user
    Center = startOnFreePorts(1, [&](const std::vector<std::uint16_t>& ports) {
        writeFile(Folder.file("krb5.conf"), clientConfiguration(ports[0]));
        writeFile(Folder.file("kdc.conf"), centerConfiguration(Folder.path(), ports[0]));
        std::map<std::string, std::string> environment = this->environment("none");
        environment["KRB5_KDC_PROFILE"] = Folder.file("kdc.conf");
        auto center =
            std::make_unique<PeerProcess>(std::vector<std::string>{"sh", "-c", kCenterScript}, Folder.file("output"),
                                          PeerOptions{.Environment = environment, .Folder = Folder.path()});
        center->awaitListening(ports[0]);
        return center;
    });
}

std::map<std::string, std::string> Kerberos::environment(const std::string& cache) const {
    return {{"KRB5_CONFIG", Folder.file("krb5.conf")},
            {"KRB5CCNAME", "FILE:" + Folder.file(cache + ".cache")},
            {"KRB5RCACHENAME", "none:"}}; // a server's memory of what it has seen would lie outside of the folder
}

void Kerberos::fetchTicket(const std::string& cache) const {
    const std::string done = Folder.file(cache + ".done");
    PeerProcess process({"sh", "-c", "kinit -k -t alice.keytab alice || exit; : > " + cache + ".done; exec sleep 600"},
                        Folder.file(cache + ".log"), {.Environment = environment(cache), .Folder = Folder.path()});
    process.awaitCondition([&] { return std::filesystem::exists(done); }, "the ticket is there");
}

} // namespace integrationtest
