// The module behind the line: check sums, which module it is, GLONASS.

#include "tests/GpsDevice/GpsTest.h"

#include <cerrno>
#include <ostream>
#include <string>

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

namespace GpsTests
{

namespace
{

// Check sum ----------------------------------------------------------------------------------------------

struct SumRow
{
    const char* name;
    std::string text;
    unsigned int sum;
    std::string printed;
};

void PrintTo(const SumRow& row, std::ostream* out)
{
    *out << row.name;
}

class CheckSum : public testing::TestWithParam<SumRow>
{
};

TEST_P(CheckSum, IsReturnedAndPrintedWithoutALineEnd)
{
    GpsDevice gps;
    std::string text = GetParam().text;
    testing::internal::CaptureStdout();
    const unsigned int sum = gps.CalculateCheckSum(text.data());
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(sum, GetParam().sum);
    EXPECT_EQ(printed, GetParam().printed);
    EXPECT_EQ(text, GetParam().text) << "the text is only read";
}

INSTANTIATE_TEST_SUITE_P(
    Rows, CheckSum,
    testing::Values(SumRow{"Rmc", "$GPRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W*6A",
                           0x6A, "========= CalculateCheckSum: 6a"},
                    SumRow{"Gga", "$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47\r\n",
                           0x47, "========= CalculateCheckSum: 47"},
                    SumRow{"Query", std::string(QUERY), 0x31, "========= CalculateCheckSum: 31"},
                    SumRow{"Selection", std::string(SELECTION), 0x2A, "========= CalculateCheckSum: 2a"},
                    SumRow{"NoiseBefore", "noise before $PMTK605*31", 0x31,
                           "========= CalculateCheckSum: 31"},
                    SumRow{"FirstOfEach", "$A*1*2$B*", 'A', "========= CalculateCheckSum: 41"},
                    SumRow{"TwoBegins", "$$A*", '$' ^ 'A', "========= CalculateCheckSum: 65"},
                    SumRow{"HighBytes", "$\xFF\x0F*", 0xF0, "========= CalculateCheckSum: f0"},
                    SumRow{"OneDigit", "$\x05*", 0x05, "========= CalculateCheckSum: 05"},
                    SumRow{"NothingBetween", "$*00", 0, "========= CalculateCheckSum: 00"},
                    SumRow{"BeginOnly", "$", 0, "========= CalculateCheckSum: 00"},
                    SumRow{"NoEnd", "$GPRMC,without an end", 0, "========= CalculateCheckSum: 00"},
                    SumRow{"EndFirst", "*47 before $GPRMC", 0, "========= CalculateCheckSum: 00"},
                    SumRow{"EndRightBeforeBegin", "*$", 0, "========= CalculateCheckSum: 00"},
                    SumRow{"NoBegin", "GPRMC,123519*6A", 0, ""}, SumRow{"EndOnly", "*", 0, ""},
                    SumRow{"Empty", "", 0, ""}),
    [](const testing::TestParamInfo<SumRow>& row) { return row.param.name; });

TEST(CheckSumTest, OfNoTextIsZero)
{
    GpsDevice gps;
    testing::internal::CaptureStdout();
    EXPECT_EQ(gps.CalculateCheckSum(nullptr), 0u);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

// Detection by listening alone ---------------------------------------------------------------------------

using ListeningTest = GpsTest;

TEST_F(ListeningTest, ATextSentenceShowsAnL26AtOnce)
{
    Prepare();
    const Module module(line, {{500ms, "$GPGGA\r\n"}, {1250ms, "$GPTXT,01,01,02*00\r\n"}});
    gps.FindDeviceType();
    EXPECT_EQ(gps.GetModule(), GpsDevice::Module::L26);
    EXPECT_EQ(Kit::Clock::Elapsed(), 1250ms);
    EXPECT_THAT(FileLines(), ElementsAre("[WARNING]Found L26 GPS module (1)"));
    EXPECT_THAT(ConsoleOnlyLines(), IsEmpty());
    EXPECT_EQ(line.Received(), "") << "nothing is asked";
}

TEST_F(ListeningTest, OnlyRmcSentencesShowAnSkm53AtTheEndOfThePeriod)
{
    Prepare();
    const Module module(line, {{400ms, "$GPRMC,1\r\n"}, {1300ms, "$GPGGA\r\n"}, {2200ms, "$GPRMC,2\r\n"}});
    gps.FindDeviceType();
    EXPECT_EQ(gps.GetModule(), GpsDevice::Module::SKM53);
    EXPECT_EQ(Kit::Clock::Elapsed(), 3200ms) << "the last read began within the three seconds";
    EXPECT_THAT(FileLines(), ElementsAre("[WARNING]Found SKM53 GPS module"));
}

TEST_F(ListeningTest, ATextSentenceWinsOverAnRmcBeforeIt)
{
    Prepare();
    const Module module(line, {{100ms, "$GPRMC\r\n"}, {2900ms, "$GPTXT\r\n"}});
    gps.FindDeviceType();
    EXPECT_EQ(gps.GetModule(), GpsDevice::Module::L26);
    EXPECT_EQ(Kit::Clock::Elapsed(), 2900ms);
    EXPECT_THAT(FileLines(), ElementsAre("[WARNING]Found L26 GPS module (1)"));
}

TEST_F(ListeningTest, ATextSentenceWinsOverAnRmcInTheSameRead)
{
    Prepare();
    CutReadsAnywhere();
    line.Send("$GPRMC\r\n$GPTXT\r\n");
    gps.FindDeviceType();
    EXPECT_EQ(gps.GetModule(), GpsDevice::Module::L26);
    EXPECT_EQ(Kit::Clock::Elapsed(), 0s);
}

TEST_F(ListeningTest, SilenceIsTakenForAnL26AfterThreeSeconds)
{
    Prepare();
    gps.FindDeviceType();
    EXPECT_EQ(gps.GetModule(), GpsDevice::Module::L26);
    EXPECT_EQ(Kit::Clock::Elapsed(), 3s);
    EXPECT_THAT(FileLines(), ElementsAre("[WARNING]NO GPS module found, consider it L26"));
    EXPECT_THAT(ConsoleOnlyLines(),
                ElementsAre("Read serial timeout", "Read serial timeout", "Read serial timeout"));
    EXPECT_THAT(Functions(), ElementsAre("select", "select", "select"));
    EXPECT_EQ(line.Received(), "") << "nothing is asked";
}

TEST_F(ListeningTest, OtherSentencesShowNothing)
{
    Prepare();
    const Module module(line, {{500ms, "$GNRMC\r\n"}, {1000ms, "GPRMC\r\n"}, {1500ms, "$GPGGA,GPTXT\r\n"}});
    gps.FindDeviceType();
    EXPECT_EQ(gps.GetModule(), GpsDevice::Module::L26);
    EXPECT_THAT(FileLines(), ElementsAre("[WARNING]NO GPS module found, consider it L26"));
}

TEST_F(ListeningTest, AnEarlierFindingIsForgotten)
{
    Prepare();
    BecomeSkm53();
    gps.FindDeviceType();
    EXPECT_EQ(gps.GetModule(), GpsDevice::Module::L26);
}

TEST_F(ListeningTest, OfADeadLineIsAskedTenTimesASecondAtMost)
{
    Prepare();
    line.HangUp();
    gps.FindDeviceType();
    EXPECT_EQ(Kit::Clock::Elapsed(), 3s);
    EXPECT_EQ(Kit::System::CallsOf("read").size(), 30u);
    EXPECT_THAT(FileLines(), ElementsAre("[WARNING]NO GPS module found, consider it L26"));
}

TEST(ListeningWithoutPortTest, EndsWithTheAssumption)
{
    const Kit::Clock clock;
    const Kit::LogCapture log;
    GpsDevice gps;
    gps.FindDeviceType();
    EXPECT_EQ(gps.GetModule(), GpsDevice::Module::L26);
    EXPECT_EQ(Kit::Clock::Elapsed(), 3s);
    EXPECT_THAT(log.File(), ElementsAre("[WARNING]NO GPS module found, consider it L26"));
}

// Detection and configuration at the start of the thread --------------------------------------------------

constexpr const char* RELEASE = "$PMTK705,AXN_2.10,0005,Quectel-L26,1.0*00\r\n";
constexpr const char* ACKNOWLEDGED = "$PMTK001,353,3*33\r\n";

const std::string BOTH_COMMANDS = std::string(QUERY) + std::string(SELECTION);

using CheckTest = GpsTest;

TEST_F(CheckTest, SilenceIsTakenForAnL26AndStillConfigured)
{
    Prepare();
    EXPECT_EQ(gps.CheckL26Gps(), 1);
    EXPECT_EQ(gps.GetModule(), GpsDevice::Module::L26);
    EXPECT_EQ(line.Received(), BOTH_COMMANDS);
    EXPECT_THAT(Functions(), ElementsAre("write", "usleep", "select", "write", "usleep", "select"));
    EXPECT_THAT(Kit::System::Sleeps(), ElementsAre(100ms, 100ms));
    EXPECT_EQ(Kit::System::CallsOf("write").at(0).argument, 13);
    EXPECT_EQ(Kit::System::CallsOf("write").at(1).argument, 23);
    for (const Kit::System::Call& call : Kit::System::CallsOf("select"))
    {
        EXPECT_EQ(call.argument, 1'000'000);
    }
    EXPECT_EQ(Kit::Clock::Elapsed(), 2200ms);
    EXPECT_THAT(FileLines(), ElementsAre("[WARNING]NO GPS module found, consider it L26"));
    EXPECT_THAT(ConsoleOnlyLines(),
                ElementsAre("Read serial timeout", "[ERROR]Read serial error ", "Read serial timeout",
                            "[ERROR]============ > Read serial error "));
}

TEST_F(CheckTest, AnL26ThatAnswersIsConfiguredAtOnce)
{
    Prepare();
    const Module module(line, {{150ms, RELEASE}, {300ms, ACKNOWLEDGED}});
    EXPECT_EQ(gps.CheckL26Gps(), 1);
    EXPECT_EQ(gps.GetModule(), GpsDevice::Module::L26);
    EXPECT_EQ(Kit::Clock::Elapsed(), 300ms);
    EXPECT_EQ(line.Received(), BOTH_COMMANDS);
    EXPECT_THAT(Functions(),
                ElementsAre("write", "usleep", "select", "read", "write", "usleep", "select", "read"));
    EXPECT_THAT(FileLines(),
                ElementsAre(std::string("L26 module version: ") + RELEASE, "Found L26 GPS module"))
        << "the text of the whole read, its line end included";
    EXPECT_THAT(ConsoleOnlyLines(),
                ElementsAre(std::string("[WARNING]GLONASS has been deactivated; ") + ACKNOWLEDGED));
}

TEST_F(CheckTest, AnAnswerBehindOtherSentencesIsFound)
{
    Prepare();
    const Module module(line, {{300ms, "$GPRMC\r\n"},
                               {700ms, "$GPGGA\r\n"},
                               {1500ms, RELEASE},
                               {2000ms, "$GPRMC\r\n"},
                               {2500ms, ACKNOWLEDGED}});
    EXPECT_EQ(gps.CheckL26Gps(), 1);
    EXPECT_EQ(gps.GetModule(), GpsDevice::Module::L26) << "the release counts, not the RMC before it";
    EXPECT_EQ(Kit::Clock::Elapsed(), 2500ms);
    EXPECT_EQ(FileLines().back(), "Found L26 GPS module");
}

TEST_F(CheckTest, ATextSentenceShowsAnL26AtTheEndOfThePeriod)
{
    Prepare();
    const Module module(line, {{300ms, "$GPTXT\r\n"}});
    gps.CheckL26Gps();
    EXPECT_EQ(gps.GetModule(), GpsDevice::Module::L26);
    EXPECT_THAT(FileLines(), ElementsAre("Found L26 GPS module"));
    EXPECT_EQ(Kit::Clock::Elapsed(), 2400ms) << "a second of silence ends either period";
}

TEST_F(CheckTest, ATextSentenceWinsOverAnRmcWhicheverComesFirst)
{
    const Module::Script orders[] = {{{300ms, "$GPTXT\r\n"}, {600ms, "$GPRMC\r\n"}},
                                     {{300ms, "$GPRMC\r\n"}, {600ms, "$GPTXT\r\n"}}};
    Prepare();
    for (const Module::Script& order : orders)
    {
        ForgetLog();
        const Module module(line, order);
        gps.CheckL26Gps();
        EXPECT_EQ(gps.GetModule(), GpsDevice::Module::L26);
        EXPECT_THAT(FileLines(), ElementsAre("Found L26 GPS module"));
    }
}

TEST_F(CheckTest, ATextSentenceWinsOverAnRmcInTheSameRead)
{
    Prepare();
    CutReadsAnywhere();
    line.Send("$GPRMC\r\n$GPTXT\r\n");
    gps.CheckL26Gps();
    EXPECT_EQ(gps.GetModule(), GpsDevice::Module::L26);
    EXPECT_THAT(FileLines(), ElementsAre("Found L26 GPS module"));
}

TEST_F(CheckTest, OnlyRmcSentencesShowAnSkm53WhichIsConfiguredAllTheSame)
{
    Prepare();
    const Module module(line, {{300ms, "$GPRMC\r\n"}, {600ms, "$GPGGA\r\n"}});
    gps.CheckL26Gps();
    EXPECT_EQ(gps.GetModule(), GpsDevice::Module::SKM53);
    EXPECT_EQ(line.Received(), BOTH_COMMANDS);
    EXPECT_THAT(FileLines(), ElementsAre("Found SKM53 GPS module"));
    EXPECT_EQ(Kit::Clock::Elapsed(), 2700ms);
}

TEST_F(CheckTest, AMultiConstellationRmcShowsNoSkm53)
{
    Prepare();
    const Module module(line, {{300ms, "$GNRMC\r\n"}});
    gps.CheckL26Gps();
    EXPECT_EQ(gps.GetModule(), GpsDevice::Module::L26);
    EXPECT_THAT(FileLines(), ElementsAre("[WARNING]NO GPS module found, consider it L26"));
}

TEST_F(CheckTest, ABusyLineIsListenedToForTwicePeriodsOfThreeSeconds)
{
    Prepare();
    Module::Script script;
    for (auto at = 400ms; at <= 7s; at += 400ms)
    {
        script.emplace_back(at, "$GPRMC\r\n");
    }
    const Module module(line, script);
    EXPECT_EQ(gps.CheckL26Gps(), 1);
    // The first period: from 0.1 s, the read that begins at 2.8 s ends at 3.2 s. The second one: from 3.3 s,
    // the read that begins at 6.0 s ends at 6.4 s.
    EXPECT_EQ(Kit::Clock::Elapsed(), 6400ms);
    EXPECT_EQ(gps.GetModule(), GpsDevice::Module::SKM53);
    EXPECT_THAT(FileLines(), ElementsAre("Found SKM53 GPS module"));
    EXPECT_THAT(ConsoleOnlyLines(), IsEmpty()) << "a missing acknowledgement is no error";
    EXPECT_EQ(line.Received(), BOTH_COMMANDS);
}

TEST_F(CheckTest, APeriodEndsAtItsDeadlineExactly)
{
    Prepare();
    // A read that returns at 3.1 s, three seconds after the period began, is the last one of it.
    const Module module(
        line,
        {{1000ms, "$GPGGA\r\n"}, {1900ms, "$GPGGA\r\n"}, {2800ms, "$GPGGA\r\n"}, {3100ms, "$GPGGA\r\n"}});
    gps.CheckL26Gps();
    EXPECT_THAT(Functions(), ElementsAre("write", "usleep", "select", "read", "select", "read", "select",
                                         "read", "select", "read", "write", "usleep", "select"));
    EXPECT_EQ(Kit::Clock::Elapsed(), 4200ms);
    EXPECT_THAT(ConsoleOnlyLines(),
                ElementsAre("Read serial timeout", "[ERROR]============ > Read serial error "))
        << "the first period ended without an empty read";
}

TEST_F(CheckTest, AnEmptyReadEndsTheFirstPeriodWhateverIsStillToCome)
{
    Prepare();
    const Module module(line, {{1200ms, "$GPTXT\r\n"}, {1250ms, "$GPRMC\r\n"}});
    gps.CheckL26Gps();
    EXPECT_THAT(FileLines(), ElementsAre("[WARNING]NO GPS module found, consider it L26"));
    EXPECT_EQ(ConsoleOnlyLines().at(1), "[ERROR]Read serial error ");
}

TEST_F(CheckTest, AnEmptyReadEndsTheWaitForTheAcknowledgement)
{
    Prepare();
    const Module module(line, {{150ms, RELEASE}, {1300ms, ACKNOWLEDGED}});
    EXPECT_EQ(gps.CheckL26Gps(), 1);
    EXPECT_EQ(Kit::Clock::Elapsed(), 1250ms);
    EXPECT_THAT(ConsoleOnlyLines(),
                ElementsAre("Read serial timeout", "[ERROR]============ > Read serial error "));
}

TEST_F(CheckTest, AnAcknowledgementOfAnotherCommandIsNone)
{
    Prepare();
    const Module module(line, {{150ms, RELEASE}, {400ms, "$PMTK001,314,3*36\r\n"}, {900ms, ACKNOWLEDGED}});
    gps.CheckL26Gps();
    EXPECT_EQ(Kit::Clock::Elapsed(), 900ms);
    EXPECT_THAT(ConsoleOnlyLines(),
                ElementsAre(std::string("[WARNING]GLONASS has been deactivated; ") + ACKNOWLEDGED));
}

TEST_F(CheckTest, AnAnswerInTwoReadsIsNotPutTogether)
{
    Prepare();
    CutReadsAnywhere();
    const Module module(line, {{150ms, "$PMTK705,AXN_2.10,0005,Quectel-"}, {300ms, "L26,1.0*00\r\n"}});
    gps.CheckL26Gps();
    EXPECT_EQ(gps.GetModule(), GpsDevice::Module::L26);
    EXPECT_THAT(FileLines(), ElementsAre("[WARNING]NO GPS module found, consider it L26"));
}

TEST_F(CheckTest, ALostCommandIsNotLookedAt)
{
    Prepare();
    Kit::System::Fail("write", EIO, 1, 2);
    const Module module(line, {{150ms, RELEASE}, {300ms, ACKNOWLEDGED}});
    EXPECT_EQ(gps.CheckL26Gps(), 1);
    EXPECT_EQ(Kit::System::FailuresDone(), 2);
    EXPECT_EQ(line.Received(), "");
    EXPECT_EQ(Kit::Clock::Elapsed(), 300ms);
    EXPECT_EQ(FileLines().back(), "Found L26 GPS module");
}

TEST_F(CheckTest, AFailedWaitCountsAsAnEmptyRead)
{
    Prepare();
    Kit::System::Fail("select", EIO, 1, 2);
    EXPECT_EQ(gps.CheckL26Gps(), 1);
    EXPECT_EQ(Kit::Clock::Elapsed(), 200ms);
    EXPECT_THAT(FileLines(),
                ElementsAre("[ERROR]Read serial error", "[WARNING]NO GPS module found, consider it L26",
                            "[ERROR]Read serial error"));
    EXPECT_THAT(ConsoleOnlyLines(),
                ElementsAre("[ERROR]Read serial error ", "[ERROR]============ > Read serial error "));
}

TEST_F(CheckTest, AHangUpCountsAsAnEmptyRead)
{
    Prepare();
    line.HangUp();
    EXPECT_EQ(gps.CheckL26Gps(), 1);
    EXPECT_EQ(Kit::Clock::Elapsed(), 200ms);
    EXPECT_THAT(FileLines(), ElementsAre("[WARNING]NO GPS module found, consider it L26"));
}

TEST_F(CheckTest, AnEarlierFindingIsForgotten)
{
    Prepare();
    BecomeSkm53();
    gps.CheckL26Gps();
    EXPECT_EQ(gps.GetModule(), GpsDevice::Module::L26);
}

TEST_F(CheckTest, NothingIsDeliveredMeanwhile)
{
    Prepare();
    const Module module(line, {{150ms, "$GPRMC\r\n"}, {300ms, "$GPGGA\r\n"}});
    gps.CheckL26Gps();
    EXPECT_EQ(receiver.Count(), 0u);
}

TEST_F(CheckTest, RunBeforeFlushesFirstAndGoesOnWhateverHappened)
{
    Prepare();
    line.Send(RELEASE); // stale: of an earlier run
    EXPECT_EQ(gps.RunBefore(), 1);
    const Texts functions = Functions();
    EXPECT_THAT(Texts(functions.begin(), functions.begin() + 3), ElementsAre("tcflush", "tcdrain", "write"));
    EXPECT_EQ(FileLines(),
              (Texts{"[SERIAL] Serial port flashed", "[WARNING]NO GPS module found, consider it L26"}));
}

}

}
