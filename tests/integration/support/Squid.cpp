#include "tests/integration/support/Squid.h"

#include "tests/integration/support/PasswordFiles.h"

#include <csignal>
#include <filesystem>

#include <sys/mman.h>

namespace integrationtest {
namespace {

using testsupport::writeFile;

// A name that the hosts file does not have is asked of a server that is not there.
constexpr const char* Configuration = R"(
pid_filename none
cache deny all
cache_mem 0 MB
access_log none
visible_hostname proxy.test
shutdown_lifetime 0 seconds
max_filedescriptors 256
pinger_enable off
netdb_filename none
dns_nameservers 127.255.255.254
dns_timeout 1 second
dns_retransmit_interval 1 second
connect_timeout 20 seconds
forward_max_tries 1
acl refused dstdomain refused.test
http_access deny refused
)";

constexpr const char* Basic = R"(
auth_param basic children 1 startup=0
auth_param basic realm test
auth_param basic casesensitive on
)";

constexpr const char* Digest = R"(
auth_param digest children 1 startup=0
auth_param digest realm test
)";

} // namespace

Squid::Squid(SquidLogin login) {
    std::filesystem::permissions(Folder.path(), std::filesystem::perms::all); // started as root it becomes another user
    writeFile(Folder.file("hosts"), "127.0.0.1 localhost origin.test refused.test\n");
    writeFile(Folder.file("basic.users"), basicPasswordLine(KnownUser, KnownPassword));
    writeFile(Folder.file("digest.users"), digestPasswordLine(KnownUser, "test", KnownPassword));
    const std::string common = configuration(login);
    Process = startOnFreePorts(1, [&](const std::vector<std::uint16_t>& ports) {
        Port = ports[0];
        writeFile(Folder.file("squid.conf"), "http_port 127.0.0.1:" + std::to_string(Port) + "\n" + common);
        auto process = std::make_unique<PeerProcess>(
            std::vector<std::string>{"squid", "-N", "-n", service(), "-f", Folder.file("squid.conf")},
            Folder.file("output"), PeerOptions{.Folder = Folder.path(), .StopSignal = SIGKILL});
        process->awaitListening(Port);
        return process;
    });
}

// Asked to end, it takes seconds. Killed, it leaves its shared memory behind, which has the name of the service.
Squid::~Squid() {
    Process.reset();
    for (const char* part : {"metadata", "queues", "readers"}) {
        ::shm_unlink(("/" + service() + "-cf__" + part + ".shm").c_str());
    }
}

std::string Squid::configuration(SquidLogin login) const {
    const std::string folder = Folder.path();
    std::string text = "hosts_file " + folder + "/hosts\ncache_log " + folder + "/cache.log\ncoredump_dir " + folder +
                       "\n" + Configuration;
    if (login == SquidLogin::Basic || login == SquidLogin::Both) {
        text += "auth_param basic program /usr/lib/squid/basic_ncsa_auth " + folder + "/basic.users" + Basic;
    }
    if (login == SquidLogin::Digest || login == SquidLogin::Both) {
        text += "auth_param digest program /usr/lib/squid/digest_file_auth -c " + folder + "/digest.users" + Digest;
    }
    if (login != SquidLogin::None) {
        text += "acl known proxy_auth REQUIRED\nhttp_access deny !known\n";
    }
    return text + "http_access allow all\n";
}

} // namespace integrationtest
