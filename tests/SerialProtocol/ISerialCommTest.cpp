// Sending, decoding and the small things; ISerialCommReadTest.cpp has the receiving.

#include "SerialProtocol/ISerialComm.h"

#include "tests/SerialProtocol/Frames.h"
#include "tests/SerialProtocol/Peripheral.h"
#include "tests/base/Tavbase/Interfaces/VirtualSlot.h"
#include "tests/kit/DeviceTest.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <type_traits>

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

namespace SerialProtocolTests
{

namespace
{

using namespace std::chrono_literals;
using namespace std::string_literals;
using SerialProtocol::ISerialComm;
using SerialProtocol::ISerialCommInterface;

// Shape ------------------------------------------------------------------------------------------------

template <class Class>
void ExpectSlots()
{
    EXPECT_EQ(Tests::VirtualSlot(&Class::OnSend), 2);
    EXPECT_EQ(Tests::VirtualSlot(&Class::OnRead), 3);
    EXPECT_EQ(Tests::VirtualSlot(&Class::SendCmdMsg), 4);
    EXPECT_EQ(Tests::VirtualSlot(&Class::ReadCmdMsg), 5);
    EXPECT_EQ(Tests::VirtualSlot(&Class::ParseRcvMsg), 6);
}

TEST(ISerialCommShapeTest, VirtualOperationsFollowTheTwoDestructors)
{
    ExpectSlots<ISerialCommInterface>();
    ExpectSlots<ISerialComm>();
    EXPECT_EQ(Tests::VirtualSlot(&ISerialComm::ClearBuffers), -1);
    EXPECT_EQ(Tests::VirtualSlot(&ISerialComm::GetLastStatus), -1);
}

TEST(ISerialCommShapeTest, TheInterfaceIsAbstractAndHoldsNothing)
{
    static_assert(std::is_abstract_v<ISerialCommInterface>);
    static_assert(std::has_virtual_destructor_v<ISerialCommInterface>);
    static_assert(sizeof(ISerialCommInterface) == sizeof(void*));
    static_assert(std::is_base_of_v<ISerialCommInterface, ISerialComm>);
    static_assert(!std::is_abstract_v<ISerialComm>);
    static_assert(!std::is_copy_constructible_v<ISerialComm> && !std::is_copy_assignable_v<ISerialComm>);
    const std::unique_ptr<ISerialCommInterface> destroyedThroughIt = std::make_unique<ISerialComm>();
    EXPECT_NE(destroyedThroughIt, nullptr);
}

// Without a line ---------------------------------------------------------------------------------------

TEST(ISerialCommTest, WithoutALineNothingIsSentOrRead)
{
    ISerialComm protocol;
    TavubufferDynamic buffer(1);
    EXPECT_FALSE(protocol.OnSend(buffer));
    EXPECT_FALSE(protocol.OnRead(buffer));
    EXPECT_EQ(buffer.length, 0u);
    EXPECT_EQ(*buffer.data, 0);
    EXPECT_FALSE(protocol.SendCmdMsg(0x10));
    EXPECT_EQ(protocol.ParseRcvMsg(nullptr), 5);
    EXPECT_EQ(protocol.GetLastStatus(), 0);
}

// Sending ----------------------------------------------------------------------------------------------

TEST(ISerialCommSendTest, CommandsGoOutAsWholeFrames)
{
    Peripheral peripheral;
    EXPECT_TRUE(peripheral.SendCmdMsg(0x10));
    EXPECT_TRUE(peripheral.SendCmdMsg(0));
    EXPECT_TRUE(peripheral.SendCmdMsg(1));
    EXPECT_TRUE(peripheral.SendCmdMsg(2));
    EXPECT_TRUE(peripheral.SendCmdMsg(3));
    EXPECT_TRUE(peripheral.SendCmdMsg(9));
    EXPECT_THAT(peripheral.sent, ElementsAre("\xAA\x55\x02\x01\x01\x10\x06\xCC\xEF\x0D"s,
                                             "\xAA\x55\x02\x01\x01\x00\x86\xAF\xEF\x0D"s,
                                             "\xAA\x55\x02\x01\x01\x01\x06\xAA\xEF\x0D"s,
                                             "\xAA\x55\x02\x01\x01\x02\x06\xA0\xEF\x0D"s,
                                             "\xAA\x55\x02\x01\x01\x03\x86\xA5\xEF\x0D"s,
                                             "\xAA\x55\x02\x01\x01\x09\x86\x99\xEF\x0D"s));
    EXPECT_EQ(peripheral.looks, 0u);
}

TEST(ISerialCommSendTest, EveryCommandHasItsFrame)
{
    Peripheral peripheral;
    for (unsigned int command = 0; command <= 0xFF; ++command)
    {
        EXPECT_TRUE(peripheral.SendCmdMsg(static_cast<unsigned char>(command)));
        EXPECT_EQ(peripheral.sent.at(command), Frames::Command(static_cast<unsigned char>(command)))
            << command;
    }
    ASSERT_NE(peripheral.sendBuffer, nullptr);
    EXPECT_EQ(peripheral.sendBuffer->capacity, 20u);
    EXPECT_EQ(peripheral.sendBuffer->length, 10u);
}

TEST(ISerialCommSendTest, TheResultIsThatOfTheLine)
{
    Peripheral peripheral;
    peripheral.sends = false;
    EXPECT_FALSE(peripheral.SendCmdMsg(0));
    EXPECT_EQ(peripheral.sent.size(), 1u) << "tried once";
    peripheral.sends = true;
    EXPECT_TRUE(peripheral.SendCmdMsg(0));
}

// Decoding ---------------------------------------------------------------------------------------------

constexpr int ACKNOWLEDGED = 0;
constexpr int STATUS = 1;
constexpr int NO_IDENTIFIER = 2;
constexpr int SENSOR = 3;
constexpr int UNKNOWN = 5;
constexpr int FAILED = -1;

class ISerialCommParseTest : public Kit::DeviceTest
{
protected:
    ISerialCommParseTest() { out.fill(UNTOUCHED); }

