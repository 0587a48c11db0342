#include "base/Tavbase/TavubufferDynamic.h"

#include <cstddef>
#include <gtest/gtest.h>
#include <limits>
#include <new>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace
{

static_assert(offsetof(TavubufferDynamic, data) == 0);
static_assert(offsetof(TavubufferDynamic, tag) == sizeof(void*));
static_assert(offsetof(TavubufferDynamic, capacity) == 2 * sizeof(void*));
static_assert(offsetof(TavubufferDynamic, length) == 2 * sizeof(void*) + 8);
static_assert(std::is_same_v<decltype(TavubufferDynamic::data), unsigned char*>);
static_assert(std::is_same_v<decltype(TavubufferDynamic::capacity), std::uint64_t>);
static_assert(sizeof(TavubufferDynamic::tag) == sizeof(void*));
static_assert(sizeof(TavubufferDynamic::length) == 8);
static_assert(std::is_nothrow_move_constructible_v<TavubufferDynamic>);
static_assert(std::is_nothrow_move_assignable_v<TavubufferDynamic>);

TavubufferDynamic Filled(std::string_view text, std::uint64_t capacity)
{
    TavubufferDynamic buffer(capacity);
    text.copy(reinterpret_cast<char*>(buffer.data), text.size());
    buffer.length = text.size();
    return buffer;
}

std::string Text(const TavubufferDynamic& buffer)
{
    return {reinterpret_cast<const char*>(buffer.data), static_cast<std::size_t>(buffer.length)};
}

void ExpectEmpty(const TavubufferDynamic& buffer)
{
    EXPECT_EQ(buffer.data, nullptr);
    EXPECT_EQ(buffer.capacity, 0U);
    EXPECT_EQ(buffer.length, 0U);
}

TEST(TavubufferDynamicTest, IsEmptyAtFirst)
{
    const TavubufferDynamic buffer;
    ExpectEmpty(buffer);
    EXPECT_EQ(buffer.tag, 0U);
}

TEST(TavubufferDynamicTest, IsMadeWithZeroBytesAndNothingValid)
{
    const TavubufferDynamic buffer(4096);
    ASSERT_NE(buffer.data, nullptr);
    EXPECT_EQ(buffer.capacity, 4096U);
    EXPECT_EQ(buffer.length, 0U);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(buffer.data), 4096), std::string(4096, '\0'));
}

TEST(TavubufferDynamicTest, HasNoArrayWithACapacityOfZero)
{
    ExpectEmpty(TavubufferDynamic(0));
}

TEST(TavubufferDynamicTest, AllocateReplacesTheArray)
{
    TavubufferDynamic buffer = Filled("old", 16);
    buffer.tag = 42;
    buffer.Allocate(8);
    EXPECT_EQ(buffer.capacity, 8U);
    EXPECT_EQ(buffer.length, 0U);
    EXPECT_EQ(buffer.tag, 42U);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(buffer.data), 8), std::string(8, '\0'));
    buffer.Allocate(0);
    ExpectEmpty(buffer);
}

TEST(TavubufferDynamicTest, AllocateThatFailsLeavesTheBufferAsItWas)
{
    TavubufferDynamic buffer = Filled("kept", 16);
    const unsigned char* const before = buffer.data;
    // More than an array can have, so that no allocator is even asked.
    EXPECT_THROW(buffer.Allocate(std::numeric_limits<std::uint64_t>::max()), std::bad_alloc);
    EXPECT_EQ(buffer.data, before);
    EXPECT_EQ(buffer.capacity, 16U);
    EXPECT_EQ(Text(buffer), "kept");
}

TEST(TavubufferDynamicTest, AnArrayOfTheOwnersIsFreedLikeItsOwn)
{
    TavubufferDynamic buffer;
    buffer.data = new unsigned char[4096];
    buffer.capacity = 4096;
    buffer.data[4095] = 1;
    buffer.Allocate(1); // what is left behind would show in the count of allocations after the test
    EXPECT_EQ(buffer.capacity, 1U);
}

