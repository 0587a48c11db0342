#include "base/Tavbase/Json/Json.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>

using namespace Tavbase::Json;

namespace
{

Object ZoneMakeAge()
{
    Object object;
    object["zone"] = 1;
    object["make"] = "two";
    object["age"] = 3.5;
    return object;
}

std::string KeysOf(const Object& object)
{
    std::string keys;
    for (const auto& [key, value] : object)
    {
        keys += key + ' ';
    }
    return keys;
}

}

TEST(JsonObject, IsEmptyAtFirst)
{
    const Object object;
    EXPECT_TRUE(object.IsEmpty());
    EXPECT_EQ(object.Size(), 0u);
    EXPECT_EQ(object.begin(), object.end());
    EXPECT_FALSE(object.HasKey(""));
}

TEST(JsonObject, AKeyThatIsNotThereIsAddedAtTheEndWithNull)
{
    Object object;
    EXPECT_TRUE(object["driver-id"].IsNull());
    EXPECT_TRUE(object.HasKey("driver-id"));
    EXPECT_FALSE(object.HasKey("driver-i"));
    EXPECT_FALSE(object.HasKey("driver-id "));
    EXPECT_EQ(object.Size(), 1u);
}

TEST(JsonObject, KeepsTheOrderInWhichKeysWereFirstSet)
{
    Object object = ZoneMakeAge();
    object["make"] = 2;
    EXPECT_EQ(KeysOf(object), "zone make age ");
    EXPECT_EQ(object["make"].ToInteger(), 2);
    EXPECT_EQ(object.Size(), 3u);
}

TEST(JsonObject, IsReadThroughAConstantReferenceWithoutAdding)
{
    const Object object = ZoneMakeAge();
    EXPECT_EQ(object["zone"].ToInteger(), 1);
    EXPECT_EQ(object[std::string("make")].ToString(), "two");
    EXPECT_THROW(object["none"], JsonException);
    try
    {
        static_cast<void>(object[std::string("none")]);
        FAIL();
    }
    catch (const JsonException& e)
    {
        EXPECT_STREQ(e.what(), "JSON: the object has no key \"none\"");
    }
}

TEST(JsonObject, RefusesANullPointerAsAKey)
{
    Object object;
    const Object& constant = object;
    const char* key = nullptr;
    EXPECT_THROW(object[key], JsonException);
    EXPECT_THROW(constant[key], JsonException);
    EXPECT_TRUE(object.IsEmpty());
}

TEST(JsonObject, TellsKeysWithZeroBytesApart)
{
    Object object;
    object[std::string("a\0b", 3)] = 1;
    object[std::string("a\0c", 3)] = 2;
    object["a"] = 3;
    EXPECT_EQ(object.Size(), 3u);
    EXPECT_EQ(object[std::string("a\0c", 3)].ToInteger(), 2);
}

TEST(JsonObject, ErasesAMember)
{
    Object object = ZoneMakeAge();
    EXPECT_TRUE(object.Erase("make"));
    EXPECT_FALSE(object.Erase("make"));
    EXPECT_FALSE(object.HasKey("make"));
    EXPECT_EQ(KeysOf(object), "zone age ");
    object["make"] = 4;
    EXPECT_EQ(KeysOf(object), "zone age make ");
}

TEST(JsonObject, AReferenceOutlivesWhatHappensToOtherMembers)
{
    Object object = ZoneMakeAge();
    Value& make = object["make"];
    for (int i = 0; i < 1000; ++i)
    {
        object[std::to_string(i)] = i;
    }
    EXPECT_TRUE(object.Erase("zone"));
    make = "still the same";
    EXPECT_EQ(object["make"].ToString(), "still the same");
}

TEST(JsonObject, AMemberCanBeSetFromAnother)
{
    Object object;
    object["a"] = "a text that is longer than fits into the string itself";
    for (int i = 0; i < 100; ++i)
    {
        object[std::to_string(i)] = object["a"];
    }
    EXPECT_EQ(object["99"].ToString(), object["a"].ToString());
}

TEST(JsonObject, FindsEachOfManyKeys)
{
    constexpr int MANY = 20'000;
    Object object;
    for (int i = 0; i < MANY; ++i)
    {
        object["key-" + std::to_string(i)] = i;
    }
    EXPECT_EQ(object.Size(), static_cast<std::size_t>(MANY));
    for (int i = 0; i < MANY; i += 2)
    {
        EXPECT_TRUE(object.Erase("key-" + std::to_string(i)));
    }
    const Object copy = object;
    for (int i = 0; i < MANY; ++i)
    {
        const std::string key = "key-" + std::to_string(i);
        ASSERT_EQ(copy.HasKey(key), i % 2 == 1);
        if (i % 2 == 1)
        {
            ASSERT_EQ(copy[key].ToInteger(), i);
        }
    }
}

TEST(JsonObject, ACopyIsIndependentAndAMoveLeavesItEmpty)
{
    Object object = ZoneMakeAge();
    Object copy = object;
    copy["zone"] = 9;
    copy["more"] = 10;
    EXPECT_EQ(Serialize(object), R"({"zone":1,"make":"two","age":3.5})");
    Object moved = std::move(object);
    EXPECT_TRUE(object.IsEmpty());       // NOLINT(bugprone-use-after-move,clang-analyzer-cplusplus.Move)
    EXPECT_FALSE(object.HasKey("zone")); // NOLINT(bugprone-use-after-move,clang-analyzer-cplusplus.Move)
    object["again"] = 1;
    EXPECT_EQ(Serialize(object), R"({"again":1})");
    moved["zone"] = 5;
    moved = std::move(copy);
    EXPECT_TRUE(copy.IsEmpty()); // NOLINT(bugprone-use-after-move,clang-analyzer-cplusplus.Move)
    EXPECT_EQ(Serialize(moved), R"({"zone":9,"make":"two","age":3.5,"more":10})");
    moved = object;
    EXPECT_EQ(Serialize(moved), R"({"again":1})");
    EXPECT_TRUE(moved.HasKey("again"));
    EXPECT_FALSE(moved.HasKey("zone"));
}

TEST(JsonObject, CanBeAssignedAPartOfItself)
{
    Object object = Deserialize(R"({"a":{"b":{"c":1}}})").ToObject();
    object = object["a"].ToObject();
    EXPECT_EQ(Serialize(object), R"({"b":{"c":1}})");
    object = std::move(object["b"].ToObject());
    EXPECT_EQ(Serialize(object), R"({"c":1})");
    EXPECT_TRUE(object.HasKey("c"));
}

TEST(JsonObject, ValuesCanBeSetWhileItIsWalkedThrough)
{
    Object object = ZoneMakeAge();
    for (auto& [key, value] : object)
    {
        value = key;
    }
    EXPECT_EQ(Serialize(object), R"({"zone":"zone","make":"make","age":"age"})");
}
