// Which identifiers the module can make, and which of them it can throw, as its type information says.
#include "errors/MessageIdentifiers.h"
#include "tests/support/host/HostFixture.h"

#include <boost/core/demangle.hpp>
#include <gmock/gmock.h>

#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <typeinfo>
#include <vector>

namespace {

using namespace VANTIK;
namespace ws = VANTIK::webservices;

struct Row {
    const char* Name;
    std::string Type;      // name in the type information
    std::string Exception; // of the exception that carries it
    bool Thrown;
};

void PrintTo(const Row& row, std::ostream* stream) {
    *stream << row.Name;
}

template <class Tag>
Row row(const char* name, bool thrown) {
    return {name, typeid(Tag).name(), typeid(Failure<Tag>).name(), thrown};
}

constexpr bool kThrown = true;
constexpr bool kOnlyText = false; // rendered, or warned with

const std::vector<Row>& rows() {
    static const std::vector<Row> table{
        row<ws::InternalError>("InternalError", kThrown),
        row<ws::CopyContentToDataStreamError>("CopyContentToDataStreamError", kThrown),
        row<ws::StatusError>("StatusError", kThrown),
        row<ws::SSLConnectionNoFile>("SSLConnectionNoFile", kThrown),
        row<ws::SSLConnectionSystemFailure>("SSLConnectionSystemFailure", kThrown),
        row<ws::SSLConnectionFailure>("SSLConnectionFailure", kThrown),
        row<ws::CertificateFailedVerification>("CertificateFailedVerification", kThrown),
        row<ws::Timeout>("Timeout", kThrown),
        row<ws::MalformedURL>("MalformedURL", kThrown),
        row<ws::UnknownHost>("UnknownHost", kThrown),
        row<ws::FileNotFound>("FileNotFound", kThrown),
        row<ws::OperationTerminatedByConsumer>("OperationTerminatedByConsumer", kThrown),
        row<ws::ConnectionFailed>("ConnectionFailed", kThrown),
        row<ws::ConnectionRefused>("ConnectionRefused", kThrown),
        row<ws::DecodingError>("DecodingError", kThrown),
        row<ws::DecodedContentTooLarge>("DecodedContentTooLarge", kThrown),
        row<ws::RandomError>("RandomError", kThrown),
        row<ws::ExpectedProtocol>("ExpectedProtocol", kThrown),
        row<ws::PartialFileWarning>("PartialFileWarning", kOnlyText),
        row<ws::EncodingFailure>("EncodingFailure", kThrown),
        row<ws::EmptyName>("EmptyName", kThrown),
        row<ws::InvalidFilename>("InvalidFilename", kThrown),
        row<ws::TimeoutReasonResponseHeader>("TimeoutReasonResponseHeader", kOnlyText),
        row<ws::TimeoutReasonStoppedSending>("TimeoutReasonStoppedSending", kOnlyText),
        row<ws::TimeoutReasonSystemLimit>("TimeoutReasonSystemLimit", kOnlyText),
        row<ws::TimeoutSystemTCP>("TimeoutSystemTCP", kOnlyText),
        row<http::OnlyOneTransferAtATime>("OnlyOneTransferAtATime", kThrown),
        row<type::PropSetClsMismatch>("PropSetClsMismatch", kOnlyText),
        row<legacy_two_part::UnableToConvert>("UnableToConvert", kThrown),
        row<legacy_two_part::undefinedVarOrClass>("undefinedVarOrClass", kThrown),
    };
    return table;
}

const std::string& moduleBytes() {
    static const std::string bytes = [] {
        std::ifstream file(testsupport::modulePath(), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }();
    return bytes;
}

bool moduleHasType(const std::string& name) {
    std::string text(1, '\0');
    text += name;
    text += '\0';
    return moduleBytes().find(text) != std::string::npos;
}

class IdentifierInModule : public ::testing::TestWithParam<Row> {};

TEST_P(IdentifierInModule, IsThrownOnlyWhereItIsMeantToBe) {
    EXPECT_TRUE(moduleHasType(GetParam().Type)) << "nothing makes it";
    EXPECT_EQ(moduleHasType(GetParam().Exception), GetParam().Thrown);
}

INSTANTIATE_TEST_SUITE_P(Rows, IdentifierInModule, ::testing::ValuesIn(rows()),
                         [](const auto& info) { return std::string(info.param.Name); });

// Every type of the identifiers' namespaces that is no template is an identifier, and the table has it.
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
    for (const Row& identifier : rows()) {
        expected.insert(boost::core::demangle(identifier.Type.c_str()));
    }
    EXPECT_EQ(expected.size(), 30U);
    EXPECT_EQ(found, expected);
}

} // namespace
