// URLs and redirect targets: what is accepted prints as ASCII that is accepted again and prints the same.
#include "fuzz/FuzzScope.h"
#include "host/Iri.h"
#include "host/Messages.h"
#include "host/Text.h"

#include <algorithm>
#include <cstdlib>
#include <string>

using foundation::network::IRI;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    enterFuzzScope();
    try {
        const IRI iri(fl::i18n::to_ustring(std::string(textOf(data, size))));
        const std::u16string ascii = iri.toAsciiString(false);
        if (std::any_of(ascii.begin(), ascii.end(), [](char16_t unit) { return unit <= 0x20 || unit >= 0x7F; }) ||
            IRI(ascii).toAsciiString(false) != ascii) {
            std::abort();
        }
        static_cast<void>(iri.resolveAgainst(IRI(u"http://example.com/a/b?c")).toAsciiString(false));
    } catch (const foundation::core::except::IInternalException&) {
        return 0; // refused, which is an answer
    }
    return 0;
}
