// From end to end: the library with an emulated reader at the other end of its line.

#include "DriverId/DriverId.h"

#include "tests/kit/DeviceTest.h"
#include "tests/kit/TempDir.h"
#include "tests/virtual-unit/ports/EmulatedLine.h"
#include "virtual-unit/peripherals/KeyReader.h"

#include <chrono>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace
{

using namespace std::chrono_literals;
using namespace std::string_literals;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using VirtualUnit::KeyReader;
using FrameType = KeyReader::FrameType;
using Texts = std::vector<std::string>;

constexpr const char* PORT = "/dev/ttymxc2";
constexpr const char* CARD = "/mnt/sdcard";

const std::string PRESENCE = "\xAA\x55\x02\x01\x01\x00\x86\xAF\xEF\x0D"s;
const std::string ANNOYING_ON = "\xAA\x55\x02\x01\x01\x01\x06\xAA\xEF\x0D"s;
const std::string ANNOYING_OFF = "\xAA\x55\x02\x01\x01\x02\x06\xA0\xEF\x0D"s;
const std::string REQUEST_KEY = "\xAA\x55\x02\x01\x01\x03\x86\xA5\xEF\x0D"s;
const std::string FORGET_KEY = "\xAA\x55\x02\x01\x01\x09\x86\x99\xEF\x0D"s;

const std::string KEY = "00A1B2C3D4E5";
const std::string UNTOUCHED = "what was there before";

constexpr auto REPLY_TIME = 3s;
constexpr auto LOOK_INTERVAL = 100ms; // a reply that is there is found by the next look
constexpr auto PRESENCE_PAUSE = 200ms;
constexpr std::size_t SHORT_FRAME = 10;
constexpr std::size_t LONG_PAYLOAD = 8; // of a frame of 17 bytes

/// A path of the unit leads elsewhere while one lives.
class Redirection
{
public:
    Redirection(std::string from, const std::string& to) : path(std::move(from))
    {
        Kit::System::Redirect(path, to);
    }

    ~Redirection() { Kit::System::Unredirect(path); }

    Redirection(const Redirection&) = delete;
    Redirection& operator=(const Redirection&) = delete;

private:
    std::string path;
};

class EmulatedReader : public Kit::DeviceTest
{
protected:
    EmulatedReader() { line.Start(); }

    ~EmulatedReader() override
    {
        device.Dispose();
        line.Stop();
    }

    /// The library has found the reader; what that did is not looked at any more.
    void Find()
    {
        ASSERT_TRUE(device.Init());
        ForgetLog();
        sent = line.ReceivedText().size();
    }

    /// What is left on the line is dropped by that, once it has arrived.
    void InitAnew()
    {
        std::this_thread::sleep_for(LOOK_INTERVAL);
        EXPECT_TRUE(device.Init());
    }

    template <class Change>
    void Locked(Change change)
    {
        line.Locked([&] { change(keys); });
    }

    void Order(const KeyReader::Faults& faults)
    {
        Locked([&](KeyReader& reader) { reader.faults = faults; });
    }

    bool Annoying()
    {
        return line.Locked([this] { return keys.Annoying(); });
    }

    /// The ID that is told; UNTOUCHED when that fails.
    std::string Request()
    {
        std::string id = UNTOUCHED;
        const bool told = device.RequestDriverId(id);
        EXPECT_EQ(told, id != UNTOUCHED);
        return id;
    }

    /// What the library has sent since Find().
    std::string Sent() const { return line.ReceivedText().substr(sent); }

    void ForgetLog()
    {
        fileSeen = log.File().size();
        consoleSeen = log.ConsoleOnly().size();
    }

    Texts FileLines() const { return Behind(log.File(), fileSeen); }

    Texts ConsoleOnlyLines() const { return Behind(log.ConsoleOnly(), consoleSeen); }

    /// No command works, and each says why; `reason` is the line that only the console gets.
    void ExpectThatNothingIsRead(const std::string& reason)
    {
        ForgetLog();
        EXPECT_FALSE(device.CheckDevicePresence());
        EXPECT_FALSE(device.StartAnnoying());
        EXPECT_FALSE(device.StopAnnoying());
        EXPECT_FALSE(device.RequestDriverIdReset());
        EXPECT_EQ(Request(), UNTOUCHED);
        EXPECT_THAT(FileLines(),
                    ElementsAre("Send ACK command to identify driver id device",
                                "[ERROR]ACK command execution failed: read error",
                                "[ERROR]Annoying command execution failed: Read error",
                                "[ERROR]Stop annoying failed: Read error", "Send Driver ID reset",
                                "[ERROR]Request driver id reset execution failed: read error",
                                "[ERROR]Request driver id execution failed: Read driver key error"));
        EXPECT_THAT(ConsoleOnlyLines(), ElementsAre(reason, reason, reason, reason, reason));
    }

    /// Each command works, as without any fault.
    void ExpectThatAllIsWell(const std::string& id)
    {
        ForgetLog();
        EXPECT_TRUE(device.CheckDevicePresence());
        EXPECT_TRUE(device.StartAnnoying());
        EXPECT_TRUE(Annoying());
        EXPECT_TRUE(device.StopAnnoying());
        EXPECT_FALSE(Annoying());
        EXPECT_TRUE(device.RequestDriverIdReset());
        EXPECT_EQ(Request(), id);
        EXPECT_THAT(FileLines(),
                    ElementsAre("Send ACK command to identify driver id device", "Send Driver ID reset"));
        EXPECT_THAT(ConsoleOnlyLines(), IsEmpty());
    }

    Redirection card{CARD, Kit::TempDir::Path() + "/card"};
    KeyReader keys;
    EmulatedLine line{keys};
    Redirection port{PORT, line.Path()};
    TavDevice::DriverId device;

private:
    static Texts Behind(Texts lines, std::size_t seen)
    {
        lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(seen));
        return lines;
    }

    std::size_t sent = 0;
    std::size_t fileSeen = 0;
    std::size_t consoleSeen = 0;
};

