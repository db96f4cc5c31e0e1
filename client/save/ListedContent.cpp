#include "client/save/SavedContent.h"
#include "client/text/Ascii.h"

#include <netrove/outputfile.h>

#include <charconv>
#include <utility>

namespace netrove {

namespace {

std::uint64_t lengthOf(const std::string& text) {
    std::uint64_t length = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), length);
    return error == std::errc() && end == text.data() + text.size() ? length : 0;
}

// Short content is cheapest in a file without a name, and no great loss where the program is killed.
class ListedContent final : public SavedContent {
public:
    ListedContent(std::filesystem::path target, bool replace, std::optional<std::uint64_t> resumedFrom,
                  OnTemporary onTemporary)
        : Target(std::move(target)), Replace(replace), ResumedFrom(resumedFrom), Announce(std::move(onTemporary)) {
        const std::filesystem::path part = partNameFor(Target, Replace);
        const bool there = !ResumedFrom || fileExists(part);
        // Without a note it may be a file of the user's own.
        take(ResumedFrom && there && fileExists(noteNameFor(part)) ? resumedContent(Target, Replace)
                                                                   : wholeContent(Target, Replace));
        MayChange = !there;
    }

    void ask(Request& request) override {
        Decodes = *request.decode;
        Content->ask(request);
    }
    bool asksForPart() const override { return Content->asksForPart(); }
    bool begin(Response& head) override {
        // What is decoded while it is written has offsets of its own.
        const std::string coding = head.fields["Content-Encoding"];
        const bool decoded = Decodes && !coding.empty() && !equalsIgnoringCase(coding, "identity");
        if (MayChange && !decoded && lengthOf(head.fields["Content-Length"]) >= *ResumedFrom &&
            !validatorOf(head.fields).empty()) {
            take(resumedContent(Target, Replace));
            MayChange = false;
        }
        return Content->begin(head);
    }
    bool isWhole(Response& head) override { return Content->isWhole(head); }
    void write(std::span<const std::byte> piece) override { Content->write(piece); }
    void finish(const Request& request, const Response& response) override { Content->finish(request, response); }
    void settle(bool flushed) override { Content->settle(flushed); }
    void name() override { Content->name(); }
    int descriptor() const override { return Content->descriptor(); }
    std::string temporaryName() const override { return Content->temporaryName(); }
    const std::filesystem::path& target() const override { return Content->target(); }

private:
    void take(std::unique_ptr<SavedContent> content) {
        Content = std::move(content);
        const std::string name = Content->temporaryName();
        if (Announce && !name.empty()) {
            Announce(name, Content->descriptor());
        }
    }

    std::filesystem::path Target;
    bool Replace;
    std::optional<std::uint64_t> ResumedFrom; // nothing: it never goes on
    OnTemporary Announce;
    bool MayChange = false; // to content that goes on
    bool Decodes = true;
    std::unique_ptr<SavedContent> Content;
};

} // namespace

std::unique_ptr<SavedContent> listedContent(const std::filesystem::path& target, bool replace,
                                            std::optional<std::uint64_t> resumedFrom, OnTemporary onTemporary) {
    return std::make_unique<ListedContent>(target, replace, resumedFrom, std::move(onTemporary));
}

} // namespace netrove
