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
        {{"Range", "Scale", "Range"}, RTSP_HEADER_NAME},
        {{"Range", "Scale", "Scale"}, 0},
        {{"Range", "Scale", "Speed", "Scale"}, RTSP_HEADER_NAME},
        {{"Range", "Scale", "Speed", "Speed"}, 0},
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
    const HeaderList empty({});
    CapturedStdout output;
    EXPECT_EQ(RTSPModifyHeaderInList(list, "X-Own", "new"), 0);
    EXPECT_EQ(Entries(list), "Range=a X-Own=new! X-Own=c ");
    EXPECT_EQ(RTSPModifyHeaderInList(list, "range", "new"), RTSP_HEADER_NAME);
    EXPECT_EQ(RTSPModifyHeaderInList(empty, "Range", "new"), RTSP_HEADER_NAME);
    const std::string notFound = kError + "RTSPModifyHeaderInList: No such header found in the header list \n";
    EXPECT_EQ(output.Text(), "!!!INFO!!! : Header is modified successfully\n" + notFound + notFound);
}

TEST(HeaderLists, MissingArgumentsAreRefused) {
    const HeaderList list({{"Range", "a"}});
    CapturedStdout output;
    const int32_t results[] = {RTSPAddHeaderToList(0, "a", "b", 0),
                               RTSPAddHeaderToList(list, nullptr, "b", 0),
                               RTSPAddHeaderToList(list, "a", nullptr, 0),
                               RTSPModifyHeaderInList(0, "a", "b"),
                               RTSPModifyHeaderInList(list, "Range", nullptr),
                               RTSPModifyHeaderInList(list, nullptr, "b"),
                               RTSPRemoveHeaderFromList(0, "a"),
                               RTSPRemoveHeaderFromList(list, nullptr),
                               RTSPDestroyHeaderList(0)};
    for (const int32_t result : results) EXPECT_EQ(result, RTSP_INVALID_ARGUMENT);
    const std::string add = kError + "RTSPAddHeaderToList: Invalid input argument\n";
    const std::string modify = kError + "RTSPModifyHeaderInList: Invalid input argument\n";
    const std::string remove = kError + "RTSPRemoveHeaderFromList :Invalid input argument\n";
    EXPECT_EQ(output.Text(), add + add + add + modify + modify + modify + remove + remove + kError +
                                 "RTSPDestroyHeaderList: Invalid input argument\n");
    EXPECT_EQ(Entries(list), "Range=a ");
}
