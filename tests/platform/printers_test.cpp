#include "rtsptap.h"
#include "tests/support/captured_stdout.h"

#include <gtest/gtest.h>

TEST(Printers, PrefixTheMessageAndReturnTheWholeCount) {
    CapturedStdout captured;
    EXPECT_EQ(RtpRtspErrorPrint("EXIT : %s :%d\n", "Name", -99), 14 + 17);
    EXPECT_EQ(RtpRtspInfoPrint("no line end"), 13 + 11);
    EXPECT_EQ(RtpRtspErrorPrint(nullptr), 0);
    EXPECT_EQ(RtpRtspInfoPrint(nullptr), 0);
    EXPECT_EQ(captured.Text(), "!!!ERROR!!! : EXIT : Name :-99\n!!!INFO!!! : no line end");
}

TEST(Printers, CutLongMessagesAt1023Characters) {
    const std::string longText(5000, 'x');
    CapturedStdout captured;
    EXPECT_EQ(RtpRtspErrorPrint("%s\n", longText.c_str()), 14 + 1023);
    EXPECT_EQ(RtpRtspInfoPrint("%s\n", longText.c_str()), 13 + 1023);
    EXPECT_EQ(captured.Text(),
              "!!!ERROR!!! : " + longText.substr(0, 1023) + "!!!INFO!!! : " + longText.substr(0, 1023));
}

TEST(Printers, DebugPrintsNothingAtAnyLevel) {
    CapturedStdout captured;
    for (const int level : {-1, 0, 1, 100}) RtpRtspDebugPrint(level, "ENTER : %s\n", "Name");
    EXPECT_EQ(captured.Text(), "");
}
