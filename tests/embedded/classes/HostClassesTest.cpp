#include "embedded/classes/HostClasses.h"

#include "tests/embedded/classes/ClassFixture.h"

using namespace vantik::detail;
using HostClasses = ClassFixture;

TEST_F(HostClasses, AreThereFromTheStart) {
    EXPECT_EQ(classes().classNames(),
              (Log{"vantik.net.http.io.ContentProvider", "vantik.net.http.io.ContentConsumer",
                   "vantik.net.http.internal.ProgressReporter", "vantik.net.http.AuthenticationScheme"}));
    for (const char* package :
         {"vantik", "vantik.net", "vantik.net.http", "vantik.net.http.io", "vantik.net.http.internal"}) {
        EXPECT_NE(vcos::COSPackage::getNamespace(name(package)), nullptr) << package;
    }
    EXPECT_EQ(*classes().enumerationMembers("vantik.net.http.AuthenticationScheme"),
              (Log{"Basic", "Digest", "NTLM", "Negotiate"}));
    EXPECT_EQ(classes().enumerationMembers("vantik.net.http.io.ContentProvider"), nullptr);
    EXPECT_EQ(classes().enumerationMembers("missing"), nullptr);
}

TEST_F(HostClasses, MakeNoObjectsAndCanBeTakenAwayOneByOne) {
    EXPECT_EQ(failureOf([&] { make(kContentProviderClass); }),
              "VANTIK:vcos:AbstractClass(vantik.net.http.io.ContentProvider)");
    EXPECT_EQ(failureOf([&] { make(kAuthenticationSchemeClass); }),
              "VANTIK:vcos:NotConstructible(vantik.net.http.AuthenticationScheme)");
    EXPECT_TRUE(classes().removeClass(kContentConsumerClass));
    EXPECT_FALSE(classes().removeClass(kContentConsumerClass));
    EXPECT_EQ(vcos::COSClass::getClass(name(kContentConsumerClass)), nullptr);
    EXPECT_NE(vcos::COSClass::getClass(name(kContentProviderClass)), nullptr);
}
