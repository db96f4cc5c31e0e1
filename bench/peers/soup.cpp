// libsoup 3, blocking calls.
#include "bench/peers/Peer.h"

#include <libsoup/soup.h>

#include <array>

namespace peers {
namespace {

struct Unref {
    void operator()(gpointer object) const { g_object_unref(object); }
    void operator()(GBytes* bytes) const { g_bytes_unref(bytes); }
};
template <class Object>
using Owned = std::unique_ptr<Object, Unref>;

// What a call of GLib reports as its failure.
class Failure {
public:
    ~Failure() { g_clear_error(&Error); }
    GError** operator&() { return &Error; }
    void check() const { require(Error == nullptr, Error != nullptr ? Error->message : ""); }

private:
    GError* Error = nullptr;
};

class SoupPeer : public Peer {
public:
    SoupPeer() : Session(soup_session_new()) { soup_session_set_proxy_resolver(Session.get(), nullptr); }

    void consumer(const Request& request, bench::Tally& received) override {
        const Owned<SoupMessage> message = messageOf(request, "GET");
        const Owned<GInputStream> content = send(message);
        while (true) {
            Failure failure;
            const gssize count = g_input_stream_read(content.get(), Piece.data(), Piece.size(), nullptr, &failure);
            failure.check();
            if (count == 0) {
                return;
            }
            received.take(Piece.data(), static_cast<std::size_t>(count));
        }
    }
    void memory(const Request& request, bench::Tally& received) override {
        const Owned<GBytes> content = sendAndRead(messageOf(request, "GET"));
        received.take(g_bytes_get_data(content.get(), nullptr), g_bytes_get_size(content.get()));
    }
    void file(const Request& request) override {
        const Owned<SoupMessage> message = messageOf(request, "GET");
        const Owned<GInputStream> content = send(message);
        const Owned<GFile> file(g_file_new_for_path(request.File.c_str()));
        Failure failure;
        const Owned<GFileOutputStream> output(
            g_file_replace(file.get(), nullptr, FALSE, G_FILE_CREATE_NONE, nullptr, &failure));
        failure.check();
        g_output_stream_splice(G_OUTPUT_STREAM(output.get()), content.get(), G_OUTPUT_STREAM_SPLICE_CLOSE_TARGET,
                               nullptr, &failure);
        failure.check();
    }
    // Pieces of one buffer that all share, so that the source costs nothing.
    std::string upload(const Request& request, Source& source) override {
        const Owned<GInputStream> content(g_memory_input_stream_new());
        const std::string_view whole = source.next();
        const Owned<GBytes> shared(g_bytes_new(whole.data(), whole.size()));
        std::string_view piece = whole;
        for (; !piece.empty(); piece = source.next()) {
            const Owned<GBytes> part(g_bytes_new_from_bytes(shared.get(), 0, piece.size()));
            g_memory_input_stream_add_bytes(G_MEMORY_INPUT_STREAM(content.get()), part.get());
        }
        Owned<SoupMessage> message = messageOf(request, "PUT");
        soup_message_set_request_body(message.get(), nullptr, content.get(), static_cast<gssize>(request.Size));
        const Owned<GBytes> answer = sendAndRead(std::move(message));
        gsize size = 0;
        const gconstpointer data = g_bytes_get_data(answer.get(), &size);
        return {static_cast<const char*>(data), size};
    }

private:
    static Owned<SoupMessage> messageOf(const Request& request, const char* method) {
        Owned<SoupMessage> message(soup_message_new(method, request.Url.c_str()));
        require(message != nullptr, "not a URL");
        return message;
    }
    static void checkStatus(const Owned<SoupMessage>& message) {
        const guint status = soup_message_get_status(message.get());
        require(status == 200, "status " + std::to_string(status));
    }
    Owned<GInputStream> send(const Owned<SoupMessage>& message) {
        Failure failure;
        Owned<GInputStream> content(soup_session_send(Session.get(), message.get(), nullptr, &failure));
        failure.check();
        checkStatus(message);
        return content;
    }
    Owned<GBytes> sendAndRead(const Owned<SoupMessage>& message) {
        Failure failure;
        Owned<GBytes> content(soup_session_send_and_read(Session.get(), message.get(), nullptr, &failure));
        failure.check();
        checkStatus(message);
        return content;
    }

    Owned<SoupSession> Session;
    std::array<char, std::size_t{64} << 10> Piece{};
};

} // namespace

std::unique_ptr<Peer> makePeer() {
    return std::make_unique<SoupPeer>();
}

} // namespace peers
