#include "hostclass/HTTPConnectionAdapter.h"

#include "hostcalls/HostObjectCall.h"
#include "streaming/InterruptibleStreamCopier.h"
#include "tests/hostclass/ClassFixture.h"
#include "tests/support/host/ScriptedObjects.h"

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

// A class whose objects note when their last reference goes.
class NotedClass final : public vcos::COSClassInfo {
public:
    NotedClass(std::string name, std::vector<std::string>& gone) : Name(std::move(name)), Gone(gone) {}
    std::string getName() const override { return Name; }
    bool isConstructible() const override { return true; }
    bool isHandle() const override { return true; }
    void defineClass(vcos::COSClass&) override {}
    void* createInstance() override { return this; }
    void destroyInstance(void*) override { Gone.push_back(Name); }

private:
    std::string Name;
    std::vector<std::string>& Gone;
};

// An object of a class made for it; the array holds the only reference.
HostArray notedObject(vantik::Host& host, const std::string& name, std::vector<std::string>& gone) {
    vcos::COSPackage* package = vcos::COSPackage::getNamespace(vcos::internal::makeInterned("vantik"));
    package->addClass(new NotedClass(name, gone), 0, 2);
    return HostArray(vx::vxCreateSharedDataCopy(host.create("vantik." + name).array().handle()));
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

TEST_F(Adapter, EmptyingTheBufferClearsContentAndErrorState) {
    Native.ResponseBuffer << std::string(100000, 'x');
    Native.ResponseBuffer.setstate(std::ios::badbit);
    Native.emptyResponseBuffer();
    EXPECT_TRUE(Native.ResponseBuffer.good());
    EXPECT_TRUE(Native.responseBytes().empty());
    Native.ResponseBuffer << "next";
    EXPECT_EQ(Native.responseBytes(), "next");
}
