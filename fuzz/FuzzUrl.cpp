// What is read from a URL as people write it: credentials are taken out or masked and nothing else changes, and a file
// name never leads out of its folder or deceives a reader.
#include "fuzz/FuzzInput.h"

#include <netrove/refusedurl.h>
#include <netrove/text.h>
#include <netrove/url.h>

#include <string>

using namespace netrove;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string url(textOf(data, size));
    const UrlParts before = splitUrl(url);
    std::string bare = url;
    const UserInfo info = takeUserInfo(bare);
    const UrlParts after = splitUrl(bare);
    require(userInfoIn(bare).empty(), "credentials that are taken are gone");
    require(info.Present == !userInfoIn(url).empty(), "credentials that are there are taken");
    require(after.Scheme == before.Scheme && after.Host == before.Host && after.Port == before.Port &&
                after.Path == before.Path,
            "the rest of a URL stays when its credentials are taken");
    require(sameOrigin(url, bare), "credentials do not change the origin");

    const std::string masked = maskUserInfo(url);
    require(maskUserInfo(masked) == masked, "what is masked stays as it is");
    const std::string refused = maskRefusedUrl(url);
    require(maskRefusedUrl(refused).size() <= refused.size() + 3, "masking twice adds no text");
    if (const std::size_t at = url.rfind('@'); at != url.npos) {
        require(refused.ends_with("***" + url.substr(at)), "what comes before the last @ is masked");
    }

    const std::string name = fileNameFor(url);
    require(!name.empty() && name.size() <= 200, "a file name has from 1 to 200 bytes");
    require(name.front() != '.' && name.find_first_of("/\\") == name.npos, "a file name is one, and not hidden");
    require(!hasControls(name) && isUtf8(name), "a file name is text");
    return 0;
}
