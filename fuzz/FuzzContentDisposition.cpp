// Content-Disposition: whatever a server sends, a name leads to no other folder and shows what it is.
#include "client/response/ContentDisposition.h"
#include "fuzz/FuzzInput.h"

#include <netrove/text.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto name = netrove::fileNameOf(textOf(data, size));
    if (name) {
        require(!name->empty() && name->size() <= 200, "a name has 1 to 200 bytes");
        require(name->find_first_of("/\\") == name->npos && name->front() != '.', "a name is a plain one");
        require(netrove::isUtf8(*name) && netrove::printable(*name) == *name, "a name can be shown");
    }
    return 0;
}
