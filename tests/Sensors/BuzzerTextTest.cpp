// What the board says: its output between the markers, the last line of a text.

#include "tests/Sensors/BuzzerTest.h"

namespace SensorTests
{

namespace
{

struct Row
{
    std::string text;
    std::string result;
};

class BuzzerTextTest : public testing::Test
{
protected:
    BuzzerSerial buzzer;
};

TEST_F(BuzzerTextTest, TheOutputStandsBetweenTheMarkersAndTheirSeparators)
{
    for (const Row& row : {Row{"OMSGS ready OMSGE", "ready"}, Row{"OMSGS\nready\nOMSGE\n", "ready"},
                           Row{"OMSGS:a b c:OMSGE and more", "a b c"}, Row{"OMSGS x OMSGE", "x"},
                           Row{"OMSGS  OMSGE", ""}, Row{"OMSGS\r\ntwo\nlines\r\nOMSGE", "\ntwo\nlines\r"},
                           Row{std::string("OMSGS a\0b OMSGE", 15), std::string("a\0b", 3)}})
    {
        std::string text = row.text;
        EXPECT_EQ(buzzer.UnpackOutput(text), row.result) << row.text;
        EXPECT_EQ(text, row.text) << "left as it is";
    }
}

TEST_F(BuzzerTextTest, WithoutBothMarkersThereIsNoOutput)
{
    for (const char* reply : {"", "ready", "OMSGS", "OMSGE", "OMSGS ready", "ready OMSGE", "OMSG S E",
                              "omsgs ready omsge", "OMSGS ready OMSG", "MSGS ready OMSGE"})
    {
        std::string text = reply;
        EXPECT_EQ(buzzer.UnpackOutput(text), "") << reply;
    }
}

TEST_F(BuzzerTextTest, TheLengthIsReckonedFromTheBeginOfTheText)
{
    for (const Row& row :
         {Row{"xx OMSGS ready OMSGE", "ready OM"}, Row{">> OMSGS ready OMSGE tail", "ready OM"},
          Row{"a long way to go OMSGS r OMSGE", "r OMSGE"}})
    {
        std::string text = row.text;
        EXPECT_EQ(buzzer.UnpackOutput(text), row.result) << row.text;
    }
}

TEST_F(BuzzerTextTest, TheFirstMarkerOfEachKindCounts)
{
    std::string two = "OMSGS one OMSGE OMSGS second OMSGE";
    EXPECT_EQ(buzzer.UnpackOutput(two), "one");
    std::string doubled = "OMSGS OMSGS one OMSGE";
    EXPECT_EQ(buzzer.UnpackOutput(doubled), "OMSGS one");
}

TEST_F(BuzzerTextTest, MarkersTooCloseOrSwappedHaveNothingBetweenThem)
{
    for (const char* reply : {"OMSGSOMSGE", "OMSGS OMSGE", "OMSGE OMSGS", "OMSGE ready OMSGS", "OMSGEOMSGS",
                              "x OMSGE ready OMSGS more"})
    {
        std::string text = reply;
        EXPECT_EQ(buzzer.UnpackOutput(text), "") << reply;
    }
}

TEST_F(BuzzerTextTest, AnOutputThatWouldBeginBehindTheTextIsEmpty)
{
    for (const Row& row : {Row{"0123456789 OMSGE OMSGS", ""}, Row{"0123456789 OMSGE OMSGS ", ""},
                           Row{"0123456789 OMSGE OMSGS x", "x"}, Row{"0123456789 OMSGE OMSGS long", "long"},
                           Row{"0123456789 OMSGE OMSGS longer", "long"}})
    {
        std::string text = row.text;
        EXPECT_EQ(buzzer.UnpackOutput(text), row.result) << row.text;
    }
}

TEST_F(BuzzerTextTest, TheLastLineIsThatBehindTheLastLineEndThatIsFollowedByAnything)
{
    for (const Row& row : {Row{"", ""}, Row{"one", "one"}, Row{"one\n", "one"}, Row{"one\ntwo", "two"},
                           Row{"one\ntwo\n", "two"}, Row{"\n", ""}, Row{"one\n\n", ""}, Row{"\n\none", "one"},
                           Row{"one\r\ntwo\r\n", "two\r"}, Row{"one\rtwo", "one\rtwo"},
                           Row{std::string("a\0b\nc\0d", 7), std::string("c\0d", 3)}})
    {
        std::string text = row.text;
        EXPECT_EQ(buzzer.SplitLastLine(text), row.result) << row.text;
        EXPECT_EQ(text, row.text) << "left as it is";
    }
}

TEST_F(BuzzerTextTest, ALongTextKeepsItsLastLine)
{
    std::string text;
    for (int line = 0; line < 10'000; ++line)
    {
        text += "line " + std::to_string(line) + "\n";
    }
    EXPECT_EQ(buzzer.SplitLastLine(text), "line 9999");
    std::string output = "OMSGS " + std::string(100'000, 'x') + " OMSGE";
    EXPECT_EQ(buzzer.UnpackOutput(output).size(), 100'000u);
}

TEST_F(BuzzerTextTest, TheSettingsAreTheOwners)
{
    EXPECT_EQ(buzzer.defaultCount, 1);
    EXPECT_EQ(buzzer.defaultDuration, 500);
}

}

}
