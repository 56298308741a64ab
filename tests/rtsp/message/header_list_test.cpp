#include "rtsp/message/header_list.h"
#include "tests/support/captured_stdout.h"
#include "tests/support/rows.h"
#include "tests/support/session.h"

#include <gtest/gtest.h>

#include <regex>

using namespace rtsptap;
using test::HeaderList;

namespace {

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
    const HeaderList list({});
    const std::string handle = std::to_string(static_cast<int32_t>(static_cast<intptr_t>(list)));
    for (const auto &row : test::Rows("header_lists.txt")) {
        const char act = row.at(0)[0];
        const char *const name = row.at(1).c_str();
        const char *const value = row.at(2).c_str();
        CapturedStdout output;
        EXPECT_EQ(act == 'r'   ? RTSPRemoveHeaderFromList(list, name)
                  : act == 'm' ? RTSPModifyHeaderInList(list, name, value)
                               : RTSPAddHeaderToList(list, name, value, act == 'C' ? 7 : 0),
                  std::stoi(row.at(3)))
            << name << value;
        EXPECT_EQ(Entries(list), row.at(4) == "none" ? "" : row.at(4) + " ") << name << value;
        const std::string printed = std::regex_replace(row.at(5), std::regex("HANDLE"), handle);
        EXPECT_EQ(test::OnOneLine(output.Text()), printed == "nothing" ? "" : printed) << name << value;
    }
}
