#include "base/Tavbase/Json/Json.h"

#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <locale>
#include <string>
#include <utility>

using namespace Tavbase::Json;
using testing::HasSubstr;

namespace
{

std::string ProblemOf(const Value& value)
{
    try
    {
        Serialize(value);
    }
    catch (const JsonException& e)
    {
        EXPECT_EQ(e.Line(), 0u);
        return e.what();
    }
    ADD_FAILURE() << "it was written";
    return {};
}

Value Nest(std::size_t depth, bool objects)
{
    Value value = 0;
    for (std::size_t i = 0; i < depth; ++i)
    {
        Array array;
        Object object;
        if (objects)
        {
            object["a"] = std::move(value);
            value = std::move(object);
        }
        else
        {
            array.Push(std::move(value));
            value = std::move(array);
        }
    }
    return value;
}

/// Number formatting of a place where a comma stands in front of the fraction and points group thousands.
class CommaFormat : public std::numpunct<char>
{
    char do_decimal_point() const override { return ','; }

    char do_thousands_sep() const override { return '.'; }

    std::string do_grouping() const override { return "\3"; }
};

}

TEST(JsonSerialize, WritesADriverRecord)
{
    Object object;
    object["driver-id"] = "00A1B2C3D4E5";
    EXPECT_EQ(Serialize(Value(object)), "{\"driver-id\":\"00A1B2C3D4E5\"}");
}

TEST(JsonSerialize, WritesEachTypeOfValue)
{
    EXPECT_EQ(Serialize(nullptr), "null");
    EXPECT_EQ(Serialize(true), "true");
    EXPECT_EQ(Serialize(false), "false");
    EXPECT_EQ(Serialize("text"), "\"text\"");
    EXPECT_EQ(Serialize(Array()), "[]");
    EXPECT_EQ(Serialize(Object()), "{}");
}

TEST(JsonSerialize, WritesWithoutBlanksInTheOrderOfTheMembers)
{
    Array inner;
    inner.Push(Array());
    inner.Push(Object());
    inner.Push("[");
    inner.Push("{");
    inner.Push(2);
    Object object;
    object["z"] = inner;
    object["a"] = nullptr;
    object[""] = false;
    EXPECT_EQ(Serialize(object), R"({"z":[[],{},"[","{",2],"a":null,"":false})");
}

TEST(JsonSerialize, WritesIntegersToTheLastDigit)
{
    EXPECT_EQ(Serialize(0), "0");
    EXPECT_EQ(Serialize(-1), "-1");
    EXPECT_EQ(Serialize(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
    EXPECT_EQ(Serialize(std::numeric_limits<std::int64_t>::max()), "9223372036854775807");
    EXPECT_EQ(Serialize(std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
}

TEST(JsonSerialize, WritesADoubleWithAsFewDigitsAsDetermineIt)
{
    EXPECT_EQ(Serialize(0.1), "0.1");
    EXPECT_EQ(Serialize(0.1F), "0.10000000149011612");
    EXPECT_EQ(Serialize(-2.5), "-2.5");
    EXPECT_EQ(Serialize(1.0 / 3), "0.3333333333333333");
    EXPECT_EQ(Serialize(5e-324), "5e-324");
    EXPECT_EQ(Serialize(std::numeric_limits<double>::max()), "1.7976931348623157e+308");
    EXPECT_EQ(Serialize(-2.2250738585072014e-308), "-2.2250738585072014e-308");
}

TEST(JsonSerialize, ADoubleStaysADouble)
{
    EXPECT_EQ(Serialize(1.0), "1.0");
    EXPECT_EQ(Serialize(-0.0), "-0.0");
    EXPECT_EQ(Serialize(18446744073709551616.0), "18446744073709551616.0");
    EXPECT_EQ(Serialize(1e30), "1e+30");
}

TEST(JsonSerialize, RefusesNumbersThatJsonDoesNotHave)
{
    for (const double number :
         {std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
          std::numeric_limits<double>::quiet_NaN()})
    {
        Array array;
        array.Push(number);
        EXPECT_EQ(ProblemOf(array), "JSON: a number that is infinite or none (NaN) cannot be written");
    }
}

TEST(JsonSerialize, EscapesWhatMustBeEscapedAndNothingElse)
{
    EXPECT_EQ(Serialize("\" \\ / ' <>&\x7F"), "\"\\\" \\\\ / ' <>&\x7F\"");
    EXPECT_EQ(Serialize("\b\f\n\r\t"), R"("\b\f\n\r\t")");
    EXPECT_EQ(Serialize(std::string("\0\x01\x0B\x1F ", 5)), R"("\u0000\u0001\u000b\u001f ")");
    EXPECT_EQ(Serialize("\u00e9\u20AC\U0001F600\u2028"), "\"\u00e9\u20AC\U0001F600\u2028\"");
}

TEST(JsonSerialize, EscapesEveryControlCharacter)
{
    for (int c = 0; c < 0x20; ++c)
    {
        const std::string text(1, static_cast<char>(c));
        const std::string written = Serialize(text);
        EXPECT_EQ(written[1], '\\') << c;
        EXPECT_EQ(Deserialize(written).ToString(), text) << c;
    }
}

TEST(JsonSerialize, EscapesKeysToo)
{
    Object object;
    object["a\"b\n"] = 1;
    EXPECT_EQ(Serialize(object), R"({"a\"b\n":1})");
}

TEST(JsonSerialize, RefusesStringsAndKeysThatAreNotUtf8)
{
    for (const std::string bytes :
         {"\x80", "\xC0\xAF", "a\xE2\x82", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xFF"})
    {
        EXPECT_EQ(ProblemOf(bytes), "JSON: a string that is not well-formed UTF-8 cannot be written");
        Object object;
        object[bytes] = 1;
        EXPECT_EQ(ProblemOf(object), "JSON: a string that is not well-formed UTF-8 cannot be written");
    }
}

TEST(JsonSerialize, BoundsTheDepth)
{
    for (const bool objects : {false, true})
    {
        const std::string written = Serialize(Nest(MAX_DEPTH, objects));
        EXPECT_EQ(Serialize(Deserialize(written)), written);
        EXPECT_THAT(ProblemOf(Nest(MAX_DEPTH + 1, objects)), HasSubstr("nested deeper than 128"));
        EXPECT_THAT(ProblemOf(Nest(20'000, objects)), HasSubstr("nested deeper than 128"));
    }
}

TEST(JsonSerialize, CountsOnlyWhatIsOpenAsDepth)
{
    Array array;
    for (std::size_t i = 0; i < 2 * MAX_DEPTH; ++i)
    {
        array.Push(Nest(2, i % 2 == 0));
    }
    EXPECT_EQ(Deserialize(Serialize(array)).ToArray().Size(), 2 * MAX_DEPTH);
}

TEST(JsonSerialize, DoesNotFollowTheLocale)
{
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new CommaFormat));
    EXPECT_EQ(Serialize(1234567.5), "1234567.5");
    EXPECT_EQ(Serialize(1234567), "1234567");
    EXPECT_EQ(Deserialize("1234567.5").ToDouble(), 1234567.5);
    std::locale::global(before);
}
