#include "base/Tavbase/Json/Json.h"
#include "tests/base/Tavbase/Json/Documents.h"

#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <type_traits>
#include <utility>

using namespace Tavbase::Json;
using testing::HasSubstr;
using Type = Value::Type;

namespace
{

// A pointer that is no text must not become a boolean, a character no number.
static_assert(!std::is_constructible_v<Value, void*>);
static_assert(!std::is_constructible_v<Value, const int*>);
static_assert(!std::is_constructible_v<Value, char>);
static_assert(!std::is_constructible_v<Value, char16_t>);
static_assert(std::is_nothrow_move_constructible_v<Value>);
static_assert(std::is_nothrow_move_assignable_v<Value>);

template <typename Call>
std::string ProblemOf(Call call)
{
    try
    {
        call();
    }
    catch (const JsonException& e)
    {
        EXPECT_EQ(e.Line(), 0u);
        EXPECT_EQ(e.Column(), 0u);
        EXPECT_EQ(e.Code(), 0);
        return e.what();
    }
    ADD_FAILURE() << "nothing was thrown";
    return {};
}

/// A value inside `depth` arrays and objects by turns.
Value Nest(int depth)
{
    Value value = "core";
    for (int i = 0; i < depth; ++i)
    {
        if (i % 2 == 0)
        {
            Array array;
            array.Push(std::move(value));
            value = std::move(array);
        }
        else
        {
            Object object;
            object["in"] = std::move(value);
            value = std::move(object);
        }
    }
    return value;
}

}

TEST(JsonValue, IsNullWithoutContent)
{
    EXPECT_EQ(Value().GetType(), Type::Null);
    EXPECT_TRUE(Value(nullptr).IsNull());
}

TEST(JsonValue, TakesItsTypeFromTheTypeItIsMadeFrom)
{
    EXPECT_EQ(Value(true).GetType(), Type::Boolean);
    EXPECT_EQ(Value(1).GetType(), Type::Integer);
    EXPECT_EQ(Value(1U).GetType(), Type::Integer);
    EXPECT_EQ(Value(1L).GetType(), Type::Integer);
    EXPECT_EQ(Value(1ULL).GetType(), Type::Integer);
    EXPECT_EQ(Value(std::uint8_t{1}).GetType(), Type::Integer);
    EXPECT_EQ(Value(1.0).GetType(), Type::Double);
    EXPECT_EQ(Value(1.0F).GetType(), Type::Double);
    EXPECT_EQ(Value("text").GetType(), Type::String);
    EXPECT_EQ(Value(std::string("text")).GetType(), Type::String);
    EXPECT_EQ(Value(std::string_view("text")).GetType(), Type::String);
    EXPECT_EQ(Value(Array()).GetType(), Type::Array);
    EXPECT_EQ(Value(Object()).GetType(), Type::Object);
}

TEST(JsonValue, ATextInAPlainArrayOrBehindAPointerIsAString)
{
    char text[] = "00A1B2C3D4E5";
    const char* pointer = text;
    EXPECT_EQ(Value(text).ToString(), "00A1B2C3D4E5");
    EXPECT_EQ(Value(pointer).ToString(), "00A1B2C3D4E5");
}

TEST(JsonValue, ANullPointerToATextIsNull)
{
    const char* pointer = nullptr;
    EXPECT_TRUE(Value(pointer).IsNull());
}

TEST(JsonValue, AnswersOnlyToItsOwnType)
{
    const Value values[] = {nullptr, true, 1, 1.5, "text", Array(), Object()};
    for (const Value& value : values)
    {
        const auto is = [&](Type type) { return value.GetType() == type; };
        EXPECT_EQ(value.IsNull(), is(Type::Null));
        EXPECT_EQ(value.IsBool(), is(Type::Boolean));
        EXPECT_EQ(value.IsInteger(), is(Type::Integer));
        EXPECT_EQ(value.IsDouble(), is(Type::Double));
        EXPECT_EQ(value.IsNumber(), is(Type::Integer) || is(Type::Double));
        EXPECT_EQ(value.IsString(), is(Type::String));
        EXPECT_EQ(value.IsArray(), is(Type::Array));
        EXPECT_EQ(value.IsObject(), is(Type::Object));
    }
}