const std::string NO_FRAME = "[ERROR]DID: read buffer ==> error";
const std::string WRONG_CRC = "[ERROR]DID: CRC error";

KeyReader::Faults With(void (*change)(KeyReader::Faults& faults))
{
    KeyReader::Faults faults;
    change(faults);
    return faults;
}

TEST_F(EmulatedReader, IsFoundAtOnceAndForgetsItsKey)
{
    Locked([](KeyReader& reader) {
        reader.Present(KEY);
        reader.TakeAway();
    });
    EXPECT_TRUE(device.Init());
    EXPECT_EQ(line.ReceivedText(), PRESENCE + FORGET_KEY);
    EXPECT_THAT(log.File(),
                ElementsAre("[SERIAL] Try to open device /dev/ttymxc2", "[SERIAL] Serial port flashed",
                            "Send ACK command to identify driver id device", "Driver id device present",
                            "Send Driver ID reset"));
    EXPECT_LE(Kit::Clock::Elapsed(), 2 * LOOK_INTERVAL);
    EXPECT_EQ(Request(), "");
}

TEST_F(EmulatedReader, ThatComesWithTheFifthCheckIsFound)
{
    Order(With([](auto& faults) { faults.absentChecks = 4; }));
    EXPECT_TRUE(device.Init());
    EXPECT_EQ(line.ReceivedText(), PRESENCE + PRESENCE + PRESENCE + PRESENCE + PRESENCE + FORGET_KEY);
    EXPECT_THAT(log.File(), Contains("[ERROR]ACK command execution failed: read error").Times(4));
    EXPECT_THAT(log.ConsoleOnly(), Contains(NO_FRAME).Times(4));
    EXPECT_THAT(log.File(), Contains("Driver id device present"));
    EXPECT_GE(Kit::Clock::Elapsed(), 4 * (REPLY_TIME + PRESENCE_PAUSE));
    EXPECT_LE(Kit::Clock::Elapsed(), 4 * (REPLY_TIME + PRESENCE_PAUSE) + 2 * LOOK_INTERVAL);
    ExpectThatAllIsWell("");
}