    void Receive(const std::string& frame)
    {
        peripheral.SendCmdMsg(0x10);
        peripheral.Hear(frame);
        ASSERT_TRUE(peripheral.ReadCmdMsg(static_cast<unsigned int>(frame.size())));
    }

    /// What was sent last is still there, or has been replaced by zeros.
    bool BuffersKept() const
    {
        const TavubufferDynamic& buffer = *peripheral.sendBuffer;
        const std::string bytes(buffer.data, buffer.data + buffer.capacity);
        EXPECT_TRUE(bytes == std::string(20, '\0') || bytes == Frames::Command(0x10) + std::string(10, '\0'));
        return bytes.front() != '\0';
    }

    bool OutUntouched() const
    {
        return std::all_of(out.begin(), out.end(), [](unsigned char byte) { return byte == UNTOUCHED; });
    }

    static constexpr unsigned char UNTOUCHED = 0xC5;
    Peripheral peripheral;
    std::array<unsigned char, 6> out{};
};

TEST_F(ISerialCommParseTest, AnAcknowledgeIsZeroAndForgotten)
{
    for (unsigned char* const where : {static_cast<unsigned char*>(nullptr), out.data()})
    {
        ASSERT_NO_FATAL_FAILURE(Receive(Frames::Short(0x01)));
        EXPECT_EQ(peripheral.ParseRcvMsg(where), ACKNOWLEDGED);
        EXPECT_FALSE(BuffersKept());
        EXPECT_EQ(peripheral.ParseRcvMsg(where), UNKNOWN);
    }
    EXPECT_TRUE(OutUntouched());
}

TEST_F(ISerialCommParseTest, AStatusIsOneAndItsByteIsKept)
{
    ASSERT_NO_FATAL_FAILURE(Receive(Frames::Short(0x06, 0xA5)));
    EXPECT_EQ(peripheral.GetLastStatus(), 0);
    EXPECT_EQ(peripheral.ParseRcvMsg(nullptr), STATUS);
    EXPECT_EQ(peripheral.GetLastStatus(), 0xA5);
    EXPECT_FALSE(BuffersKept());
    EXPECT_EQ(peripheral.ParseRcvMsg(out.data()), UNKNOWN);
    EXPECT_TRUE(OutUntouched());

    ASSERT_NO_FATAL_FAILURE(Receive(Frames::Short(0x01, 0x5A)));
    EXPECT_EQ(peripheral.ParseRcvMsg(nullptr), ACKNOWLEDGED);
    EXPECT_EQ(peripheral.GetLastStatus(), 0xA5) << "only a status changes it";
    ASSERT_NO_FATAL_FAILURE(Receive(Frames::Short(0x06, 0)));
    EXPECT_EQ(peripheral.ParseRcvMsg(nullptr), STATUS);
    EXPECT_EQ(peripheral.GetLastStatus(), 0);
}

TEST_F(ISerialCommParseTest, AnIdentifierIsThreeAndGivenTheLastByteFirst)
{
    ASSERT_NO_FATAL_FAILURE(Receive(Frames::Long(0x05, "\x10\x20\x30\x40\x50\x60")));
    EXPECT_EQ(peripheral.ParseRcvMsg(out.data()), SENSOR);
    EXPECT_THAT(out, ElementsAre(0x60, 0x50, 0x40, 0x30, 0x20, 0x10));
    EXPECT_FALSE(BuffersKept());
    EXPECT_EQ(peripheral.ParseRcvMsg(out.data()), UNKNOWN);
}

TEST_F(ISerialCommParseTest, OneOfTheFirstFourBytesMakesAnIdentifier)
{
    for (std::size_t i = 0; i < 4; ++i)
    {
        std::string identifier(6, '\0');
        identifier[i] = '\x01';
        ASSERT_NO_FATAL_FAILURE(Receive(Frames::Long(0x05, identifier)));
        EXPECT_EQ(peripheral.ParseRcvMsg(out.data()), SENSOR) << i;
        EXPECT_EQ(out[5 - i], 1) << i;
    }
}

TEST_F(ISerialCommParseTest, FirstFourBytesOfZeroAreNoIdentifierWhateverTheLastTwoAre)
{
    for (const std::string& end : {"\0\0"s, "\xFF\0"s, "\0\x01"s, "\x12\x34"s})
    {
        ASSERT_NO_FATAL_FAILURE(Receive(Frames::Long(0x05, "\0\0\0\0"s + end)));
        EXPECT_EQ(peripheral.ParseRcvMsg(out.data()), NO_IDENTIFIER);
        EXPECT_TRUE(OutUntouched());
        EXPECT_FALSE(BuffersKept());
        EXPECT_EQ(peripheral.ParseRcvMsg(out.data()), UNKNOWN);
    }
}

TEST_F(ISerialCommParseTest, AnIdentifierThatNobodyWantsFailsAndIsKept)
{
    ASSERT_NO_FATAL_FAILURE(Receive(Frames::Long(0x05, "\x10\x20\x30\x40\x50\x60")));
    EXPECT_EQ(peripheral.ParseRcvMsg(nullptr), FAILED);
    EXPECT_TRUE(BuffersKept());
    EXPECT_EQ(peripheral.ParseRcvMsg(nullptr), FAILED);
    EXPECT_EQ(peripheral.ParseRcvMsg(out.data()), SENSOR);
    EXPECT_THAT(out, ElementsAre(0x60, 0x50, 0x40, 0x30, 0x20, 0x10));
}

TEST_F(ISerialCommParseTest, NoIdentifierThatNobodyWantsFailsAndIsKept)
{
    ASSERT_NO_FATAL_FAILURE(Receive(Frames::Long(0x05, std::string(6, '\0'))));
    EXPECT_EQ(peripheral.ParseRcvMsg(nullptr), FAILED);
    EXPECT_TRUE(BuffersKept());
    EXPECT_EQ(peripheral.ParseRcvMsg(out.data()), NO_IDENTIFIER);
}

TEST_F(ISerialCommParseTest, AnErrorOfThePeripheralIsPrintedWithoutALineEnd)
{
    struct Row
    {
        unsigned char type;
        const char* printed;
    };

    for (const Row& row :
         {Row{0x60, "ERROR FROM DRIVER ID...96..."}, Row{0x99, "ERROR FROM DRIVER ID...153..."}})
    {
        ASSERT_NO_FATAL_FAILURE(Receive(Frames::Short(row.type)));
        testing::internal::CaptureStdout();
        const int result = peripheral.ParseRcvMsg(out.data());
        EXPECT_EQ(testing::internal::GetCapturedStdout(), row.printed);
        EXPECT_EQ(result, FAILED);
        EXPECT_TRUE(OutUntouched());
        EXPECT_FALSE(BuffersKept());
        EXPECT_EQ(peripheral.ParseRcvMsg(nullptr), UNKNOWN);
    }
    EXPECT_THAT(log.File(), IsEmpty());
    EXPECT_THAT(log.Console(), IsEmpty());
}

TEST_F(ISerialCommParseTest, AnyOtherTypeIsFiveAndKept)
{
    for (unsigned int type = 0; type <= 0xFF; ++type)
    {
        if (type == 0x01 || type == 0x05 || type == 0x06 || type == 0x60 || type == 0x99)
        {
            continue;
        }
        ASSERT_NO_FATAL_FAILURE(Receive(Frames::Short(static_cast<unsigned char>(type), 0x12)));
        testing::internal::CaptureStdout();
        const int result = peripheral.ParseRcvMsg(out.data());
        const int again = peripheral.ParseRcvMsg(nullptr);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
        EXPECT_EQ(result, UNKNOWN) << type;
        EXPECT_EQ(again, UNKNOWN) << type;
        EXPECT_TRUE(BuffersKept()) << type;
    }
    EXPECT_TRUE(OutUntouched());
    EXPECT_EQ(peripheral.GetLastStatus(), 0);
}

TEST_F(ISerialCommParseTest, BuffersCanBeClearedByHand)
{
    ASSERT_NO_FATAL_FAILURE(Receive(Frames::Short(0x06, 0xA5)));
    peripheral.ClearBuffers();
    EXPECT_FALSE(BuffersKept());
    EXPECT_EQ(peripheral.ParseRcvMsg(nullptr), UNKNOWN);
    EXPECT_EQ(peripheral.GetLastStatus(), 0);
}

TEST_F(ISerialCommParseTest, AReadForgetsWhatWasReceivedBefore)
{
    ASSERT_NO_FATAL_FAILURE(Receive(Frames::Short(0x01)));
    EXPECT_FALSE(peripheral.ReadCmdMsg(10));
    EXPECT_EQ(peripheral.ParseRcvMsg(nullptr), UNKNOWN);
}

TEST_F(ISerialCommParseTest, AReadThatIsRefusedForgetsNothing)
{
    ASSERT_NO_FATAL_FAILURE(Receive(Frames::Short(0x01)));
    EXPECT_FALSE(peripheral.ReadCmdMsg(18));
    EXPECT_EQ(peripheral.ParseRcvMsg(nullptr), ACKNOWLEDGED);
}

// Hexadecimal pairs ------------------------------------------------------------------------------------

TEST(Ascii2ByteTest, UnderstandsEveryPairOfLowerCaseDigits)
{
    constexpr const char* DIGITS = "0123456789abcdef";
    ISerialComm protocol;
    for (int high = 0; high < 16; ++high)
    {
        for (int low = 0; low < 16; ++low)
        {
            std::array<char, 2> pair = {DIGITS[high], DIGITS[low]};
            EXPECT_EQ(protocol.Ascii2Byte(pair.data()), high * 16 + low) << pair[0] << pair[1];
        }
    }
}

TEST(Ascii2ByteTest, GivesSomeByteForAnyOtherPair)
{
    ISerialComm protocol;
    for (int first = -128; first <= 127; ++first)
    {
        for (int second = -128; second <= 127; ++second)
        {
            std::array<char, 2> pair = {static_cast<char>(first), static_cast<char>(second)};
            const std::array<char, 2> before = pair;
            protocol.Ascii2Byte(pair.data());
            ASSERT_EQ(pair, before);
        }
    }
}

// Exceptions of the line ---------------------------------------------------------------------------------

TEST(ISerialCommSendTest, AnExceptionOfTheLineReachesTheCaller)
{
    class Broken : public ISerialComm
    {
    public:
        bool OnSend(TavubufferDynamic&) override { throw std::runtime_error("unplugged"); }
    };

    Broken protocol;
    EXPECT_THROW(protocol.SendCmdMsg(0x10), std::runtime_error);
}

}

}
