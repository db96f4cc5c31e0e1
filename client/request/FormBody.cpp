#include "client/request/BodySource.h"

#include <boost/url/encode.hpp>
#include <boost/url/grammar/alnum_chars.hpp>
#include <boost/url/grammar/lut_chars.hpp>

namespace netrove {

namespace {

// What the URL standard of the WHATWG leaves as it is in this type of content.
constexpr auto kPlain =
    boost::urls::grammar::lut_chars(boost::urls::grammar::alnum_chars) + boost::urls::grammar::lut_chars("*-._");

std::string encoded(std::string_view text) {
    boost::urls::encoding_opts options;
    options.space_as_plus = true;
    return boost::urls::encode(boost::urls::string_view(text.data(), text.size()), kPlain, options);
}

} // namespace

Body form(const Pairs& pairs) {
    std::string content;
    for (const auto& [name, value] : pairs) {
        content += (content.empty() ? "" : "&") + encoded(name) + "=" + encoded(value);
    }
    return memoryBody(std::move(content), "application/x-www-form-urlencoded");
}

} // namespace netrove
