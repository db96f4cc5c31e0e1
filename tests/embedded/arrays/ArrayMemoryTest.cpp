// Operations when memory runs out at each step in turn: std::bad_alloc, nothing lost and nothing half done.
#include "ArrayFixture.h"
#include "embedded/arrays/CallFrame.h"
#include "host/Iri.h"
#include "host/Text.h"
#include "vantik/Array.h"

#include <cstdlib>
#include <new>

static thread_local long allocationsLeft = -1; // negative: no limit

// Never inlined: the compiler would take `free` for the counterpart of another operator new.
__attribute__((noinline)) void* operator new(std::size_t size) {
    if (allocationsLeft == 0) {
        throw std::bad_alloc();
    }
    if (allocationsLeft > 0) {
        --allocationsLeft;
    }
    if (void* block = std::malloc(size)) {
        return block;
    }
    throw std::bad_alloc();
}

__attribute__((noinline)) void operator delete(void* block) noexcept {
    std::free(block);
}
__attribute__((noinline)) void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}

using namespace matrix::detail::noninlined::vx_array_api;
using namespace vantik::detail;
using vantik::Array;

// Runs an operation with memory for 0, 1, 2, … allocations until it succeeds. After each failure `check` looks at what
// is left. Returns the number of failures.
static int failAtEachStep(const std::function<void()>& operation, const std::function<void()>& check) {
    endSpareBlocks();
    for (int step = 0; step < 1000; ++step) {
        bool failed = false;
        allocationsLeft = step;
        try {
            operation();
        } catch (const std::bad_alloc&) {
            failed = true;
        }
        allocationsLeft = -1;
        if (!failed) {
            return step;
        }
        check();
    }
    ADD_FAILURE() << "never enough memory";
    return 0;
}

using ArraysWithoutMemory = ArrayFixture;

TEST_F(ArraysWithoutMemory, NothingIsLeftOfAnArrayThatFailed) {
    const char* const names[] = {"Name", "A field name that is too long to stand in the string itself"};
    const std::u16string longText(1000, u'x');
    const std::function<vxArray_tag*()> makers[] = {
        [] { return vxCreateNumericMatrix(10, 10, vxDOUBLE_CLASS, vxREAL); },
        [] { return vxCreateString("some text that is longer than a short string"); },
        [] { return matrix::create("x", 1).release(); },
        [&] { return makeText(longText); },
        [&] { return vxCreateStructMatrix(1, 5, 2, names); },
        [] { return vxCreateEmptyUnknownArrayNotOnArrayList(); },
        [members = std::vector<std::string>{"One", "Two"}] {
            return makeEnumerationArray("example.Enumeration", members);
        },
        [] { return makeObjectArray("example.Thing", {}); },
    };
    for (const auto& maker : makers) {
        vxArray_tag* made = nullptr;
        const int failures = failAtEachStep([&] { made = maker(); }, [] { EXPECT_EQ(liveArrays(), 0u); });
        EXPECT_GT(failures, 0);
        matrix::destroyArray(made);

        CallFrame frame;
        failAtEachStep([&] { made = maker(); }, [] { EXPECT_EQ(liveArrays(), 0u); });
        matrix::destroyArray(made);
    }
}

TEST_F(ArraysWithoutMemory, FailedWriteLeavesSharedContentsAlone) {
    const ArrayOwner array(vxCreateDoubleScalar(1));
    const ArrayOwner copy(vxCreateSharedDataCopy(array.get()));
    void* place = nullptr;
    const int failures = failAtEachStep([&] { place = vxGetData(copy.get()); },
                                        [&] { EXPECT_EQ(elements<void>(array), elements<void>(copy)); });
    EXPECT_GT(failures, 0);
    EXPECT_NE(elements<void>(array), place);
    EXPECT_EQ(elements<void>(copy), place);
}

TEST_F(ArraysWithoutMemory, FailedStoreReleasesTheValueAndKeepsTheStruct) {
    const char* const names[] = {"Name", "Value"};
    const ArrayOwner array(vxCreateStructMatrix(1, 2, 2, names));
    vxSetField(array.get(), 0, "Name", vxCreateString("a"));
    vxSetField(array.get(), 1, "Value", vxCreateString("b"));
    const ArrayOwner copy(vxCreateSharedDataCopy(array.get()));
    const std::size_t before = liveArrays();
    const int failures = failAtEachStep(
        [&] {
            ArrayOwner value(vxCreateDoubleScalar(1));
            vxSetField(copy.get(), 0, "Name", value.release());
        },
        [&] {
            EXPECT_EQ(liveArrays(), before);
            EXPECT_EQ(matrix::get_string(vxGetField(copy.get(), 0, "Name")), "a");
        });
    EXPECT_GT(failures, 2);
    EXPECT_EQ(vxGetScalar(vxGetField(copy.get(), 0, "Name")), 1.0);
    EXPECT_EQ(matrix::get_string(vxGetField(copy.get(), 1, "Value")), "b");
    EXPECT_EQ(matrix::get_string(vxGetField(array.get(), 0, "Name")), "a");
}

TEST_F(ArraysWithoutMemory, ValuesAreMadeWholeOrNotAtAll) {
    const Array text("text");
    const Array bytes = Array::bytes("abc");
    const std::size_t before = liveArrays();
    const auto unchanged = [&] { EXPECT_EQ(liveArrays(), before); };
    EXPECT_GT(failAtEachStep([&] { Array::structure({{"Name", text}, {"Value", 1.0}}).field("Name"); }, unchanged), 4);
    EXPECT_GT(failAtEachStep([&] { Array::structures({"A", "B"}, {{text, text}, {text, text}}); }, unchanged), 4);
    EXPECT_GT(failAtEachStep([&] { Array::bytes("abc").doubles(); }, unchanged), 1);
    EXPECT_GT(failAtEachStep([&] { Array(bytes).writableBytes(); }, unchanged), 1);
}

TEST(TextWithoutMemory, ConversionsFailCleanly) {
    using foundation::network::IRI;
    const std::u16string url = u"http://us\u00E9r@b\u00FCcher.example:80/caf\u00E9/../x?q=\u00FC#f";
    std::u16string form;
    const auto nothing = [] {};
    EXPECT_GT(failAtEachStep([&] { form = IRI(url).resolveAgainst(IRI(url)).toAsciiString(true); }, nothing), 10);
    EXPECT_EQ(form, u"http://us%C3%A9r@xn--bcher-kva.example:80/x?q=%C3%BC#f");

    const std::u16string wide(100, u'\u20AC');
    std::string narrow;
    const auto encode = [&] { narrow = fl::i18n::codecvt_ustring_to_string("windows-1252", false).convert(wide); };
    EXPECT_GT(failAtEachStep(encode, nothing), 0);
    EXPECT_EQ(narrow, std::string(100, '\x80'));
}
