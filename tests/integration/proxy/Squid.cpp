#include "tests/integration/proxy/Squid.h"

#include "tests/integration/apache/PasswordFiles.h"

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <pwd.h>
#include <system_error>
#include <unistd.h>

namespace integrationtest {
namespace {

using testsupport::writeFile;

// A name that the hosts file does not have is asked of a server that is not there.
constexpr const char* kConfiguration = R"(
pid_filename none
cache deny all
cache_mem 0 MB
access_log none
visible_hostname proxy.test
shutdown_lifetime 0 seconds
max_filedescriptors 256
pinger_enable off
netdb_filename none
cache_effective_user proxy
dns_nameservers 127.255.255.254
dns_timeout 1 second
dns_retransmit_interval 1 second
connect_timeout 20 seconds
forward_max_tries 1
acl refused dstdomain refused.test
http_access deny refused
)";

constexpr const char* kBasic = R"(
auth_param basic children 1 startup=0
auth_param basic realm test
auth_param basic casesensitive on
)";

constexpr const char* kDigest = R"(
auth_param digest children 1 startup=0
auth_param digest realm test
)";

// Started as root it becomes another user, who writes into the folder and reads what is in it.
constexpr const char* kOtherUser = "proxy";

void giveAway(const std::string& folder) {
    if (::geteuid() != 0) {
        return;
    }
    const passwd* user = ::getpwnam(kOtherUser);
    if (user == nullptr) {
        throw std::runtime_error(std::string("no such user: ") + kOtherUser);
    }
    std::vector<std::string> paths = {folder};
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        paths.push_back(entry.path().string());
    }
    for (const std::string& path : paths) {
        if (::chown(path.c_str(), user->pw_uid, user->pw_gid) != 0) {
            throw std::system_error(errno, std::generic_category(), path);
        }
    }
}

} // namespace

Squid::Squid(SquidLogin login) {
    writeFile(Folder.file("hosts"), "127.0.0.1 localhost origin.test refused.test\n");
    writeFile(Folder.file("basic.users"), basicPasswordLine(kKnownUser, kKnownPassword));
    writeFile(Folder.file("digest.users"), digestPasswordLine(kKnownUser, "test", kKnownPassword));
    const std::string common = configuration(login);
    giveAway(Folder.path());
    Process = startOnFreePorts(1, [&](const std::vector<std::uint16_t>& ports) {
        Port = ports[0];
        Memory.clear(); // of a start that has failed
        for (const char* part : {"metadata", "queues", "readers"}) {
            Memory.emplace_back("/dev/shm/" + service() + "-cf__" + part + ".shm");
        }
        writeFile(Folder.file("squid.conf"), "http_port 127.0.0.1:" + std::to_string(Port) + "\n" + common);
        auto process = std::make_unique<PeerProcess>(
            std::vector<std::string>{"squid", "-N", "-n", service(), "-f", Folder.file("squid.conf")},
            Folder.file("output"),
            // Asked to end, it takes seconds. Killed, it leaves its shared memory.
            PeerOptions{.Folder = Folder.path(), .StopSignal = SIGKILL});
        process->awaitListening(Port);
        return process;
    });
}

std::string Squid::configuration(SquidLogin login) const {
    const std::string folder = Folder.path();
    std::string text = "hosts_file " + folder + "/hosts\ncache_log " + folder + "/cache.log\ncoredump_dir " + folder +
                       "\n" + kConfiguration;
    if (login == SquidLogin::Basic || login == SquidLogin::Both) {
        text += "auth_param basic program /usr/lib/squid/basic_ncsa_auth " + folder + "/basic.users" + kBasic;
    }
    if (login == SquidLogin::Digest || login == SquidLogin::Both) {
        text += "auth_param digest program /usr/lib/squid/digest_file_auth -c " + folder + "/digest.users" + kDigest;
    }
    if (login != SquidLogin::None) {
        text += "acl known proxy_auth REQUIRED\nhttp_access deny !known\n";
    }
    return text + "http_access allow all\n";
}

} // namespace integrationtest
