#include "SerialProtocol/Crc16.h"

#include "SerialProtocol/ISerialComm.h"
#include "tests/SerialProtocol/Frames.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

namespace
{

using Frames::Span;
using SerialProtocol::Crc16;
using SerialProtocol::ISerialComm;

const std::string CHECK_DIGITS = "123456789";
constexpr unsigned int CHECK_VALUE = 0xFEE8;

std::string RandomBytes(std::mt19937& random, std::size_t count)
{
    std::string bytes(count, '\0');
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
    return bytes;
}

TEST(Crc16Test, OfTheCheckDigitsIsTheCheckValue)
{
    EXPECT_EQ(Crc16(0, Span(CHECK_DIGITS)), CHECK_VALUE);
    EXPECT_EQ(Frames::Crc(CHECK_DIGITS), CHECK_VALUE) << "what the other tests compare with";
}

TEST(Crc16Test, OfNoBytesIsWhatItBeganWith)
{
    EXPECT_EQ(Crc16(0, {}), 0u);
    EXPECT_EQ(Crc16(0xABCD, {}), 0xABCDu);
    EXPECT_EQ(Crc16(0xABCD, Span("x").first(0)), 0xABCDu);
}

TEST(Crc16Test, OfOneByteIsThatOfTheDefinition)
{
    for (unsigned int byte = 0; byte <= 0xFF; ++byte)
    {
        const std::string text(1, static_cast<char>(byte));
        EXPECT_EQ(Crc16(0, Span(text)), Frames::Crc(text)) << byte;
    }
    EXPECT_EQ(Crc16(0, Span("\x01")), 0x8005u) << "the polynomial itself";
}

TEST(Crc16Test, OfKnownFramesIsTheirs)
{
    using namespace std::string_literals;
    EXPECT_EQ(Crc16(0, Span("\xAA\x55\x02\x01\x01\x10"s)), 0x06CCu);
    EXPECT_EQ(Crc16(0, Span("\xAA\x55\x02\x01\x01\x00"s)), 0x86AFu);
}

TEST(Crc16Test, OfAnyLengthIsThatOfTheDefinition)
{
    std::mt19937 random(20260301);
    for (std::size_t length = 0; length <= 300; ++length)
    {
        const std::string bytes = RandomBytes(random, length);
        const auto begin = static_cast<unsigned short>(random());
        EXPECT_EQ(Crc16(0, Span(bytes)), Frames::Crc(bytes)) << length << " bytes";
        EXPECT_EQ(Crc16(begin, Span(bytes)), Frames::Crc(bytes, begin)) << length << " bytes, from " << begin;
    }
}

TEST(Crc16Test, GoesOnFromThatOfTheBytesBefore)
{
    for (std::size_t cut = 0; cut <= CHECK_DIGITS.size(); ++cut)
    {
        const unsigned short front = Crc16(0, Span(CHECK_DIGITS).first(cut));
        EXPECT_EQ(Crc16(front, Span(CHECK_DIGITS).subspan(cut)), CHECK_VALUE) << cut;
    }
}

TEST(Crc16Test, OfBytesWithTheirCrcBehindThemIsZero)
{
    std::mt19937 random(20260302);
    for (std::size_t length = 0; length <= 40; ++length)
    {
        std::string bytes = RandomBytes(random, length);
        const unsigned short crc = Crc16(0, Span(bytes));
        bytes += static_cast<char>(crc >> 8);
        bytes += static_cast<char>(crc & 0xFF);
        EXPECT_EQ(Crc16(0, Span(bytes)), 0u) << length;
    }
}

TEST(Crc16Test, IsOfferedWithTheProtocolToo)
{
    std::vector<unsigned char> bytes(CHECK_DIGITS.begin(), CHECK_DIGITS.end());
    ISerialComm protocol;
    EXPECT_EQ(protocol.crc16(0, bytes.data(), 9), CHECK_VALUE);
    EXPECT_EQ(protocol.crc16(protocol.crc16(0, bytes.data(), 4), bytes.data() + 4, 5), CHECK_VALUE);
    EXPECT_EQ(protocol.crc16(0x1234, nullptr, 0), 0x1234u);
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), CHECK_DIGITS) << "only read";

    std::vector<unsigned char> most(255, 0xAA);
    EXPECT_EQ(protocol.crc16(0, most.data(), 255), Frames::Crc(std::string(255, '\xAA')));
}

}
