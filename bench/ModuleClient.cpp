#include "bench/ModuleClient.h"

#include <stdexcept>

namespace bench {

ModuleClient::ModuleClient() {
    Program.load(NETROVE_MODULE_FILE);
    Connection = Program.create("vantik.internal.webservices.HTTPConnectionAdapter", {true});
}

void ModuleClient::open(const std::string& url) {
    Connection.set("URL", url);
    Connection.call("openConnection");
}

void ModuleClient::close() {
    const double status = Connection.get("ResponseCode").number();
    Connection.call("closeConnection");
    if (status != 200.0) {
        throw std::runtime_error("status " + std::to_string(static_cast<int>(status)));
    }
}

vantik::Array ModuleClient::get(const std::string& url, bool toBuffer) {
    open(url);
    vantik::Array content = Connection.call("copyContentToByteArray", {toBuffer});
    close();
    return content;
}

void ModuleClient::getToFile(const std::string& url, const std::string& file) {
    open(url);
    Connection.call("copyContentToFile", {file});
    close();
}

vantik::Array ModuleClient::put(const std::string& url, std::uint64_t length, bool announce) {
    open(url);
    Connection.set("RequestMethod", "PUT");
    if (announce) {
        Connection.call("setRequestProperty", {"Content-Length", std::to_string(length)});
    }
    vantik::Array content = Connection.call("copyContentToByteArray", {true});
    close();
    return content;
}

} // namespace bench
