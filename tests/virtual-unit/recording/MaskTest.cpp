#include "virtual-unit/recording/Mask.h"

#include <gtest/gtest.h>

namespace
{

using VirtualUnit::Mask;

const Mask MASK({"262011234567890", "8949F12", "", "1212"});

TEST(MaskTest, TheDigitsOfASecretBecomeZeros)
{
    EXPECT_EQ(MASK.Apply("\r\n262011234567890\r\n\r\nOK\r\n"), "\r\n000000000000000\r\n\r\nOK\r\n");
    EXPECT_EQ(MASK.Apply("+QCCID: 8949F12"), "+QCCID: 0000F00");
    EXPECT_EQ(MASK.Apply("8949F128949F12"), "0000F000000F00");
}

TEST(MaskTest, SecretsMayOverlap)
{
    EXPECT_EQ(MASK.Apply("121212"), "000000");
}

TEST(MaskTest, OtherTextStays)
{
    EXPECT_EQ(MASK.Apply("26201123456789"), "26201123456789");
    EXPECT_EQ(MASK.Apply("121 2"), "121 2");
    EXPECT_EQ(MASK.Apply(""), "");
    EXPECT_EQ(Mask().Apply("262011234567890"), "262011234567890");
}

TEST(MaskTest, TheOpenTailIsTheBeginOfASecret)
{
    EXPECT_EQ(MASK.OpenTail("+QCCID: 8949"), 4U);
    EXPECT_EQ(MASK.OpenTail("+QCCID: 894"), 3U);
    EXPECT_EQ(MASK.OpenTail("262011234567890"), 0U); // it is complete
    EXPECT_EQ(MASK.OpenTail("1212"), 2U);            // another one may begin in it
    EXPECT_EQ(MASK.OpenTail("OK\r\n"), 0U);
    EXPECT_EQ(MASK.OpenTail("26201123456789"), 14U);
    EXPECT_EQ(MASK.OpenTail(""), 0U);
    EXPECT_EQ(Mask().OpenTail("262"), 0U);
}

}
