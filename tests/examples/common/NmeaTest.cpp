#include "examples/common/Nmea.h"

#include <gtest/gtest.h>
#include <string>

namespace
{

using namespace Examples;

TEST(ExamplesNmeaTest, ABlockWithAFixIsUnderstood)
{
    const Block block =
        ParseBlock("$GPRMC,081436.000,A,5212.982135,N,00653.101394,E,10.0,90.5,230808,,,A*64\r\n"
                   "$GPVTG,0.00,T,,M,0.039,N,0.072,K,A*32\r\n"
                   "$GPGGA,081436.000,5212.982135,N,00653.101394,E,1,3,2.88,102.907,M,47.093,M,,*5F\r\n");
    EXPECT_EQ(block.date, "2008-08-23");
    EXPECT_EQ(block.time, "08:14:36");
    EXPECT_TRUE(block.hasRmc);
    EXPECT_TRUE(block.fix);
    ASSERT_TRUE(block.position);
    EXPECT_NEAR(block.position->latitude, 52.2163689, 1e-7);
    EXPECT_NEAR(block.position->longitude, 6.8850232, 1e-7);
    EXPECT_EQ(block.satellites, 3);
    EXPECT_NEAR(block.kilometresPerHour.value_or(0), 18.52, 1e-9);
    EXPECT_NEAR(block.course.value_or(0), 90.5, 1e-9);
    EXPECT_EQ(block.sentences, 3);
    EXPECT_EQ(block.badSentences, 0);
}

TEST(ExamplesNmeaTest, SouthAndWestAreNegative)
{
    const Block block =
        ParseBlock("$GNRMC,150119.000,A,0104.5000,S,11405.7387,W,0.09,194.17,090322,,,D*74\r\n");
    ASSERT_TRUE(block.position);
    EXPECT_NEAR(block.position->latitude, -1.075, 1e-9);
    EXPECT_NEAR(block.position->longitude, -114.095645, 1e-9);
}

TEST(ExamplesNmeaTest, WithoutAFixThereIsNoPosition)
{
    const Block block =
        ParseBlock("$GPRMC,235946.005,V,8960.000000,N,00000.000000,E,0.000,0.00,050180,,,N*47\r\n");
    EXPECT_EQ(block.time, "23:59:46");
    EXPECT_FALSE(block.fix);
    EXPECT_FALSE(block.position);
    EXPECT_FALSE(block.kilometresPerHour);
}

TEST(ExamplesNmeaTest, ASentenceWithAWrongCheckSumIsPassedOver)
{
    const Block block = ParseBlock(
        "$GPRMC,235946.005,V,,,,,0.000,0.00,050180,,,N*00\r\n$GPVTG,0.00,T,,M,0.039,N,0.072,K,A*32\r\n");
    EXPECT_EQ(block.time, "");
    EXPECT_FALSE(block.hasRmc);
    EXPECT_EQ(block.sentences, 2);
    EXPECT_EQ(block.badSentences, 1);
}

TEST(ExamplesNmeaTest, TheCheckSumIsTheExclusiveOrOfTheBytesBetween)
{
    EXPECT_EQ(CheckSumOf("$PMTK605*31\r\n"), CheckSum::Right);
    EXPECT_EQ(CheckSumOf("$PMTK605*31"), CheckSum::Right);
    EXPECT_EQ(CheckSumOf("$GPVTG,0.00,T,,M,0.039,N,0.072,K,A*32"), CheckSum::Right);
    EXPECT_EQ(CheckSumOf("$PMTK605*32"), CheckSum::Wrong);
    EXPECT_EQ(CheckSumOf("$PMTK605*3"), CheckSum::Wrong);
    EXPECT_EQ(CheckSumOf("$PMTK605*"), CheckSum::Wrong);
    EXPECT_EQ(CheckSumOf("$PMTK605*3x"), CheckSum::Wrong);
    EXPECT_EQ(CheckSumOf("$POLYN,TIME,RESTART_OCCURRED"), CheckSum::Missing);
}

TEST(ExamplesNmeaTest, NoiseAndCutSentencesDoNoHarm)
{
    const std::string rmc = "$GPRMC,081436.000,A,5212.982135,N,00653.101394,E,10.0,90.5,230808,,,A*64\r\n";
    for (std::size_t length = 0; length < rmc.size(); ++length)
    {
        const Block block = ParseBlock(rmc.substr(0, length));
        EXPECT_EQ(block.sentences, length == 0 ? 0 : 1);
    }
    const Block behindNoise = ParseBlock("\x01\xff,,*$$\n*$GPRM" + rmc);
    EXPECT_TRUE(behindNoise.position);
    EXPECT_EQ(behindNoise.badSentences, 0);
}

TEST(ExamplesNmeaTest, FieldsThatAreNoNumbersAreLeftOut)
{
    const Block block = ParseBlock("$GPRMC,xx,A,north,N,,E,fast,,,,\r\n$GPGGA,,,,,,,many,,\r\n");
    EXPECT_EQ(block.time, "");
    EXPECT_TRUE(block.fix);
    EXPECT_FALSE(block.position);
    EXPECT_FALSE(block.satellites);
}

TEST(ExamplesNmeaTest, APositionIsWrittenForPeople)
{
    EXPECT_EQ(Readable({48.20021, 16.37004}), "48.20021° N  16.37004° E");
    EXPECT_EQ(Readable({-1.075, -114.095645}), " 1.07500° S 114.09565° W");
}

TEST(ExamplesNmeaTest, ADistanceIsInMetres)
{
    EXPECT_NEAR(MetresBetween({0, 0}, {1, 0}), 111195, 1);
    EXPECT_NEAR(MetresBetween({60, 10}, {60, 11}), 55597, 5);
    EXPECT_EQ(MetresBetween({48, 16}, {48, 16}), 0);
}

}
