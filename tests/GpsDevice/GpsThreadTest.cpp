// The thread: start, callbacks, stop, and lines that fail while it runs.

#include "tests/GpsDevice/GpsTest.h"

#include "tests/kit/Leaks.h"

#include <atomic>
#include <cerrno>
#include <memory>

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace GpsTests
{

namespace
{

using Kit::Clock;

class GpsThreadTest : public GpsTest
{
protected:
    static constexpr auto DETECTION = 2200ms; ///< on a silent line

    void Start()
    {
        ASSERT_NO_FATAL_FAILURE(Prepare());
        ASSERT_TRUE(gps.Start());
    }

    /// An L26 that is detected at once; from then on the line is silent.
    void StartDetected()
    {
        ASSERT_NO_FATAL_FAILURE(Start());
        const Module module(line, {{50ms, "$PMTK705,Quectel-L26\r\n"}, {150ms, "$PMTK001,353,3\r\n"}});
        ASSERT_TRUE(
            Clock::WaitUntil([&] { return log.ConsoleOnly().back().find("GLONASS") != std::string::npos; }));
        receiver.Forget();
    }

    /// Waits in virtual time until so many callbacks came.
    bool Callbacks(std::size_t count, std::chrono::milliseconds limit = 30s)
    {
        return Clock::WaitUntil([&] { return receiver.Count() >= count; }, limit);
    }

    static void Pass(std::chrono::milliseconds time) { std::this_thread::sleep_for(time); }
};

TEST_F(GpsThreadTest, DetectsOnceAndThenDelivers)
{
    ASSERT_NO_FATAL_FAILURE(Start());
    {
        const Module module(line, {{50ms, "$PMTK705,Quectel-L26\r\n"},
                                   {150ms, "$PMTK001,353,3\r\n"},
                                   {500ms, "$GPRMC,1\r\n"},
                                   {510ms, "$GPGGA,1\r\n"},
                                   {1500ms, "$GPRMC,2\r\n"},
                                   {1510ms, "$GPGGA,2\r\n"},
                                   {2500ms, "$GPRMC,3\r\n"}});
        ASSERT_TRUE(Callbacks(3));
    }
    EXPECT_THAT(receiver.All(), ElementsAre("", "$GPRMC,1\r\n$GPGGA,1\r\n", "$GPRMC,2\r\n$GPGGA,2\r\n"));
    EXPECT_NE(receiver.LastThread(), std::this_thread::get_id());
    EXPECT_TRUE(gps.IsRunning());
    EXPECT_EQ(line.Received(), std::string(QUERY) + std::string(SELECTION));
    gps.Stop();
    EXPECT_FALSE(gps.IsRunning());
    EXPECT_EQ(line.Received(), "") << "RunAfter does nothing";
}

TEST_F(GpsThreadTest, BeginsByDiscardingWhatArrivedBefore)
{
    ASSERT_NO_FATAL_FAILURE(Prepare());
    line.Send("$GPTXT,stale\r\n");
    ASSERT_TRUE(gps.Start());
    ASSERT_TRUE(Callbacks(1));
    gps.Stop();
    EXPECT_THAT(FileLines(),
                ElementsAre("[SERIAL] Serial port flashed", "[WARNING]NO GPS module found, consider it L26"));
}

TEST_F(GpsThreadTest, ASilentLineGivesTheEmptyTextEachSecond)
{
    ASSERT_NO_FATAL_FAILURE(Start());
    Pass(DETECTION + 10'500ms);
    EXPECT_EQ(receiver.Count(), 10u);
    EXPECT_THAT(receiver.All(), Each(""));
    gps.Stop();
}

TEST_F(GpsThreadTest, AFailedOpenEndsTheThreadAtItsFirstStep)
{
    GpsDevice other;
    GpsDevice::IThreadDelegate* delegate = &receiver;
    Kit::System::Fail("open", EACCES);
    other.Prepare(delegate);
    EXPECT_TRUE(other.HasError());
    ForgetLog();
    EXPECT_TRUE(other.Start());
    EXPECT_TRUE(Clock::WaitUntil([&] { return !other.IsRunning(); }));
    EXPECT_EQ(receiver.Count(), 0u);
    EXPECT_LE(Clock::Elapsed(), 210ms) << "the two pauses behind the commands";
    EXPECT_THAT(FileLines(), ElementsAre("[WARNING]NO GPS module found, consider it L26"));
    EXPECT_THAT(ConsoleOnlyLines(),
                ElementsAre("[ERROR]Read serial error ", "[ERROR]============ > Read serial error "));
    EXPECT_TRUE(other.HasError()) << "the reason stays";
    other.Stop();

    GpsDevice::IThreadDelegate* none = nullptr;
    other.Prepare(none);
    EXPECT_TRUE(other.Start()) << "it can be tried again";
    EXPECT_TRUE(Callbacks(1));
    other.Stop();
}

TEST_F(GpsThreadTest, WithoutPrepareTheThreadEnds)
{
    EXPECT_TRUE(gps.Start());
    EXPECT_TRUE(Clock::WaitUntil([&] { return !gps.IsRunning(); }));
    gps.Stop();
    EXPECT_THAT(Kit::System::CallsOf("read"), IsEmpty());
}

TEST_F(GpsThreadTest, StopEndsTheThreadWithinTheReadThatItWaitsIn)
{
    ASSERT_NO_FATAL_FAILURE(StartDetected());
    Pass(5300ms);
    const auto before = Clock::Elapsed();
    gps.Stop();
    EXPECT_LE(Clock::Elapsed() - before, 1s);
    const std::size_t count = receiver.Count();
    Pass(10s);
    EXPECT_EQ(receiver.Count(), count) << "nothing is delivered after Stop()";
}

TEST_F(GpsThreadTest, StopDuringTheDetectionOnASilentLineEndsItWithTheRead)
{
    ASSERT_NO_FATAL_FAILURE(Start());
    Pass(150ms);
    gps.Stop();
    EXPECT_EQ(Clock::Elapsed(), 1100ms) << "the pause behind the query, and one read";
    EXPECT_EQ(receiver.Count(), 0u) << "no step follows";
    EXPECT_THAT(log.ConsoleOnly(), Not(Contains("[GPS-AQ] serial read error")));
    EXPECT_THAT(FileLines(), ElementsAre("[SERIAL] Serial port flashed")) << "nothing is said of the module";
    EXPECT_EQ(line.Received(), QUERY);
}

TEST_F(GpsThreadTest, StopEndsTheSearchThatADerivedClassMakesWithoutAWordOfTheModule)
{
    class Searching : public GpsDevice
    {
    public:
        ~Searching() override { Stop(); }

        int RunBefore() override
        {
            FindDeviceType();
            return 0;
        }
    } searching;

    GpsDevice::IThreadDelegate* none = nullptr;
    searching.Prepare(none);
    ASSERT_FALSE(searching.HasError());
    ForgetLog();
    ASSERT_TRUE(searching.Start());
    Pass(150ms);
    searching.Stop();
    EXPECT_LE(Clock::Elapsed(), 1s) << "one read";
    EXPECT_THAT(FileLines(), IsEmpty());
}

/// An SKM53 that sends a sentence twice a second.
Kit::Peer::Script Sentences()
{
    Kit::Peer::Script script;
    for (auto at = 250ms; at < 7s; at += 500ms)
    {
        script.emplace_back(at, "$GPRMC,081836,A,3751.65,S,14507.36,E,000.0,360.0,130998,011.3,E*62\r\n");
    }
    return script;
}

class GpsStoppedAt : public GpsThreadTest, public testing::WithParamInterface<std::chrono::milliseconds>
{
};

TEST_P(GpsStoppedAt, EndsTheDetectionWithinASecondBesideAModuleThatTalks)
{
    const Module module(line, Sentences());
    ASSERT_NO_FATAL_FAILURE(Start());
    Pass(GetParam());
    gps.Stop();
    EXPECT_LE(Clock::Elapsed() - GetParam(), 1s);
    EXPECT_EQ(receiver.Count(), 0u) << "no step follows";
    const bool secondPeriod = GetParam() > 3100ms;
    EXPECT_EQ(line.Received(), std::string(QUERY) + std::string(secondPeriod ? SELECTION : ""));
    EXPECT_THAT(log.File(), Contains(HasSubstr("GPS module")).Times(secondPeriod ? 1 : 0));
}

INSTANTIATE_TEST_SUITE_P(Times, GpsStoppedAt,
                         testing::Values(0ms, 50ms, 150ms, 1300ms, 2900ms, 3400ms, 4100ms, 5900ms));

TEST_F(GpsThreadTest, AfterAStopTheDetectionByTheApplicationWorksAsEver)
{
    ASSERT_NO_FATAL_FAILURE(Start());
    Pass(50ms);
    gps.Stop();
    const Module module(line, Sentences());
    auto before = Clock::Elapsed();
    gps.FindDeviceType();
    EXPECT_GE(Clock::Elapsed() - before, 3s);
    EXPECT_EQ(log.File().back(), "[WARNING]Found SKM53 GPS module");
    EXPECT_EQ(gps.GetModule(), GpsDevice::Module::SKM53);
    before = Clock::Elapsed();
    line.Received();
    EXPECT_EQ(gps.CheckL26Gps(), 1);
    EXPECT_GE(Clock::Elapsed() - before, 3s);
    EXPECT_EQ(line.Received(), std::string(QUERY) + std::string(SELECTION));
}

TEST_F(GpsThreadTest, AThreadThatWasStoppedCanBeStartedAgain)
{
    ASSERT_NO_FATAL_FAILURE(StartDetected());
    line.Send("$GPGGA,before\r\n");
    Pass(500ms);
    gps.Stop();
    line.Received();
    line.Send("$GPGGA,while it was stopped\r\n");
    ASSERT_TRUE(gps.Start());
    {
        const Module module(line, {{50ms, "$PMTK705,Quectel-L26\r\n"},
                                   {150ms, "$PMTK001,353,3\r\n"},
                                   {500ms, "$GPRMC,1\r\n"},
                                   {510ms, "$GPGGA,1\r\n"},
                                   {1500ms, "$GPRMC,2\r\n"}});
        ASSERT_TRUE(Clock::WaitUntil([&] { return receiver.Blocks().size() >= 2; }));
    }
    gps.Stop();
    EXPECT_EQ(line.Received(), std::string(QUERY) + std::string(SELECTION)) << "it is detected anew";
    EXPECT_THAT(receiver.Blocks(), ElementsAre("$GPGGA,before\r\n", "$GPRMC,1\r\n$GPGGA,1\r\n"));
}

TEST_F(GpsThreadTest, AnotherModuleIsFoundAfterARestart)
{
    ASSERT_NO_FATAL_FAILURE(StartDetected());
    gps.Stop();
    EXPECT_EQ(gps.GetModule(), GpsDevice::Module::L26);
    ASSERT_TRUE(gps.Start());
    {
        const Module module(line, {{150ms, "$GPRMC,1\r\n"}, {4s, "$GPGGA,2\r\n"}, {4010ms, "$GPRMC,2\r\n"}});
        ASSERT_TRUE(Clock::WaitUntil([&] { return !receiver.Blocks().empty(); }));
    }
    gps.Stop();
    EXPECT_EQ(gps.GetModule(), GpsDevice::Module::SKM53);
    EXPECT_EQ(receiver.Blocks().back(), "$GPGGA,2\r\n$GPRMC,2\r\n");
}

TEST_F(GpsThreadTest, ASlowReceiverDelaysTheNextReadAndLosesNothing)
{
    class Slow : public GpsDevice::IThreadDelegate
    {
    public:
        void ThreadCallback(void*) override { std::this_thread::sleep_for(1500ms); }
    };

    Slow slow;
    ASSERT_NO_FATAL_FAILURE(StartDetected());
    gps.AddCallback(&slow);
    {
        const Module module(line, {{100ms, "$GPGGA,1\r\n"},
                                   {200ms, "$GPRMC,2\r\n"},
                                   {300ms, "$GPGGA,2\r\n"},
                                   {400ms, "$GPRMC,3\r\n"},
                                   {500ms, "$GPGGA,3\r\n"},
                                   {600ms, "$GPRMC,4\r\n"}});
        ASSERT_TRUE(Clock::WaitUntil([&] { return receiver.Blocks().size() >= 3; }));
    }
    gps.Stop();
    const Texts blocks = receiver.Blocks();
    EXPECT_THAT(Texts(blocks.end() - 2, blocks.end()),
                ElementsAre("$GPRMC,2\r\n$GPGGA,2\r\n", "$GPRMC,3\r\n$GPGGA,3\r\n"));
}

TEST_F(GpsThreadTest, AReceiverMayStopTheThread)
{
    class Stopper : public GpsDevice::IThreadDelegate
    {
    public:
        explicit Stopper(GpsDevice& device) : gps(device) {}

        void ThreadCallback(void*) override
        {
            ++calls;
            gps.Stop();
        }

        GpsDevice& gps;
        std::atomic<int> calls{0};
    };

    Stopper stopper(gps);
    ASSERT_NO_FATAL_FAILURE(Prepare());
    gps.AddCallback(&stopper);
    ASSERT_TRUE(gps.Start());
    EXPECT_TRUE(Clock::WaitUntil([&] { return !gps.IsRunning(); }));
    gps.Stop();
    EXPECT_EQ(stopper.calls, 1);
}

// Destruction --------------------------------------------------------------------------------------------

class DestroyedAt : public GpsThreadTest, public testing::WithParamInterface<int>
{
};

TEST_P(DestroyedAt, EndsTheThreadAndClosesTheLine)
{
    auto own = std::make_unique<GpsDevice>();
    GpsDevice::IThreadDelegate* delegate = &receiver;
    own->Prepare(delegate);
    const auto fd = static_cast<int>(Kit::System::CallsOf("open").at(0).result);
    ASSERT_TRUE(own->Start());
    Pass(std::chrono::milliseconds(GetParam()));
    const bool detecting = Clock::Elapsed() < DETECTION;
    const auto before = Clock::Elapsed();
    own.reset();
    EXPECT_LE(Clock::Elapsed() - before, detecting ? DETECTION : 1000ms);
    EXPECT_EQ(Kit::System::CallsOf("close").at(0).fd, fd);
    const std::size_t count = receiver.Count();
    Pass(5s);
    EXPECT_EQ(receiver.Count(), count);
}

INSTANTIATE_TEST_SUITE_P(Milliseconds, DestroyedAt,
                         testing::Values(0, 50, 100, 1050, 1150, 2199, 2200, 2201, 2700, 3200, 5000));

TEST_F(GpsThreadTest, DestroyedThroughTheErrorRecordItEndsTheThread)
{
    auto own = std::make_unique<GpsDevice>();
    GpsDevice::IThreadDelegate* delegate = &receiver;
    own->Prepare(delegate);
    ASSERT_TRUE(own->Start());
    Pass(5s);
    std::unique_ptr<Tavbase::Interfaces::IError> record = std::move(own);
    record.reset();
    EXPECT_THAT(Kit::System::CallsOf("close"), testing::SizeIs(1));
}

// Lines that fail ----------------------------------------------------------------------------------------

TEST_F(GpsThreadTest, AHangUpIsToldEachSecondAndNotMoreOften)
{
    ASSERT_NO_FATAL_FAILURE(StartDetected());
    line.HangUp();
    Pass(1500ms);
    const std::size_t begun = receiver.Count();
    Kit::System::ForgetCalls();
    Pass(60s);
    const std::size_t told = receiver.Count() - begun;
    EXPECT_GE(told, 59u);
    EXPECT_LE(told, 61u);
    EXPECT_LE(Kit::System::CallsOf("read").size(), 61u);
    EXPECT_THAT(receiver.All(), Each(""));
    EXPECT_TRUE(gps.IsRunning());
    const auto before = Clock::Elapsed();
    gps.Stop();
    EXPECT_EQ(Clock::Elapsed(), before) << "a stop ends the pause";
}

TEST_F(GpsThreadTest, AHangUpBeforeTheDetectionIsSurvived)
{
    ASSERT_NO_FATAL_FAILURE(Prepare());
    line.HangUp();
    ASSERT_TRUE(gps.Start());
    Pass(10'100ms);
    EXPECT_EQ(receiver.Count(), 10u) << "from 0.2 s on";
    gps.Stop();
}

TEST_F(GpsThreadTest, AFailureThatPassesIsForgotten)
{
    ASSERT_NO_FATAL_FAILURE(StartDetected());
    Kit::System::Fail("select", EIO, 1, 3);
    Pass(5s);
    EXPECT_EQ(Kit::System::FailuresDone(), 3);
    receiver.Forget();
    {
        const Module module(line, {{100ms, "$GPGGA,1\r\n"}, {200ms, "$GPRMC,1\r\n"}});
    }
    ASSERT_TRUE(Clock::WaitUntil([&] { return !receiver.Blocks().empty(); }));
    gps.Stop();
    EXPECT_THAT(receiver.Blocks(), ElementsAre("$GPGGA,1\r\n"));
}

struct SweepRow
{
    int error;
    const char* name;
};

void PrintTo(const SweepRow& row, std::ostream* out)
{
    *out << row.name;
}

class GpsSweep : public Kit::DeviceTest, public testing::WithParamInterface<SweepRow>
{
protected:
    /// Opens the line, starts, gets two blocks if it can, stops. @return the blocks
    static Texts Session()
    {
        Kit::Terminal line(DEVICE);
        Receiver receiver;
        GpsDevice gps;
        GpsDevice::IThreadDelegate* delegate = &receiver;
        gps.Prepare(delegate);
        EXPECT_TRUE(gps.Start());
        {
            const Module module(line, {{50ms, "$PMTK705,Quectel-L26\r\n"},
                                       {150ms, "$PMTK001,353,3\r\n"},
                                       {4s, "$GPGGA,0\r\n"},
                                       {4010ms, "$GPRMC,1\r\n"},
                                       {4020ms, "$GPGGA,1\r\n"},
                                       {5s, "$GPRMC,2\r\n"}});
        }
        std::this_thread::sleep_for(5s);
        gps.Stop();
        EXPECT_FALSE(gps.IsRunning());
        return receiver.Blocks();
    }
};

TEST_P(GpsSweep, EveryCallFailingInTurnIsSurvived)
{
    int faults = 0;
    for (bool clean = false; !clean; ++faults)
    {
        ASSERT_LT(faults, 100) << "the sessions do not end";
        Kit::System::Reset();
        Kit::System::Fail("*", GetParam().error, faults + 1);
        const Texts blocks = Session();
        clean = Kit::System::FailuresDone() == 0;
        const bool opened = Kit::System::CallsOf("select").size() > 4;
        if (opened)
        {
            ASSERT_GE(blocks.size(), 2u) << "fault " << faults + 1;
            EXPECT_THAT(blocks[blocks.size() - 2], testing::EndsWith("$GPGGA,0\r\n"))
                << "fault " << faults + 1;
            EXPECT_EQ(blocks.back(), "$GPRMC,1\r\n$GPGGA,1\r\n") << "fault " << faults + 1;
        }
        else
        {
            EXPECT_THAT(blocks, IsEmpty()) << "fault " << faults + 1;
        }
    }
    EXPECT_GT(faults, 20) << "hardly any call was met";
    Kit::Leaks::Holdings left;
    left.descriptors = 1; // of the session whose close() failed
    Kit::Leaks::Allow(left);
}

INSTANTIATE_TEST_SUITE_P(Errors, GpsSweep,
                         testing::Values(SweepRow{EIO, "EIO"}, SweepRow{EINTR, "EINTR"},
                                         SweepRow{EAGAIN, "EAGAIN"}, SweepRow{ENXIO, "ENXIO"}),
                         [](const testing::TestParamInfo<SweepRow>& row) { return row.param.name; });

}

}
