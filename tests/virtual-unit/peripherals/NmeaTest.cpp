#include "virtual-unit/peripherals/Nmea.h"

#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

namespace
{

using namespace VirtualUnit;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(NmeaTest, ASentenceGetsItsCheckSumAndLineEnd)
{
    EXPECT_EQ(Nmea::Sentence("PMTK605"), "$PMTK605*31\r\n");
    EXPECT_EQ(Nmea::Sentence("PMTK353,1,0,0,0,0"), "$PMTK353,1,0,0,0,0*2A\r\n");
    EXPECT_EQ(Nmea::Sentence(""), "$*00\r\n");
}

TEST(NmeaTest, TheBodyOfASentenceIsFoundBehindNoise)
{
    EXPECT_EQ(Nmea::Body("$PMTK605*31\r\n"), "PMTK605");
    EXPECT_EQ(Nmea::Body("$PMTK605*31"), "PMTK605");
    EXPECT_EQ(Nmea::Body("*x$GP$PMTK605*31"), "PMTK605");
}

TEST(NmeaTest, AWrongMissingOrCutCheckSumGivesNoBody)
{
    for (const char* line :
         {"$PMTK605*32", "$PMTK605", "PMTK605*31", "$PMTK605*3", "$PMTK605*", "", "$", "*", "*$"})
    {
        EXPECT_EQ(Nmea::Body(line), "") << line;
    }
}

TEST(NmeaTest, AnglesAreWrittenInDegreesAndMinutes)
{
    EXPECT_EQ(Nmea::Latitude(48.2), "4812.0000,N");
    EXPECT_EQ(Nmea::Latitude(-5.5), "0530.0000,S");
    EXPECT_EQ(Nmea::Longitude(16.37), "01622.2000,E");
    EXPECT_EQ(Nmea::Longitude(-114.0956), "11405.7360,W");
    EXPECT_EQ(Nmea::Longitude(180.0), "18000.0000,E");
}

TEST(NmeaTest, RoundingAnAngleNeverGivesSixtyMinutes)
{
    EXPECT_EQ(Nmea::Latitude(47.99999999), "4800.0000,N");
    EXPECT_EQ(Nmea::Latitude(0.0), "0000.0000,N");
}

TEST(NmeaTest, ARecordingWithRmcFirstIsCutBeforeEachRmc)
{
    EXPECT_THAT(Nmea::Epochs("$GPZDA,1\n$GPRMC,1\n$GPGGA,1\n$GNRMC,2\n$GPGGA,2\n", Nmea::RmcPosition::First),
                ElementsAre(ElementsAre("$GPZDA,1\r\n", "$GPRMC,1\r\n", "$GPGGA,1\r\n"),
                            ElementsAre("$GNRMC,2\r\n", "$GPGGA,2\r\n")));
}

TEST(NmeaTest, ARecordingWithRmcLastIsCutBehindEachRmc)
{
    EXPECT_THAT(Nmea::Epochs("$GPGGA,1\n$GPRMC,1\n$GPGGA,2\n$GPRMC,2\n$GPVTG,2\n", Nmea::RmcPosition::Last),
                ElementsAre(ElementsAre("$GPGGA,1\r\n", "$GPRMC,1\r\n"),
                            ElementsAre("$GPGGA,2\r\n", "$GPRMC,2\r\n", "$GPVTG,2\r\n")));
}

TEST(NmeaTest, CommentsGoAndLineEndsBecomeAlike)
{
    EXPECT_THAT(
        Nmea::Epochs("# from a drive\r\n\r\n$GPRMC,1\r\n#\nGPGGA\n$GPGGA,1", Nmea::RmcPosition::First),
        ElementsAre(ElementsAre("$GPRMC,1\r\n", "$GPGGA,1\r\n")));
}

TEST(NmeaTest, TextWithoutRmcIsOneSecond)
{
    EXPECT_THAT(Nmea::Epochs("$GPGGA,1\n$GPGGA,2\n", Nmea::RmcPosition::First),
                ElementsAre(ElementsAre("$GPGGA,1\r\n", "$GPGGA,2\r\n")));
    EXPECT_THAT(Nmea::Epochs("# nothing\n", Nmea::RmcPosition::First), IsEmpty());
    EXPECT_THAT(Nmea::Epochs("", Nmea::RmcPosition::Last), IsEmpty());
}

using namespace std::chrono_literals;

std::string LaterBody(const std::string& body, std::chrono::milliseconds time)
{
    return std::string(Nmea::Body(Nmea::Later(Nmea::Sentence(body), time)));
}

TEST(NmeaTest, ASentenceOfLaterHasItsTimesMovedAndARightCheckSum)
{
    EXPECT_EQ(LaterBody("GPRMC,235959.500,A,4800.0,N,01600.0,E,10.0,90.0,311227,,,A", 1500ms),
              "GPRMC,000001.000,A,4800.0,N,01600.0,E,10.0,90.0,010128,,,A");
    EXPECT_EQ(LaterBody("GNRMC,081500,A,4800.0,N,01600.0,E,10.0,90.0,010326", -24h),
              "GNRMC,081500,A,4800.0,N,01600.0,E,10.0,90.0,280226");
    EXPECT_EQ(LaterBody("GPGGA,235959.00,4800.0,N,01600.0,E,1,08,0.9,171.0,M,42.8,M,,", 2s),
              "GPGGA,000001.00,4800.0,N,01600.0,E,1,08,0.9,171.0,M,42.8,M,,");
    EXPECT_EQ(LaterBody("GPGLL,4800.0,N,01600.0,E,081500.000,A,A", 1h),
              "GPGLL,4800.0,N,01600.0,E,091500.000,A,A");
    EXPECT_EQ(LaterBody("GPZDA,235959.00,31,12,2027,00,00", 1s), "GPZDA,000000.00,01,01,2028,00,00");
}

TEST(NmeaTest, WhatTellsNoTimeStaysAsItIs)
{
    for (const std::string& sentence :
         {Nmea::Sentence("GPVTG,90.0,T,,M,10.0,N,18.5,K,A"), Nmea::Sentence("GPRMC,,V,,,,,,,,,,N"),
          Nmea::Sentence("PMTK001,353,3"), Nmea::Sentence("GPTXT,01,01,02,ANTSTATUS=OK"),
          std::string("$\r\n"), std::string("$GPRMC\r\n"), std::string("$GPRMC,1\r\n")})
    {
        EXPECT_EQ(Nmea::Later(sentence, 1h), sentence);
    }
}

TEST(NmeaTest, AWrongOrMissingCheckSumStaysWhatItIs)
{
    EXPECT_EQ(Nmea::Later("$GPRMC,081500,V,,,,,,,010326,,,N*00\r\n", 1s),
              "$GPRMC,081501,V,,,,,,,010326,,,N*00\r\n");
    EXPECT_EQ(Nmea::Later("$GPRMC,081500,V,,,,,,,010326,,,N\r\n", 1s),
              "$GPRMC,081501,V,,,,,,,010326,,,N\r\n");
}

TEST(NmeaTest, WhatWasCutOffByTheNextSentenceStaysInFrontOfIt)
{
    const std::string cut = "$GNGNS,081500.00,4812.0*00,$GPG";
    EXPECT_EQ(Nmea::Later(cut + Nmea::Sentence("GPRMC,081500,A,4800.0,N,01600.0,E,10.0,90.0,010326"), 1s),
              cut + Nmea::Sentence("GPRMC,081501,A,4800.0,N,01600.0,E,10.0,90.0,010326"));
    EXPECT_EQ(Nmea::WithoutFix(cut + Nmea::Sentence("GPGLL,4800.0,N,01600.0,E,081500,A,A")),
              cut + Nmea::Sentence("GPGLL,,,,,081500,V,N"));
}

TEST(NmeaTest, TheTimeOfAnEpochIsThatOfItsRmc)
{
    using namespace std::chrono;
    const std::string gga = "$GPGGA,081501,,,,,0\r\n";
    EXPECT_EQ(Nmea::TimeOf({gga, "$GPRMC,081500.25,V,,,,,,,010326\r\n"}),
              sys_days(2026y / March / 1) + 8h + 15min + 250ms);
    EXPECT_EQ(Nmea::TimeOf({"$GPRMC,081500,V,,,,,,,311299\r\n"}),
              sys_days(1999y / December / 31) + 8h + 15min);
    EXPECT_EQ(Nmea::TimeOf({"$GPRMC,081500,V,,,,,,,\r\n"}), sys_days() + 8h + 15min);
    EXPECT_EQ(Nmea::TimeOf({gga}), std::nullopt);
    EXPECT_EQ(Nmea::TimeOf({"$GPRMC,,V,,,,,,,\r\n"}), std::nullopt);
    EXPECT_EQ(Nmea::TimeOf({"$GPRMC,0815,V,,,,,,,310226\r\n"}), std::nullopt);
}

TEST(NmeaTest, WithoutAFixNothingTellsPlaceOrSpeed)
{
    const auto without = [](const std::string& body) {
        return std::string(Nmea::Body(Nmea::WithoutFix(Nmea::Sentence(body))));
    };
    EXPECT_EQ(without("GPRMC,081500.000,A,4800.0,N,01600.0,E,10.0,90.0,010326,,,A"),
              "GPRMC,081500.000,V,,,,,0.00,0.00,010326,,,N");
    EXPECT_EQ(without("GPRMC,081500,A,4800.0,N,01600.0,E,10.0,90.0,010326,,"),
              "GPRMC,081500,V,,,,,0.00,0.00,010326,,");
    EXPECT_EQ(without("GPVTG,90.0,T,1.0,M,10.0,N,18.5,K,A"), "GPVTG,0.00,T,,M,0.00,N,0.00,K,N");
    EXPECT_EQ(without("GPGGA,081500,4800.0,N,01600.0,E,1,08,0.9,171.0,M,42.8,M,,"),
              "GPGGA,081500,,,,,0,00,99.99,,M,,M,,");
    EXPECT_EQ(without("GNGNS,081500,4800.0,N,01600.0,E,AA,12,0.9,171.0,42.8,,"),
              "GNGNS,081500,,,,,NN,00,99.99,,,,");
    EXPECT_EQ(without("GPGLL,4800.0,N,01600.0,E,081500,A,A"), "GPGLL,,,,,081500,V,N");
    EXPECT_EQ(without("GPGSA,A,3,04,09,16,,,,,,,,,,1.2,0.9,0.8"), "GPGSA,A,1,,,,,,,,,,,,,99.99,99.99,99.99");
    EXPECT_EQ(without("GPGSV,1,1,02,04,77,125,41,09,63,293,38"), "GPGSV,1,1,02,04,77,125,,09,63,293,");
    EXPECT_EQ(without("PMTK001,353,3"), "PMTK001,353,3");
}

}
