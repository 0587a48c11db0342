// What no peripheral should send: streams of bytes at random, in which whole frames, trailers and CRCs that
// are nearly right occur often enough to matter.

#include "SerialProtocol/FrameCollector.h"
#include "tests/SerialProtocol/Frames.h"
#include "tests/SerialProtocol/Peripheral.h"
#include "tests/kit/DeviceTest.h"

#include <algorithm>
#include <array>
#include <random>
#include <string>

namespace SerialProtocolTests
{

namespace
{

using namespace std::chrono_literals;
using Kit::Clock;
using SerialProtocol::FrameCollector;

constexpr unsigned int SEED = 20260301;
constexpr int STREAMS = 60;
constexpr int PIECES = 40; // of a stream
constexpr std::size_t LONGEST = 17;
constexpr std::size_t END = 4; // CRC and trailer

class Dice
{
public:
    explicit Dice(unsigned int seed) : random(seed) {}

    /// 0 to `sides` - 1
    unsigned int Roll(unsigned int sides) { return static_cast<unsigned int>(random() % sides); }

    /// Mostly bytes that mean something.
    char Byte()
    {
        constexpr std::string_view LIKELY = "\xAA\x55\xEF\x0D\x01\x05\x06\x60";
        return Roll(2) == 0 ? LIKELY[Roll(LIKELY.size())] : static_cast<char>(Roll(256));
    }

    std::string Bytes(std::size_t count)
    {
        std::string bytes(count, '\0');
        std::generate(bytes.begin(), bytes.end(), [this] { return Byte(); });
        return bytes;
    }

private:
    std::mt19937 random;
};

/// The length that most frames of a stream have, and that is read: now and then one that no frame can have.
unsigned int Length(Dice& dice)
{
    return dice.Roll(8) == 0 ? dice.Roll(END) : static_cast<unsigned int>(END + 1 + dice.Roll(LONGEST - END));
}

std::string Frame(Dice& dice, std::size_t length)
{
    std::string front = "\xAA" + dice.Bytes(length < END + 1 ? 0 : length - END - 1);
    if (dice.Roll(8) == 0 && length == 10)
    {
        front = Frames::FrontWithASmallCrc();
    }
    const unsigned int crc = Frames::Crc(front);
    const unsigned int wrong = 1 + dice.Roll(255);
    switch (dice.Roll(5))
    {
    case 0:
        return Frames::WithEnd(front, (crc >> 8) ^ wrong, crc & 0xFF);
    case 1:
        return Frames::WithEnd(front, crc >> 8, (crc & 0xFF) ^ wrong);
    case 2:
        return Frames::WithEnd(front, (crc >> 8) ^ wrong, (crc & 0xFF) ^ wrong);
    default:
        return Frames::WithEnd(front, crc >> 8, crc & 0xFF);
    }
}

std::string Piece(Dice& dice, std::size_t length)
{
    switch (dice.Roll(8))
    {
    case 0:
        return dice.Bytes(dice.Roll(30));
    case 1:
        return std::string(1 + dice.Roll(3), '\xAA');
    case 2:
        return "\xEF\x0D";
    case 3:
        return Frame(dice, length).substr(0, dice.Roll(static_cast<unsigned int>(length) + 1));
    case 4:
        return Frame(dice, END + dice.Roll(LONGEST + 2));
    default:
        return Frame(dice, length);
    }
}

bool EndsWithTrailer(std::string_view frame)
{
    return frame.size() >= 2 && frame.ends_with(Frames::TRAILER);
}

/// The rule of the check, from the other side.
bool CrcIsGoodEnough(std::string_view frame)
{
    const auto byte = [frame](std::size_t fromEnd) {
        return static_cast<unsigned char>(frame[frame.size() - fromEnd]);
    };
    const unsigned int crc = Frames::Crc(frame.substr(0, frame.size() - END));
    return byte(END) == crc >> 8 || byte(END - 1) == crc;
}

/// How often each thing came about: without any, the test would have tried nothing.
struct Tally
{
    int accepted = 0;
    int wrongCrc = 0;
    int tooShort = 0;
    int tooLong = 0;
    int timeOuts = 0;
};

class ResponseStreamTest : public Kit::DeviceTest
{
protected:
    void Fill(Dice& dice, std::size_t length)
    {
        for (int piece = 0; piece < PIECES; ++piece)
        {
            peripheral.Hear(Piece(dice, length));
            peripheral.Pause(dice.Roll(3) == 0 ? dice.Roll(20) : 0);
        }
    }

