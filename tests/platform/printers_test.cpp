#include "rtsptap.h"
#include "tests/support/captured_stdout.h"

#include <gtest/gtest.h>

TEST(Printers, PrefixTheMessageAndCutItAt1023Characters) {
    const std::string longText(5000, 'x');
    CapturedStdout captured;
    RtpRtspDebugPrint(100, "ENTER : %s\n", "Name"); // prints nothing at any level
    EXPECT_EQ(RtpRtspErrorPrint("EXIT : %s :%d\n", "Name", -99), 14 + 17);
    EXPECT_EQ(RtpRtspInfoPrint("%s\n", longText.c_str()), 13 + 1023);
    EXPECT_EQ(RtpRtspErrorPrint(nullptr), 0);
    EXPECT_EQ(captured.Text(), "!!!ERROR!!! : EXIT : Name :-99\n!!!INFO!!! : " + longText.substr(0, 1023));
}
