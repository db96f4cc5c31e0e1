#include "client/response/ContentDisposition.h"
#include "client/save/ContentStore.h"
#include "client/save/FileParts.h"

#include <netrove/outputfile.h>
#include <netrove/url.h>

#include <utility>

namespace netrove {

namespace {

class WholeFile final : public ContentStore {
public:
    WholeFile(const std::filesystem::path& target, bool replace, bool tidy)
        : Target(target), Tidy(tidy), File(target.string(), replace) {
        if (Tidy) {
            File.removeLeftovers();
        }
    }

    std::uint64_t size() const override { return Known ? File.size() : 0; }
    const std::optional<ContentState>& state() const override { return Known; }
    bool holds(std::uint64_t at, std::span<const std::byte> bytes) const override {
        return holdsBytes(File.descriptor(), at, bytes, Target.string());
    }
    bool restart(const Response& head) override {
        File.restart();
        Known = stateOf(head);
        return true;
    }
    bool goOn(std::uint64_t, const Response&, bool) override { return true; } // it ends where the part begins
    bool write(std::span<const std::byte> piece) override {
        File.write(piece);
        return true;
    }
    void finish(const Request& request, const Response& response) override {
        finishContent(File.descriptor(), request, response, Target.string());
    }
    void settle(bool flushed) override { File.settle(flushed); }
    void name() override {
        File.name();
        if (Tidy) {
            removePart(Target);
        }
    }
    int descriptor() const override { return File.descriptor(); }
    std::string temporaryName() const override { return File.nameless() ? "" : File.temporaryName(); }
    std::filesystem::path target() const override { return Target; }

private:
    std::filesystem::path Target;
    bool Tidy;
    OutputFile File;
    std::optional<ContentState> Known; // from the first head on
};

class NamedFile final : public ContentStore {
public:
    NamedFile(std::filesystem::path folder, bool replace) : Folder(std::move(folder)), Replace(replace) {}

    std::uint64_t size() const override { return File ? File->size() : 0; }
    const std::optional<ContentState>& state() const override { return File ? File->state() : None; }
    bool holds(std::uint64_t at, std::span<const std::byte> bytes) const override { return File->holds(at, bytes); }
    bool restart(const Response& head) override {
        const auto name = fileNameOf(head.fields["Content-Disposition"]);
        const auto target = Folder / name.value_or(fileNameFor(head.url));
        if (!File || File->target() != target) {
            File = wholeFile(target, Replace, true);
        }
        return File->restart(head);
    }
    bool goOn(std::uint64_t at, const Response& head, bool forced) override { return File->goOn(at, head, forced); }
    bool write(std::span<const std::byte> piece) override { return File->write(piece); }
    void finish(const Request& request, const Response& response) override { File->finish(request, response); }
    void settle(bool flushed) override { File->settle(flushed); }
    void name() override { File->name(); }
    int descriptor() const override { return File->descriptor(); }
    std::filesystem::path target() const override { return File->target(); }

private:
    std::filesystem::path Folder;
    bool Replace;
    std::unique_ptr<ContentStore> File; // from the first head on
    const std::optional<ContentState> None;
};

class PassedOn final : public ContentStore {
public:
    explicit PassedOn(std::function<Taker(const Response&)> onHead) : OnHead(std::move(onHead)) {}

    std::uint64_t size() const override { return Count; }
    const std::optional<ContentState>& state() const override { return Known; }
    // Nobody has them any more; the validator has to do.
    bool holds(std::uint64_t, std::span<const std::byte>) const override { return true; }
    bool restart(const Response& head) override {
        if (Count != 0) {
            return false;
        }
        Known = stateOf(head);
        Take = OnHead(head);
        return true;
    }
    bool restarts() const override { return false; }
    bool goOn(std::uint64_t, const Response&, bool) override { return true; }
    bool write(std::span<const std::byte> piece) override {
        Count += piece.size();
        return Take && Take(piece);
    }

private:
    std::function<Taker(const Response&)> OnHead;
    Taker Take;
    std::uint64_t Count = 0;
    std::optional<ContentState> Known;
};

} // namespace

std::unique_ptr<ContentStore> namedFile(const std::filesystem::path& folder, bool replace) {
    return std::make_unique<NamedFile>(folder, replace);
}

std::unique_ptr<ContentStore> wholeFile(const std::filesystem::path& target, bool replace, bool tidy) {
    return std::make_unique<WholeFile>(target, replace, tidy);
}

std::unique_ptr<ContentStore> passedOn(std::function<Taker(const Response& head)> onHead) {
    return std::make_unique<PassedOn>(std::move(onHead));
}

} // namespace netrove
