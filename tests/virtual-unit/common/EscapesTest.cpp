#include "virtual-unit/common/Escapes.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>

namespace
{

using namespace std::string_literals;
namespace Escapes = VirtualUnit::Escapes;

TEST(EscapesTest, JsonIsReadBack)
{
    const std::string text = "a \"b\" \\ c\r\n\t\x7F \u00e9 \u20ac \U0001F600";
    EXPECT_EQ(nlohmann::json::parse(Escapes::Json(text)).get<std::string>(), text);
}

TEST(EscapesTest, XmlHasNoMarkupOfTheText)
{
    EXPECT_EQ(Escapes::Xml("<a b=\"c\">&\n\t\r</a>"),
              "&lt;a b=&quot;c&quot;&gt;&amp;&#10;&#9;&#13;&lt;/a&gt;");
    EXPECT_EQ(Escapes::Xml("\u00e9 \u20ac \U0001F600"), "\u00e9 \u20ac \U0001F600");
}

TEST(EscapesTest, WhatNoDocumentCanHaveIsWrittenForPeople)
{
    // Alone, cut off, too long, a surrogate, beyond Unicode, no character of XML.
    EXPECT_EQ(Escapes::Xml("\x80 \xC3"), "\\x80 \\xC3");
    EXPECT_EQ(Escapes::Xml("\xE2\x82|"), "\\xE2\\x82|");
    EXPECT_EQ(Escapes::Xml("\xC0\xAF \xE0\x80\xAF \xF0\x80\x80\xAF"),
              "\\xC0\\xAF \\xE0\\x80\\xAF \\xF0\\x80\\x80\\xAF");
    EXPECT_EQ(Escapes::Xml("\xED\xA0\x80 \xF4\x90\x80\x80 \xFF"),
              "\\xED\\xA0\\x80 \\xF4\\x90\\x80\\x80 \\xFF");
    EXPECT_EQ(Escapes::Xml("\xEF\xBF\xBE"), "\\xEF\\xBF\\xBE");
    EXPECT_EQ(Escapes::Xml("\0 \x01 \x1B"s), "\\x00 \\x01 \\x1B");
    EXPECT_EQ(Escapes::Json("\x1B\xFF"), "\"\\\\x1B\\\\xFF\"");
}

}
