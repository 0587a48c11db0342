#include "virtual-unit/peripherals/Nmea.h"

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

}
