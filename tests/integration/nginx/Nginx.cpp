#include "tests/integration/nginx/Nginx.h"

#include "tests/integration/nginx/NginxProcess.h"
#include "tests/support/crypto/Certificates.h"

#include <filesystem>

namespace integrationtest {
namespace {

// The words in capitals are replaced.
constexpr const char* kConfiguration = R"(
    types { text/plain txt; }
    default_type application/octet-stream;
    sendfile on;
    absolute_redirect off;
    client_max_body_size 0;
    ssl_certificate FOLDER/server.pem;
    ssl_certificate_key FOLDER/server.key;
    gzip_min_length 1;

    server {
        listen 127.0.0.1:PLAIN_PORT;
        listen 127.0.0.1:HTTP2_PORT ssl http2;

        location /files/ { alias FOLDER/files/; }
        location /gzip/ { alias FOLDER/files/; gzip on; gzip_types *; gzip_proxied any; }
        location /brotli/ { alias FOLDER/files/; USE_BROTLI }
        location ~ ^/named-(gzip|br|zstd|unknown)/(.*)$ { alias FOLDER/files/$2; add_header Content-Encoding $1; }
        location /put/ { alias FOLDER/stored/; dav_methods PUT; }
        location /small/ { alias FOLDER/stored/; dav_methods PUT; client_max_body_size 1000; }
        location = /nothing { return 204; }
        location = /connection { return 200 "$connection"; }

        location = /redirect/relative { return 302 "../files/200"; }
        location = /redirect/path { return 301 "/files/200?x=1&y=2"; }
        location = /redirect/to-tls { return 308 "https://127.0.0.1:HTTP2_PORT/files/200"; }
        location = /redirect/fragment { return 303 "/files/200#part"; }
        location = /redirect/space { return 302 "/files/with space.txt"; }
        location = /redirect/escaped { return 302 "/files/with%20space.txt"; }
        location = /redirect/letters { return 302 "/files/fr\u00FCh \u4E2D.txt"; }
        location = /redirect/malformed { return 302 "http://[files"; }
        location = /redirect/elsewhere { return 302 "ftp://127.0.0.1/files/200"; }
        location ~ ^/redirect/chain/x(x*)$ { return 302 "/redirect/chain/$1"; }
        location = /redirect/chain/ { default_type text/plain; return 200 "end of the chain"; }
    }
}
)";

void replaceAll(std::string& text, const std::string& word, const std::string& by) {
    for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + by.size())) {
        text.replace(at, word.size(), by);
    }
}

} // namespace

Nginx::Nginx() {
    const std::string brotli = "/usr/lib/nginx/modules/ngx_http_brotli_filter_module.so";
    BrotliModule = std::filesystem::exists(brotli) ? brotli : "";
    for (const char* name : {"files", "stored"}) {
        std::filesystem::create_directory(Folder.file(name));
    }
    const testsupport::CertificateAuthority authority("nginx authority"); // distinct from others in one file
    const testsupport::Credentials credentials = authority.issue({.Names = "IP:127.0.0.1"});
    testsupport::writeFile(certificateFile(), authority.certificate());
    testsupport::writeFile(Folder.file("server.pem"), credentials.Certificate);
    testsupport::writeFile(Folder.file("server.key"), credentials.Key);
    Process = startOnFreePorts(2, [this](const std::vector<std::uint16_t>& ports) {
        PlainPort = ports[0];
        Http2Port = ports[1];
        return startNginx(Folder, configuration(), PlainPort);
    });
}

std::string Nginx::url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(PlainPort) + path;
}

std::string Nginx::http2Url(const std::string& path) const {
    return "https://127.0.0.1:" + std::to_string(Http2Port) + path;
}

std::string Nginx::configuration() const {
    std::string text =
        nginxFrame(Folder, knowsBrotli() ? "load_module " + BrotliModule + ";" : std::string()) + kConfiguration;
    replaceAll(text, "USE_BROTLI", knowsBrotli() ? "brotli on; brotli_types *; brotli_min_length 1;" : "");
    replaceAll(text, "FOLDER", Folder.path());
    replaceAll(text, "PLAIN_PORT", std::to_string(PlainPort));
    replaceAll(text, "HTTP2_PORT", std::to_string(Http2Port));
    replaceAll(text, "\\u00FC", "\u00FC");
    replaceAll(text, "\\u4E2D", "\u4E2D");
    return text;
}

} // namespace integrationtest
