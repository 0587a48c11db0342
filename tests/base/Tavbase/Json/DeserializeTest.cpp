#include "base/Tavbase/Json/Json.h"
#include "tests/base/Tavbase/Json/Documents.h"

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <optional>
#include <string>
#include <vector>

using namespace Tavbase::Json;
using testing::HasSubstr;

namespace
{

/// The exception by which a text is refused; a failure of the test when it is accepted.
JsonException Refusal(const std::string& text)
{
    try
    {
        Deserialize(text);
    }
    catch (const JsonException& e)
    {
        return e;
    }
    ADD_FAILURE() << "accepted: " << text;
    return JsonException("");
}

bool IsAccepted(const std::string& text)
{
    try
    {
        Deserialize(text);
        return true;
    }
    catch (const JsonException&)
    {
        return false;
    }
}

std::string Quoted(const std::string& text)
{
    return '"' + text + '"';
}

std::string StringOf(const std::string& text)
{
    return Deserialize(Quoted(text)).ToString();
}

std::string Arrays(std::size_t depth)
{
    return std::string(depth, '[') + std::string(depth, ']');
}

std::string Objects(std::size_t depth)
{
    std::string text = "0";
    for (std::size_t i = 0; i < depth; ++i)
    {
        text.insert(0, "{\"a\":").append("}");
    }
    return text;
}

/// The code point of a well-formed sequence by the definition in RFC 3629, section 3, else nothing.
std::optional<std::uint32_t> Decode(const std::vector<unsigned>& bytes)
{
    static constexpr std::array<std::uint32_t, 5> LEAST = {0, 0, 0x80, 0x800, 0x10000};
    const unsigned first = bytes[0];
    const std::size_t length = first < 0x80   ? 1
                               : first < 0xC0 ? 0
                               : first < 0xE0 ? 2
                               : first < 0xF0 ? 3
                               : first < 0xF8 ? 4
                                              : 0;
    if (length != bytes.size())
    {
        return std::nullopt;
    }
    std::uint32_t character = length == 1 ? first : first & (0xFFU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i)
    {
        if ((bytes[i] & 0xC0) != 0x80)
        {
            return std::nullopt;
        }
        character = character << 6 | (bytes[i] & 0x3F);
    }
    const bool isHalf = character >= 0xD800 && character <= 0xDFFF;
    if (character < LEAST[length] || character > 0x10FFFF || isHalf)
    {
        return std::nullopt;
    }
    return character;
}

std::string Bytes(const std::vector<unsigned>& bytes)
{
    std::string text;
    for (const unsigned byte : bytes)
    {
        text += static_cast<char>(byte);
    }
    return text;
}

}

TEST(JsonDeserialize, ReadsEachTypeOfValue)
{
    EXPECT_TRUE(Deserialize("null").IsNull());
    EXPECT_TRUE(Deserialize("true").ToBool());
    EXPECT_FALSE(Deserialize("false").ToBool());
    EXPECT_EQ(Deserialize("42").ToInteger(), 42);
    EXPECT_EQ(Deserialize("-4.25").ToDouble(), -4.25);
    EXPECT_EQ(Deserialize("\"text\"").ToString(), "text");
    EXPECT_TRUE(Deserialize("[]").ToArray().IsEmpty());
    EXPECT_TRUE(Deserialize("{}").ToObject().IsEmpty());
}

TEST(JsonDeserialize, ReadsADriverRecord)
{
    const Value value = Deserialize("{\"driver-id\":\"00A1B2C3D4E5\"}");
    ASSERT_TRUE(value.IsObject());
    ASSERT_TRUE(value.ToObject().HasKey("driver-id"));
    EXPECT_EQ(value.ToObject()["driver-id"].ToString(), "00A1B2C3D4E5");
}

TEST(JsonDeserialize, ReadsArraysAndObjectsInEachOther)
{
    const Value value = Deserialize(R"({"a":[1,[],{"b":[{}]}],"c":{"d":{"e":null}}})");
    EXPECT_EQ(value.ToObject()["a"].ToArray().Size(), 3u);
    EXPECT_TRUE(value.ToObject()["a"].ToArray()[2].ToObject()["b"].ToArray()[0].ToObject().IsEmpty());
    EXPECT_TRUE(value.ToObject()["c"].ToObject()["d"].ToObject()["e"].IsNull());
}

