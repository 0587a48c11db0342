// The device's life without its thread: shape, opening the port, single steps.

#include "tests/GpsDevice/GpsTest.h"

#include "tests/kit/Leaks.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <random>
#include <system_error>
#include <type_traits>

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

namespace GpsTests
{

namespace
{

using Tavbase::Interfaces::IError;
using Tavbase::Interfaces::IThread;

// Shape --------------------------------------------------------------------------------------------------

/// The place of a virtual operation in the table of its class, as the Itanium C++ ABI counts; -1 for one
/// that is not virtual.
template <class Member>
int SlotOf(Member member)
{
    std::array<std::uintptr_t, 2> words = {};
    static_assert(sizeof member == sizeof words);
    std::memcpy(words.data(), &member, sizeof words);
#if defined(__arm__) || defined(__aarch64__)
    const bool isVirtual = (words[1] & 1) != 0;
    const std::uintptr_t offset = words[0];
#else
    const bool isVirtual = (words[0] & 1) != 0;
    const std::uintptr_t offset = words[0] - 1;
#endif
    return isVirtual ? static_cast<int>(offset / sizeof(void*)) : -1;
}

TEST(GpsShapeTest, VirtualOperationsFollowTheTwoDestructors)
{
    EXPECT_EQ(SlotOf(&GpsDevice::RunBefore), 2);
    EXPECT_EQ(SlotOf(&GpsDevice::Run), 3);
    EXPECT_EQ(SlotOf(&GpsDevice::RunAfter), 4);
    EXPECT_EQ(SlotOf(&GpsDevice::Stopping), 5);
    EXPECT_EQ(SlotOf(&GpsDevice::Prepare), -1);
    EXPECT_EQ(SlotOf(&GpsDevice::CalculateCheckSum), -1);
    EXPECT_EQ(SlotOf(&GpsDevice::FindDeviceType), -1);
    EXPECT_EQ(SlotOf(&GpsDevice::FindDeviceReset), -1);
    EXPECT_EQ(SlotOf(&GpsDevice::CheckL26Gps), -1);
    static_assert(std::is_same_v<decltype(&GpsDevice::Stopping), void (IThread::*)()>, "inherited unchanged");
}

TEST(GpsShapeTest, TheThreadIsTheFirstBaseAndTheErrorRecordTheSecond)
{
    GpsDevice gps;
    const void* const whole = &gps;
    EXPECT_EQ(static_cast<void*>(static_cast<IThread*>(&gps)), whole);
    EXPECT_NE(static_cast<void*>(static_cast<IError*>(&gps)), whole);
    EXPECT_EQ(dynamic_cast<GpsDevice*>(static_cast<IError*>(&gps)), whole);
    EXPECT_EQ(dynamic_cast<void*>(static_cast<IError*>(&gps)), whole);
}

TEST(GpsShapeTest, ANewDeviceIsNamedAndIdle)
{
    const GpsDevice gps;
    EXPECT_EQ(gps.GetName(), "GPS-DEVICE");
    EXPECT_EQ(gps.GetNamespaceName(), "Tavdevice");
    EXPECT_EQ(gps.GetClassName(), "GpsDevice");
    EXPECT_FALSE(gps.HasError());
    EXPECT_FALSE(gps.IsRunning());
    EXPECT_EQ(gps.GetModule(), GpsDevice::Module::L26);
    EXPECT_EQ(static_cast<int>(GpsDevice::Module::L26), 0);
    EXPECT_EQ(static_cast<int>(GpsDevice::Module::SKM53), 1);
    static_assert(sizeof(GpsDevice::Module) == 4);
    EXPECT_FALSE(Kit::System::Reached()) << "the line is not touched";
}

TEST_F(GpsTest, DestroyingThroughEitherBaseDestroysTheWhole)
{
    GpsDevice::IThreadDelegate* delegate = &receiver;
    auto first = std::make_unique<GpsDevice>();
    first->Prepare(delegate);
    std::unique_ptr<IError> record = std::move(first);
    auto second = std::make_unique<GpsDevice>();
    second->Prepare(delegate);
    std::unique_ptr<IThread> thread = std::move(second);
    const auto opens = Kit::System::CallsOf("open");
    record.reset();
    thread.reset();
    EXPECT_THAT(Kit::System::CallsOf("close"), testing::SizeIs(2)) << "the line is closed with its owner";
    for (const Kit::System::Call& call : Kit::System::Calls())
    {
        EXPECT_NE(call.result, -1) << call.function << ' ' << call.path;
    }
}

// Prepare ------------------------------------------------------------------------------------------------

TEST_F(GpsTest, PrepareOpensTheLineInWholeLinesAt9600Baud)
{
    GpsDevice::IThreadDelegate* delegate = &receiver;
    gps.Prepare(delegate);
    EXPECT_FALSE(gps.HasError());
    EXPECT_THAT(Functions(), ElementsAre("open", "tcgetattr", "tcsetattr", "tcflush", "tcdrain"));
    EXPECT_EQ(Kit::System::CallsOf("open").at(0).path, "/dev/ttymxc0");
    const struct termios asked = Kit::System::LastSettings();
    EXPECT_EQ(cfgetospeed(&asked), static_cast<speed_t>(B9600));
    EXPECT_EQ(cfgetispeed(&asked), static_cast<speed_t>(B9600));
    EXPECT_EQ(asked.c_lflag, static_cast<tcflag_t>(ICANON));
    EXPECT_EQ(asked.c_cc[VTIME], 0);
    EXPECT_EQ(asked.c_cc[VMIN], 1);
    EXPECT_EQ(receiver.Count(), 0u);
    EXPECT_THAT(log.File(),
                ElementsAre("[SERIAL] Try to open device /dev/ttymxc0", "[SERIAL] Serial port flashed"));
}

TEST_F(GpsTest, ReadsAskForAsMuchAsTheBufferHolds)
{
    Prepare();
    Step("$GPGGA\r\n");
    EXPECT_EQ(Kit::System::CallsOf("read").at(0).argument, 4096);
    EXPECT_EQ(Kit::System::CallsOf("select").at(0).argument, 1'000'000);
}

TEST_F(GpsTest, ASecondPrepareOfAnOpenPortChangesNothing)
{
    Receiver other;
    GpsDevice::IThreadDelegate* delegate = &other;
    Prepare();
    gps.Prepare(delegate);
    EXPECT_THAT(Functions(), IsEmpty());
    Step("$GPRMC,1\r\n");
    EXPECT_EQ(receiver.Count(), 1u);
    EXPECT_EQ(other.Count(), 0u);
}

TEST_F(GpsTest, WithoutAReceiverTheBlocksGoNowhere)
{
    GpsDevice::IThreadDelegate* none = nullptr;
    gps.Prepare(none);
    EXPECT_FALSE(gps.HasError());
    Step("$GPRMC,1\r\n");
    EXPECT_EQ(FileLines().back(), "GPS data: ");
}

struct OpenRow
{
    const char* function;
    int error;
    const char* message;
};

TEST_F(GpsTest, TheErrorRecordSaysWhyThePortDidNotOpen)
{
    const OpenRow rows[] = {{"open", EACCES, "[SERIAL] Unable to open serial port"},
                            {"tcgetattr", ENOTTY, "[SERIAL] Unable to get serial port config"},
                            {"tcsetattr", EIO, "[SERIAL] Unable to set serial port config"}};
    for (const OpenRow& row : rows)
    {
        GpsDevice other;
        GpsDevice::IThreadDelegate* delegate = &receiver;
        Kit::System::Fail(row.function, row.error);
        other.Prepare(delegate);
        const auto error = other.GetError();
        EXPECT_TRUE(other.HasError());
        EXPECT_EQ(error.message,
                  std::string(row.message) + ": /dev/ttymxc0: " + std::generic_category().message(row.error));
        EXPECT_EQ(error.where, "RunBefore");
        EXPECT_EQ(error.errorNumber, row.error);
        EXPECT_EQ(error.nameSpace, "Tavdevice");
        EXPECT_EQ(error.className, "GpsDevice");
    }
}

TEST_F(GpsTest, AFailedPrepareCanBeTriedAgain)
{
    for (const char* function : {"open", "tcgetattr", "tcsetattr"})
    {
        Kit::System::ForgetCalls();
        Receiver own;
        GpsDevice other;
        GpsDevice::IThreadDelegate* delegate = &own;
        GpsDevice::IThreadDelegate* none = nullptr;
        Kit::System::Fail(function, EIO);
        other.Prepare(delegate);
        EXPECT_TRUE(other.HasError()) << function;
        other.Prepare(none);
        EXPECT_FALSE(other.HasError()) << function;
        EXPECT_EQ(other.GetErrorNumber(), 0) << function;
        line.Send("$GPRMC,1\r\n");
        other.Run();
        EXPECT_THAT(own.All(), ElementsAre("")) << function;
        const bool wasOpen = std::string(function) != "open";
        EXPECT_EQ(Kit::System::CallsOf("close").size(), wasOpen ? 1u : 0u)
            << function << ": the descriptor of the first attempt";
    }
}

TEST_F(GpsTest, AReceiverGivenToBothAttemptsIsRegisteredTwice)
{
    GpsDevice::IThreadDelegate* delegate = &receiver;
    Kit::System::Fail("open", EIO);
    gps.Prepare(delegate);
    gps.Prepare(delegate);
    Step("$GPRMC,1\r\n");
    EXPECT_EQ(receiver.Count(), 2u);
}

TEST_F(GpsTest, AFailedPrepareWritesOnlyTheLinesOfThePort)
{
    Kit::System::Fail("open", EACCES);
    GpsDevice::IThreadDelegate* delegate = &receiver;
    gps.Prepare(delegate);
    EXPECT_THAT(log.Console(), ElementsAre("[SERIAL] Try to open device /dev/ttymxc0",
                                           "[ERROR][SERIAL] Unable to open serial port"));
}

// Single steps -------------------------------------------------------------------------------------------

TEST_F(GpsTest, AStepIsOneReadOfAtMostASecond)
{
    Prepare();
    line.Send("$GPGGA,1\r\n$GPGGA,2\r\n");
    gps.Run();
    EXPECT_THAT(Functions(), ElementsAre("select", "read"));
    EXPECT_EQ(Kit::Clock::Elapsed(), 0s);
    EXPECT_EQ(receiver.Count(), 0u);
}

TEST_F(GpsTest, SilenceIsDeliveredAsTheEmptyTextEachSecond)
{
    Prepare();
    for (int second = 1; second <= 5; ++second)
    {
        gps.Run();
        EXPECT_EQ(Kit::Clock::Elapsed(), std::chrono::seconds(second));
    }
    EXPECT_THAT(receiver.All(), ElementsAre("", "", "", "", ""));
    const Texts expected = {"Read serial timeout", "[GPS-AQ] serial read error"};
    const Texts lines = ConsoleOnlyLines();
    ASSERT_EQ(lines.size(), 10u);
    for (std::size_t i = 0; i < lines.size(); ++i)
    {
        EXPECT_EQ(lines[i], expected[i % 2]);
    }
    EXPECT_THAT(FileLines(), IsEmpty());
}

TEST_F(GpsTest, SilenceLeavesTheBlockAsItIs)
{
    Prepare();
    Step("$GPGGA,1\r\n");
    gps.Run();
    Step("$GPRMC,1\r\n");
    EXPECT_THAT(receiver.All(), ElementsAre("", "$GPGGA,1\r\n"));
}

TEST_F(GpsTest, AFailedReadIsDeliveredAsTheEmptyTextAndFollowedByAPause)
{
    Prepare();
    line.Send("$GPGGA,1\r\n");
    Kit::System::Fail("read", EIO);
    gps.Run();
    EXPECT_EQ(Kit::Clock::Elapsed(), 1s);
    Kit::System::Fail("select", EINTR);
    gps.Run();
    EXPECT_EQ(Kit::Clock::Elapsed(), 2s);
    EXPECT_THAT(receiver.All(), ElementsAre("", ""));
    EXPECT_THAT(ConsoleOnlyLines(), ElementsAre("[GPS-AQ] serial read error", "[GPS-AQ] serial read error"));
    EXPECT_THAT(FileLines(), ElementsAre("[ERROR]Read serial error"));
    gps.Run();
    Step("$GPRMC,1\r\n");
    EXPECT_THAT(receiver.Blocks(), ElementsAre("$GPGGA,1\r\n")) << "what was there has not been lost";
}

TEST_F(GpsTest, AnL26KeepsItsRmcForTheNextBlock)
{
    Prepare();
    Step("$GPGSV,0\r\n");
    for (const char* second : {"1", "2", "3"})
    {
        for (const char* sentence : {"$GPRMC,", "$GPGGA,", "$GPGSA,", "$GPGSV,"})
        {
            Step(sentence + std::string(second) + "\r\n");
        }
    }
    EXPECT_THAT(receiver.All(),
                ElementsAre("$GPGSV,0\r\n", "$GPRMC,1\r\n$GPGGA,1\r\n$GPGSA,1\r\n$GPGSV,1\r\n",
                            "$GPRMC,2\r\n$GPGGA,2\r\n$GPGSA,2\r\n$GPGSV,2\r\n"));
}

TEST_F(GpsTest, AnSkm53EndsItsBlockWithItsRmc)
{
    Prepare();
    BecomeSkm53();
    for (const char* second : {"1", "2"})
    {
        for (const char* sentence : {"$GPGGA,", "$GPGSA,", "$GPGSV,", "$GPRMC,"})
        {
            Step(sentence + std::string(second) + "\r\n");
        }
    }
    EXPECT_THAT(receiver.All(), ElementsAre("$GPGGA,1\r\n$GPGSA,1\r\n$GPGSV,1\r\n$GPRMC,1\r\n",
                                            "$GPGGA,2\r\n$GPGSA,2\r\n$GPGSV,2\r\n$GPRMC,2\r\n"));
}

TEST_F(GpsTest, AMultiConstellationRmcEndsABlockTheSameWay)
{
    Prepare();
    for (const char* sentence :
         {"$GNGGA,0\r\n", "$GNRMC,1\r\n", "$GNGGA,1\r\n", "$GPRMC,2\r\n", "$GNRMC,3\r\n"})
    {
        Step(sentence);
    }
    EXPECT_THAT(receiver.All(), ElementsAre("$GNGGA,0\r\n", "$GNRMC,1\r\n$GNGGA,1\r\n", "$GPRMC,2\r\n"));
    receiver.Forget();
    BecomeSkm53();
    Step("$GNGGA,4\r\n");
    Step("$GNRMC,4\r\n");
    EXPECT_THAT(receiver.All(), ElementsAre("$GNRMC,3\r\n$GNGGA,4\r\n$GNRMC,4\r\n"));
}

TEST_F(GpsTest, OtherTalkersAndNamesEndNoBlock)
{
    Prepare();
    for (const char* sentence :
         {"$GLRMC,1\r\n", "GPRMC,1\r\n", "$GPRMB,1\r\n", "$PMTK,GNRMC\r\n", "$gprmc\r\n"})
    {
        Step(sentence);
    }
    EXPECT_EQ(receiver.Count(), 0u);
}

TEST_F(GpsTest, TheFirstRmcOfAnL26WithNothingBeforeItDeliversAnEmptyBlock)
{
    Prepare();
    Step("$GPRMC,1\r\n");
    EXPECT_THAT(receiver.All(), ElementsAre(""));
    EXPECT_THAT(FileLines(), ElementsAre("GPS data: "));
    EXPECT_THAT(ConsoleOnlyLines(), IsEmpty()) << "it is no failed read";
}

TEST_F(GpsTest, OneBlockIn120IsLogged)
{
    Prepare();
    BecomeSkm53();
    for (int block = 1; block <= 242; ++block)
    {
        Step("$GPRMC," + std::to_string(block) + "\r\n");
    }
    EXPECT_EQ(receiver.Count(), 242u);
    EXPECT_THAT(FileLines(), ElementsAre("GPS data: $GPRMC,1\r\n", "GPS data: $GPRMC,121\r\n",
                                         "GPS data: $GPRMC,241\r\n"));
    EXPECT_THAT(ConsoleOnlyLines(), IsEmpty());
}

TEST_F(GpsTest, AnEmptyTextIsNoBlockThatCounts)
{
    Prepare();
    BecomeSkm53();
    gps.Run();
    gps.Run();
    Step("$GPRMC,1\r\n");
    EXPECT_THAT(FileLines(), ElementsAre("GPS data: $GPRMC,1\r\n"));
}

/// Looks at the text in place, as an application does that keeps no copy.
class InPlace : public GpsDevice::IThreadDelegate
{
public:
    void ThreadCallback(void* value) override
    {
        ++blocks;
        bytes += std::strlen(static_cast<const char*>(value));
    }

