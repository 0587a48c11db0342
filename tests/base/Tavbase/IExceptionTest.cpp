#include "base/Tavbase/IException.h"

#include "tests/base/Tavbase/Interfaces/VirtualSlot.h"

#include <cstring>
#include <exception>
#include <gtest/gtest.h>
#include <string>
#include <type_traits>
#include <utility>

using Tavbase::IException;

namespace
{

static_assert(std::is_base_of_v<std::exception, IException>);
static_assert(std::is_nothrow_copy_constructible_v<IException>);
static_assert(std::is_nothrow_copy_assignable_v<IException>);
static_assert(std::is_nothrow_destructible_v<IException>);

const char* Bytes(const IException& e)
{
    return reinterpret_cast<const char*>(&e);
}

TEST(IExceptionTest, KeepsTheMessageAndTheCode)
{
    const IException e("Unable to set the port", -1);
    EXPECT_STREQ(e.what(), "Unable to set the port");
    EXPECT_EQ(e.Code(), -1);
}

TEST(IExceptionTest, TheCodeIsZeroWhereNoneIsGiven)
{
    EXPECT_EQ(IException("text").Code(), 0);
}

TEST(IExceptionTest, TheMessageStandsInlineRightAfterTheBasePart)
{
    const IException e("text");
    EXPECT_EQ(e.what(), Bytes(e) + sizeof(std::exception));
}

TEST(IExceptionTest, TheCodeFollowsTheArrayOf1024Bytes)
{
    static_assert(IException::MESSAGE_SIZE == 1024);
    const IException e("text", 0x1234567);
    int code = 0;
    std::memcpy(&code, Bytes(e) + sizeof(std::exception) + 1024, sizeof code);
    EXPECT_EQ(code, 0x1234567);
    EXPECT_LT(sizeof(IException), sizeof(std::exception) + 1024 + sizeof(int) + alignof(IException));
}

TEST(IExceptionTest, WhatFollowsTheTwoSlotsOfTheDestructor)
{
    EXPECT_EQ(Tests::VirtualSlot(&IException::what), 2);
    // A call through the base goes the same way.
    const IException e("text");
    const std::exception& base = e;
    EXPECT_EQ(base.what(), e.what());
}

TEST(IExceptionTest, AMessageOf1023BytesIsKeptWhole)
{
    const std::string text(1023, 'x');
    EXPECT_EQ(IException(text).what(), text);
}

TEST(IExceptionTest, ALongerMessageIsCutTo1023BytesAndEndsInAZero)
{
    const IException e(std::string(1023, 'x') + "yz" + std::string(5000, 'w'), 7);
    EXPECT_EQ(e.what(), std::string(1023, 'x'));
    EXPECT_EQ(e.Code(), 7);
}

TEST(IExceptionTest, AnEmptyMessageIsAnEmptyText)
{
    EXPECT_STREQ(IException("").what(), "");
}

TEST(IExceptionTest, WhatEndsAtTheFirstZeroByteOfTheMessage)
{
    EXPECT_STREQ(IException(std::string("front\0back", 10)).what(), "front");
}

TEST(IExceptionTest, ACopyHasAMessageOfItsOwn)
{
    auto* const original = new IException("first", 1);
    const IException copy = *original;
    IException assigned("second", 2);
    assigned = *original;
    delete original;
    EXPECT_STREQ(copy.what(), "first");
    EXPECT_EQ(copy.what(), Bytes(copy) + sizeof(std::exception));
    EXPECT_EQ(copy.Code(), 1);
    EXPECT_STREQ(assigned.what(), "first");
    EXPECT_EQ(assigned.Code(), 1);
}

TEST(IExceptionTest, AShorterMessageAssignedLeavesNothingOfTheLongerOne)
{
    IException e("a long message", 1);
    e = IException("short", 2);
    EXPECT_STREQ(e.what(), "short");
}

TEST(IExceptionTest, IsCaughtAsAStandardExceptionAndAsItself)
{
    try
    {
        throw IException("exchange failed", -1);
    }
    catch (const std::exception& e)
    {
        EXPECT_STREQ(e.what(), "exchange failed");
        // The type itself is the library's: it is found again on this side of the boundary.
        const auto* const found = dynamic_cast<const IException*>(&e);
        ASSERT_NE(found, nullptr);
        EXPECT_EQ(found->Code(), -1);
    }
    EXPECT_THROW(throw IException("again"), IException);
}

TEST(IExceptionTest, OutlivesItsThrowerInAnExceptionPointer)
{
    const std::exception_ptr kept = std::make_exception_ptr(IException("kept", 3));
    try
    {
        std::rethrow_exception(kept);
    }
    catch (const IException& e)
    {
        EXPECT_STREQ(e.what(), "kept");
        EXPECT_EQ(e.Code(), 3);
    }
}

}