TEST(JsonValue, GivesItsContent)
{
    EXPECT_TRUE(Value(true).ToBool());
    EXPECT_FALSE(Value(false).ToBool());
    EXPECT_EQ(Value(-7).ToInteger(), -7);
    EXPECT_EQ(Value(7).ToUnsigned(), 7u);
    EXPECT_EQ(Value(1.5).ToDouble(), 1.5);
    EXPECT_EQ(Value(7).ToDouble(), 7.0);
    EXPECT_EQ(Value(std::numeric_limits<std::uint64_t>::max()).ToDouble(), 18446744073709551616.0);
    EXPECT_EQ(Value("text").ToString(), "text");
}

TEST(JsonValue, KeepsIntegersExactlyToBothEnds)
{
    constexpr auto LEAST = std::numeric_limits<std::int64_t>::min();
    constexpr auto MOST = std::numeric_limits<std::int64_t>::max();
    constexpr auto MOST_UNSIGNED = std::numeric_limits<std::uint64_t>::max();
    EXPECT_EQ(Value(LEAST).ToInteger(), LEAST);
    EXPECT_EQ(Value(MOST).ToInteger(), MOST);
    EXPECT_EQ(Value(static_cast<std::uint64_t>(MOST)).ToInteger(), MOST);
    EXPECT_EQ(Value(MOST).ToUnsigned(), static_cast<std::uint64_t>(MOST));
    EXPECT_EQ(Value(MOST_UNSIGNED).ToUnsigned(), MOST_UNSIGNED);
}

TEST(JsonValue, RefusesAnIntegerThatIsOutOfRange)
{
    EXPECT_THROW(static_cast<void>(Value(std::uint64_t{1} << 63).ToInteger()), JsonException);
    EXPECT_THROW(static_cast<void>(Value(-1).ToUnsigned()), JsonException);
}

