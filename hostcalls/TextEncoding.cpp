#include "hostcalls/TextEncoding.h"

#include "errors/MessageIdentifiers.h"
#include "host/Text.h"

namespace netrove {

std::string toNarrow(const std::u16string& wide, const std::string& encoding) {
    try {
        if (encoding.empty()) {
            return fl::i18n::to_string(wide, fl::i18n::codecvt_ustring_to_ascii(false));
        }
        return fl::i18n::to_string(wide, fl::i18n::codecvt_ustring_to_string(encoding, false));
    } catch (const fl::i18n::CvtExceptionBase& failure) {
        VANTIK::raise<VANTIK::webservices::EncodingFailure>(wide, encoding.empty() ? "ascii" : encoding,
                                                            failure.what());
    }
}

} // namespace netrove
