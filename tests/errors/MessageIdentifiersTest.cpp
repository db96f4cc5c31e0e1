#include "errors/MessageIdentifiers.h"

#include "host/Text.h"
#include "tests/support/host/FailureText.h"
#include "tests/support/host/HostFixture.h"
#include "tests/support/host/ScopeFixture.h"

#include <boost/core/demangle.hpp>
#include <gmock/gmock.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <type_traits>
#include <typeinfo>

namespace {

using testsupport::failureText;
using testsupport::identifierText;
using namespace VANTIK;
namespace ws = VANTIK::webservices;

// The identifier is made from arguments of exactly these types.
template <class Tag, class... Arguments>
constexpr bool takes = std::is_constructible_v<Tag, Arguments...>;

static_assert(takes<ws::StatusError, Integer, Wide, Wide> && !takes<ws::StatusError, Integer, Wide>);
static_assert(!takes<ws::StatusError, Integer, Narrow, Wide>); // narrow and wide text are told apart
static_assert(takes<ws::InternalError, Narrow> && takes<ws::InternalError, const char*> && !takes<ws::InternalError>);
static_assert(!takes<ws::InternalError, Wide>);
static_assert(takes<http::OnlyOneTransferAtATime> && !takes<http::OnlyOneTransferAtATime, Narrow>);
static_assert(takes<ws::CopyContentToDataStreamError, Wide, Wide> &&
              takes<ws::CopyContentToDataStreamError, const char*, Narrow> &&
              !takes<ws::CopyContentToDataStreamError, Wide, Narrow>);

struct Row {
    resource_core::BaseMsgID Id;
    std::string Text;
    std::string Type;      // name in the type information
    std::string Exception; // of the exception that carries it
    bool Thrown;
};

template <class Tag>
Row thrown(const Tag& id, const std::string& text) {
    return {id, "VANTIK:" + text, typeid(Tag).name(), typeid(Failure<Tag>).name(), true};
}

// Rendered, or warned with.
template <class Tag>
Row onlyText(const Tag& id, const std::string& text) {
    return {id, "VANTIK:" + text, typeid(Tag).name(), typeid(Failure<Tag>).name(), false};
}

const Narrow n1 = "n1";
const Narrow n2 = "n2";
const Narrow n3 = "n3";
const Narrow n4 = "n4";
const Wide u1 = u"u1";
const Wide u2 = u"u2";
const Wide u3 = u"u3";
const Wide u4 = u"u4";

// Every identifier, with the kind of each argument in its order. The namespace VANTIK is left out.
const std::vector<Row>& rows() {
    static const std::vector<Row> table{
        thrown(ws::InternalError(n1), "webservices:InternalError[N:n1]"),
        thrown(ws::CopyContentToDataStreamError(u1, u2), "webservices:CopyContentToDataStreamError[U:u1, U:u2]"),
        thrown(ws::CopyContentToDataStreamError("n1", n2), "webservices:CopyContentToDataStreamError[N:n1, N:n2]"),
        thrown(ws::StatusError(404, u1, u2), "webservices:StatusError[I:404, U:u1, U:u2]"),
        thrown(ws::SSLConnectionNoFile(n1, u1), "webservices:SSLConnectionNoFile[N:n1, U:u1]"),
        thrown(ws::SSLConnectionSystemFailure(n1, u1), "webservices:SSLConnectionSystemFailure[N:n1, U:u1]"),
        thrown(ws::SSLConnectionFailure(n1, u1, n2), "webservices:SSLConnectionFailure[N:n1, U:u1, N:n2]"),
        thrown(ws::CertificateFailedVerification(n1, n2), "webservices:CertificateFailedVerification[N:n1, N:n2]"),
        thrown(ws::Timeout(u1, n1, u2, u3), "webservices:Timeout[U:u1, N:n1, U:u2, U:u3]"),
        thrown(ws::MalformedURL(u1), "webservices:MalformedURL[U:u1]"),
        thrown(ws::UnknownHost(u1), "webservices:UnknownHost[U:u1]"),
        thrown(ws::FileNotFound(u1), "webservices:FileNotFound[U:u1]"),
        thrown(ws::OperationTerminatedByConsumer(u1), "webservices:OperationTerminatedByConsumer[U:u1]"),
        thrown(ws::ConnectionFailed(u1), "webservices:ConnectionFailed[U:u1]"),
        thrown(ws::ConnectionRefused(u1, u2), "webservices:ConnectionRefused[U:u1, U:u2]"),
        thrown(ws::DecodingError(n1, n2), "webservices:DecodingError[N:n1, N:n2]"),
        thrown(ws::DecodedContentTooLarge(n1, n2), "webservices:DecodedContentTooLarge[N:n1, N:n2]"),
        thrown(ws::RandomError(n1), "webservices:RandomError[N:n1]"),
        thrown(ws::ExpectedProtocol(n1, n2, n3, n4), "webservices:ExpectedProtocol[N:n1, N:n2, N:n3, N:n4]"),
        onlyText(ws::PartialFileWarning(n1, n2, n3), "webservices:PartialFileWarning[N:n1, N:n2, N:n3]"),
        thrown(ws::EncodingFailure(u1, n1, n2), "webservices:EncodingFailure[U:u1, N:n1, N:n2]"),
        thrown(ws::EmptyName(n1), "webservices:EmptyName[N:n1]"),
        thrown(ws::InvalidFilename(n1), "webservices:InvalidFilename[N:n1]"),
        onlyText(ws::TimeoutReasonResponseHeader(), "webservices:TimeoutReasonResponseHeader[]"),
        onlyText(ws::TimeoutReasonStoppedSending(), "webservices:TimeoutReasonStoppedSending[]"),
        onlyText(ws::TimeoutReasonSystemLimit(), "webservices:TimeoutReasonSystemLimit[]"),
        onlyText(ws::TimeoutSystemTCP(), "webservices:TimeoutSystemTCP[]"),
        thrown(http::OnlyOneTransferAtATime(), "http:OnlyOneTransferAtATime[]"),
        onlyText(type::PropSetClsMismatch(n1), "type:PropSetClsMismatch[N:n1]"),
        thrown(legacy_two_part::UnableToConvert(n1, n2, u1), "legacy_two_part:UnableToConvert[N:n1, N:n2, U:u1]"),
        thrown(legacy_two_part::undefinedVarOrClass(n1), "legacy_two_part:undefinedVarOrClass[N:n1]"),
    };
    return table;
}

using MessageIdentifiersTest = testsupport::ScopeFixture;

// The catalogue that ships has a text for each, and each argument that the text uses is there.
TEST_F(MessageIdentifiersTest, HaveTheirKeysArgumentsAndTextsOfTheCatalogue) {
    for (const Row& row : rows()) {
        EXPECT_EQ(identifierText(row.Id), row.Text);
        const std::string text =
            fl::i18n::to_string(fl::i18n::MessageCatalog::get_message(row.Id, fl::i18n::VkLocale("en")));
        EXPECT_NE(text, "");
        EXPECT_THAT(text, ::testing::Not(::testing::HasSubstr("VANTIK:"))) << "no pattern";
        EXPECT_THAT(text, ::testing::Not(::testing::ContainsRegex("\\{[0-9]"))) << "argument missing";
    }
}

TEST_F(MessageIdentifiersTest, ExceptionCarriesIdentifierAndText) {
    try {
        raise<ws::StatusError>(404, u1, u2);
        FAIL();
    } catch (const Failure<ws::StatusError>& failure) {
        EXPECT_EQ(identifierText(failure.msg_id()), "VANTIK:webservices:StatusError[I:404, U:u1, U:u2]");
        EXPECT_EQ(failure.get_error_id(), "VANTIK:webservices:StatusError");
        EXPECT_EQ(fl::i18n::to_string(failure.GetUnicodeMessageTxt()), failure.what());
        EXPECT_STRNE(failure.what(), "");
    }
}

// What catches it: each base in turn.
TEST_F(MessageIdentifiersTest, ExceptionIsOfEveryBase) {
    using Thrown = Failure<http::OnlyOneTransferAtATime>;
    const auto raiseIt = [] { raise<http::OnlyOneTransferAtATime>(); };
    EXPECT_THROW(raiseIt(), Thrown);
    EXPECT_THROW(raiseIt(), foundation::core::except::IMsgIDException);
    EXPECT_THROW(raiseIt(), foundation::core::except::IUserException);
    EXPECT_THROW(raiseIt(), foundation::core::except::IException);
    EXPECT_THROW(raiseIt(), boost::exception_detail::clone_base);
    EXPECT_THROW(raiseIt(), boost::exception);
    EXPECT_THROW(raiseIt(), std::exception);
    static_assert(!std::is_base_of_v<foundation::core::except::IInternalException, Thrown>);
}

TEST_F(MessageIdentifiersTest, CloneKeepsItsTypeAndItsMessage) {
    const Failure<ws::MalformedURL> failure{ws::MalformedURL(u1)};
    const std::unique_ptr<const boost::exception_detail::clone_base> copy(failure.clone());
    EXPECT_THROW(copy->rethrow(), Failure<ws::MalformedURL>);
    EXPECT_EQ(failureText([&] { copy->rethrow(); }), "VANTIK:webservices:MalformedURL[U:u1]");
}

TEST_F(MessageIdentifiersTest, ArgumentsAreCopied) {
    Narrow text = "before";
    const ws::InternalError id(text);
    text = "after";
    EXPECT_EQ(identifierText(id), "VANTIK:webservices:InternalError[N:before]");
    EXPECT_EQ(id.arguments().size(), 1u);
    EXPECT_EQ(id.arguments().capacity(), 1u); // sized exactly
}

// What the module can make and throw, as its type information says.
const std::string& moduleBytes() {
    static const std::string bytes = [] {
        std::ifstream file(testsupport::modulePath(), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }();
    return bytes;
}

bool moduleHasType(const std::string& name) {
    const std::string_view bytes = moduleBytes();
    const std::string wanted = '\0' + name + '\0';
    return memmem(bytes.data(), bytes.size(), wanted.data(), wanted.size()) != nullptr; // find stops at each zero
}

TEST(IdentifiersInModule, AreThrownOnlyWhereTheyAreMeantToBe) {
    for (const Row& row : rows()) {
        EXPECT_TRUE(moduleHasType(row.Type)) << "nothing makes " << row.Text;
        EXPECT_EQ(moduleHasType(row.Exception), row.Thrown) << row.Text;
    }
}

// Every type of the identifiers' namespaces that is not a template is an identifier, and the table has it.
TEST(IdentifiersInModule, AreTheOnesOfTheTable) {
    std::set<std::string> found;
    const std::string start("\0N6VANTIK", 9);
    for (std::size_t at = moduleBytes().find(start); at != std::string::npos; at = moduleBytes().find(start, at + 1)) {
        const std::string name = boost::core::demangle(moduleBytes().c_str() + at + 1);
        if (name.starts_with("VANTIK::") && name.find_first_of("<(") == std::string::npos) {
            found.insert(name);
        }
    }
    std::set<std::string> expected;
    for (const Row& row : rows()) {
        expected.insert(boost::core::demangle(row.Type.c_str()));
    }
    EXPECT_EQ(expected.size(), 30U);
    EXPECT_EQ(found, expected);
}

} // namespace
