#include "virtual-unit/recording/ByteText.h"

#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <utility>

namespace
{

using namespace std::string_literals;
using VirtualUnit::ByteText;
using VirtualUnit::TextCursor;

std::optional<std::string> Read(const std::string& text)
{
    TextCursor cursor(text);
    std::optional<std::string> bytes = ByteText::Take(cursor);
    return cursor.AtEnd() ? bytes : std::nullopt;
}

TEST(ByteTextTest, PrintableBytesAreText)
{
    EXPECT_EQ(ByteText::Of("$PMTK605*31\r\n"), R"("$PMTK605*31\r\n")");
    EXPECT_EQ(ByteText::Of("a \"b\"\t\\"), R"("a \"b\"\t\\")");
    EXPECT_EQ(ByteText::Of(""), R"("")");
}

TEST(ByteTextTest, OtherBytesAreHexadecimal)
{
    EXPECT_EQ(ByteText::Of("\xAA\x55\x02"), "hex AA 55 02");
    EXPECT_EQ(ByteText::Of("ok\0"s), "hex 6F 6B 00");
    EXPECT_EQ(ByteText::Of("\x7F"), "hex 7F");
    EXPECT_EQ(ByteText::Of("\x1B"), "hex 1B");
}

TEST(ByteTextTest, QuotedTextNeverNeedsHexadecimalBytes)
{
    EXPECT_EQ(ByteText::Quoted("a\x1B\xFF"), R"("a\x1B\xFF")");
}

TEST(ByteTextTest, EachByteIsReadBack)
{
    for (int byte = 0; byte <= 255; ++byte)
    {
        const std::string one(1, static_cast<char>(byte));
        for (const std::string& bytes : {one, "\x80" + one, one + "A"})
        {
            EXPECT_EQ(Read(ByteText::Of(bytes)), bytes) << byte;
            EXPECT_EQ(Read(ByteText::Quoted(bytes)), bytes) << byte;
        }
    }
    EXPECT_EQ(Read(ByteText::Of("")), "");
}

TEST(ByteTextTest, WhatIsNoneIsNotRead)
{
    for (const char* text :
         {"",           "AT",       "\"",      "\"AT",     "AT\"",   R"("\q")", R"("\")", R"("\x1")",
          R"("\xGG")",  "\"\x01\"", "\"\t\"",  "\"\x80\"", "hex",    "hex ",    "hex A",  "hex AA ",
          "hex AA  55", "hex AAA",  "hex AA5", "hex GG",   "hex -1", "hex 0x",  "HEX AA"})
    {
        EXPECT_EQ(Read(text), std::nullopt) << text;
    }
}

TEST(ByteTextTest, AMistakeIsToldWithWhatIsBeforeIt)
{
    EXPECT_EQ(ByteText::Around("\xAA\x55\x02\x03", 1), "hex AA 55 ..");
    EXPECT_EQ(ByteText::Around("AT\r", 2), R"("AT\r")");
    EXPECT_EQ(ByteText::Around("0123456789ABCDEFGHIJ", 17), R"(.. "23456789ABCDEFGH" ..)");
    EXPECT_EQ(ByteText::Around("AT", 2), R"("AT")"); // behind the end
    EXPECT_EQ(ByteText::Around("", 0), R"("")");
}

}