TEST_F(EmulatedReader, ThatDoesNotComeByTheFifthCheckIsNotFound)
{
    Order(With([](auto& faults) { faults.absentChecks = 5; }));
    EXPECT_FALSE(device.Init());
    EXPECT_EQ(line.ReceivedText(), PRESENCE + PRESENCE + PRESENCE + PRESENCE + PRESENCE);
    EXPECT_EQ(log.File().back(), "Driver Id device not present");
    EXPECT_EQ(Kit::Clock::Elapsed(), 5 * REPLY_TIME + 4 * PRESENCE_PAUSE);

    EXPECT_FALSE(device.StartAnnoying());
    EXPECT_FALSE(device.StopAnnoying());
    ForgetLog();
    EXPECT_EQ(Request(), UNTOUCHED) << "the port is closed";
    EXPECT_THAT(FileLines(), ElementsAre("[ERROR]Request driver id execution failed: Send error"));
    EXPECT_TRUE(device.Init()) << "it may be looked for again";
}

TEST_F(EmulatedReader, AnnoysAndStopsIt)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    EXPECT_FALSE(Annoying());
    EXPECT_TRUE(device.StartAnnoying());
    EXPECT_TRUE(Annoying());
    EXPECT_TRUE(device.StopAnnoying());
    EXPECT_FALSE(Annoying());
    EXPECT_EQ(Sent(), ANNOYING_ON + ANNOYING_OFF);
    EXPECT_THAT(FileLines(), IsEmpty());
}

TEST_F(EmulatedReader, TellsItsKeyAsTwelveDigits)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    for (const std::string& key : {KEY, "05AB00000010"s, "FFFFFFFFFFFF"s, "000000000001"s, "0123456789AB"s})
    {
        Locked([&](KeyReader& reader) { reader.Present(key); });
        EXPECT_EQ(Request(), key);
    }
    EXPECT_EQ(Sent(), REQUEST_KEY + REQUEST_KEY + REQUEST_KEY + REQUEST_KEY + REQUEST_KEY);
    EXPECT_THAT(FileLines(), IsEmpty());
}

TEST_F(EmulatedReader, TellsItsKeyInUpperCase)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    Locked([](KeyReader& reader) { reader.Present("abcdefabcdef"); });
    EXPECT_EQ(Request(), "ABCDEFABCDEF");
}

TEST_F(EmulatedReader, WithoutAKeyTellsAnEmptyId)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    EXPECT_EQ(Request(), "");
    EXPECT_THAT(FileLines(), IsEmpty());
}

TEST_F(EmulatedReader, TellsAKeyThatWasTakenAwayUntilItIsReset)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    Locked([](KeyReader& reader) {
        reader.Present(KEY);
        reader.TakeAway();
    });
    EXPECT_EQ(Request(), KEY);
    EXPECT_EQ(Request(), KEY);
    EXPECT_TRUE(device.RequestDriverIdReset());
    EXPECT_EQ(Request(), "");
}

TEST_F(EmulatedReader, TellsAKeyThatStaysAfterAResetToo)
{
    Locked([](KeyReader& reader) { reader.Present(KEY); });
    ASSERT_NO_FATAL_FAILURE(Find());
    EXPECT_EQ(Request(), KEY);
}

TEST_F(EmulatedReader, TakesAKeyOfEightZerosAtTheEndForNone)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    Locked([](KeyReader& reader) { reader.Present("ABCD00000000"); });
    EXPECT_EQ(Request(), "");
    Locked([](KeyReader& reader) { reader.Present("000000010000"); });
    EXPECT_EQ(Request(), "000000010000");
}

