#include "client/save/ContentStore.h"

#include <netrove/outputfile.h>

#include <utility>

namespace netrove {

namespace {

// Short content is cheapest in a file without a name, and no great loss where the program is killed.
class ListedFile final : public ContentStore {
public:
    ListedFile(std::filesystem::path target, bool replace, bool decodes, std::optional<std::uint64_t> resumedFrom,
               OnTemporary onTemporary)
        : Target(std::move(target)), Replace(replace), Decodes(decodes), ResumedFrom(resumedFrom),
          Announce(std::move(onTemporary)) {
        const std::filesystem::path part = partNameFor(Target, Replace);
        const bool there = !ResumedFrom || fileExists(part);
        // Without a note it may be a file of the user's own.
        take(ResumedFrom && there && fileExists(noteNameFor(part)) ? partFile(Target, Replace, false)
                                                                   : wholeFile(Target, Replace, false));
        MayChange = !there;
    }

    std::uint64_t size() const override { return File->size(); }
    const std::optional<ContentState>& state() const override { return File->state(); }
    bool holds(std::uint64_t at, std::span<const std::byte> bytes) const override { return File->holds(at, bytes); }
    bool plain() const override { return File->plain(); }
    bool restart(const Response& head) override {
        if (MayChange && wholeLength(head).value_or(0) >= *ResumedFrom) {
            const ContentState coming = stateOf(head);
            // What is decoded while it is written has offsets of its own.
            if ((coming.Coding.empty() || !Decodes) && !coming.Validator.empty()) {
                take(partFile(Target, Replace, false));
                MayChange = false;
            }
        }
        return File->restart(head);
    }
    bool goOn(std::uint64_t at, const Response& head, bool forced) override { return File->goOn(at, head, forced); }
    bool write(std::span<const std::byte> piece) override { return File->write(piece); }
    void discard() override { File->discard(); }
    void finish(const Request& request, const Response& response) override { File->finish(request, response); }
    void settle(bool flushed) override { File->settle(flushed); }
    void name() override { File->name(); }
    int descriptor() const override { return File->descriptor(); }
    std::string temporaryName() const override { return File->temporaryName(); }
    std::filesystem::path target() const override { return File->target(); }

private:
    void take(std::unique_ptr<ContentStore> file) {
        File = std::move(file);
        const std::string name = File->temporaryName();
        if (Announce && !name.empty()) {
            Announce(name, File->descriptor());
        }
    }

    std::filesystem::path Target;
    bool Replace;
    bool Decodes;
    std::optional<std::uint64_t> ResumedFrom; // nothing: it never goes on
    OnTemporary Announce;
    bool MayChange = false; // to a part that goes on
    std::unique_ptr<ContentStore> File;
};

} // namespace

std::unique_ptr<ContentStore> listedFile(const std::filesystem::path& target, bool replace, bool decodes,
                                         std::optional<std::uint64_t> resumedFrom, OnTemporary onTemporary) {
    return std::make_unique<ListedFile>(target, replace, decodes, resumedFrom, std::move(onTemporary));
}

} // namespace netrove