    int blocks = 0;
    std::size_t bytes = 0;
};

TEST(GpsSteadyStateTest, NothingIsAllocated)
{
    if (!Kit::Leaks::CanCount())
    {
        GTEST_SKIP() << "under a sanitizer allocations are not counted";
    }
    const Kit::Clock clock;
    Kit::Terminal line(DEVICE);
    InPlace receiver;
    GpsDevice gps;
    GpsDevice::IThreadDelegate* delegate = &receiver;
    gps.Prepare(delegate);
    const auto second = [&] {
        for (const char* sentence :
             {"$GPRMC,081500.000,A,4807.038,N,01131.000,E,022.4,084.4,010326,,,A*00\r\n",
              "$GPGGA,081500.000,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47\r\n",
              "$GPGSA,A,3,04,09,16,26,07,03,27,02,,,,,1.21,0.94,0.76*00\r\n"})
        {
            line.Send(sentence);
            gps.Run();
        }
    };
    second();
    second();
    second();
    const auto before = Kit::Leaks::AllocationsMade();
    for (int i = 0; i < 100; ++i)
    {
        second();
    }
    EXPECT_EQ(Kit::Leaks::AllocationsMade(), before);
    EXPECT_EQ(receiver.blocks, 103);
    EXPECT_GT(receiver.bytes, 20'000u);
}

/// Looks at the log at the time of the call.
class LogWatcher : public GpsDevice::IThreadDelegate
{
public:
    explicit LogWatcher(const Kit::LogCapture& captured) : log(captured) {}

    void ThreadCallback(void*) override { lines = log.File(); }

    const Kit::LogCapture& log;
    Texts lines;
};

TEST_F(GpsTest, AResetIsReportedBeforeTheBlockIsDeliveredAndTheBlockLoggedAfterwards)
{
    LogWatcher watcher(log);
    Prepare();
    gps.AddCallback(&watcher);
    CutReadsAnywhere();
    Step("$PMTK010,001*2E\r\n$GPRMC,1\r\n");
    EXPECT_THAT(watcher.lines.back(), testing::StartsWith("[ERROR]GPS had been reset ("));
    EXPECT_EQ(log.File().size(), watcher.lines.size() + 1);
    EXPECT_EQ(log.File().back(), "GPS data: ");
}

TEST_F(GpsTest, EveryReceiverGetsTheSameText)
{
    Receiver second;
    Prepare();
    gps.AddCallback(&second);
    Step("$GPGGA,1\r\n");
    Step("$GPRMC,1\r\n");
    EXPECT_THAT(receiver.All(), ElementsAre("$GPGGA,1\r\n"));
    EXPECT_EQ(second.All(), receiver.All());
}

TEST(GpsWithoutPrepareTest, AStepDoesNothing)
{
    const Kit::Clock clock;
    const Kit::LogCapture log;
    GpsDevice gps;
    gps.Run();
    EXPECT_THAT(log.Console(), IsEmpty());
    EXPECT_EQ(Kit::Clock::Elapsed(), 0s);
    EXPECT_FALSE(Kit::System::Reached());
}

// Too much and no sense ----------------------------------------------------------------------------------

TEST_F(GpsTest, TenMegabytesWithoutAnRmcAreKeptAndDeliveredWhole)
{
    Prepare();
    CutReadsAnywhere();
    std::string all;
    for (int part = 0; all.size() < 10'000'000; ++part)
    {
        std::string text;
        for (int sentence = 0; sentence < 80; ++sentence)
        {
            text +=
                "$GPGSV," + std::to_string(part) + "," + std::to_string(sentence) + ",the sky is full\r\n";
        }
        ASSERT_LE(text.size(), 4000u);
        all += text;
        Step(text);
    }
    EXPECT_EQ(receiver.Count(), 0u);
    Step("$GPRMC\r\n");
    ASSERT_EQ(receiver.Count(), 1u);
    EXPECT_TRUE(receiver.All()[0] == all) << receiver.All()[0].size() << " of " << all.size() << " bytes";
    receiver.Forget();
    Step("$GPRMC\r\n");
    EXPECT_THAT(receiver.All(), ElementsAre("$GPRMC\r\n"));
}

TEST_F(GpsTest, TenMegabytesWithoutALineEndAreSilence)
{
    Prepare();
    const std::string part(50'000, '$');
    for (int i = 0; i < 200; ++i)
    {
        line.Send(part);
    }
    gps.Run();
    EXPECT_THAT(receiver.All(), ElementsAre(""));
    Step("\n"); // the line ends at last, and is a part of the block as any other
    Step("$GPRMC,1\r\n");
    ASSERT_EQ(receiver.Count(), 2u);
    EXPECT_LE(receiver.All()[1].size(), 4096u);
}

TEST_F(GpsTest, NoiseDoesNoHarm)
{
    Prepare();
    CutReadsAnywhere();
    std::mt19937 random(20260301);
    for (int i = 0; i < 2000; ++i)
    {
        std::string noise(1 + random() % 400, '\0');
        for (char& byte : noise)
        {
            byte = static_cast<char>(random());
        }
        Step(noise);
    }
    EXPECT_EQ(receiver.Count(), 0u);
    Step("$GPRMC,1\r\n");
    Step("$GPGGA,1\r\n");
    Step("$GPRMC,2\r\n");
    ASSERT_EQ(receiver.Count(), 2u);
    EXPECT_EQ(receiver.All()[1], "$GPRMC,1\r\n$GPGGA,1\r\n");
}

TEST_F(GpsTest, AZeroByteHidesNoRmc)
{
    using namespace std::string_view_literals;
    Prepare();
    CutReadsAnywhere();
    Step("$GPGGA,1\0\r\n"sv);
    Step("\0\0$GPRMC,1\0\r\n"sv);
    EXPECT_THAT(receiver.All(), ElementsAre("$GPGGA,1")) << "a receiver's text ends at the zero byte";
}

}

}