TEST(JsonDeserialize, AllowsWhitespaceAroundEveryToken)
{
    EXPECT_EQ(Serialize(Deserialize(" \t\r\n{ \"a\" \n: [ 1 ,\r\n2\t] , \"b\" : { } , \"c\" : [ ] } \n")),
              R"({"a":[1,2],"b":{},"c":[]})");
}

TEST(JsonDeserialize, RefusesWhatIsWhitespaceElsewhere)
{
    for (const std::string blank : {"\v", "\f", "\u00A0", "\u2028", "\u3000", "\uFEFF"})
    {
        EXPECT_FALSE(IsAccepted(blank + "1 ") && blank != "\uFEFF") << Quoted(blank);
        EXPECT_FALSE(IsAccepted("1" + blank)) << Quoted(blank);
        EXPECT_FALSE(IsAccepted("[" + blank + "1]")) << Quoted(blank);
    }
}

TEST(JsonDeserialize, SkipsAByteOrderMarkInFrontOnly)
{
    EXPECT_EQ(Deserialize("\xEF\xBB\xBF {\"a\":1}").ToObject()["a"].ToInteger(), 1);
    EXPECT_EQ(Refusal("\xEF\xBB\xBF").Offset(), 3u);
    EXPECT_EQ(Refusal("\xEF\xBB\xBF]").Column(), 4u);
    EXPECT_EQ(Refusal("\xEF\xBB").Offset(), 0u);
    EXPECT_EQ(Refusal("\xEF\xBB\xBF\xEF\xBB\xBF"
                      "1")
                  .Offset(),
              3u);
    EXPECT_EQ(Refusal(" \xEF\xBB\xBF"
                      "1")
                  .Offset(),
              1u);
}

TEST(JsonDeserialize, KeepsTheOrderOfMembers)
{
    EXPECT_EQ(Serialize(Deserialize(R"({"z":1,"a":2,"m":3,"":4})")), R"({"z":1,"a":2,"m":3,"":4})");
}

TEST(JsonDeserialize, AKeyThatIsThereTwiceHasTheLastValueAtTheFirstPlace)
{
    EXPECT_EQ(Serialize(Deserialize(R"({"a":1,"b":2,"a":{"c":[3]},"\u0061":4})")), R"({"a":4,"b":2})");
}

// Numbers ------------------------------------------------------------------------------------------------

TEST(JsonDeserialize, AcceptsEveryFormOfNumber)
{
    for (const std::string text :
         {"0",   "-0",   "1",    "-1",  "10",   "0.0",   "-0.0",    "0.5",        "10.25", "1e5",
          "1E5", "1e+5", "1e-5", "0e0", "0E+0", "-0e-0", "1.5e300", "123.456E-7", "1e05",  "1e-007"})
    {
        EXPECT_TRUE(Deserialize(text).IsNumber()) << text;
        EXPECT_EQ(Deserialize(text).ToDouble(), std::stod(text)) << text;
    }
}

TEST(JsonDeserialize, RefusesEveryOtherFormOfNumber)
{
    for (const std::string text :
         {"+1",   "01",    "-01",  "00",   "-",   "--1",      "1.",        "-1.",
          ".5",   "-.5",   "1.e5", "1e",   "1e+", "1e-",      "1e5.5",     "1e+-5",
          "0x10", "1_000", "1,5x", "NaN",  "nan", "Infinity", "-Infinity", "inf",
          "1f",   "1 000", "0b1",  "1e 5", "- 1", "1.2.3",    "0.",        "\xEF\xBC\x91" /* full width 1 */})
    {
        EXPECT_FALSE(IsAccepted(text)) << text;
        EXPECT_FALSE(IsAccepted('[' + text + ']')) << text;
    }
}

