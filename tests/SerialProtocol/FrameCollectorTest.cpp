#include "SerialProtocol/FrameCollector.h"

#include "tests/SerialProtocol/Frames.h"

#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <span>
#include <string>
#include <string_view>

namespace
{

using namespace std::string_literals;
using SerialProtocol::FrameCollector;

constexpr unsigned char GUARD = 0xC5;
constexpr std::size_t ROOM = 20;

/// A collector whose storage is followed by bytes that nobody may touch.
class FrameCollectorTest : public testing::Test
{
protected:
    FrameCollectorTest() { all.fill(GUARD); }

    FrameCollector Collector(std::size_t expected, std::size_t room = ROOM)
    {
        return {std::span(all).first(room), expected};
    }

    /// @return how many bytes it took to end the frame; 0 when it has not ended
    static std::size_t Feed(FrameCollector& collector, std::string_view bytes)
    {
        for (std::size_t i = 0; i < bytes.size(); ++i)
        {
            if (collector.Take(static_cast<unsigned char>(bytes[i])))
            {
                return i + 1;
            }
        }
        return 0;
    }

    std::string Stored(std::size_t count) const { return {all.begin(), all.begin() + count}; }

    /// Nothing has been written from there on.
    bool UntouchedFrom(std::size_t place) const
    {
        return std::all_of(all.begin() + place, all.end(), [](unsigned char byte) { return byte == GUARD; });
    }

    std::array<unsigned char, ROOM + 12> all{};
};

TEST_F(FrameCollectorTest, EndsWithTheTrailer)
{
    const std::string frame = Frames::Short(0x01);
    FrameCollector collector = Collector(10);
    EXPECT_EQ(Feed(collector, frame), 10u);
    EXPECT_EQ(collector.Count(), 10u);
    EXPECT_EQ(Stored(10), frame);
    EXPECT_TRUE(UntouchedFrom(10));
}

TEST_F(FrameCollectorTest, BeginsEmpty)
{
    const FrameCollector collector = Collector(10);
    EXPECT_EQ(collector.Count(), 0u);
    EXPECT_TRUE(UntouchedFrom(0));
}

TEST_F(FrameCollectorTest, DropsWhatComesBeforeTheFirstByte)
{
    const std::string frame = Frames::Short(0x01);
    for (const std::string& noise : {"\x55"s, "\xEF\x0D"s, "\x0D\xEF"s, "\0\0"s, std::string(1000, '\xEF')})
    {
        FrameCollector collector = Collector(10);
        EXPECT_EQ(Feed(collector, noise), 0u);
        EXPECT_EQ(collector.Count(), 0u);
        EXPECT_EQ(Feed(collector, frame), 10u);
        EXPECT_EQ(Stored(10), frame);
    }
}

TEST_F(FrameCollectorTest, TakesAFurtherFirstByteForData)
{
    FrameCollector collector = Collector(6);
    EXPECT_EQ(Feed(collector, "\xAA\xAA\x55\xAA\xEF\x0D"), 6u);
    EXPECT_EQ(collector.Count(), 6u);
    EXPECT_EQ(Stored(6), "\xAA\xAA\x55\xAA\xEF\x0D");
}

TEST_F(FrameCollectorTest, EndsWithATrailerInTheMiddle)
{
    FrameCollector collector = Collector(10);
    EXPECT_EQ(Feed(collector, "\xAA\x55\x01\xEF\x0D\x01\x01\x01\xEF\x0D"), 5u);
    EXPECT_EQ(collector.Count(), 5u);
    EXPECT_TRUE(UntouchedFrom(5));
}

TEST_F(FrameCollectorTest, EndsWithATrailerRightBehindTheFirstByte)
{
    FrameCollector collector = Collector(10);
    EXPECT_EQ(Feed(collector, "\xAA\xEF\x0D"), 3u);
}

TEST_F(FrameCollectorTest, HalvesOfTheTrailerAreData)
{
    FrameCollector collector = Collector(10);
    EXPECT_EQ(Feed(collector, "\xAA\x0D\xEF\xEF\xAA\x0D\x0D"), 0u);
    EXPECT_EQ(Feed(collector, "\xEF\xEF\x0D"), 3u);
    EXPECT_EQ(collector.Count(), 10u);
}

TEST_F(FrameCollectorTest, EndsWithOneByteMoreThanExpected)
{
    for (std::size_t expected = 0; expected <= 17; ++expected)
    {
        all.fill(GUARD);
        FrameCollector collector = Collector(expected);
        const std::string endless(ROOM, '\xAA');
        EXPECT_EQ(Feed(collector, endless), expected + 1) << expected;
        EXPECT_EQ(collector.Count(), expected + 1);
        EXPECT_TRUE(UntouchedFrom(expected + 1)) << expected;
    }
}

TEST_F(FrameCollectorTest, TakesNothingAfterItsEnd)
{
    for (const std::string& frame : {"\xAA\x55\xEF\x0D"s, "\xAA\x55\x01\x01\x01"s})
    {
        all.fill(GUARD);
        FrameCollector collector = Collector(4);
        const std::size_t length = frame.size();
        ASSERT_EQ(Feed(collector, frame), length);
        for (int i = 0; i < 100; ++i)
        {
            EXPECT_TRUE(collector.Take(0xAA));
        }
        EXPECT_EQ(collector.Count(), length);
        EXPECT_EQ(Stored(length), frame);
        EXPECT_TRUE(UntouchedFrom(length));
    }
}

TEST_F(FrameCollectorTest, EndsWhenItsStorageIsFull)
{
    for (std::size_t room = 1; room <= ROOM; ++room)
    {
        all.fill(GUARD);
        FrameCollector collector = Collector(1000, room);
        EXPECT_EQ(Feed(collector, std::string(100, '\xAA')), room);
        EXPECT_TRUE(UntouchedFrom(room)) << room;
    }
}

TEST_F(FrameCollectorTest, OfTheExpectedLengthNeedsNoFurtherRoom)
{
    FrameCollector collector = Collector(10, 10);
    EXPECT_EQ(Feed(collector, Frames::Short(0x01)), 10u);
    EXPECT_TRUE(UntouchedFrom(10));
}

TEST_F(FrameCollectorTest, WithoutStorageHasEndedFromTheStart)
{
    FrameCollector collector({}, 10);
    EXPECT_TRUE(collector.Take(0xAA));
    EXPECT_EQ(collector.Count(), 0u);
}

}
