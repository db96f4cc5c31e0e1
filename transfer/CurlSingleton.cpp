#include "transfer/CurlSingleton.h"

#include "errors/InternalError.h"
#include "host/SingletonStore.h"
#include "transfer/CurlCalls.h"

#include <typeinfo>
#include <utility>

namespace netrove {

namespace {

using Store = foundation::usm::Detail<foundation::usm::scope::Vvm>;

// The easy handle goes first, still attached: libcurl detaches it, and what it closes is then dropped with the multi
// handle.
void destroyHandles(CurlSingleton& handles) {
    curl_easy_cleanup(handles.EasyHandle);
    handles.EasyHandle = nullptr;
    if (handles.MultiHandle != nullptr) {
        curl_multi_cleanup(handles.MultiHandle);
        handles.MultiHandle = nullptr;
    }
}

void makeHandles(CurlSingleton& handles) {
    ++handles.Generation;
    handles.Owner = nullptr;
    handles.IsReset = false;
    handles.CookieEngineRuns = false;
    handles.Uploads = false;
    handles.Decodes = false;
    handles.EasyHandle = curl_easy_init();
    if (handles.EasyHandle == nullptr) {
        throwCurlCodeError("curl_easy_init", 0, "");
    }
    handles.MultiHandle = curl_multi_init();
    if (handles.MultiHandle == nullptr) {
        throwCurlCodeError("curl_multi_init", 0, "");
    }
#if LIBCURL_VERSION_NUM >= 0x081400
    // Without this, cleaning up would wait for the system to answer a name look-up that hangs.
    static_cast<void>(curl_multi_setopt(handles.MultiHandle, CURLMOPT_QUICK_EXIT, 1L));
#endif
}

void deleteCurlSingleton(void* object) {
    if (object != nullptr) {
        auto* handles = static_cast<CurlSingleton*>(object);
        destroyHandles(*handles);
        delete handles;
    }
}

} // namespace

CURLMcode CurlSingleton::detach() noexcept {
    ++Generation;
    return curl_multi_remove_handle(MultiHandle, EasyHandle);
}

CURLMcode CurlSingleton::attach() noexcept {
    ++Generation;
    IsReset = false;
    return curl_multi_add_handle(MultiHandle, EasyHandle);
}

void CurlSingleton::reset() noexcept {
    ++Generation;
    Uploads = false;
    Decodes = false;
    if (!std::exchange(IsReset, true)) {
        curl_easy_reset(EasyHandle);
    }
}

CurlSingleton& getCurlSingleton() {
    static const std::size_t key = Store::getNextID(typeid(CurlSingleton));
    if (foundation::usm::Holder* stored = Store::find(key, typeid(CurlSingleton))) {
        return *static_cast<CurlSingleton*>(stored->get());
    }
    foundation::usm::Holder made(new CurlSingleton, deleteCurlSingleton);
    makeHandles(*static_cast<CurlSingleton*>(made.get()));
    // If another one was stored in the meantime, `made` still owns ours and destroys it here.
    return *static_cast<CurlSingleton*>(Store::findOrInsert(key, typeid(CurlSingleton), std::move(made))->get());
}

void resetHandles() {
    CurlSingleton& handles = getCurlSingleton();
    if (handles.ConnectionOpen) {
        throwInternalError("resetHandles() called when connection is open");
    }
    const CURLMcode code = handles.detach();
    if (code != CURLM_OK) {
        throwCurlMultiCodeError("curl_multi_remove_handle", code, "");
    }
    destroyHandles(handles);
    makeHandles(handles);
}

} // namespace netrove
