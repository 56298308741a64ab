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

TEST(HeaderLists, AdditionComparesTheFirstNameAlwaysAndTheLastOfSeveralNever) {
    const struct {
        std::vector<const char *> names; // all but the last one are accepted
        int32_t result;
    } cases[] = {
        {{"CSeq", "CSeq"}, RTSP_HEADER_NAME},
        {{"CSeq", "cseq"}, 0},
        {{"Range", "Scale", "Scale"}, 0},
        {{"Range", "Scale", "Speed", "Scale"}, RTSP_HEADER_NAME},
    };
    for (const auto &[names, result] : cases) {
        const HeaderList list({});
        CapturedStdout output;
        std::string expected;
        for (const char *const &name : names) {
            const int32_t wanted = &name == &names.back() ? result : 0;
            EXPECT_EQ(RTSPAddHeaderToList(list, name, "1", 0), wanted) << expected << name;
            if (wanted == 0) expected += std::string(name) + "=1 ";
        }
        EXPECT_EQ(Entries(list), expected);
        EXPECT_EQ(output.Text(),
                  result == 0 ? "" : kError + "RTSPAddHeaderToList: Header with Same name cannot be added.\n");
    }
}

TEST(HeaderLists, RemovalKeepsTheHandleAndTheOrder) {
    const HeaderList list({{"Range", "a"}});
    RTSPAddHeaderToList(list, "X-Own", "b", 7);
    RTSPAddHeaderToList(list, "Speed", "c", 0);
    RTSPAddHeaderToList(list, "Via", "d", 0);
    CapturedStdout output;
    const struct {
        const char *name;
        int32_t result;
        const char *left;
    } steps[] = {
        {"Range", 0, "X-Own=b! Speed=c Via=d "},
        {"speed", 0, "X-Own=b! Speed=c Via=d "},
        {"Speed", 0, "X-Own=b! Via=d "},
        {"Via", 0, "X-Own=b! "},
        {"X-Own", 0, ""},
        {"X-Own", RTSP_HEADER_NAME, ""},
    };
    for (const auto &[name, result, left] : steps) {
        EXPECT_EQ(RTSPRemoveHeaderFromList(list, name), result) << name;
        EXPECT_EQ(Entries(list), left) << name;
    }
    EXPECT_EQ(output.Text(), "!!!INFO!!! : Header List with handle '" +
                                 std::to_string(static_cast<int32_t>(static_cast<intptr_t>(list))) +
                                 "' is now empty\n" + kError +
                                 "RTSPRemoveHeaderFromList :No such header found in the list\n");
    EXPECT_EQ(RTSPAddHeaderToList(list, "Via", "e", 0), 0);
    EXPECT_EQ(Entries(list), "Via=e ");
}

TEST(HeaderLists, ModificationReplacesTheFirstMatchAndKeepsItsFlag) {
    const HeaderList list({{"Range", "a"}});
    RTSPAddHeaderToList(list, "X-Own", "b", 1);
    RTSPAddHeaderToList(list, "X-Own", "c", 0);
    CapturedStdout output;
    EXPECT_EQ(RTSPModifyHeaderInList(list, "X-Own", "new"), 0);
    EXPECT_EQ(Entries(list), "Range=a X-Own=new! X-Own=c ");
    EXPECT_EQ(RTSPModifyHeaderInList(list, "range", "new"), RTSP_HEADER_NAME);
    EXPECT_EQ(output.Text(), "!!!INFO!!! : Header is modified successfully\n" + kError +
                                 "RTSPModifyHeaderInList: No such header found in the header list \n");
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