TEST_F(EmulatedReader, CannotTellAKeyWithTheEndOfAFrameInIt)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    Locked([](KeyReader& reader) { reader.Present("00000DEF0000"); });
    EXPECT_EQ(Request(), UNTOUCHED);
    EXPECT_THAT(FileLines(), ElementsAre("[ERROR]Request driver id execution failed: Read driver key error"));
    EXPECT_THAT(ConsoleOnlyLines(), ElementsAre(NO_FRAME));
    EXPECT_TRUE(device.CheckDevicePresence()) << "the rest of the reply is no harm";
}

TEST_F(EmulatedReader, ThatIsSilentIsWaitedForThreeSecondsEachTime)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    Order(With([](auto& faults) { faults.silent = true; }));
    const auto begin = Kit::Clock::Elapsed();
    ExpectThatNothingIsRead(NO_FRAME);
    EXPECT_EQ(Kit::Clock::Elapsed() - begin, 5 * REPLY_TIME);
    Order({});
    ExpectThatAllIsWell("");
}

TEST_F(EmulatedReader, ThatIsSlowIsWaitedFor)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    Locked([](KeyReader& reader) { reader.Present(KEY); });
    Order(With([](auto& faults) { faults.delay = 2850ms; }));
    const auto begin = Kit::Clock::Elapsed();
    EXPECT_EQ(Request(), KEY);
    EXPECT_GE(Kit::Clock::Elapsed() - begin, 2850ms);
    EXPECT_LE(Kit::Clock::Elapsed() - begin, 2850ms + LOOK_INTERVAL);
    ExpectThatAllIsWell(KEY);
}

TEST_F(EmulatedReader, ThatIsTooSlowIsTakenForSilentAndIsRightAgainWithTheNextCommand)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    Locked([](KeyReader& reader) { reader.Present(KEY); });
    Order(With([](auto& faults) { faults.delay = 3100ms; }));
    EXPECT_FALSE(device.CheckDevicePresence());
    EXPECT_THAT(ConsoleOnlyLines(), ElementsAre(NO_FRAME));
    std::this_thread::sleep_for(200ms);

    Order({});
    EXPECT_EQ(Request(), KEY);
    ExpectThatAllIsWell(KEY);
}

TEST_F(EmulatedReader, ThatIsTooSlowOnceNeverTellsTheKeyOfTheRequestBefore)
{
    const std::string other = "0123456789AB";
    ASSERT_NO_FATAL_FAILURE(Find());
    Locked([](KeyReader& reader) { reader.Present(KEY); });
    Order(With([](auto& faults) { faults.delay = 3100ms; }));
    EXPECT_EQ(Request(), UNTOUCHED);
    std::this_thread::sleep_for(200ms);

    Order({});
    Locked([&](KeyReader& reader) { reader.Present(other); });
    EXPECT_EQ(Request(), other);
    EXPECT_EQ(Request(), other);
}

TEST_F(EmulatedReader, NoiseBeforeAReplyDoesNoHarm)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    for (const std::string& noise : {"\xEF\x0D"s, "\x55\x02\x0D\x0A"s, "\0\xFF"s, std::string(1000, '\x55')})
    {
        KeyReader::Faults faults;
        faults.noise = noise;
        Order(faults);
        ExpectThatAllIsWell("");
    }
}

TEST_F(EmulatedReader, NoiseThatLooksLikeTheBeginOfAReplySpoilsThatOne)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    for (const std::string& noise : {"\xAA"s, "\xAA\x55"s, "\xEF\x0D\xAA"s})
    {
        KeyReader::Faults faults;
        faults.noise = noise;
        Order(faults);
        ExpectThatNothingIsRead(NO_FRAME);
        Order({});
        ExpectThatAllIsWell("");
    }
}

