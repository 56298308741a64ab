#include "rtsp/message/header_list.h"
#include "rtsp/message/header_slots.h"
#include "tests/support/captured_stdout.h"
#include "tests/support/session.h"

#include <gtest/gtest.h>

using namespace rtsptap;
using test::HeaderList;

namespace {

const std::string kError = "!!!ERROR!!! : EXIT : ";

// "name=value" of every entry, "!" behind a custom one.
std::string Entries(intptr_t list) {
    std::string entries;
    for (const RTSPHeaderStruct *node = FirstHeader(list); node != nullptr; node = node->next)
        if (node->headerName != nullptr)
            entries += std::string(node->headerName) + "=" + node->headerValue + (node->isCustom != 0 ? "! " : " ");
    return entries;
}

} // namespace

// Addition compares the first name always and the last of several never; all compare the case.
TEST(HeaderLists, AreEditedInPlace) {
    const std::string addition = kError + "RTSPAddHeaderToList: Header with Same name cannot be added.\n";
    const std::string modified = "!!!INFO!!! : Header is modified successfully\n";
    const std::string unmodified = kError + "RTSPModifyHeaderInList: No such header found in the header list \n";
    const std::string removal = kError + "RTSPRemoveHeaderFromList :No such header found in the list\n";
    const HeaderList list({});
    const std::string empty = "!!!INFO!!! : Header List with handle '" +
                              std::to_string(static_cast<int32_t>(static_cast<intptr_t>(list))) +
                              "' is now empty\n";
    const struct {
        char act; // addition, removal, modification; Custom addition
        const char *name, *value, *entries;
        int32_t result;
        std::string printed;
    } steps[] = {
        {'a', "Via", "1", "Via=1 ", 0, ""},
        {'a', "Via", "2", "Via=1 ", RTSP_HEADER_NAME, addition},
        {'C', "via", "2", "Via=1 via=2! ", 0, ""},
        {'a', "via", "3", "Via=1 via=2! via=3 ", 0, ""},
        {'a', "via", "4", "Via=1 via=2! via=3 ", RTSP_HEADER_NAME, addition},
        {'m', "via", "x", "Via=1 via=x! via=3 ", 0, modified},
        {'m', "VIA", "x", "Via=1 via=x! via=3 ", RTSP_HEADER_NAME, unmodified},
        {'r', "VIA", "", "Via=1 via=x! via=3 ", 0, ""}, // Kept
        {'r', "Via", "", "via=x! via=3 ", 0, ""},
        {'a', "Range", "5", "via=x! via=3 Range=5 ", 0, ""},
        {'r', "Range", "", "via=x! via=3 ", 0, ""},
        {'r', "via", "", "via=3 ", 0, ""},
        {'r', "via", "", "", 0, empty},
        {'r', "via", "", "", RTSP_HEADER_NAME, removal},
        {'a', "Via", "6", "Via=6 ", 0, ""},
    };
    for (const auto &[act, name, value, entries, result, printed] : steps) {
        CapturedStdout output;
        EXPECT_EQ(act == 'r'   ? RTSPRemoveHeaderFromList(list, name)
                  : act == 'm' ? RTSPModifyHeaderInList(list, name, value)
                               : RTSPAddHeaderToList(list, name, value, act == 'C' ? 7 : 0),
                  result)
            << entries;
        EXPECT_EQ(Entries(list), entries);
        EXPECT_EQ(output.Text(), printed) << entries;
    }
}

TEST(HeaderLists, MissingArgumentsAreRefused) {
    const HeaderList list({{"Range", "a"}});
    const CapturedStdout output;
    for (const auto &[handle, name, value] : {std::tuple<intptr_t, const char *, const char *>{0, "Range", "b"},
                                              {list, nullptr, "b"},
                                              {list, "Range", nullptr}}) {
        EXPECT_EQ(RTSPAddHeaderToList(handle, name, value, 0), RTSP_INVALID_ARGUMENT);
        EXPECT_EQ(RTSPModifyHeaderInList(handle, name, value), RTSP_INVALID_ARGUMENT);
    }
    EXPECT_EQ(RTSPRemoveHeaderFromList(0, "Range"), RTSP_INVALID_ARGUMENT);
    EXPECT_EQ(RTSPRemoveHeaderFromList(list, nullptr), RTSP_INVALID_ARGUMENT);
    EXPECT_EQ(RTSPDestroyHeaderList(0), RTSP_INVALID_ARGUMENT);
    EXPECT_EQ(Entries(list), "Range=a ");
}
