#include "base/Tavbase/Json/Json.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <utility>

using namespace Tavbase::Json;

namespace
{

Array OneTwoThree()
{
    Array array;
    array.Push(1);
    array.Push("two");
    array.Push(3.5);
    return array;
}

}

TEST(JsonArray, IsEmptyAtFirst)
{
    const Array array;
    EXPECT_TRUE(array.IsEmpty());
    EXPECT_EQ(array.Size(), 0u);
    EXPECT_EQ(array.begin(), array.end());
}

TEST(JsonArray, KeepsWhatIsPushedInItsOrder)
{
    const Array array = OneTwoThree();
    EXPECT_FALSE(array.IsEmpty());
    ASSERT_EQ(array.Size(), 3u);
    EXPECT_EQ(array[0].ToInteger(), 1);
    EXPECT_EQ(array[1].ToString(), "two");
    EXPECT_EQ(array[2].ToDouble(), 3.5);
    std::string text;
    for (const Value& element : array)
    {
        text += Serialize(element) + ' ';
    }
    EXPECT_EQ(text, "1 \"two\" 3.5 ");
}

TEST(JsonArray, AnElementCanBeSetInPlace)
{
    Array array = OneTwoThree();
    array[1] = nullptr;
    for (Value& element : array)
    {
        if (element.IsInteger())
        {
            element = true;
        }
    }
    EXPECT_EQ(Serialize(array), "[true,null,3.5]");
}

TEST(JsonArray, RefusesAnElementThatIsNotThere)
{
    Array array = OneTwoThree();
    const Array& constant = array;
    EXPECT_THROW(array[3], JsonException);
    EXPECT_THROW(constant[3], JsonException);
    EXPECT_THROW(array.Erase(3), JsonException);
    try
    {
        array[static_cast<std::size_t>(7)] = 1;
        FAIL();
    }
    catch (const JsonException& e)
    {
        EXPECT_STREQ(e.what(), "JSON: element 7 was asked for, the array has 3");
    }
    EXPECT_EQ(Serialize(array), "[1,\"two\",3.5]");
}

TEST(JsonArray, ErasesAnElement)
{
    Array array = OneTwoThree();
    array.Erase(1);
    EXPECT_EQ(Serialize(array), "[1,3.5]");
    array.Erase(1);
    array.Erase(0);
    EXPECT_TRUE(array.IsEmpty());
}

TEST(JsonArray, CanBePushedAnElementOfItsOwn)
{
    Array array;
    array.Push("a text that is longer than fits into the string itself");
    for (int i = 0; i < 20; ++i)
    {
        array.Push(array[0]);
    }
    EXPECT_EQ(array[20].ToString(), array[0].ToString());
}

TEST(JsonArray, ACopyIsIndependentAndAMoveLeavesItEmpty)
{
    Array array = OneTwoThree();
    Array copy = array;
    copy[0] = 9;
    EXPECT_EQ(Serialize(array), "[1,\"two\",3.5]");
    const Array moved = std::move(array);
    EXPECT_TRUE(array.IsEmpty()); // NOLINT(bugprone-use-after-move): the state that the header promises
    EXPECT_EQ(Serialize(moved), "[1,\"two\",3.5]");
    Array assigned;
    assigned.Push("before");
    assigned = std::move(copy);
    EXPECT_TRUE(copy.IsEmpty()); // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(Serialize(assigned), "[9,\"two\",3.5]");
}

TEST(JsonArray, CanBeAssignedAPartOfItself)
{
    Array array = Deserialize("[[1,2],[[3]]]").ToArray();
    array = array[1].ToArray();
    EXPECT_EQ(Serialize(array), "[[3]]");
    array = std::move(array[0].ToArray());
    EXPECT_EQ(Serialize(array), "[3]");
}