TEST(TavubufferDynamicTest, WhoTakesTheArrayKeepsIt)
{
    unsigned char* taken = nullptr;
    {
        TavubufferDynamic buffer = Filled("mine", 8);
        taken = std::exchange(buffer.data, nullptr);
    }
    EXPECT_EQ(std::string(reinterpret_cast<char*>(taken), 4), "mine");
    delete[] taken;
}

TEST(TavubufferDynamicTest, ACopyHasAnArrayOfItsOwn)
{
    TavubufferDynamic original = Filled("abc", 8);
    original.tag = 7;
    original.data[5] = 'x'; // beyond what is valid
    const TavubufferDynamic copy = original;
    original.data[0] = 'z';
    EXPECT_NE(copy.data, original.data);
    EXPECT_EQ(copy.capacity, 8U);
    EXPECT_EQ(copy.tag, 7U);
    EXPECT_EQ(Text(copy), "abc");
    EXPECT_EQ(copy.data[5], 0U) << "only what is valid is copied";
}

TEST(TavubufferDynamicTest, ACopyOfAnEmptyBufferIsEmpty)
{
    const TavubufferDynamic original;
    const TavubufferDynamic copy = original; // NOLINT(performance-unnecessary-copy-initialization)
    ExpectEmpty(copy);
}

TEST(TavubufferDynamicTest, ACopyTakesTheLoweredCapacityAndNeverMoreThanThat)
{
    TavubufferDynamic original = Filled("abcdefgh", 8);
    original.capacity = 4;
    const TavubufferDynamic copy = original;
    EXPECT_EQ(copy.capacity, 4U);
    EXPECT_EQ(Text(copy), "abcd");
}

TEST(TavubufferDynamicTest, AssignmentReplacesTheContents)
{
    const TavubufferDynamic original = Filled("abc", 8);
    TavubufferDynamic other = Filled("something else", 64);
    other = original;
    EXPECT_NE(other.data, original.data);
    EXPECT_EQ(other.capacity, 8U);
    EXPECT_EQ(Text(other), "abc");
    EXPECT_EQ(Text(original), "abc");
}

TEST(TavubufferDynamicTest, AssignmentToItselfChangesNothing)
{
    TavubufferDynamic buffer = Filled("abc", 8);
    const TavubufferDynamic& same = buffer;
    buffer = same;
    EXPECT_EQ(Text(buffer), "abc");
    EXPECT_EQ(buffer.capacity, 8U);
}

TEST(TavubufferDynamicTest, AMoveHandsTheArrayOverAndLeavesTheSourceEmpty)
{
    TavubufferDynamic source = Filled("abc", 8);
    source.tag = 7;
    const unsigned char* const array = source.data;
    const TavubufferDynamic taken = std::move(source);
    EXPECT_EQ(taken.data, array);
    EXPECT_EQ(taken.tag, 7U);
    EXPECT_EQ(Text(taken), "abc");
    ExpectEmpty(source); // NOLINT(bugprone-use-after-move): what is left is stated
}

TEST(TavubufferDynamicTest, AMoveAssignmentFreesTheFormerArrayAndLeavesTheSourceEmpty)
{
    TavubufferDynamic source = Filled("abc", 8);
    source.tag = 7;
    const unsigned char* const array = source.data;
    TavubufferDynamic other = Filled("former", 16);
    other = std::move(source);
    EXPECT_EQ(other.data, array);
    EXPECT_EQ(other.capacity, 8U);
    EXPECT_EQ(other.tag, 7U);
    EXPECT_EQ(Text(other), "abc");
    ExpectEmpty(source); // NOLINT(bugprone-use-after-move): what is left is stated
}

TEST(TavubufferDynamicTest, AMoveAssignmentToItselfChangesNothing)
{
    TavubufferDynamic buffer = Filled("abc", 8);
    TavubufferDynamic& same = buffer;
    buffer = std::move(same);
    EXPECT_EQ(Text(buffer), "abc");
    EXPECT_EQ(buffer.capacity, 8U);
}

}