TEST(JsonDeserialize, KeepsIntegersExactly)
{
    EXPECT_EQ(Deserialize("-9223372036854775808").ToInteger(), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(Deserialize("9223372036854775807").ToInteger(), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(Deserialize("9223372036854775808").ToUnsigned(), 9223372036854775808U);
    EXPECT_EQ(Deserialize("18446744073709551615").ToUnsigned(), std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(Deserialize("9007199254740993").ToInteger(), 9007199254740993);
    EXPECT_TRUE(Deserialize("18446744073709551615").IsInteger());
}

TEST(JsonDeserialize, AnIntegerThatFitsNowhereIsTheNearestDouble)
{
    EXPECT_TRUE(Deserialize("18446744073709551616").IsDouble());
    EXPECT_EQ(Deserialize("18446744073709551616").ToDouble(), 18446744073709551616.0);
    EXPECT_TRUE(Deserialize("-9223372036854775809").IsDouble());
    EXPECT_EQ(Deserialize("-9223372036854775809").ToDouble(), -9223372036854775808.0);
    EXPECT_EQ(Deserialize(std::string(300, '9')).ToDouble(), 1e300);
}

TEST(JsonDeserialize, ANumberWithFractionOrExponentIsADouble)
{
    EXPECT_TRUE(Deserialize("1.0").IsDouble());
    EXPECT_TRUE(Deserialize("1e2").IsDouble());
    EXPECT_EQ(Deserialize("1e2").ToInteger(), 100);
    EXPECT_TRUE(Deserialize("-0").IsDouble());
    EXPECT_TRUE(std::signbit(Deserialize("-0").ToDouble()));
}

TEST(JsonDeserialize, RoundsToTheNearestDouble)
{
    EXPECT_EQ(Deserialize("0.1").ToDouble(), 0.1);
    EXPECT_EQ(Deserialize("1e23").ToDouble(), 1e23);
    EXPECT_EQ(Deserialize("1.7976931348623157e308").ToDouble(), std::numeric_limits<double>::max());
    EXPECT_EQ(Deserialize("2.2250738585072014e-308").ToDouble(), std::numeric_limits<double>::min());
    EXPECT_EQ(Deserialize("2.2250738585072011e-308").ToDouble(), 2.2250738585072011e-308);
    EXPECT_EQ(Deserialize("5e-324").ToDouble(), std::numeric_limits<double>::denorm_min());
    EXPECT_EQ(Deserialize("1.00000000000000011102230246251565404236316680908203125").ToDouble(), 1.0);
    EXPECT_EQ(Deserialize("1.00000000000000011102230246251565404236316680908203126").ToDouble(),
              std::nextafter(1.0, 2.0));
}

TEST(JsonDeserialize, ANumberTooSmallForADoubleIsZero)
{
    for (const std::string text : {"1e-400", "0e99999999999999999999", "0.0e400", "1e-99999999999999999999",
                                   "2.4703282292062327e-324", "123456e-999999999999"})
    {
        EXPECT_EQ(std::bit_cast<std::uint64_t>(Deserialize(text).ToDouble()), 0u) << text;
        const double negative = Deserialize('-' + text).ToDouble();
        EXPECT_TRUE(negative == 0 && std::signbit(negative)) << text;
    }
    EXPECT_EQ(Deserialize("0." + std::string(400, '0') + '1').ToDouble(), 0.0);
    EXPECT_EQ(Deserialize("0." + std::string(400, '0') + "1e+10").ToDouble(), 0.0);
    EXPECT_EQ(Deserialize('1' + std::string(400, '0') + "e-800").ToDouble(), 0.0);
}

TEST(JsonDeserialize, ALongNumberWithAnExponentThatBringsItBackIsRead)
{
    EXPECT_EQ(Deserialize("0." + std::string(400, '0') + "1e401").ToDouble(), 1.0);
    EXPECT_EQ(Deserialize('1' + std::string(400, '0') + "e-400").ToDouble(), 1.0);
}

TEST(JsonDeserialize, RefusesANumberTooLargeForADouble)
{
    for (const std::string text : {"1e309", "-1e309", "1.7976931348623159e308", "1e99999999999999999999",
                                   "0.001e400", "1e+9223372036854775808", "-1.5E+400"})
    {
        const JsonException refusal = Refusal("[ " + text + ']');
        EXPECT_THAT(refusal.what(), HasSubstr("the number is too large")) << text;
        EXPECT_EQ(refusal.Offset(), 2u) << text;
    }
    EXPECT_FALSE(IsAccepted(std::string(400, '9')));
    EXPECT_FALSE(IsAccepted("0." + std::string(400, '0') + "1e800"));
}

// Strings ------------------------------------------------------------------------------------------------

TEST(JsonDeserialize, ReadsEveryEscape)
{
    EXPECT_EQ(StringOf(R"(\"\\\/\b\f\n\r\t)"), "\"\\/\b\f\n\r\t");
    EXPECT_EQ(StringOf(R"(\u0041\u00e9\u20AC\u20ac\uFFFF\u007f)"), "A\u00e9\u20AC\u20AC\xEF\xBF\xBF\x7F");
    EXPECT_EQ(StringOf(R"(a\u0000b)"), std::string("a\0b", 3));
}

TEST(JsonDeserialize, ReadsEveryCharacterAsAnEscape)
{
    std::string escapes;
    std::string expected;
    for (std::uint32_t character = 0; character <= 0x10FFFF; character += character < 0x10000 ? 1 : 0x55)
    {
        const bool isHalf = character >= 0xD800 && character <= 0xDFFF;
        std::array<char, 16> escape{};
        if (character < 0x10000 && !isHalf)
        {
            std::snprintf(escape.data(), escape.size(), "\\u%04x", character);
        }
        else if (!isHalf)
        {
            const std::uint32_t above = character - 0x10000;
            std::snprintf(escape.data(), escape.size(), "\\u%04X\\u%04x", 0xD800 | above >> 10,
                          0xDC00 | (above & 0x3FF));
        }
        escapes += escape.data();
        expected += isHalf ? "" : JsonTest::ToUtf8(character);
    }
    EXPECT_EQ(StringOf(escapes), expected);
}

TEST(JsonDeserialize, RefusesEveryOtherEscape)
{
    for (int c = 1; c < 256; ++c)
    {
        const bool known = std::string("\"\\/bfnrtu").find(static_cast<char>(c)) != std::string::npos;
        EXPECT_EQ(IsAccepted(Quoted(std::string("\\") + static_cast<char>(c) + "0041")), known) << c;
    }
    for (const std::string text :
         {R"(\u)", R"(\u1)", R"(\u12)", R"(\u123)", R"(\u123g)", R"(\ug123)", R"(\u 123)", R"(\u-123)",
          R"(\u+123)", R"(\u0x12)", R"(\U0041)", R"(\x41)", R"(\')"})
    {
        EXPECT_FALSE(IsAccepted(Quoted(text))) << text;
    }
}

TEST(JsonDeserialize, JoinsSurrogatePairs)
{
    EXPECT_EQ(StringOf(R"(\ud800\udc00)"), "\U00010000");
    EXPECT_EQ(StringOf(R"(\uD83D\uDE00)"), "\U0001F600");
    EXPECT_EQ(StringOf(R"(\udbff\udfff)"), "\U0010FFFF");
    EXPECT_EQ(StringOf(R"(\ud7ff\ue000)"), "\uD7FF\uE000");
}

TEST(JsonDeserialize, RefusesHalvesOfSurrogatePairs)
{
    for (const std::string text : {R"(\ud800)", R"(\udbff)", R"(\udc00)", R"(\udfff)", R"(\ud800x)",
                                   R"(\ud800\n)", R"(\ud800\ud800)", R"(\ud800\u0041)", R"(\ud800\ue000)",
                                   R"(\udc00\ud800)", R"(\udc00\udc00)", R"(\ud83d\ud83d\ude00)"})
    {
        const JsonException refusal = Refusal(Quoted("ab" + text));
        EXPECT_THAT(refusal.what(), HasSubstr("half of a surrogate pair")) << text;
        EXPECT_EQ(refusal.Offset(), 3u) << text;
    }
    EXPECT_FALSE(IsAccepted(Quoted(R"(\ud800\u12)")));
}

TEST(JsonDeserialize, RefusesControlCharactersInStrings)
{
    for (int c = 0; c < 0x20; ++c)
    {
        const JsonException refusal = Refusal(Quoted(std::string("ab") + static_cast<char>(c)));
        EXPECT_EQ(refusal.Offset(), 3u) << c;
        EXPECT_THAT(refusal.what(), HasSubstr("control character")) << c;
    }
    EXPECT_EQ(StringOf("\x7F"), "\x7F");
}

TEST(JsonDeserialize, KeepsEveryCharacterOfUnicode)
{
    std::string all;
    for (std::uint32_t character = 0x20; character <= 0x10FFFF; ++character)
    {
        const bool isHalf = character >= 0xD800 && character <= 0xDFFF;
        if (!isHalf && character != '"' && character != '\\')
        {
            all += JsonTest::ToUtf8(character);
        }
    }
    EXPECT_EQ(StringOf(all), all);
}

TEST(JsonDeserialize, TellsWellFormedUtf8FromAnythingElse)
{
    for (unsigned a = 0x80; a < 0x100; ++a)
    {
        ASSERT_FALSE(IsAccepted(Quoted(Bytes({a})))) << a;
        for (unsigned b = 0x80; b < 0x100; ++b)
        {
            ASSERT_EQ(IsAccepted(Quoted(Bytes({a, b}))), Decode({a, b}).has_value()) << a << ' ' << b;
        }
        // From here on at the bounds of the ranges that the rules name.
        for (const unsigned b : {0x7FU, 0x80U, 0x8FU, 0x90U, 0x9FU, 0xA0U, 0xBFU, 0xC0U})
        {
            const bool two = Decode({a, b}).has_value();
            for (const unsigned c : {0x7FU, 0x80U, 0xBFU, 0xC0U, 0xFFU})
            {
                const bool three = Decode({a, b, c}).has_value() || (two && c < 0x80);
                ASSERT_EQ(IsAccepted(Quoted(Bytes({a, b, c}))), three) << a << ' ' << b << ' ' << c;
                for (const unsigned d : {0x7FU, 0x80U, 0xBFU, 0xC0U})
                {
                    const bool four = Decode({a, b, c, d}).has_value() || (three && d < 0x80) ||
                                      (two && Decode({c, d}).has_value());
                    ASSERT_EQ(IsAccepted(Quoted(Bytes({a, b, c, d}))), four)
                        << a << ' ' << b << ' ' << c << ' ' << d;
                }
            }
        }
    }
}

TEST(JsonDeserialize, NamesTheFirstByteThatIsNotUtf8)
{
    for (const std::string bytes :
         {"\x80", "\xC0\x80", "\xC1\xBF", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xED\xBF\xBF", "\xF0\x8F\xBF\xBF",
          "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFE", "\xFF", "\xE2\x82", "\xF0\x9F\x98"})
    {
        const JsonException refusal = Refusal("[\"\u20AC" + bytes + "\"]");
        EXPECT_EQ(refusal.Offset(), 5u);
        EXPECT_THAT(refusal.what(), HasSubstr("not well-formed UTF-8"));
    }
    EXPECT_FALSE(IsAccepted("\xC3\xA9"));
    EXPECT_FALSE(IsAccepted("{\"\xFF\":1}"));
}

// Structure ----------------------------------------------------------------------------------------------

TEST(JsonDeserialize, RefusesWhatIsNoValue)
{
    for (const std::string text :
         {"",      " ",         "\n",      "nul", "nulll",      "NULL",      "True",  "tru",
          "falsE", "undefined", "'a'",     "a",   "\"",         "\"a",       "\"\\",  "\"\\\"",
          "]",     "}",         ",",       ":",   "//1",        "1//",       "/**/1", "1;",
          "#1",    "<a>",       "\\u0031", "(1)", "--",         "@",         "\x7F",  "\xC3\xA9",
          "1 2",   "{}{}",      "[][]",    "1,",  "\"a\"\"b\"", "true false"})
    {
        EXPECT_FALSE(IsAccepted(text)) << text;
    }
    EXPECT_FALSE(IsAccepted(std::string("\0", 1)));
    EXPECT_FALSE(IsAccepted(std::string("1\0", 2)));
}

TEST(JsonDeserialize, RefusesBrokenArrays)
{
    for (const std::string text :
         {"[", "[1", "[1,", "[,", "[,]", "[1,]", "[,1]", "[1,,2]", "[1 2]", "[1;2]", "[1}", "[1:2]",
          "[\"a\" \"b\"]", "[[]", "[]]", "[1]]", "[\"a\":1]", "[{]}"})
    {
        EXPECT_FALSE(IsAccepted(text)) << text;
    }
}

TEST(JsonDeserialize, RefusesBrokenObjects)
{
    for (const std::string text : {"{",
                                   "{\"a\"",
                                   "{\"a\":",
                                   "{\"a\":1",
                                   "{\"a\":1,",
                                   "{\"a\":1,}",
                                   "{,}",
                                   "{,\"a\":1}",
                                   "{\"a\"}",
                                   "{\"a\":}",
                                   "{\"a\",1}",
                                   "{\"a\"::1}",
                                   "{a:1}",
                                   "{'a':1}",
                                   "{1:1}",
                                   "{null:1}",
                                   "{\"a\":1 \"b\":2}",
                                   "{\"a\":1;\"b\":2}",
                                   "{\"a\":1]",
                                   "{\"a\":1,,\"b\":2}",
                                   "{[]:1}",
                                   "{\"a\" 1}",
                                   "{\"a\":1}}",
                                   "{\"a\":1 2}",
                                   "{\"a\"=1}",
                                   "{\"a\":1,\"b\"}"})
    {
        EXPECT_FALSE(IsAccepted(text)) << text;
    }
}

TEST(JsonDeserialize, BoundsTheDepth)
{
    for (const auto make : {Arrays, Objects})
    {
        EXPECT_TRUE(IsAccepted(make(MAX_DEPTH)));
        EXPECT_THAT(Refusal(make(MAX_DEPTH + 1)).what(), HasSubstr("nested deeper than 128"));
    }
    EXPECT_EQ(Refusal(Arrays(MAX_DEPTH + 1)).Offset(), MAX_DEPTH);
    EXPECT_EQ(Refusal(std::string(1'000'000, '[')).Offset(), MAX_DEPTH);
}

TEST(JsonDeserialize, CountsOnlyWhatIsOpenAsDepth)
{
    std::string text = "[";
    for (int i = 0; i < 1000; ++i)
    {
        text += "{\"a\":[1,[]]},{},[],";
    }
    text += "0]";
    EXPECT_EQ(Deserialize(text).ToArray().Size(), 3001u);
    std::string flat = Arrays(MAX_DEPTH - 1);
    EXPECT_TRUE(IsAccepted('[' + flat + ',' + flat + ']'));
}

// Place --------------------------------------------------------------------------------------------------

TEST(JsonDeserialize, TellsWhereTheErrorIs)
{
    struct Case
    {
        const char* text;
        std::size_t offset;
        std::size_t line;
        std::size_t column;
        const char* what;
    };

    const Case cases[] = {
        {"", 0, 1, 1, "JSON, line 1, column 1 (byte 0): a value is expected, the text ends here"},
        {"x", 0, 1, 1, "JSON, line 1, column 1 (byte 0): a value is expected"},
        {"\n", 1, 2, 1, "JSON, line 2, column 1 (byte 1): a value is expected, the text ends here"},
        {"[1,\n  2,\n  x]", 11, 3, 3, "JSON, line 3, column 3 (byte 11): a value is expected"},
        {"[1,\r\n x]", 6, 2, 2, "JSON, line 2, column 2 (byte 6): a value is expected"},
        {"[1\n2]", 3, 2, 1, "JSON, line 2, column 1 (byte 3): \",\" or \"]\" is expected in the array"},
        {"{\"a\":1\n\"b\":2}", 7, 2, 1,
         "JSON, line 2, column 1 (byte 7): \",\" or \"}\" is expected in the object"},
        {"{\"a\" 1}", 5, 1, 6, "JSON, line 1, column 6 (byte 5): \":\" is expected after the key"},
        {"{\"a\":1,}", 7, 1, 8, "JSON, line 1, column 8 (byte 7): a key in quotes is expected"},
        {"truE", 3, 1, 4, "JSON, line 1, column 4 (byte 3): \"true\" is expected"},
        {"nul", 3, 1, 4, "JSON, line 1, column 4 (byte 3): \"null\" is expected, the text ends here"},
        {"1 \n 2", 4, 2, 2, "JSON, line 2, column 2 (byte 4): the text goes on after the value"},
        {"-x", 1, 1, 2, "JSON, line 1, column 2 (byte 1): a digit is expected"},
        {"1.x", 2, 1, 3, "JSON, line 1, column 3 (byte 2): a digit is expected"},
        {"1e+", 3, 1, 4, "JSON, line 1, column 4 (byte 3): a digit is expected, the text ends here"},
        {"[\"a\nb\"]", 3, 1, 4,
         "JSON, line 1, column 4 (byte 3): a control character in a string must be escaped"},
        {"\"ab", 3, 1, 4, "JSON, line 1, column 4 (byte 3): the string is not closed, the text ends here"},
        {"\"ab\\", 4, 1, 5, "JSON, line 1, column 5 (byte 4): the string is not closed, the text ends here"},
        {"\"ab\\x\"", 3, 1, 4, "JSON, line 1, column 4 (byte 3): the escape is unknown"},
        {"\"\\u12x4\"", 5, 1, 6, "JSON, line 1, column 6 (byte 5): four hexadecimal digits are expected"},
        {"\"\u20AC\" \u20AC", 6, 1, 7, "JSON, line 1, column 7 (byte 6): the text goes on after the value"},
    };
    for (const Case& expected : cases)
    {
        const JsonException refusal = Refusal(expected.text);
        EXPECT_EQ(refusal.Offset(), expected.offset) << expected.text;
        EXPECT_EQ(refusal.Line(), expected.line) << expected.text;
        EXPECT_EQ(refusal.Column(), expected.column) << expected.text;
        EXPECT_STREQ(refusal.what(), expected.what);
    }
}

TEST(JsonDeserialize, RefusesADocumentThatIsCutShortAnywhere)
{
    const std::string whole =
        "\xEF\xBB\xBF {\"id\":\"00A1\\u00e9\\ud83d\\ude00\\n\u20AC\U0001F600\",\"list\":[true,false,"
        "null,-12.5e+10,{}, [ ]],\n\"empty\":\"\"}";
    ASSERT_TRUE(IsAccepted(whole));
    for (std::size_t length = 0; length < whole.size(); ++length)
    {
        const JsonException refusal = Refusal(whole.substr(0, length));
        EXPECT_LE(refusal.Offset(), length);
        EXPECT_GE(refusal.Line(), 1u);
        EXPECT_GE(refusal.Column(), 1u);
    }
}

TEST(JsonDeserialize, RefusesADocumentWithATextBehindIt)
{
    for (const std::string more : {"x", "]", "}", ",", "\"", "1", "null", "\xEF\xBB\xBF"})
    {
        EXPECT_EQ(Refusal("{\"a\":[1]} " + more).Offset(), 10u) << more;
    }
}

TEST(JsonDeserialize, ReadsALongDocument)
{
    std::string text = "[";
    for (int i = 0; i < 100'000; ++i)
    {
        text += std::to_string(i) + ",\"text " + std::to_string(i) + "\",";
    }
    text += "{}]";
    const Value value = Deserialize(text);
    ASSERT_EQ(value.ToArray().Size(), 200'001u);
    EXPECT_EQ(value.ToArray()[199'999].ToString(), "text 99999");
    const std::string longText(1'000'000, 'a');
    EXPECT_EQ(StringOf(longText), longText);
}