    void ReadOnce(unsigned int expected)
    {
        peripheral.taken.clear();
        const auto begin = Clock::Elapsed();
        const bool accepted = peripheral.ReadCmdMsg(expected);
        const auto duration = Clock::Elapsed() - begin;
        const std::string& taken = peripheral.taken;
        const std::string frame = taken.substr(std::min(taken.find('\xAA'), taken.size()));

        EXPECT_LE(duration, 3s);
        EXPECT_LE(frame.size(), expected + 1);
        for (std::size_t end = 0; end < frame.size(); ++end)
        {
            EXPECT_FALSE(EndsWithTrailer(frame.substr(0, end))) << "it read on behind a trailer";
        }
        if (duration < 3s)
        {
            EXPECT_TRUE(EndsWithTrailer(frame) || frame.size() == expected + 1) << "it gave up early";
        }
        const bool length = frame.size() == expected && expected >= END;
        EXPECT_EQ(accepted, length && CrcIsGoodEnough(frame));

        ++(accepted                  ? tally.accepted
           : length                  ? tally.wrongCrc
           : duration == 3s          ? tally.timeOuts
           : frame.size() > expected ? tally.tooLong
                                     : tally.tooShort);
    }

    Peripheral peripheral;
    Tally tally;
};

TEST_F(ResponseStreamTest, AFrameIsReceivedExactlyWhenItIsOne)
{
    int reads = 0;
    for (unsigned int stream = 0; stream < STREAMS; ++stream)
    {
        const unsigned int seed = SEED + stream;
        Dice dice(seed);
        const unsigned int length = Length(dice);
        Fill(dice, length);
        while (!peripheral.line.empty() && !HasFailure())
        {
            ReadOnce(length);
            ++reads;
        }
        ASSERT_FALSE(HasFailure()) << "seed " << seed;
    }
    EXPECT_THAT(log.Console(), testing::SizeIs(reads - tally.accepted)) << "a line for each failure";
    EXPECT_THAT(log.File(), testing::IsEmpty());
    EXPECT_GT(tally.accepted, 300);
    EXPECT_GT(tally.wrongCrc, 100);
    EXPECT_GT(tally.tooShort, 100);
    EXPECT_GT(tally.tooLong, 100);
    EXPECT_GT(tally.timeOuts, 50);
}

TEST(FrameCollectorStreamTest, NothingIsWrittenBeyondOneByteMoreThanExpected)
{
    constexpr unsigned char GUARD = 0xC5;
    constexpr std::size_t ROOM = 20;
    int full = 0;
    for (unsigned int stream = 0; stream < 3000; ++stream)
    {
        const unsigned int seed = SEED + stream;
        Dice dice(seed);
        const std::size_t expected = dice.Roll(LONGEST + 8);
        const std::size_t room = dice.Roll(2) == 0 ? ROOM : dice.Roll(ROOM + 1);
        const std::size_t most = std::min(expected + 1, room);
        std::array<unsigned char, 2 * ROOM> storage{};
        storage.fill(GUARD);
        FrameCollector collector({storage.data(), room}, expected);

        std::string bytes;
        for (int piece = 0; piece < 3; ++piece)
        {
            bytes += Piece(dice, expected);
        }
        std::string frame;
        bool ended = most == 0;
        for (const char byte : bytes)
        {
            if (!ended && (byte == '\xAA' || !frame.empty()))
            {
                frame += byte;
                ended = frame.size() == most || EndsWithTrailer(frame);
            }
            ASSERT_EQ(collector.Take(static_cast<unsigned char>(byte)), ended) << "seed " << seed;
            ASSERT_EQ(collector.Count(), frame.size()) << "seed " << seed;
        }
        const auto end = storage.begin() + static_cast<std::ptrdiff_t>(frame.size());
        EXPECT_EQ(std::string(storage.begin(), end), frame);
        EXPECT_TRUE(std::all_of(end, storage.end(), [](unsigned char byte) { return byte == GUARD; }));
        full += frame.size() == most ? 1 : 0;
        ASSERT_FALSE(testing::Test::HasFailure()) << "seed " << seed;
    }
    EXPECT_GT(full, 300);
}

}

}
