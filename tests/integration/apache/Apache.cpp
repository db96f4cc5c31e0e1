#include "tests/integration/apache/Apache.h"

#include "tests/support/crypto/Digest.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace integrationtest {
namespace {

using testsupport::readFile;
using testsupport::writeFile;

constexpr std::size_t kPageSize = 100'000;

constexpr const char* kEcho = R"(#!/usr/bin/perl
binmode STDIN;
binmode STDOUT;
my $content = do { local $/; <STDIN> };
$content = '' unless defined $content;
print "Content-Type: application/octet-stream\r\n";
print "Content-Length: ", length($content), "\r\n";
for (['Method', 'REQUEST_METHOD'], ['User', 'REMOTE_USER'], ['Scheme', 'AUTH_TYPE'], ['Type', 'CONTENT_TYPE']) {
    my $value = $ENV{$_->[1]};
    print "X-$_->[0]: $value\r\n" if defined $value;
}
print "\r\n", $content;
)";

// A connection that a client keeps open holds a worker.
constexpr const char* kConfiguration = R"(
StartServers 2
MinSpareServers 1
MaxSpareServers 4
MaxRequestWorkers 16
KeepAliveTimeout 60
ServerName localhost
ErrorLog error.log
LogFormat "%q %m %>s" requests
CustomLog requests.log requests
TraceEnable off

AliasMatch ^/[a-z]+/page$ ${folder}/page
ScriptAliasMatch ^/[a-z]+/echo$ ${folder}/echo
<Directory />
  Require all denied
</Directory>
<Directory ${folder}>
  Require all granted
</Directory>
<Location /basic>
  AuthType Basic
  AuthName "the basic realm"
  AuthUserFile ${folder}/basic.users
  Require valid-user
</Location>
<Location /closed>
  AuthType Basic
  AuthName "the closed realm"
  AuthUserFile ${folder}/basic.users
  Require user nobody-else
</Location>
<Location /digest>
  AuthType Digest
  AuthName digest
  AuthUserFile ${folder}/digest.users
  Require valid-user
</Location>
)";

} // namespace

Apache::Apache(const ApacheOptions& options) : Page(testsupport::generated(kPageSize)) {
    writeFiles();
    const std::string common = configuration(options);
    Server = startOnFreePorts(1, [&](const std::vector<std::uint16_t>& ports) {
        Port = ports[0];
        writeFile(Folder.file("httpd.conf"), "Listen 127.0.0.1:" + std::to_string(Port) + "\n" + common);
        auto server = std::make_unique<PeerProcess>(
            std::vector<std::string>{"apache2", "-DFOREGROUND", "-f", Folder.file("httpd.conf")}, Folder.file("output"),
            PeerOptions{.Environment = options.Environment});
        server->awaitListening(Port);
        return server;
    });
}

std::string Apache::url(const std::string& path, const std::string& host) const {
    return "http://" + host + ":" + std::to_string(Port) + path;
}

std::vector<std::string> Apache::requests(const std::string& query, std::size_t count) {
    const std::string start = "?" + query + " ";
    std::vector<std::string> found;
    Server->awaitCondition(
        [&] {
            found.clear();
            std::istringstream log(readFile(Folder.file("requests.log")));
            for (std::string line; std::getline(log, line) && !log.eof();) {
                if (line.starts_with(start)) {
                    found.push_back(line.substr(start.size()));
                }
            }
            return found.size() >= count;
        },
        std::to_string(count) + " requests have ended");
    return found;
}

void Apache::writeFiles() const {
    std::filesystem::permissions(Folder.path(), std::filesystem::perms(0755)); // for workers of another user
    writeFile(Folder.file("page"), Page);
    writeFile(Folder.file("echo"), kEcho);
    std::filesystem::permissions(Folder.file("echo"), std::filesystem::perms(0755));
    // The second user in windows-1252.
    writeFile(Folder.file("basic.users"),
              basicPasswordLine(kKnownUser, kKnownPassword) + basicPasswordLine("Jos\xe9", "p\xe4ss w\xf6rd \x80"));
    writeFile(Folder.file("digest.users"), digestPasswordLine(kKnownUser, "digest", kKnownPassword) +
                                               digestPasswordLine("Jos\xe9", "digest", "p\xe4ss w\xf6rd \x80"));
}

std::string Apache::configuration(const ApacheOptions& options) const {
    std::vector<std::string> modules = {"mpm_prefork", "authn_core", "authn_file",  "authz_core", "authz_user",
                                        "auth_basic",  "alias",      "auth_digest", "cgi"};
    modules.insert(modules.end(), options.Modules.begin(), options.Modules.end());
    const std::string folder = Folder.path();
    std::string text = "Define folder " + folder + "\nServerRoot " + folder + "\nDefaultRuntimeDir " + folder +
                       "\nPidFile " + folder + "/pid\n";
    for (const std::string& module : modules) {
        text += "LoadModule " + module + "_module /usr/lib/apache2/modules/mod_" + module + ".so\n";
    }
    if (::geteuid() == 0) {
        text += "User www-data\nGroup www-data\n";
    }
    return text + kConfiguration + options.Configuration;
}

} // namespace integrationtest
