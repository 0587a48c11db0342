#include "virtual-unit/peripherals/GpsReceiver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <numeric>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace
{

using namespace std::chrono_literals;
using namespace VirtualUnit;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

constexpr std::string_view QUERY_RELEASE = "$PMTK605*31\r\n";
constexpr std::string_view GPS_ONLY = "$PMTK353,1,0,0,0,0*2A\r\n";
constexpr std::string_view GPS_AND_GLONASS = "$PMTK353,1,1,0,0,0*2B\r\n";
const std::string ACKNOWLEDGEMENT = Nmea::Sentence("PMTK001,353,3");

/// A receiver, switched on at `now`, and the time.
class ReceiverBench
{
public:
    explicit ReceiverBench(GpsReceiver::Options options = {}) : receiver(std::move(options))
    {
        receiver.Advance(now);
    }

    std::vector<std::string> Wait(std::chrono::milliseconds time)
    {
        now += time;
        receiver.Advance(now);
        return receiver.TakeOutput();
    }

    /// What comes within `time`, as one text.
    std::string WaitForText(std::chrono::milliseconds time)
    {
        const std::vector<std::string> output = Wait(time);
        return std::accumulate(output.begin(), output.end(), std::string());
    }

    /// The sentences of the next second; the seconds begin where the bench was made.
    std::vector<std::string> NextSecond() { return Wait(1s); }

    std::string Ask(std::string_view command)
    {
        receiver.Receive(command, now);
        return WaitForText(0ms);
    }

    SerialPeripheral::TimePoint now{1h};
    GpsReceiver receiver;
};

GpsReceiver::Options Skm53()
{
    GpsReceiver::Options options;
    options.model = GpsReceiver::Model::SKM53;
    options.sentenceGap = 0ms;
    return options;
}

GpsReceiver::Options L26()
{
    GpsReceiver::Options options;
    options.sentenceGap = 0ms;
    return options;
}

std::vector<std::string> Addresses(const std::vector<std::string>& sentences)
{
    std::vector<std::string> addresses;
    for (const std::string& sentence : sentences)
    {
        addresses.push_back(sentence.substr(1, sentence.find(',') - 1));
    }
    return addresses;
}

TEST(GpsReceiverTest, AnL26SendsRmcFirst)
{
    GpsReceiver::Options options = L26();
    options.glonassAtStart = false;
    ReceiverBench bench(options);
    bench.Wait(3s); // with its start texts
    EXPECT_THAT(Addresses(bench.NextSecond()),
                ElementsAre("GPRMC", "GPVTG", "GPGGA", "GPGSA", "GPGSV", "GPGSV"));
}

TEST(GpsReceiverTest, AnSkm53SendsRmcLast)
{
    ReceiverBench bench(Skm53());
    EXPECT_THAT(Addresses(bench.NextSecond()),
                ElementsAre("GPGGA", "GPGSA", "GPGSV", "GPGSV", "GPVTG", "GPRMC"));
}

TEST(GpsReceiverTest, AnL26SendsTextSentencesInItsFirstSeconds)
{
    ReceiverBench bench(L26());
    for (int second = 1; second <= 3; ++second)
    {
        EXPECT_THAT(bench.NextSecond(), Contains(StartsWith("$GPTXT"))) << second;
    }
    EXPECT_THAT(bench.NextSecond(), Each(Not(StartsWith("$GPTXT"))));
}

TEST(GpsReceiverTest, AnSkm53NeverSendsTextSentences)
{
    ReceiverBench bench(Skm53());
    EXPECT_THAT(bench.NextSecond(), Each(Not(StartsWith("$GPTXT"))));
}

TEST(GpsReceiverTest, EverySentenceHasItsCheckSum)
{
    for (const GpsReceiver::Options& options : {L26(), Skm53()})
    {
        ReceiverBench bench(options);
        const std::vector<std::string> sentences = bench.Wait(60s);
        EXPECT_GE(sentences.size(), 360U);
        for (const std::string& sentence : sentences)
        {
            ASSERT_EQ(Nmea::Sentence(Nmea::Body(sentence)), sentence);
        }
    }
}

TEST(GpsReceiverTest, NothingComesBeforeItIsSwitchedOn)
{
    GpsReceiver receiver;
    EXPECT_EQ(receiver.NextDeadline(), std::nullopt);
    EXPECT_THAT(receiver.TakeOutput(), IsEmpty());
}

TEST(GpsReceiverTest, TheFirstSentencesComeAfterOneSecond)
{
    ReceiverBench bench(L26());
    EXPECT_EQ(bench.receiver.NextDeadline(), bench.now + 1s);
    EXPECT_THAT(bench.Wait(999ms), IsEmpty());
    EXPECT_THAT(bench.Wait(1ms), Not(IsEmpty()));
    EXPECT_EQ(bench.receiver.NextDeadline(), bench.now + 1s);
}

TEST(GpsReceiverTest, TheSentencesOfASecondAreApart)
{
    GpsReceiver::Options options = Skm53();
    options.sentenceGap = 5ms;
    ReceiverBench bench(options);
    EXPECT_THAT(bench.Wait(1s), SizeIs(1));
    EXPECT_EQ(bench.receiver.NextDeadline(), bench.now + 5ms);
    EXPECT_THAT(bench.Wait(5ms), SizeIs(1));
    EXPECT_THAT(bench.Wait(20ms), SizeIs(4));
    EXPECT_EQ(bench.receiver.NextDeadline(), SerialPeripheral::TimePoint(1h) + 2s);
}

TEST(GpsReceiverTest, TimeAndDateGoOnOverMidnight)
{
    using namespace std::chrono;
    GpsReceiver::Options options = Skm53();
    options.start = sys_days(2027y / December / 31) + 23h + 59min + 58s;
    ReceiverBench bench(options);
    EXPECT_THAT(bench.WaitForText(1s), AllOf(HasSubstr("$GPRMC,235959.000,A,"), HasSubstr(",311227,,,A*")));
    EXPECT_THAT(bench.WaitForText(1s), AllOf(HasSubstr("$GPRMC,000000.000,A,"), HasSubstr(",010128,,,A*")));
}

TEST(GpsReceiverTest, ThePositionIsThatOfTheTrack)
{
    GpsReceiver::Options options = Skm53();
    options.track = Track({{-1.0, -2.0, 18.52}, {-1.0 - 1.0 / 60.0, -2.0, 18.52}}); // south, 10 knots
    ReceiverBench bench(options);
    bench.Wait(35s);
    const std::string text = bench.WaitForText(1s); // a tenth of a mile
    EXPECT_THAT(text, HasSubstr("$GPRMC,081536.000,A,0100.1000,S,00200.0000,W,10.00,180.00,010326,,,A*"));
    EXPECT_THAT(text, HasSubstr("$GPGGA,081536.000,0100.1000,S,00200.0000,W,1,08,"));
    EXPECT_THAT(text, HasSubstr("$GPVTG,180.00,T,,M,10.00,N,18.52,K,A*"));
}

TEST(GpsReceiverTest, WithoutAFixNoPositionIsSent)
{
    GpsReceiver::Options options = Skm53();
    options.fixAfter = 2s;
    ReceiverBench bench(options);
    EXPECT_THAT(bench.WaitForText(1s),
                AllOf(HasSubstr("$GPRMC,081501.000,V,,,,,0.00,0.00,010326,,,N*"),
                      HasSubstr("$GPGGA,081501.000,,,,,0,00,"), HasSubstr("$GPGSA,A,1,,,,,,,,,,,,,99.99")));
    EXPECT_THAT(bench.WaitForText(1s),
                AllOf(HasSubstr("$GPRMC,081502.000,A,48"), HasSubstr("$GPGSA,A,3,04,")));
}

TEST(GpsReceiverTest, SatellitesAreLostAndFound)
{
    ReceiverBench bench(Skm53());
    EXPECT_THAT(bench.WaitForText(1s), HasSubstr(",A,48"));
    bench.receiver.faults.noSatellites = true;
    EXPECT_THAT(bench.WaitForText(1s), HasSubstr(",V,,,,,"));
    bench.receiver.faults.noSatellites = false;
    EXPECT_THAT(bench.WaitForText(1s), HasSubstr(",A,48"));
}

TEST(GpsReceiverTest, AnL26TellsItsRelease)
{
    ReceiverBench bench(L26());
    const std::string reply = bench.Ask(QUERY_RELEASE);
    EXPECT_THAT(reply, AllOf(StartsWith("$PMTK705,"), HasSubstr("Quectel-L26"), EndsWith("\r\n")));
    EXPECT_NE(Nmea::Body(reply), "");
}

TEST(GpsReceiverTest, AnL26SwitchesGlonassOffAndOn)
{
    ReceiverBench bench(L26());
    EXPECT_TRUE(bench.receiver.GlonassOn());
    EXPECT_THAT(Addresses(bench.NextSecond()),
                AllOf(Contains("GNRMC"), Contains("GNGGA"), Contains("GLGSV")));

    EXPECT_EQ(bench.Ask(GPS_ONLY), ACKNOWLEDGEMENT);
    EXPECT_FALSE(bench.receiver.GlonassOn());
    EXPECT_THAT(Addresses(bench.NextSecond()),
                AllOf(Contains("GPRMC"), Not(Contains("GNRMC")), Not(Contains("GLGSV"))));

    EXPECT_EQ(bench.Ask(GPS_AND_GLONASS), ACKNOWLEDGEMENT);
    EXPECT_TRUE(bench.receiver.GlonassOn());
}

TEST(GpsReceiverTest, AnSkm53AnswersNothing)
{
    ReceiverBench bench(Skm53());
    EXPECT_EQ(bench.Ask(QUERY_RELEASE), "");
    EXPECT_EQ(bench.Ask(GPS_ONLY), "");
    EXPECT_EQ(bench.Ask("$PMTK000*32\r\n"), "");
    EXPECT_FALSE(bench.receiver.GlonassOn());
}

TEST(GpsReceiverTest, OtherCommandsAreAnswered)
{
    ReceiverBench bench(L26());
    EXPECT_EQ(bench.Ask("$PMTK000*32\r\n"), Nmea::Sentence("PMTK001,0,3"));
    EXPECT_EQ(bench.Ask("$PMTK220,1000*1F\r\n"), Nmea::Sentence("PMTK001,220,1"));
}

TEST(GpsReceiverTest, WhatIsNoCommandIsPassedOver)
{
    ReceiverBench bench(L26());
    for (const std::string_view text :
         {"$PMTK605*32\r\n", "$PMTK605\r\n", "PMTK605*31\r\n", "\r\n\r\n", "$GPGGA*56\r\n", "$*00\r\n"})
    {
        EXPECT_EQ(bench.Ask(text), "") << text;
    }
    EXPECT_EQ(bench.Ask(std::string(100'000, 'x')), "");
    EXPECT_THAT(bench.Ask("\r\n" + std::string(QUERY_RELEASE)), HasSubstr("Quectel-L26"));
}

TEST(GpsReceiverTest, ACommandMayComeInPieces)
{
    for (std::size_t cut = 0; cut <= QUERY_RELEASE.size(); ++cut)
    {
        ReceiverBench bench(L26());
        std::string reply = bench.Ask(QUERY_RELEASE.substr(0, cut));
        reply += bench.Ask(QUERY_RELEASE.substr(cut));
        EXPECT_THAT(reply, HasSubstr("Quectel-L26")) << cut;
    }
}

TEST(GpsReceiverTest, AMissingReplyIsAFaultOfItsOwn)
{
    ReceiverBench bench(L26());
    bench.receiver.faults.noReleaseReply = true;
    EXPECT_EQ(bench.Ask(QUERY_RELEASE), "");
    EXPECT_EQ(bench.Ask(GPS_ONLY), ACKNOWLEDGEMENT);
}

TEST(GpsReceiverTest, AMissingAcknowledgementDoesNotMeanDisobedience)
{
    ReceiverBench bench(L26());
    bench.receiver.faults.noAcknowledgement = true;
    EXPECT_EQ(bench.Ask(GPS_ONLY), "");
    EXPECT_FALSE(bench.receiver.GlonassOn());
    EXPECT_THAT(bench.Ask(QUERY_RELEASE), HasSubstr("Quectel-L26"));
}

TEST(GpsReceiverTest, ASilentReceiverSendsNothingButObeys)
{
    ReceiverBench bench(L26());
    bench.receiver.faults.silent = true;
    EXPECT_EQ(bench.WaitForText(5s), "");
    EXPECT_EQ(bench.Ask(GPS_ONLY), "");
    EXPECT_FALSE(bench.receiver.GlonassOn());
    bench.receiver.faults.silent = false;
    EXPECT_THAT(bench.WaitForText(1s), HasSubstr("$GPRMC,081506.000"));
}

TEST(GpsReceiverTest, NoiseStandsBeforeTheSentencesAndIsTheSameEachRun)
{
    GpsReceiver::Options options = Skm53();
    ReceiverBench first(options);
    ReceiverBench second(options);
    first.receiver.faults.noiseBytes = 50;
    second.receiver.faults.noiseBytes = 50;
    const std::vector<std::string> output = first.NextSecond();
    ASSERT_THAT(output, SizeIs(7));
    EXPECT_THAT(output[0], SizeIs(50));
    EXPECT_THAT(output[1], StartsWith("$GPGGA"));
    EXPECT_EQ(output, second.NextSecond());
    EXPECT_NE(output[0], first.NextSecond()[0]);
}

TEST(GpsReceiverTest, CheckSumsCanBeWrong)
{
    ReceiverBench bench(L26());
    bench.receiver.faults.wrongCheckSums = true;
    for (const std::string& sentence : bench.Wait(20s))
    {
        EXPECT_EQ(Nmea::Body(sentence), "") << sentence;
        EXPECT_THAT(sentence, EndsWith("\r\n"));
    }
}

TEST(GpsReceiverTest, ARestartBringsTheBannerAndTheFirstSettings)
{
    GpsReceiver::Options options = L26();
    options.fixAfter = 2s;
    ReceiverBench bench(options);
    bench.Ask(GPS_ONLY);
    bench.Wait(10500ms);

    bench.receiver.Restart(bench.now);
    EXPECT_EQ(bench.WaitForText(0ms), "$PMTK011,MTKGPS*08\r\n$PMTK010,001*2E\r\n");
    EXPECT_THAT(bench.WaitForText(1s), AllOf(HasSubstr("$GNRMC,081511.000,V,"), HasSubstr("$GPTXT")));
    EXPECT_THAT(bench.WaitForText(1s), HasSubstr("$GNRMC,081512.000,A,"));
}

TEST(GpsReceiverTest, ARestartLosesWhatWasUnderWay)
{
    GpsReceiver::Options options = L26();
    options.line.bytesPerSecond = 960;
    ReceiverBench bench(options);
    bench.receiver.Receive(QUERY_RELEASE, bench.now);
    bench.receiver.Restart(bench.now);
    EXPECT_EQ(bench.WaitForText(500ms), GpsReceiver::RESTART_BANNER);
}

TEST(GpsReceiverTest, OutputCanBeCutIntoPieces)
{
    GpsReceiver::Options options = Skm53();
    ReceiverBench whole(options);
    options.line.pieceBytes = 7;
    ReceiverBench cut(options);
    const std::string expected = whole.WaitForText(1s);
    const std::vector<std::string> pieces = cut.NextSecond();
    EXPECT_GT(pieces.size(), expected.size() / 7);
    EXPECT_EQ(std::accumulate(pieces.begin(), pieces.end(), std::string()), expected);
}

TEST(GpsReceiverTest, TheLineMayBeChangedUnderWay)
{
    ReceiverBench bench(Skm53());
    bench.receiver.SetLine({.pieceBytes = 1});
    EXPECT_THAT(bench.NextSecond(), Each(SizeIs(1)));
}

TEST(GpsReceiverTest, ARecordingIsPlayedAgainAndAgain)
{
    GpsReceiver::Options options = L26();
    options.recording = {{"$GPRMC,1\r\n", "$GPGGA,1\r\n"}, {"$GPRMC,2\r\n"}};
    ReceiverBench bench(options);
    EXPECT_THAT(bench.NextSecond(), ElementsAre("$GPRMC,1\r\n", "$GPGGA,1\r\n"));
    EXPECT_THAT(bench.NextSecond(), ElementsAre("$GPRMC,2\r\n"));
    EXPECT_THAT(bench.NextSecond(), ElementsAre("$GPRMC,1\r\n", "$GPGGA,1\r\n"));
    EXPECT_THAT(bench.Ask(QUERY_RELEASE), HasSubstr("Quectel-L26"));
}

/// Two seconds of a recording.
std::vector<Nmea::Epoch> Recording()
{
    return {{Nmea::Sentence("GPRMC,235958.000,A,4800.0,N,01600.0,E,10.0,90.0,311225,,,A"),
             Nmea::Sentence("GPGGA,235958.000,4800.0,N,01600.0,E,1,08,0.9,171.0,M,42.8,M,,")},
            {Nmea::Sentence("GPRMC,235959.000,A,4800.1,N,01600.0,E,10.0,90.0,311225,,,A")}};
}

TEST(GpsReceiverTest, ARecordingThatIsPlayedAgainNeverGoesBackInTime)
{
    GpsReceiver::Options options = L26();
    options.recording = Recording();
    ReceiverBench bench(options);
    EXPECT_EQ(bench.NextSecond(), options.recording[0]);
    EXPECT_EQ(bench.NextSecond(), options.recording[1]);
    EXPECT_THAT(bench.NextSecond(),
                ElementsAre(Nmea::Sentence("GPRMC,000000.000,A,4800.0,N,01600.0,E,10.0,90.0,010126,,,A"),
                            Nmea::Sentence("GPGGA,000000.000,4800.0,N,01600.0,E,1,08,0.9,171.0,M,42.8,M,,")));
    EXPECT_THAT(bench.WaitForText(1s), HasSubstr("GPRMC,000001.000,A,4800.1,"));
    EXPECT_THAT(bench.WaitForText(1s), HasSubstr("GPRMC,000002.000,A,4800.0,"));
}

TEST(GpsReceiverTest, ARecordingMayBeMovedToThePresent)
{
    GpsReceiver::Options options = L26();
    options.recording = Recording();
    options.recordingInPresent = true; // it is switched on on 2026-03-01 at 08:15:00
    ReceiverBench bench(options);
    EXPECT_THAT(bench.WaitForText(1s),
                HasSubstr(Nmea::Sentence("GPRMC,081501.000,A,4800.0,N,01600.0,E,10.0,90.0,010326,,,A")));
    EXPECT_THAT(bench.WaitForText(1s), HasSubstr("GPRMC,081502.000,A,4800.1,"));
    EXPECT_THAT(bench.WaitForText(1s), HasSubstr("GPRMC,081503.000,A,4800.0,"));
}

TEST(GpsReceiverTest, ARecordingHasNoFixWhereTheReceiverHasNone)
{
    GpsReceiver::Options options = L26();
    options.recording = Recording();
    options.fixAfter = 2s;
    ReceiverBench bench(options);
    EXPECT_THAT(bench.NextSecond(), ElementsAre(Nmea::Sentence("GPRMC,235958.000,V,,,,,0.00,0.00,311225,,,N"),
                                                Nmea::Sentence("GPGGA,235958.000,,,,,0,00,99.99,,M,,M,,")));
    EXPECT_THAT(bench.WaitForText(1s), HasSubstr(",A,4800.1,N,"));
    bench.receiver.faults.noSatellites = true;
    EXPECT_THAT(bench.WaitForText(1s), AllOf(HasSubstr("GPRMC,000000.000,V,,,,,"), Not(HasSubstr("4800"))));
    bench.receiver.faults.noSatellites = false;
    EXPECT_THAT(bench.WaitForText(1s), HasSubstr(",A,4800.1,N,"));
}

TEST(GpsReceiverTest, ItsSecondsAreThoseOfItsClock)
{
    GpsReceiver::Options options = Skm53();
    options.clockStart = SerialPeripheral::TimePoint(1h) - 10700ms; // before it is switched on
    ReceiverBench bench(options);
    EXPECT_EQ(bench.receiver.NextDeadline(), SerialPeripheral::TimePoint(1h) + 300ms);
    EXPECT_THAT(bench.WaitForText(400ms), HasSubstr("$GPRMC,081511.000,A,"));
}

TEST(GpsReceiverTest, ARecordingMayEnd)
{
    GpsReceiver::Options options = L26();
    options.recording = {{"$GPRMC,1\r\n"}};
    options.repeatRecording = false;
    ReceiverBench bench(options);
    EXPECT_THAT(bench.NextSecond(), SizeIs(1));
    EXPECT_THAT(bench.Wait(10s), IsEmpty());
}

}
