// Stands in the place of example.org for the commands that the pages show.
#pragma once

#include <memory>
#include <string>

namespace docstest {

// Any path answers with a short text, whatever the method; "/missing" with 404; "/private" with 401 unless alice logs
// in. A whole URL in the request line, as a proxy gets it, is answered in the same way.
class PageServer {
public:
    PageServer();
    ~PageServer();
    PageServer(const PageServer&) = delete;
    PageServer& operator=(const PageServer&) = delete;

    std::string authority() const;

private:
    struct Content;
    std::unique_ptr<Content> Inside;
};

} // namespace docstest
