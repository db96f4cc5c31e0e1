#include "hostclass/HTTPConnectionAdapter.h"

#include "hostcalls/HostObjectCall.h"
#include "hostclass/TransferBoundary.h"
#include "streaming/InterruptibleStreamCopier.h"
#include "tests/hostclass/ClassFixture.h"
#include "tests/support/host/ScriptedObjects.h"

#include <boost/numeric/conversion/cast.hpp>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

namespace vx = matrix::detail::noninlined::vx_array_api;
using vantik::Array;

namespace {

class Adapter : public ScopeFixture {
protected:
    void adoptProvider(HTTPConnectionAdapter& adapter, const vxArray_tag* array) {
        adapter.adoptHostObject(&RequestSettings::Provider, array, kProviderClassName);
    }
    vantik::Object makeProvider() { return testsupport::makeScriptedProvider(host()).object(); }
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

TEST_F(Adapter, StartsWithItsDefaults) {
    const HTTPConnectionAdapter adapter;
    EXPECT_EQ(adapter.Connection.ReceivedHead.ResponseCode, 0);
    EXPECT_TRUE(adapter.Connection.Settings.Decode);
    EXPECT_TRUE(adapter.Connection.Settings.VerifyServerName);
    EXPECT_FALSE(adapter.Connection.Settings.HTTPOptionsMode);
    EXPECT_EQ(adapter.Connection.Settings.ProviderBufferSize, 0u);
    EXPECT_TRUE(adapter.responseBytes().empty());
    for (const std::u16string* text : {&adapter.ContentEncoding, &adapter.ContentType, &adapter.CertificateFilename,
                                       &adapter.Username, &adapter.Password, &adapter.ProxyUsername,
                                       &adapter.ProxyPassword, &adapter.RequestMethod, &adapter.RedirectUrl}) {
        EXPECT_TRUE(text->empty());
    }
    EXPECT_EQ(adapter.Connection.Settings.ProgressReporter, nullptr);
    EXPECT_EQ(adapter.Connection.Settings.Provider, nullptr);
    EXPECT_EQ(adapter.Connection.Settings.Consumer, nullptr);
}

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

TEST_F(Adapter, ResponseCodeIsNarrowedTowardsZero) {
    HTTPConnectionAdapter adapter;
    struct Row {
        double Given;
        std::int32_t Stored;
    };
    for (const Row& row : {Row{200.9, 200}, Row{-0.5, 0}, Row{-1.9, -1}, Row{2147483647.9, 2147483647},
                           Row{-2147483648.9, std::numeric_limits<std::int32_t>::min()}}) {
        adapter.setResponseCode(row.Given);
        EXPECT_EQ(adapter.Connection.ReceivedHead.ResponseCode, row.Stored) << row.Given;
    }
}

TEST_F(Adapter, ResponseCodeOutOfRangeRaisesAndChangesNothing) {
    HTTPConnectionAdapter adapter;
    adapter.setResponseCode(204.0);
    EXPECT_THROW(adapter.setResponseCode(2147483648.0), boost::numeric::positive_overflow);
    EXPECT_THROW(adapter.setResponseCode(-2147483649.0), boost::numeric::negative_overflow);
    const double infinity = std::numeric_limits<double>::infinity();
    EXPECT_THROW(adapter.setResponseCode(infinity), boost::numeric::positive_overflow);
    EXPECT_THROW(adapter.setResponseCode(-infinity), boost::numeric::negative_overflow);
    EXPECT_EQ(adapter.Connection.ReceivedHead.ResponseCode, 204);
}

TEST_F(Adapter, ResponseCodeNotANumberPassesBothRangeTests) {
    HTTPConnectionAdapter adapter;
    EXPECT_NO_THROW(adapter.setResponseCode(std::nan("")));
    EXPECT_EQ(adapter.Connection.ReceivedHead.ResponseCode, std::numeric_limits<std::int32_t>::min());
}

TEST_F(Adapter, AdoptedObjectIsLentToTheConnectionAndOutlivesItsGiver) {
    HTTPConnectionAdapter adapter;
    {
        const vantik::Object provider = makeProvider();
        adoptProvider(adapter, provider.array().handle());
    }
    ASSERT_NE(adapter.Connection.Settings.Provider, nullptr);
    EXPECT_TRUE(vx::vxIsA(adapter.Connection.Settings.Provider.get(), kProviderClassName));
}

TEST_F(Adapter, WrongClassLeavesThePreviousObject) {
    HTTPConnectionAdapter adapter;
    const vantik::Object provider = makeProvider();
    adoptProvider(adapter, provider.array().handle());
    const SharedHostArray before = adapter.Connection.Settings.Provider;
    const Array wrong("text");
    EXPECT_THROW(adoptProvider(adapter, wrong.handle()), foundation::core::except::IUserException);
    EXPECT_EQ(adapter.Connection.Settings.Provider, before);
}

TEST_F(Adapter, NullAndAnyEmptyArrayClear) {
    HTTPConnectionAdapter adapter;
    const vantik::Object provider = makeProvider();
    const Array empty = Array::bytes(std::string_view());
    for (const vxArray_tag* nothing : {static_cast<const vxArray_tag*>(nullptr), empty.handle()}) {
        adoptProvider(adapter, provider.array().handle());
        adoptProvider(adapter, nothing);
        EXPECT_EQ(adapter.Connection.Settings.Provider, nullptr);
    }
}

TEST_F(Adapter, AdoptsTheHandleItHoldsAlready) {
    HTTPConnectionAdapter adapter;
    const vantik::Object provider = makeProvider();
    adoptProvider(adapter, provider.array().handle());
    adoptProvider(adapter, adapter.Connection.Settings.Provider.get());
    EXPECT_TRUE(vx::vxIsA(adapter.Connection.Settings.Provider.get(), kProviderClassName));
}

TEST_F(Adapter, ContentReplacedWhileATransferSendsItLivesUntilThen) {
    HTTPConnectionAdapter adapter;
    RequestSettings& settings = adapter.Connection.Settings;
    std::vector<std::string> gone;
    settings.Provider = notedObject(host(), "first", gone);
    settings.setPayload({1, 2, 3});
    {
        const InterruptibleStreamCopier copier(adapter.Connection);
        adoptProvider(adapter, nullptr);
        settings.setPayload({9});
        EXPECT_TRUE(gone.empty());
        EXPECT_EQ(copier.SendData[2], 3);
    }
    EXPECT_THAT(gone, testing::ElementsAre("first"));
    EXPECT_EQ(settings.Provider, nullptr);
    EXPECT_THAT(settings.payload(), testing::ElementsAre(9));
}

TEST_F(Adapter, EmptyingTheBufferClearsContentAndErrorState) {
    HTTPConnectionAdapter adapter;
    adapter.ResponseBuffer << std::string(100000, 'x');
    adapter.ResponseBuffer.setstate(std::ios::badbit);
    adapter.emptyResponseBuffer();
    EXPECT_TRUE(adapter.ResponseBuffer.good());
    EXPECT_TRUE(adapter.responseBytes().empty());
    adapter.ResponseBuffer << "next";
    EXPECT_EQ(adapter.responseBytes(), "next");
}

TEST_F(Adapter, OnlyFailuresOfTheTransferLayerAreTranslated) {
    HTTPConnectionAdapter adapter;
    adapter.Connection.Settings.URL = u"http://h/";
    try {
        acrossTransferBoundary(adapter, [] { throw webservices::HTTPFileNotFoundException("No host"); });
        FAIL() << "nothing was raised";
    } catch (const foundation::core::except::IMsgIDException& failure) {
        EXPECT_EQ(failure.get_error_id(), "VANTIK:webservices:FileNotFound");
        EXPECT_THAT(failure.msg_id().arguments(),
                    testing::ElementsAre(resource_core::MsgArgument(std::u16string(u"http://h/"))));
    }
    EXPECT_THROW(acrossTransferBoundary(adapter, [] { throw std::length_error("other"); }), std::length_error);
    EXPECT_THROW(acrossTransferBoundary(adapter, [] { throw std::bad_alloc(); }), std::bad_alloc);
    EXPECT_EQ(acrossTransferBoundary(adapter, [] { return 7; }), 7);
}