TEST(JsonValue, ADoubleWithoutFractionIsAnIntegerWhenAskedForOne)
{
    EXPECT_EQ(Value(3.0).ToInteger(), 3);
    EXPECT_EQ(Value(-3.0).ToInteger(), -3);
    EXPECT_EQ(Value(-0.0).ToUnsigned(), 0u);
    EXPECT_EQ(Value(-9223372036854775808.0).ToInteger(), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(Value(9223372036854775808.0).ToUnsigned(), std::uint64_t{1} << 63);
    for (const double number :
         {0.5, 9223372036854775808.0, -9223372036854777856.0, 1e300, std::numeric_limits<double>::infinity(),
          std::numeric_limits<double>::quiet_NaN()})
    {
        EXPECT_THROW(static_cast<void>(Value(number).ToInteger()), JsonException) << number;
    }
    for (const double number : {0.5, -1.0, 18446744073709551616.0, std::numeric_limits<double>::infinity(),
                                std::numeric_limits<double>::quiet_NaN()})
    {
        EXPECT_THROW(static_cast<void>(Value(number).ToUnsigned()), JsonException) << number;
    }
}

TEST(JsonValue, AskedForAnotherTypeItNamesBoth)
{
    EXPECT_THAT(ProblemOf([] { static_cast<void>(Value(5).ToObject()); }),
                "JSON: an object was asked for, the value is an integer");
    EXPECT_THAT(ProblemOf([] { static_cast<void>(Value(1.5).ToString()); }),
                "JSON: a string was asked for, the value is a number with a fraction");
    EXPECT_THAT(ProblemOf([] { static_cast<void>(Value("5").ToInteger()); }),
                AllOf(HasSubstr("an integer"), HasSubstr("the value is a string")));
    EXPECT_THAT(ProblemOf([] { static_cast<void>(Value().ToArray()); }),
                "JSON: an array was asked for, the value is null");
    EXPECT_THAT(ProblemOf([] { static_cast<void>(Value(Object()).ToBool()); }),
                "JSON: a boolean was asked for, the value is an object");
    EXPECT_THAT(ProblemOf([] { static_cast<void>(Value(Array()).ToDouble()); }),
                "JSON: a number was asked for, the value is an array");
    EXPECT_THAT(ProblemOf([] { static_cast<void>(Value(true).ToUnsigned()); }), HasSubstr("a boolean"));
}

TEST(JsonValue, IsAnExceptionOfTheBaseLibraryThatAccessThrows)
{
    EXPECT_THROW(static_cast<void>(Value(1).ToString()), Tavbase::IException);
    EXPECT_THROW(static_cast<void>(Value(1).ToString()), std::exception);
}

TEST(JsonValue, ACopyIsAWholeCopy)
{
    Value original = Deserialize(R"({"a":[1,{"b":"text"}]})");
    const Value copy = original;
    original.ToObject()["a"].ToArray()[1].ToObject()["b"] = 5;
    EXPECT_EQ(Serialize(copy), R"({"a":[1,{"b":"text"}]})");
    EXPECT_EQ(Serialize(original), R"({"a":[1,{"b":5}]})");
}

TEST(JsonValue, AMoveLeavesNull)
{
    for (Value value : {Value("text"), Value(1), Deserialize("[1]"), Deserialize("{\"a\":1}")})
    {
        const std::string text = Serialize(value);
        Value taken = std::move(value);
        EXPECT_TRUE(value.IsNull()); // NOLINT(bugprone-use-after-move,clang-analyzer-cplusplus.Move)
        EXPECT_EQ(Serialize(taken), text);
        Value assigned = "before";
        assigned = std::move(taken);
        EXPECT_TRUE(taken.IsNull()); // NOLINT(bugprone-use-after-move,clang-analyzer-cplusplus.Move)
        EXPECT_EQ(Serialize(assigned), text);
    }
}

TEST(JsonValue, AMoveKeepsReferencesIntoTheDocument)
{
    Value value = Deserialize(R"(["text"])");
    const std::string* const text = &value.ToArray()[0].ToString();
    const Value taken = std::move(value);
    EXPECT_EQ(&taken.ToArray()[0].ToString(), text);
}

TEST(JsonValue, CanBeAssignedToItself)
{
    Value value = Deserialize("[1,2]");
    Value& same = value;
    value = same;
    EXPECT_EQ(Serialize(value), "[1,2]");
    value = std::move(same);
    EXPECT_EQ(Serialize(value), "[1,2]");
}

TEST(JsonValue, CanBeAssignedAPartOfItself)
{
    Value value = Deserialize(R"([[1,2],{"a":[3,["x"]]}])");
    value = value.ToArray()[1];
    EXPECT_EQ(Serialize(value), R"({"a":[3,["x"]]})");
    value = std::move(value.ToObject()["a"]);
    EXPECT_EQ(Serialize(value), R"([3,["x"]])");
    value = value.ToArray()[1].ToArray();
    EXPECT_EQ(Serialize(value), R"(["x"])");
    value = value.ToArray()[0].ToString();
    EXPECT_EQ(Serialize(value), R"("x")");
}

TEST(JsonValue, ATemporaryGivesItsContentAway)
{
    const Object object = Deserialize(R"({"a":["b"]})").ToObject();
    EXPECT_EQ(object["a"].ToArray()[0].ToString(), "b");
    const Array array = Deserialize(R"(["b"])").ToArray();
    EXPECT_EQ(array[0].ToString(), "b");
    const std::string string = Deserialize(R"("a longer text than fits into the string itself")").ToString();
    EXPECT_EQ(string, "a longer text than fits into the string itself");
    int seen = 0;
    for (const Value& element : Deserialize("[1,2,3]").ToArray())
    {
        seen += static_cast<int>(element.ToInteger());
    }
    EXPECT_EQ(seen, 6);
}

TEST(JsonValue, IsCopiedAndDestroyedHoweverDeepItIsNested)
{
    constexpr int DEEP = 100'000;
    const Value deep = Nest(DEEP);
    const Value copy = deep; // NOLINT(performance-unnecessary-copy-initialization): what is tested
    const Value* a = &deep;
    const Value* b = &copy;
    for (int i = DEEP - 1; i >= 0; --i)
    {
        ASSERT_EQ(a->GetType(), b->GetType());
        ASSERT_NE(a, b);
        a = i % 2 == 0 ? &a->ToArray()[0] : &a->ToObject()["in"];
        b = i % 2 == 0 ? &b->ToArray()[0] : &b->ToObject()["in"];
    }
    EXPECT_EQ(b->ToString(), "core");
}

TEST(JsonValue, AnArrayOrObjectOfItsOwnIsDestroyedHoweverDeepItIsNested)
{
    Array array;
    array.Push(Nest(100'000));
    array.Push(Nest(3));
    Object object;
    object["deep"] = Nest(100'000);
    object["flat"] = Nest(3);
    array.Erase(0);
    EXPECT_TRUE(object.Erase("deep"));
    EXPECT_EQ(Serialize(array), R"([[{"in":["core"]}]])");
    EXPECT_EQ(Serialize(object), R"({"flat":[{"in":["core"]}]})");
}
