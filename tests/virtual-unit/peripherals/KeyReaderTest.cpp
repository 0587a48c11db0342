#include "virtual-unit/peripherals/KeyReader.h"

#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <numeric>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace
{

using namespace std::chrono_literals;
using namespace std::string_literals;
using namespace VirtualUnit;
using testing::ElementsAre;
using testing::IsEmpty;
using FrameType = KeyReader::FrameType;

const std::string PRESENCE = "\xAA\x55\x02\x01\x01\x00\x86\xAF\xEF\x0D"s;
const std::string ANNOYING_ON = "\xAA\x55\x02\x01\x01\x01\x06\xAA\xEF\x0D"s;
const std::string ANNOYING_OFF = "\xAA\x55\x02\x01\x01\x02\x06\xA0\xEF\x0D"s;
const std::string REQUEST_KEY = "\xAA\x55\x02\x01\x01\x03\x86\xA5\xEF\x0D"s;
const std::string FORGET_KEY = "\xAA\x55\x02\x01\x01\x09\x86\x99\xEF\x0D"s;
const std::string UNKNOWN_COMMAND = "\xAA\x55\x02\x01\x01\x10\x06\xCC\xEF\x0D"s;

const std::string PRESENT = "\xAA\x55\x01\x01\x01\x00\xBA\xAF\xEF\x0D"s;
const std::string ANNOYING_IS_ON = "\xAA\x55\x01\x01\x01\x01\x3A\xAA\xEF\x0D"s;
const std::string ANNOYING_IS_OFF = "\xAA\x55\x01\x01\x01\x02\x3A\xA0\xEF\x0D"s;
const std::string FORGOTTEN = "\xAA\x55\x01\x01\x01\x09\xBA\x99\xEF\x0D"s;

const std::string KEY = "00A1B2C3D4E5";
const std::string KEY_REPLY = "\xAA\x55\x05\x01\x08\x01\xE5\xD4\xC3\xB2\xA1\x00\xD6\x22\x36\xEF\x0D"s;
const std::string OTHER_KEY = "0123456789ab";
const std::string OTHER_KEY_IN_ORDER = "\xAB\x89\x67\x45\x23\x01"s;
const std::string NO_KEY_REPLY = "\xAA\x55\x05\x01\x08\x00\x00\x00\x00\x00\x00\x00\x00\xF9\x65\xEF\x0D"s;

constexpr std::size_t NUMBER_OFFSET = 6;
constexpr std::size_t NUMBER_BYTES = 6;

/// A reader, switched on at `now`, and the time.
class Bench
{
public:
    explicit Bench(const KeyReader::Options& options = {}) : reader(options) { reader.Advance(now); }

    std::vector<std::string> Wait(std::chrono::milliseconds time)
    {
        now += time;
        reader.Advance(now);
        return reader.TakeOutput();
    }

    /// What comes within `time`, as one text.
    std::string WaitForText(std::chrono::milliseconds time)
    {
        const std::vector<std::string> output = Wait(time);
        return std::accumulate(output.begin(), output.end(), std::string());
    }

    std::string Ask(std::string_view bytes)
    {
        reader.Receive(bytes, now);
        return WaitForText(0ms);
    }

    SerialPeripheral::TimePoint now{1h};
    KeyReader reader;
};

KeyReader::Options WithKey(const std::string& key = KEY, std::chrono::seconds after = 0s)
{
    KeyReader::Options options;
    options.key = key;
    options.keyAfter = after;
    return options;
}

/// The key's number of an identifier frame, in the order of the line.
std::string NumberIn(const std::string& frame)
{
    return frame.substr(NUMBER_OFFSET, NUMBER_BYTES);
}

TEST(KeyReaderTest, ItAcknowledgesThatItIsThere)
{
    Bench bench;
    EXPECT_EQ(bench.Ask(PRESENCE), PRESENT);
}

TEST(KeyReaderTest, AnnoyingIsSwitchedOnAndOff)
{
    Bench bench;
    EXPECT_FALSE(bench.reader.Annoying());
    EXPECT_EQ(bench.Ask(ANNOYING_ON), ANNOYING_IS_ON);
    EXPECT_TRUE(bench.reader.Annoying());
    EXPECT_EQ(bench.Ask(ANNOYING_ON), ANNOYING_IS_ON);
    EXPECT_TRUE(bench.reader.Annoying());
    EXPECT_EQ(bench.Ask(ANNOYING_OFF), ANNOYING_IS_OFF);
    EXPECT_FALSE(bench.reader.Annoying());
}

TEST(KeyReaderTest, OtherCommandsLeaveAnnoyingAsItIs)
{
    Bench bench;
    bench.Ask(ANNOYING_ON);
    bench.Ask(PRESENCE + REQUEST_KEY + FORGET_KEY + UNKNOWN_COMMAND);
    EXPECT_TRUE(bench.reader.Annoying());
}

TEST(KeyReaderTest, AKeyIsToldFromItsLastByteToItsFirst)
{
    Bench bench(WithKey());
    EXPECT_EQ(bench.Ask(REQUEST_KEY), KEY_REPLY);
}

TEST(KeyReaderTest, WithoutAKeyZerosAreTold)
{
    Bench bench;
    EXPECT_EQ(bench.Ask(REQUEST_KEY), NO_KEY_REPLY);
}

TEST(KeyReaderTest, AnUnknownCommandIsAnError)
{
    Bench bench;
    EXPECT_EQ(bench.Ask(UNKNOWN_COMMAND), "\xAA\x55\x99\x01\x01\x10\xDA\xF6\xEF\x0D"s);
}

TEST(KeyReaderTest, AKeyThatWasTakenAwayIsRememberedUntilItIsToForget)
{
    Bench bench(WithKey());
    bench.reader.TakeAway();
    EXPECT_EQ(bench.Ask(REQUEST_KEY), KEY_REPLY);
    EXPECT_EQ(bench.Ask(REQUEST_KEY), KEY_REPLY);
    EXPECT_EQ(bench.Ask(FORGET_KEY), FORGOTTEN);
    EXPECT_EQ(bench.Ask(REQUEST_KEY), NO_KEY_REPLY);
}

TEST(KeyReaderTest, AKeyThatIsStillInContactIsReadAnew)
{
    Bench bench(WithKey());
    EXPECT_EQ(bench.Ask(FORGET_KEY), FORGOTTEN);
    EXPECT_EQ(bench.Ask(REQUEST_KEY), KEY_REPLY);
}

TEST(KeyReaderTest, TheLastKeyCounts)
{
    Bench bench(WithKey());
    bench.reader.Present(OTHER_KEY);
    EXPECT_EQ(NumberIn(bench.Ask(REQUEST_KEY)), OTHER_KEY_IN_ORDER);
    bench.Ask(FORGET_KEY);
    EXPECT_EQ(NumberIn(bench.Ask(REQUEST_KEY)), OTHER_KEY_IN_ORDER);
    bench.reader.TakeAway();
    bench.reader.TakeAway();
    bench.reader.Present(KEY);
    EXPECT_EQ(bench.Ask(REQUEST_KEY), KEY_REPLY);
}

TEST(KeyReaderTest, AKeyMayBePresentedLater)
{
    Bench bench(WithKey(KEY, 5s));
    EXPECT_EQ(bench.reader.NextDeadline(), bench.now + 5s);
    bench.Wait(4999ms);
    EXPECT_EQ(bench.Ask(REQUEST_KEY), NO_KEY_REPLY);
    bench.now += 1ms;
    EXPECT_EQ(bench.Ask(REQUEST_KEY), KEY_REPLY) << "a command at the same time comes after it";
    EXPECT_EQ(bench.reader.NextDeadline(), std::nullopt);
    bench.reader.TakeAway();
    bench.Ask(FORGET_KEY);
    bench.Wait(10s);
    EXPECT_EQ(bench.Ask(REQUEST_KEY), NO_KEY_REPLY) << "it is presented once";
}

TEST(KeyReaderTest, TheTimeOfTheKeyBeginsWhenTheReaderIsSwitchedOn)
{
    KeyReader reader(WithKey(KEY, 5s));
    EXPECT_EQ(reader.NextDeadline(), std::nullopt);
    const SerialPeripheral::TimePoint begin{7h};
    reader.Receive("", begin);
    EXPECT_EQ(reader.NextDeadline(), begin + 5s);
}

TEST(KeyReaderTest, ItDoesNotSpeakUnasked)
{
    Bench bench(WithKey());
    bench.reader.Present(OTHER_KEY);
    EXPECT_THAT(bench.Wait(1h), IsEmpty());
    EXPECT_EQ(bench.reader.NextDeadline(), std::nullopt);
}

TEST(KeyReaderTest, AKeyIsTwelveHexadecimalDigits)
{
    EXPECT_TRUE(KeyReader::IsKey("0123456789AB"));
    EXPECT_TRUE(KeyReader::IsKey("cdefCDEF0000"));
    for (const std::string_view text : {"", "0", "0123456789A", "0123456789ABC", "0123456789AG",
                                        "0x0123456789", " 123456789AB", "-12345678901", "none"})
    {
        EXPECT_FALSE(KeyReader::IsKey(text)) << text;
        EXPECT_THROW(KeyReader().Present(text), std::invalid_argument) << text;
    }
    EXPECT_THROW(KeyReader{WithKey("0123")}, std::invalid_argument);
}

TEST(KeyReaderTest, ACommandMayComeInPieces)
{
    for (std::size_t cut = 0; cut <= ANNOYING_ON.size(); ++cut)
    {
        Bench bench;
        std::string reply = bench.Ask(ANNOYING_ON.substr(0, cut));
        bench.Wait(10s);
        EXPECT_EQ(reply.empty(), cut < ANNOYING_ON.size());
        reply += bench.Ask(ANNOYING_ON.substr(cut));
        EXPECT_EQ(reply, ANNOYING_IS_ON) << cut;
    }
}

TEST(KeyReaderTest, ACommandMayComeByteByByte)
{
    Bench bench(WithKey());
    std::string reply;
    for (const char byte : REQUEST_KEY + PRESENCE)
    {
        reply += bench.Ask(std::string(1, byte));
    }
    EXPECT_EQ(reply, KEY_REPLY + PRESENT);
}

TEST(KeyReaderTest, CommandsThatComeTogetherAreAnsweredInTheirOrder)
{
    Bench bench;
    bench.reader.Receive(PRESENCE + ANNOYING_ON, bench.now);
    EXPECT_THAT(bench.Wait(0ms), ElementsAre(PRESENT, ANNOYING_IS_ON));
    bench.reader.Receive(PRESENCE + REQUEST_KEY.substr(0, 4), bench.now);
    bench.reader.Receive(REQUEST_KEY.substr(4) + ANNOYING_OFF, bench.now);
    EXPECT_THAT(bench.Wait(0ms), ElementsAre(PRESENT, NO_KEY_REPLY, ANNOYING_IS_OFF));
}

TEST(KeyReaderTest, GarbageBetweenCommandsIsPassedOver)
{
    const std::vector<std::string> garbage = {"x",
                                              "\x00\xFF\x0D\xEF"s,
                                              "\xEF\x0D"s,
                                              "\xAA"s,
                                              "\xAA\xAA\xAA"s,
                                              "\xAA\x55"s,
                                              PRESENCE.substr(0, 9),
                                              ANNOYING_ON.substr(1),
                                              std::string(100'000, 'x'),
                                              std::string(100'000, '\xAA')};
    for (const std::string& bytes : garbage)
    {
        Bench bench;
        EXPECT_EQ(bench.Ask(bytes + PRESENCE + bytes + REQUEST_KEY), PRESENT + NO_KEY_REPLY)
            << testing::PrintToString(bytes.substr(0, 20));
        EXPECT_FALSE(bench.reader.Annoying());
    }
}

TEST(KeyReaderTest, ACommandWithAnyWrongBitIsPassedOver)
{
    for (std::size_t i = 0; i < ANNOYING_ON.size(); ++i)
    {
        for (unsigned int bit = 1; bit < 0x100; bit <<= 1)
        {
            Bench bench;
            std::string command = ANNOYING_ON;
            command[i] = static_cast<char>(static_cast<unsigned char>(command[i]) ^ bit);
            EXPECT_EQ(bench.Ask(command), "") << i << " " << bit;
            EXPECT_FALSE(bench.reader.Annoying());
            EXPECT_EQ(bench.Ask(PRESENCE), PRESENT) << i << " " << bit;
        }
    }
}

TEST(KeyReaderTest, ASilentReaderObeys)
{
    Bench bench;
    bench.reader.faults.silent = true;
    EXPECT_EQ(bench.Ask(ANNOYING_ON), "");
    EXPECT_TRUE(bench.reader.Annoying());
    bench.reader.faults.silent = false;
    EXPECT_EQ(bench.WaitForText(10s), "");
    EXPECT_EQ(bench.Ask(PRESENCE), PRESENT);
}

TEST(KeyReaderTest, SilenceTakesWhatIsUnderWay)
{
    Bench bench;
    bench.reader.faults.delay = 1s;
    bench.Ask(PRESENCE);
    bench.reader.faults.silent = true;
    bench.Wait(500ms);
    bench.reader.faults.silent = false;
    EXPECT_EQ(bench.WaitForText(10s), "");
}

TEST(KeyReaderTest, AnAbsentReaderComesWithThePresenceChecks)
{
    Bench bench;
    bench.reader.faults.absentChecks = 2;
    EXPECT_EQ(bench.Ask(PRESENCE), "");
    EXPECT_EQ(bench.Ask(ANNOYING_ON), "");
    EXPECT_FALSE(bench.reader.Annoying()) << "what is not there does not obey";
    EXPECT_EQ(bench.reader.faults.absentChecks, 1U);
    EXPECT_EQ(bench.Ask(PRESENCE), "");
    EXPECT_EQ(bench.Ask(ANNOYING_ON), ANNOYING_IS_ON);
    EXPECT_EQ(bench.Ask(PRESENCE), PRESENT);
    EXPECT_EQ(bench.reader.faults.absentChecks, 0U);
}

TEST(KeyReaderTest, ASlowReaderAnswersLater)
{
    Bench bench;
    bench.reader.faults.delay = 700ms;
    EXPECT_EQ(bench.Ask(ANNOYING_ON), "");
    EXPECT_TRUE(bench.reader.Annoying());
    EXPECT_EQ(bench.reader.NextDeadline(), bench.now + 700ms);
    EXPECT_EQ(bench.WaitForText(699ms), "");
    EXPECT_EQ(bench.WaitForText(1ms), ANNOYING_IS_ON);
    EXPECT_EQ(bench.reader.NextDeadline(), std::nullopt);
}

TEST(KeyReaderTest, AReplyAndAKeyMayBothBeUnderWay)
{
    Bench bench(WithKey(KEY, 2s));
    bench.reader.faults.delay = 1500ms;
    bench.Ask(PRESENCE);
    EXPECT_EQ(bench.reader.NextDeadline(), bench.now + 1500ms);
    bench.Wait(1s);
    bench.Ask(PRESENCE);
    EXPECT_EQ(bench.WaitForText(500ms), PRESENT);
    EXPECT_EQ(bench.reader.NextDeadline(), bench.now + 500ms) << "the key before the second reply";
    bench.reader.faults.delay = 0ms;
    bench.Wait(1s);
    EXPECT_EQ(bench.Ask(REQUEST_KEY), KEY_REPLY);
}

TEST(KeyReaderTest, NoiseStandsBeforeTheReply)
{
    Bench bench;
    bench.reader.faults.noise = "\xEF\x0D\xAA\x00"s;
    bench.reader.Receive(PRESENCE, bench.now);
    EXPECT_THAT(bench.Wait(0ms), ElementsAre("\xEF\x0D\xAA\x00"s + PRESENT));
}

TEST(KeyReaderTest, AReplyCanBeCutShort)
{
    for (std::size_t bytes = 0; bytes <= PRESENT.size() + 1; ++bytes)
    {
        Bench bench;
        bench.reader.faults.noise = "xyz";
        bench.reader.faults.bytesSent = bytes;
        EXPECT_EQ(bench.Ask(PRESENCE), "xyz" + PRESENT.substr(0, bytes)) << bytes;
    }
}

TEST(KeyReaderTest, AReplyCanComeTwice)
{
    Bench bench;
    bench.reader.faults.doubled = true;
    bench.reader.faults.noise = "x";
    EXPECT_EQ(bench.Ask(PRESENCE), "x" + PRESENT + PRESENT);
}

TEST(KeyReaderTest, EachByteOfTheCrcCanBeWrong)
{
    Bench bench;
    bench.reader.faults.wrongCrcHigh = true;
    EXPECT_EQ(bench.Ask(PRESENCE), "\xAA\x55\x01\x01\x01\x00\x45\xAF\xEF\x0D"s);
    bench.reader.faults.wrongCrcLow = true;
    EXPECT_EQ(bench.Ask(PRESENCE), "\xAA\x55\x01\x01\x01\x00\x45\x50\xEF\x0D"s);
    bench.reader.faults.wrongCrcHigh = false;
    EXPECT_EQ(bench.Ask(PRESENCE), "\xAA\x55\x01\x01\x01\x00\xBA\x50\xEF\x0D"s);
}

TEST(KeyReaderTest, AnotherFrameCanStandInPlaceOfTheReply)
{
    Bench bench(WithKey());
    bench.reader.faults.substitute = {FrameType::Status};
    EXPECT_EQ(bench.Ask(ANNOYING_ON), "\xAA\x55\x06\x01\x01\x03\x56\xA6\xEF\x0D"s);
    EXPECT_TRUE(bench.reader.Annoying()) << "the command is obeyed";
    bench.reader.TakeAway();
    bench.Ask(ANNOYING_OFF + FORGET_KEY);
    EXPECT_EQ(bench.Ask(PRESENCE), "\xAA\x55\x06\x01\x01\x00\x56\xAC\xEF\x0D"s);

    bench.reader.faults.substitute = {FrameType::Error60};
    EXPECT_EQ(bench.Ask(REQUEST_KEY), "\xAA\x55\x60\x01\x01\x00\x2E\xBD\xEF\x0D"s);
    bench.reader.faults.substitute = {FrameType::Error99, 8};
    EXPECT_EQ(bench.Ask(REQUEST_KEY).size(), KEY_REPLY.size());
    EXPECT_EQ(bench.Ask(REQUEST_KEY).substr(0, 13), "\xAA\x55\x99\x01\x08"s + std::string(8, '\0'));
    bench.reader.faults.substitute.reset();
    EXPECT_EQ(bench.Ask(REQUEST_KEY), NO_KEY_REPLY);
}

TEST(KeyReaderTest, RepliesCanComeInPieces)
{
    KeyReader::Options options = WithKey();
    options.line.pieceBytes = 7;
    options.line.pieceGap = 10ms;
    Bench bench(options);
    bench.reader.Receive(REQUEST_KEY, bench.now);
    EXPECT_THAT(bench.Wait(0ms), ElementsAre(KEY_REPLY.substr(0, 7)));
    EXPECT_THAT(bench.Wait(10ms), ElementsAre(KEY_REPLY.substr(7, 7)));
    EXPECT_THAT(bench.Wait(10ms), ElementsAre(KEY_REPLY.substr(14)));

    bench.reader.SetLine({.pieceBytes = 0, .bytesPerSecond = 1000});
    bench.reader.Receive(PRESENCE, bench.now);
    EXPECT_THAT(bench.Wait(9ms), IsEmpty());
    EXPECT_THAT(bench.Wait(1ms), ElementsAre(PRESENT));
}

}
