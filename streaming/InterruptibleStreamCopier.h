// The bridge between libcurl's content callbacks and the host's content objects, one per request. The callbacks only
// move bytes between libcurl and memory held here; host objects are called by the two pumps, between two performs.
//
// Where the operations are:
//   InterruptibleStreamCopier.cpp          construction, the callbacks, the wait of both pumps
//   InterruptibleStreamCopierSend.cpp      sendRequest, the pump for request content
//   InterruptibleStreamCopierReceive.cpp   receiveResponse, the pump for response content
#pragma once

#include "host/ArrayApi.h"
#include "host/ClassSystem.h"
#include "hostcalls/HostArray.h"

#include <curl/curl.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <ostream>
#include <span>
#include <string>
#include <vector>

namespace netrove {

class HTTPConnection;

class InterruptibleStreamCopier {
public:
    // Registers the callbacks on the connection's easy handle. Raises InternalError where libcurl refuses an option.
    explicit InterruptibleStreamCopier(HTTPConnection& connection);
    InterruptibleStreamCopier(const InterruptibleStreamCopier&) = delete;
    InterruptibleStreamCopier& operator=(const InterruptibleStreamCopier&) = delete;

    // Sends the request's content from memory or from the provider, and so drives the start of the transfer. Returns
    // when all content is on offer to libcurl or the transfer has ended.
    void sendRequest();

    // Drains the response's content into the consumer, `saveTo` (may be null), or both, until the transfer ends.
    void receiveResponse(std::ostream* saveTo);

    // Called for each read of the network: beyond the limit there is no further one before what is here has been
    // drained. Content that expands little is paused right at the limit. Any other is not, since libcurl goes on
    // decoding what it has read into a buffer of its own, where content that expands without limit would exhaust the
    // memory.
    void pauseAtLimit();

    // Releases the request's content: nothing will be sent again.
    void releaseContent() noexcept;

    static std::size_t writeCallback(char* data, std::size_t size, std::size_t count, void* copier);
    static std::size_t readCallback(char* buffer, std::size_t size, std::size_t count, void* copier);
    static int seekCallback(void* copier, curl_off_t offset, int origin);

    HTTPConnection* Connection; // borrowed; outlives the copier's use
    const std::uint8_t* SendData =
        nullptr;                    // bytes on offer to libcurl; in `Payload` or in one of the provider's arrays
    std::uint64_t SendLength = 0;   // number of bytes at SendData
    std::uint64_t SendPosition = 0; // next byte to hand to libcurl
    std::uint64_t TotalSent = 0;    // bytes handed to libcurl for this request, moved back by a rewind
    std::string ReceiveBuffer;      // response bytes not yet drained, after those in Landing
    std::size_t ReceiveLimit = kReceiveStep; // once so much is not yet drained, libcurl reads no more

    // One perform can bring a hundred reads of the network, so libcurl is paused after this much content.
    static constexpr std::size_t kReceiveStep = std::size_t{512} << 10;
    // Decoded content still arrives in whole reads. A read of 16 KiB expands to 16.2 MiB at gzip's best; what expands
    // further, such as several encodings on top of each other, is meant to fill the memory.
    static constexpr std::size_t kLargestExpansion = std::size_t{20} << 20;
    // Limit of what is kept while the request's content is still being sent, when nothing is drained.
    static constexpr std::size_t kLargestEarlyContent = std::size_t{16} << 20;
    std::shared_ptr<const std::vector<std::uint8_t>>
        Payload;                      // shared with the connection, which may have another by now
    SharedHostArray Provider;         // the same; null: none
    vcos::InternedName ProviderClass; // class name for calls on the provider; null without one
    vxArray_tag* ProviderArgs[2];     // the provider; the wanted size, valid only during sendRequest
    std::uint64_t WantedSize = 0;     // the value of that
    bool PumpWantsData = false;       // sendRequest runs with a provider that has not reported its end
    bool ReadPaused = false;          // readCallback has paused the upload; sendRequest resumes it after a refill
    bool WritePaused = false;         // the download is paused; the pumps resume it

private:
    std::size_t waiting() const noexcept { return Landed + ReceiveBuffer.size(); } // bytes not yet drained
    std::size_t takeBytes(const char* data, std::size_t length);
    std::size_t land(std::span<const char> bytes) noexcept;
    std::size_t giveBytes(char* buffer, std::size_t room);
    int rewind(curl_off_t offset);
    void offerPayload() noexcept;
    // What the provider has returned: `Length` bytes at `Data` in `Array`, at least one.
    struct Piece {
        HostArray Array;
        const std::uint8_t* Data;
        std::uint64_t Length;
    };

    bool hasOffer() const noexcept { return SendPosition < SendLength || NextPiece < Pieces.size(); }
    bool offerNextPiece() noexcept;
    std::size_t copyOffer(char* buffer, std::size_t room);
    void noteEndOfUpload();

    // both pumps
    void awaitActivity(int& emptyWaits);
    void resume(bool reading, bool writing);
    void pause();
    void applyPauses();

    // sendRequest
    bool refill();
    void askProvider();
    std::uint64_t takePiece();
    bool mayAskAgain(std::uint64_t length, std::uint64_t gathered, std::int64_t start) const;
    void resumeReading();
    void makeRoomForEarlyContent();
    void withdrawOffer() noexcept;
    void dropPieces() noexcept;
    void breakUpload() noexcept;

    // receiveResponse
    struct Receiver;
    void drainUntilDone(Receiver& receiver);
    void requireRoom(const Receiver& receiver, std::size_t length) const;
    void prepareLanding(Receiver& receiver);
    void receiveOnce(Receiver& receiver);
    void passToStream(Receiver& receiver, std::size_t length);
    void takeBackLanded() noexcept;
    std::span<const char> waitingAt(std::size_t offset, std::size_t length) const noexcept;
    std::size_t passToConsumer(Receiver& receiver, std::size_t length);
    void pollInterrupt(Receiver& receiver);

    std::vector<Piece> Pieces;  // on offer one after the other
    std::size_t NextPiece = 0;  // of those, the one on offer once SendData is used up
    bool ProviderEnded = false; // the provider has reported its end, and `Pieces` are still on offer

    // Memory of the target, in parts of one length: content goes there first, and only the rest to ReceiveBuffer.
    std::vector<std::span<char>> Landing;
    std::size_t Landed = 0; // bytes at its beginning that have not yet been drained
};

} // namespace netrove
