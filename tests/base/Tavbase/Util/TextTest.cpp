#include "base/Tavbase/Util/Text.h"

#include <climits>
#include <gtest/gtest.h>
#include <string>

using namespace Tavbase::Util;

TEST(ToHex, WritesLowerCaseDigitsWithoutPrefixAndLeadingZeros)
{
    EXPECT_EQ(ToHex(0), "0");
    EXPECT_EQ(ToHex(9), "9");
    EXPECT_EQ(ToHex(10), "a");
    EXPECT_EQ(ToHex(0x0F), "f");
    EXPECT_EQ(ToHex(0x10), "10");
    EXPECT_EQ(ToHex(0xAB), "ab");
    EXPECT_EQ(ToHex(0x12345678), "12345678");
    EXPECT_EQ(ToHex(0x9ABCDEF), "9abcdef");
    EXPECT_EQ(ToHex(INT_MAX), "7fffffff");
}

TEST(ToHex, WritesANegativeValueAsItsBitsInTwosComplement)
{
    EXPECT_EQ(ToHex(-1), "ffffffff");
    EXPECT_EQ(ToHex(-256), "ffffff00");
    EXPECT_EQ(ToHex(INT_MIN), "80000000");
}

TEST(ToUpper, ChangesTheLettersOfAsciiAndNothingElse)
{
    EXPECT_EQ(ToUpper(""), "");
    EXPECT_EQ(ToUpper("00a1b2c3d4e5"), "00A1B2C3D4E5");
    EXPECT_EQ(ToUpper("abcxyz ABCXYZ"), "ABCXYZ ABCXYZ");
    for (int c = 0; c < 256; ++c)
    {
        const char byte = static_cast<char>(c);
        const char expected = c >= 'a' && c <= 'z' ? static_cast<char>(c - 0x20) : byte;
        EXPECT_EQ(ToUpper(std::string(1, byte)), std::string(1, expected)) << c;
    }
}

TEST(ToUpper, KeepsZeroBytesAndWhatFollows)
{
    EXPECT_EQ(ToUpper(std::string("a\0b", 3)), std::string("A\0B", 3));
    EXPECT_EQ(ToUpper("\u00e9"), "\u00e9");
}
