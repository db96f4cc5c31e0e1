// Resolution of references by RFC 3986 section 5.2. Boost.URL's own also undoes percent-encodings, which may change
// what a server sees, and keeps a ".." that leads above the root.
#include "embedded/iri/IriParts.h"

#include <algorithm>
#include <cstddef>

namespace vantik::detail {

namespace {

// Section 5.2.3.
std::string mergePaths(const IriParts& base, const std::string& path) {
    if (base.HasAuthority && base.Path.empty()) {
        return "/" + path;
    }
    return base.Path.substr(0, base.Path.rfind('/') + 1) + path; // without a "/" nothing of the base remains
}

void copyAuthority(const IriParts& from, IriParts& to) {
    to.HasAuthority = from.HasAuthority;
    to.UserInfo = from.UserInfo;
    to.Host = from.Host;
    to.Port = from.Port;
}

} // namespace

// Letter by letter as the section has it: "a/../b" becomes "/b", not "b".
std::string removeDotSegments(std::string_view path) {
    std::string result;
    result.reserve(path.size());
    const auto dropLastSegment = [&result] {
        const std::size_t slash = result.rfind('/');
        result.resize(slash == result.npos ? 0 : slash);
    };
    while (!path.empty()) {
        if (path.starts_with("../")) {
            path.remove_prefix(3);
        } else if (path.starts_with("./") || path.starts_with("/./")) {
            path.remove_prefix(2);
        } else if (path == "/.") {
            path = "/";
        } else if (path.starts_with("/../")) {
            path.remove_prefix(3);
            dropLastSegment();
        } else if (path == "/..") {
            path = "/";
            dropLastSegment();
        } else if (path == "." || path == "..") {
            path = {};
        } else {
            const std::size_t end = std::min(path.find('/', 1), path.size());
            result += path.substr(0, end);
            path.remove_prefix(end);
        }
    }
    return result;
}

IriParts resolveIri(const IriParts& reference, const IriParts& base) {
    IriParts target;
    target.Fragment = reference.Fragment;
    if (reference.Scheme || reference.HasAuthority) {
        target.Scheme = reference.Scheme ? reference.Scheme : base.Scheme;
        copyAuthority(reference, target);
        target.Path = removeDotSegments(reference.Path);
        target.Query = reference.Query;
        return target;
    }
    target.Scheme = base.Scheme;
    copyAuthority(base, target);
    if (reference.Path.empty()) {
        target.Path = base.Path;
        target.Query = reference.Query ? reference.Query : base.Query;
        return target;
    }
    target.Path =
        removeDotSegments(reference.Path.starts_with('/') ? reference.Path : mergePaths(base, reference.Path));
    target.Query = reference.Query;
    return target;
}

} // namespace vantik::detail
