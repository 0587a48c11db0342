// Resets of the module. Their count belongs to the whole process: each test is made in a forked child, so
// that it begins with 0.

#include "tests/GpsDevice/GpsTest.h"

#include "tests/kit/Child.h"

#include <functional>

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace GpsTests
{

namespace
{

/// One device on a terminal, in a child, without virtual time.
struct Bench
{
    Bench()
    {
        GpsDevice::IThreadDelegate* delegate = &receiver;
        gps.Prepare(delegate);
        seen = log.File().size();
    }

    void Step(const std::string& text)
    {
        line.Send(text);
        gps.Run();
    }

    /// Lines of both sinks since the beginning.
    Texts Reports() const
    {
        Texts lines = log.File();
        lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(seen));
        return lines;
    }

    Kit::LogCapture log;
    Kit::Terminal line{DEVICE};
    Receiver receiver;
    GpsDevice gps;
    std::size_t seen = 0;
};

void ExpectInChild(const std::function<void()>& checks)
{
    const Kit::ChildResult child = Kit::RunInChild([&] {
        checks();
        return testing::Test::HasFailure() ? 1 : 0;
    });
    EXPECT_EQ(child.exitStatus, 0) << "signal " << child.signal << '\n' << child.output;
}

TEST(GpsResetTest, AResetIsReportedWithItsNumberToBothSinks)
{
    ExpectInChild([] {
        Bench bench;
        bench.Step("$PMTK011,MTKGPS*08\r\n");
        bench.Step("$PMTK010,001*2E\r\n");
        bench.Step("$PMTK011,MTKGPS*08\r\n");
        EXPECT_THAT(bench.Reports(), ElementsAre("[ERROR]GPS had been reset (0) $PMTK011,MTKGPS*08\r\n",
                                                 "[ERROR]GPS had been reset (1) $PMTK010,001*2E\r\n",
                                                 "[ERROR]GPS had been reset (2) $PMTK011,MTKGPS*08\r\n"));
        EXPECT_THAT(bench.log.ConsoleOnly(), ElementsAre("Set serial mode to 0"));
    });
}

TEST(GpsResetTest, OtherSentencesAreNoReset)
{
    ExpectInChild([] {
        Bench bench;
        for (const char* sentence : {"$PMTK010,002*2D\r\n", "$PMTK011,OTHER\r\n", "$PMTK001,353,3*33\r\n",
                                     "$GPGGA\r\n", "$PMTK10,001\r\n"})
        {
            bench.Step(sentence);
        }
        EXPECT_THAT(bench.Reports(), IsEmpty());
        bench.Step("$PMTK010,001*2E\r\n");
        EXPECT_THAT(bench.Reports(), ElementsAre("[ERROR]GPS had been reset (0) $PMTK010,001*2E\r\n"));
    });
}

TEST(GpsResetTest, TheBannerStaysInTheStream)
{
    ExpectInChild([] {
        Bench bench;
        for (const char* sentence : {"$GPRMC,1\r\n", "$PMTK011,MTKGPS*08\r\n", "$PMTK010,001*2E\r\n",
                                     "$GPGGA,1\r\n", "$GPRMC,2\r\n"})
        {
            bench.Step(sentence);
        }
        EXPECT_THAT(bench.receiver.All(),
                    ElementsAre("", "$GPRMC,1\r\n$PMTK011,MTKGPS*08\r\n$PMTK010,001*2E\r\n$GPGGA,1\r\n"));
        EXPECT_EQ(bench.line.Received(), "") << "the module is not configured again";
    });
}

TEST(GpsResetTest, BothMessagesInOneReadAreOneReport)
{
    ExpectInChild([] {
        Bench bench;
        struct termios settings = {};
        tcgetattr(bench.line.Descriptor(), &settings);
        settings.c_lflag &= ~static_cast<tcflag_t>(ICANON);
        tcsetattr(bench.line.Descriptor(), TCSANOW, &settings);
        bench.Step("$PMTK011,MTKGPS*08\r\n$PMTK010,001*2E\r\n$GPRMC,1\r\n");
        EXPECT_THAT(bench.Reports(), ElementsAre("[ERROR]GPS had been reset (0) "
                                                 "$PMTK011,MTKGPS*08\r\n$PMTK010,001*2E\r\n$GPRMC,1\r\n",
                                                 "GPS data: "));
    });
}

TEST(GpsResetTest, TheCountIsSharedByAllDevices)
{
    ExpectInChild([] {
        Bench first;
        first.Step("$PMTK010,001*2E\r\n");
        GpsDevice second;
        GpsDevice::IThreadDelegate* delegate = &first.receiver;
        second.Prepare(delegate);
        first.line.Send("$PMTK010,001*2E\r\n");
        second.Run();
        EXPECT_EQ(first.log.File().back(), "[ERROR]GPS had been reset (1) $PMTK010,001*2E\r\n");
    });
}

TEST(GpsResetTest, After5000ReportsThereIsSilence)
{
    ExpectInChild([] {
        Bench bench;
        for (int reset = 1; reset <= 5002; ++reset)
        {
            bench.Step("$PMTK011,MTKGPS," + std::to_string(reset) + "\r\n");
        }
        const Texts reports = bench.Reports();
        ASSERT_EQ(reports.size(), 5000u);
        for (std::size_t i = 0; i < reports.size(); ++i)
        {
            ASSERT_EQ(reports[i], "[ERROR]GPS had been reset (" + std::to_string(i) + ") $PMTK011,MTKGPS," +
                                      std::to_string(i + 1) + "\r\n");
        }
        bench.Step("$GPRMC,1\r\n");
        EXPECT_EQ(bench.receiver.Count(), 1u) << "everything else goes on";
    });
}

TEST(GpsResetTest, WithoutATextThereIsNothingToReport)
{
    ExpectInChild([] {
        Bench bench;
        bench.gps.FindDeviceReset();
        EXPECT_THAT(bench.Reports(), IsEmpty());
    });
}

}

}
