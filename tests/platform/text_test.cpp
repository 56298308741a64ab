#include "platform/text.h"

#include <gtest/gtest.h>

#include <cstdlib>

using namespace rtsptap;

TEST(Text, NumbersReadAsTheCLibraryReadsThem) {
    for (const char *text :
         {"", "-7", "+7", " \t\n\v\f\r42abc", "abc", "- 7", "+-7", "0x10", "2147483647", "2147483648",
          "-2147483649", "9223372036854775808", "-9223372036854775809", "99999999999999999999"})
        EXPECT_EQ(LeadingNumber(text), atoi(text)) << text;
    EXPECT_EQ(LeadingNumber(std::string_view("12345", 2)), 12) << "a view ends where it ends";
}

TEST(Text, FractionsReadAsTheCLibraryReadsPlainDecimals) {
    for (const char *text : {"", "0", "25", "29.97", " \t+29.97fps", "-1.5", ".5", "5.", ".", "abc", "- 1", "+-1",
                             "1e2", "1e", "1e-999", "0.0", "-0.25e1x"})
        EXPECT_EQ(LeadingFraction(text), atof(text)) << text;
    for (const char *text : {"inf", "nan", "-infinity", "1e999", "0x1p3"})
        EXPECT_EQ(LeadingFraction(text), 0.0) << text;
    EXPECT_EQ(LeadingFraction(std::string_view("29.97", 4)), 29.9);
}

TEST(Text, CopiesAreCutToTheirFieldAndLeaveNoOldTail) {
    char field[5] = {'o', 'l', 'd', '!', '!'};
    CopyText(field, "ab");
    EXPECT_EQ(std::string_view(field, sizeof field), std::string_view("ab\0\0\0", 5));
    CopyText(field, "abcdefgh");
    EXPECT_STREQ(field, "abcd");
}
