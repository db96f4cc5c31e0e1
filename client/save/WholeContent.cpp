#include "client/response/ContentDisposition.h"
#include "client/save/FileParts.h"
#include "client/save/SavedContent.h"

#include <netrove/outputfile.h>
#include <netrove/url.h>

#include <utility>

namespace netrove {

namespace {

class WholeContent final : public SavedContent {
public:
    WholeContent(const std::filesystem::path& target, bool replace) : Target(target), File(target.string(), replace) {}

    bool begin(Response&) override {
        File.restart();
        return true;
    }
    void write(std::span<const std::byte> piece) override { File.write(piece); }
    void finish(const Request& request, const Response& response) override {
        finishContent(File.descriptor(), request, response, Target.string());
    }
    void settle(bool flushed) override { File.settle(flushed); }
    void name() override { File.name(); }
    int descriptor() const override { return File.descriptor(); }
    std::string temporaryName() const override { return File.nameless() ? "" : File.temporaryName(); }
    const std::filesystem::path& target() const override { return Target; }

private:
    std::filesystem::path Target;
    OutputFile File;
};

class NamedContent final : public SavedContent {
public:
    NamedContent(std::filesystem::path folder, bool replace) : Folder(std::move(folder)), Replace(replace) {}

    bool begin(Response& head) override {
        const auto name = fileNameOf(head.fields["Content-Disposition"]);
        Content = wholeContent(Folder / name.value_or(fileNameFor(head.url)), Replace);
        return Content->begin(head);
    }
    void write(std::span<const std::byte> piece) override { Content->write(piece); }
    void finish(const Request& request, const Response& response) override { Content->finish(request, response); }
    void settle(bool flushed) override { Content->settle(flushed); }
    void name() override { Content->name(); }
    int descriptor() const override { return Content->descriptor(); }
    const std::filesystem::path& target() const override { return Content->target(); }

private:
    std::filesystem::path Folder;
    bool Replace;
    std::unique_ptr<SavedContent> Content; // from the head on
};

} // namespace

std::unique_ptr<SavedContent> namedContent(const std::filesystem::path& folder, bool replace) {
    return std::make_unique<NamedContent>(folder, replace);
}

std::unique_ptr<SavedContent> wholeContent(const std::filesystem::path& target, bool replace) {
    return std::make_unique<WholeContent>(target, replace);
}

} // namespace netrove
