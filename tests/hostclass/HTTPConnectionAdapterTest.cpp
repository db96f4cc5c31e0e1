#include "hostclass/HTTPConnectionAdapter.h"

#include "hostcalls/HostObjectCall.h"
#include "streaming/InterruptibleStreamCopier.h"
#include "tests/hostclass/ClassFixture.h"
#include "tests/support/host/ScriptedObjects.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace vx = matrix::detail::noninlined::vx_array_api;

namespace {

// The properties show what it starts with, narrows and refuses: PropertyTableTest.
class Adapter : public ScopeFixture {
protected:
    HTTPConnectionAdapter Native;
    RequestSettings& Settings = Native.Connection.Settings;

    void adoptProvider(const vxArray_tag* array) {
        Native.adoptHostObject(&RequestSettings::Provider, array, kProviderClassName);
    }
};

// An object that notes when its last reference goes; the array holds the only one.
HostArray notedObject(vantik::Host& host, const std::string& name, std::vector<std::string>& gone) {
    const std::shared_ptr<void> note(nullptr, [&gone, name](void*) { gone.push_back(name); });
    const vantik::Object object =
        vantik::makeProvider(host, {.read = [note](std::uint64_t) { return vantik::Array(); }});
    return HostArray(vx::vxCreateSharedDataCopy(object.array().handle()));
}

} // namespace

TEST_F(Adapter, ReleasesReporterThenConsumerThenProvider) {
    std::vector<std::string> gone;
    {
        HTTPConnectionAdapter adapter;
        RequestSettings& settings = adapter.Connection.Settings;
        settings.ProgressReporter = notedObject(host(), "reporter", gone);
        settings.Provider = notedObject(host(), "provider", gone);
        settings.Consumer = notedObject(host(), "consumer", gone);
    }
    EXPECT_THAT(gone, testing::ElementsAre("reporter", "consumer", "provider"));
}

TEST_F(Adapter, AdoptsAnObjectThatItsGiverDropsAndTheHandleItHoldsAlready) {
    adoptProvider(testsupport::makeScriptedProvider(host()).object().array().handle());
    ASSERT_NE(Settings.Provider, nullptr);
    adoptProvider(Settings.Provider.get());
    EXPECT_TRUE(vx::vxIsA(Settings.Provider.get(), kProviderClassName));
    adoptProvider(nullptr);
    EXPECT_EQ(Settings.Provider, nullptr);
}

TEST_F(Adapter, ContentReplacedWhileATransferSendsItLivesUntilThen) {
    std::vector<std::string> gone;
    Settings.Provider = notedObject(host(), "first", gone);
    Settings.setPayload({1, 2, 3});
    {
        const InterruptibleStreamCopier copier(Native.Connection);
        adoptProvider(nullptr);
        Settings.setPayload({9});
        EXPECT_TRUE(gone.empty());
        EXPECT_EQ(copier.SendData[2], 3);
    }
    EXPECT_THAT(gone, testing::ElementsAre("first"));
    EXPECT_EQ(Settings.Provider, nullptr);
    EXPECT_THAT(Settings.payload(), testing::ElementsAre(9));
}

TEST_F(Adapter, DropsWhatTheTransferHasPassedOnOnceAndNothingElse) {
    ContentBuffer& buffer = Native.ResponseBuffer;
    const auto held = [&] {
        const HostArray bytes = buffer.copy();
        return std::string(static_cast<const char*>(vx::vxGetData(bytes.get())), arrayElementCount(bytes.get()));
    };
    RunningTransfer& transfer = Native.Connection.Transfer;
    buffer << "before";
    transfer.Target = &buffer;
    transfer.TargetStart = 6;
    Native.dropReceived();
    EXPECT_EQ(held(), "before") << "nothing was passed on";
    buffer << "received";
    transfer.PassedOn = 8;
    Native.dropReceived();
    EXPECT_EQ(held(), "before");
    buffer << " and after";
    Native.dropReceived();
    EXPECT_EQ(held(), "before and after");
}