TEST_F(EmulatedReader, NoiseThatLooksLikeAReplySpoilsThatOne)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    for (const std::string& noise : {"\xAA\xEF\x0D"s, std::string(30, '\xAA')})
    {
        KeyReader::Faults faults;
        faults.noise = noise;
        Order(faults);
        EXPECT_EQ(Request(), UNTOUCHED);
        Order({});
        std::this_thread::sleep_for(LOOK_INTERVAL); // all of it has come
        ExpectThatAllIsWell("");
    }
}

TEST_F(EmulatedReader, AReplyThatIsCutShortIsNone)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    for (std::size_t bytes = 0; bytes < SHORT_FRAME; ++bytes)
    {
        KeyReader::Faults faults;
        faults.bytesSent = bytes;
        Order(faults);
        ExpectThatNothingIsRead(NO_FRAME);
    }
    Order({});
    ExpectThatAllIsWell("");
}

TEST_F(EmulatedReader, AnIdentifierThatIsCutShortIsNone)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    Locked([](KeyReader& reader) { reader.Present(KEY); });
    for (std::size_t bytes = SHORT_FRAME; bytes < SHORT_FRAME + LONG_PAYLOAD - 1; ++bytes)
    {
        KeyReader::Faults faults;
        faults.bytesSent = bytes;
        Order(faults);
        EXPECT_EQ(Request(), UNTOUCHED);
    }
    EXPECT_THAT(ConsoleOnlyLines(), Each(NO_FRAME));
    Order({});
    ExpectThatAllIsWell(KEY);
}

TEST_F(EmulatedReader, RepliesInPiecesArriveWhole)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    Locked([](KeyReader& reader) { reader.Present(KEY); });
    for (const std::size_t bytes : {1U, 2U, 3U, 7U, 9U, 16U})
    {
        Locked([bytes](KeyReader& reader) { reader.SetLine({.pieceBytes = bytes, .pieceGap = 170ms}); });
        ExpectThatAllIsWell(KEY);
    }
}

TEST_F(EmulatedReader, AtTheLinesOwnSpeedAllIsWell)
{
    Locked([](KeyReader& reader) {
        reader.Present(KEY);
        reader.SetLine({.bytesPerSecond = 960});
    });
    ASSERT_NO_FATAL_FAILURE(Find());
    ExpectThatAllIsWell(KEY);
}

TEST_F(EmulatedReader, AWrongHighByteOfTheCrcIsSeen)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    Order(With([](auto& faults) { faults.wrongCrcHigh = true; }));
    ExpectThatNothingIsRead(WRONG_CRC);
    Order(With([](auto& faults) { faults.wrongCrcHigh = faults.wrongCrcLow = true; }));
    ExpectThatNothingIsRead(WRONG_CRC);
    Order({});
    ExpectThatAllIsWell("");
}

TEST_F(EmulatedReader, AWrongLowByteOfTheCrcIsLetPass)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    Locked([](KeyReader& reader) { reader.Present(KEY); });
    Order(With([](auto& faults) { faults.wrongCrcLow = true; }));
    ExpectThatAllIsWell(KEY);
}

TEST_F(EmulatedReader, AnErrorOrAStatusIsNoAcknowledge)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    for (const FrameType type : {FrameType::Error60, FrameType::Error99, FrameType::Status,
                                 FrameType::Identifier, FrameType::Command, FrameType{0x42}})
    {
        KeyReader::Faults faults;
        faults.substitute = {type};
        Order(faults);
        ForgetLog();
        EXPECT_FALSE(device.CheckDevicePresence());
        EXPECT_THAT(FileLines(), ElementsAre("Send ACK command to identify driver id device",
                                             "ACK command, device not present"));
        ForgetLog();
        EXPECT_FALSE(device.StartAnnoying());
        EXPECT_FALSE(device.StopAnnoying());
        EXPECT_THAT(FileLines(), IsEmpty());
        EXPECT_FALSE(device.RequestDriverIdReset());
        EXPECT_THAT(FileLines(), ElementsAre("Send Driver ID reset"));
        EXPECT_THAT(ConsoleOnlyLines(), IsEmpty());
    }
    Order({});
    ExpectThatAllIsWell("");
}

