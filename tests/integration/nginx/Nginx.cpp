#include "tests/integration/nginx/Nginx.h"

#include "tests/support/crypto/Certificates.h"

#include <filesystem>

namespace integrationtest {
namespace {

// The words in capitals are replaced. One process without a master runs as whoever runs the test, so that no folder has
// to be opened for another user.
constexpr const char* kConfiguration = R"(
daemon off;
master_process off;
pid FOLDER/nginx.pid;
lock_file FOLDER/nginx.lock;
error_log FOLDER/error.log;
LOAD_BROTLI
events { worker_connections 256; }
http {
    access_log off;
    client_body_temp_path FOLDER/temp/body;
    proxy_temp_path FOLDER/temp/proxy;
    fastcgi_temp_path FOLDER/temp/fastcgi;
    uwsgi_temp_path FOLDER/temp/uwsgi;
    scgi_temp_path FOLDER/temp/scgi;
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
        location /named-gzip/ { alias FOLDER/files/; add_header Content-Encoding gzip; }
        location /named-br/ { alias FOLDER/files/; add_header Content-Encoding br; }
        location /named-zstd/ { alias FOLDER/files/; add_header Content-Encoding zstd; }
        location /named-unknown/ { alias FOLDER/files/; add_header Content-Encoding unknown; }
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

std::string onLoopback(const std::string& scheme, std::uint16_t port, const std::string& path) {
    return scheme + "://127.0.0.1:" + std::to_string(port) + path;
}

} // namespace

Nginx::Nginx() {
    const std::string brotli = "/usr/lib/nginx/modules/ngx_http_brotli_filter_module.so";
    BrotliModule = std::filesystem::exists(brotli) ? brotli : "";
    for (const char* name : {"files", "stored", "temp"}) {
        std::filesystem::create_directory(Folder.file(name));
    }
    const testsupport::CertificateAuthority authority("nginx authority"); // told apart from others in one file
    const testsupport::Credentials credentials = authority.issue({.Names = "IP:127.0.0.1"});
    testsupport::writeFile(certificateFile(), authority.certificate());
    testsupport::writeFile(Folder.file("server.pem"), credentials.Certificate);
    testsupport::writeFile(Folder.file("server.key"), credentials.Key);
    Process = startOnFreePorts(2, [this](const std::vector<std::uint16_t>& ports) {
        PlainPort = ports[0];
        Http2Port = ports[1];
        testsupport::writeFile(Folder.file("nginx.conf"), configuration());
        auto process = std::make_unique<PeerProcess>(
            std::vector<std::string>{"nginx", "-p", Folder.path(), "-c", Folder.file("nginx.conf")},
            Folder.file("output.log"));
        for (const std::uint16_t port : ports) {
            process->awaitListening(port);
        }
        return process;
    });
}

std::string Nginx::url(const std::string& path) const {
    return onLoopback("http", PlainPort, path);
}

std::string Nginx::http2Url(const std::string& path) const {
    return onLoopback("https", Http2Port, path);
}

std::string Nginx::configuration() const {
    std::string text = kConfiguration;
    replaceAll(text, "LOAD_BROTLI", knowsBrotli() ? "load_module " + BrotliModule + ";" : "");
    replaceAll(text, "USE_BROTLI", knowsBrotli() ? "brotli on; brotli_types *; brotli_min_length 1;" : "");
    replaceAll(text, "FOLDER", Folder.path());
    replaceAll(text, "PLAIN_PORT", std::to_string(PlainPort));
    replaceAll(text, "HTTP2_PORT", std::to_string(Http2Port));
    replaceAll(text, "\\u00FC", "\u00FC");
    replaceAll(text, "\\u4E2D", "\u4E2D");
    return text;
}

} // namespace integrationtest
