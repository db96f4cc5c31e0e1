#include "cli/options/table/ForeignOptions.h"

#include "cli/options/table/OptionTable.h"

#include <algorithm>

namespace netrove::cli {

namespace {

constexpr std::string_view kAddresses = "addresses of both kinds are tried, and the first that answers is used";
constexpr std::string_view kVersions =
    "leave it out: HTTP/2 is used where server and proxy offer it over TLS, otherwise HTTP/1.1";
constexpr std::string_view kCookies = "cookies are not kept between runs";
constexpr std::string_view kRoutes = "connections go by TCP to the addresses that the system has for the name";
constexpr std::string_view kClientCertificate = "client certificates are not supported";
constexpr std::string_view kTlsSettings = "the configuration of OpenSSL (openssl.cnf) decides";
constexpr std::string_view kSocks = "use --proxy with socks5:// or socks4:// in front";

// clang-format off
constexpr ForeignOption kForeign[] = {
    {"--json", "use --format json", kProxy | kDescribe | kBatch},
    {"-4 --ipv4 --inet4-only -6 --ipv6 --inet6-only", kAddresses, kTransfers},
    {"-0 --http1.0 --http1.1 --http2 --http2-prior-knowledge --http3", kVersions, kTransfers},
    {"-w --write-out -D --dump-header --save-headers", "each line of the result has status, sizes and times", kBatch},
    {"-c", "use -C - to go on with a file, --skip-existing to leave it alone; cookies are not kept between runs", kSave},
    {"-c", kCookies, kTransfers & ~unsigned{kSave}},
    {"--cookie-jar --save-cookies --session", kCookies, kTransfers},
    {"-E --cert --key --certificate --private-key --cert-key", kClientCertificate, kTransfers},
    {"--capath --ca-directory", "use --ca-file", kTransfers},
    {"--tlsv1.2 --tlsv1.3 --tls-max --ciphers --tls13-ciphers --secure-protocol --ssl", kTlsSettings, kTransfers},
    {"--resolve --connect-to", "add the name to /etc/hosts", kTransfers},
    {"--basic --ntlm --negotiate --anyauth", "use --auth with basic, digest, ntlm or negotiate", kTransfers},
    {"--proxy-basic --proxy-digest --proxy-ntlm --proxy-negotiate --proxy-anyauth", "use --proxy-auth with basic, digest, ntlm or negotiate", kTransfers},
    {"--socks4 --socks4a --socks5 --socks5-hostname", kSocks, kTransfers},
    {"--trace --trace-ascii", "use --debug 2", kSingle},
    {"--stderr", "redirect standard error: 2> FILE", kTransfers},
    {"-g --globoff", "leave it out: braces and brackets in a URL are sent as they are", kTransfers},
    {"-N --no-buffer", "leave it out: content is written as it arrives", kTransfers},
    {"-q --disable", "use --no-config, or --silent to show nothing", kTransfers},
    {"-M --manual", "use netrove help man", kAll},
    {"-t --tries", "use --retry", kTransfers},
    {"--timeout", "use --max-time, --connect-timeout, --response-timeout or --data-timeout", kTransfers},
    {"-y -Y --speed-time --speed-limit --read-timeout --lowest-speed-limit", "use --data-timeout", kTransfers},
    {"-U", "use --proxy-user for a proxy", kTransfers},
    {"-a", "use --user", kTransfers},
    {"-P --directory-prefix --dir", "use --output-dir, with --create-dirs if the folder is not there", kSave},
    {"-o --output --out --output-document", "the file follows the URL: netrove save URL FILE", kSave},
    {"-i", "a list of URLs: netrove batch FILE", kSave},
    {"--interface --local-port --unix-socket --abstract-unix-socket --dns-servers --doh-url", kRoutes, kTransfers},
    {"--page-requisites --recursive --mirror", "only URLs that are named are fetched; a list of them: netrove batch", kTransfers},
    {"--input-file --force-html", "use netrove batch FILE", kSingle},
};
// clang-format on

// Whether `name` is one of `names`, which are separated by blanks.
bool isOneOf(std::string_view names, std::string_view name) {
    for (std::size_t start = 0; start < names.size();) {
        const auto end = std::min(names.find(' ', start), names.size());
        if (names.substr(start, end - start) == name) {
            return true;
        }
        start = end + 1;
    }
    return false;
}

} // namespace

std::span<const ForeignOption> foreignOptions() {
    return kForeign;
}

std::string_view insteadOf(std::string_view name, unsigned commands) {
    for (const ForeignOption& row : kForeign) {
        if ((row.Commands & commands) != 0 && isOneOf(row.Names, name)) {
            return row.Instead;
        }
    }
    return {};
}

} // namespace netrove::cli