TEST_F(EmulatedReader, AShortFrameIsNoIdentifier)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    for (const FrameType type :
         {FrameType::Error60, FrameType::Error99, FrameType::Status, FrameType::Acknowledge})
    {
        KeyReader::Faults faults;
        faults.substitute = {type};
        Order(faults);
        ForgetLog();
        EXPECT_EQ(Request(), UNTOUCHED);
        EXPECT_THAT(FileLines(),
                    ElementsAre("[ERROR]Request driver id execution failed: Read driver key error"));
        EXPECT_THAT(ConsoleOnlyLines(), ElementsAre(NO_FRAME));
    }
}

TEST_F(EmulatedReader, AnotherFrameOfItsLengthIsNoIdentifier)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    for (const FrameType type :
         {FrameType::Error60, FrameType::Error99, FrameType::Status, FrameType::Acknowledge, FrameType{0x42}})
    {
        KeyReader::Faults faults;
        faults.substitute = {type, LONG_PAYLOAD};
        Order(faults);
        ForgetLog();
        EXPECT_EQ(Request(), UNTOUCHED);
        EXPECT_THAT(FileLines(), ElementsAre("[ERROR]Error, no driver Id found"));
        EXPECT_THAT(ConsoleOnlyLines(), IsEmpty());
    }
}

TEST_F(EmulatedReader, AnErrorIsPrintedWithItsType)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    for (const FrameType type : {FrameType::Error60, FrameType::Error99})
    {
        KeyReader::Faults faults;
        faults.substitute = {type};
        Order(faults);
        testing::internal::CaptureStdout();
        device.CheckDevicePresence();
        EXPECT_EQ(testing::internal::GetCapturedStdout(), type == FrameType::Error60
                                                              ? "ERROR FROM DRIVER ID...96..."
                                                              : "ERROR FROM DRIVER ID...153...");
    }
}

TEST_F(EmulatedReader, AStatusIsKept)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    EXPECT_EQ(device.GetLastStatus(), 0);
    Locked([](KeyReader& reader) { reader.Present(KEY); });
    Order(With([](auto& faults) { faults.substitute = {FrameType::Status}; }));
    device.StartAnnoying();
    EXPECT_EQ(device.GetLastStatus(), 3);
    device.StopAnnoying();
    EXPECT_EQ(device.GetLastStatus(), 2);
}

TEST_F(EmulatedReader, AReplyThatComesTwiceIsTakenForTheNextOneToo)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    Order(With([](auto& faults) { faults.doubled = true; }));
    EXPECT_TRUE(device.CheckDevicePresence());
    Order({});
    EXPECT_EQ(Request(), UNTOUCHED);
    EXPECT_THAT(ConsoleOnlyLines(), ElementsAre(NO_FRAME));
    InitAnew();
    ExpectThatAllIsWell("");
}

TEST_F(EmulatedReader, ThatIsUnpluggedTakesNoCommand)
{
    ASSERT_NO_FATAL_FAILURE(Find());
    line.HangUp();
    const auto begin = Kit::Clock::Elapsed();
    EXPECT_FALSE(device.CheckDevicePresence());
    EXPECT_EQ(Kit::Clock::Elapsed() - begin, 600ms);
    EXPECT_THAT(FileLines(), Contains("[ERROR]ACK command execution failed: send error"));
    EXPECT_EQ(Request(), UNTOUCHED);
    EXPECT_THAT(FileLines(), Contains("[ERROR]Request driver id execution failed: Send error"));
}

TEST_F(EmulatedReader, ThatIsPluggedInLaterIsFoundByTheNextInit)
{
    Order(With([](auto& faults) { faults.silent = true; }));
    EXPECT_FALSE(device.Init());
    Order({});
    EXPECT_TRUE(device.Init());
    ExpectThatAllIsWell("");
}

}
