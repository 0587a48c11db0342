// The command line of the program virtual-unit, as people expect one.

#include "tests/virtual-unit/RunningUnit.h"
#include "tests/virtual-unit/VirtualUnitTest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace
{

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

std::string Refusal(const std::vector<std::string>& arguments)
{
    const Outcome outcome = RunUnit(arguments);
    EXPECT_EQ(outcome.status, 2) << testing::PrintToString(arguments);
    EXPECT_EQ(outcome.output, "");
    return outcome.errors;
}

std::string Refused(const std::string& reason)
{
    return "virtual-unit: " + reason + " (see virtual-unit --help)\n";
}

TEST(CommandLineTest, HelpOnACommandTellsWhatItTakes)
{
    const Outcome run = RunUnit({"help", "run"});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.errors, "");
    EXPECT_THAT(run.output,
                AllOf(StartsWith("usage: virtual-unit run [OPTION...] -- PROGRAM"),
                      HasSubstr("\n  --journal FILE"),
                      HasSubstr("\n  --gps-fix-after SECONDS  it has no fix"), HasSubstr("\nExit status: ")));
    EXPECT_EQ(RunUnit({"run", "--help"}).output, run.output);
    EXPECT_EQ(RunUnit({"run", "--fast", "-h", "--", "/bin/echo", "started"}).output, run.output);

    const Outcome steps = RunUnit({"do", "--help"});
    EXPECT_EQ(steps.status, 0);
    EXPECT_THAT(steps.output, AllOf(StartsWith("usage: virtual-unit do "), HasSubstr("\n  --control PATH"),
                                    HasSubstr("\n  motion crash "), Not(HasSubstr("--gps"))));
    for (const char* const command : {"replay", "devices", "check"})
    {
        EXPECT_THAT(RunUnit({command, "--help"}).output,
                    StartsWith("usage: virtual-unit " + std::string(command)));
    }
    EXPECT_EQ(RunUnit({"help"}).output, RunUnit({"--help"}).output);
    EXPECT_EQ(Refusal({"help", "walk"}), Refused("\"walk\" is not a command"));
}

TEST(CommandLineTest, TheVersionIsThatOfTheLibrary)
{
    const Outcome outcome = RunUnit({"--version"});
    EXPECT_EQ(outcome.output, "virtual-unit " PROJECT_VERSION "\n");
    EXPECT_EQ(outcome.status, 0);
}

TEST(CommandLineTest, AValueMayStandBehindAnEqualsSign)
{
    EXPECT_THAT(RunUnit({"devices", "--gps=skm53"}).output, HasSubstr("GPS receiver SKM53\n"));
    EXPECT_THAT(RunUnit({"devices", "--gps=skm53", "--gps", "l26"}).output, HasSubstr("GPS receiver L26\n"))
        << "the latter holds";
    EXPECT_EQ(Refusal({"devices", "--gps="}), Refused("--gps: the value is missing"));
    EXPECT_EQ(Refusal({"devices", "--gps"}), Refused("--gps: the value is missing"));
    EXPECT_EQ(Refusal({"devices", "--gps=l27"}), Refused("--gps: \"l27\" is neither l26 nor skm53"));
    EXPECT_EQ(Refusal({"run", "--fast=no", "--", "/bin/true"}), Refused("--fast takes no value"));
}

TEST(CommandLineTest, SecondsMayHaveAFraction)
{
    EXPECT_THAT(RunUnit({"devices", "--key", "00A1B2C3D4E5", "--key-after", "2.5"}).output,
                HasSubstr("key 00A1B2C3D4E5 after 2.5 s\n"));
    for (const char* const option : {"--gps-fix-after", "--key-after", "--crash-after", "--ignition-after"})
    {
        EXPECT_EQ(RunUnit({"devices", option, "0.25"}).errors, "") << option;
        EXPECT_EQ(Refusal({"devices", option, "0,25"}),
                  Refused(std::string(option) + ": \"0,25\" is not a number of seconds from 0 to 86400"));
    }
}

TEST(CommandLineTest, WhatIsNoOptionIsToldSo)
{
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"--colour"}, "\"--colour\" is not an option"},
        {{"devices", "--colour=red"}, "\"--colour\" is not an option"},
        {{"run", "--colour", "--", "/bin/true"},
         "\"--colour\" is not an option; the program stands behind \"--\""},
        {{"run", "-x", "--", "/bin/true"}, "\"-x\" is not an option; the program stands behind \"--\""},
        {{"do", "--colour", "end"}, "\"--colour\" is not an option"},
        {{"do", "--gps", "l26", "end"}, "\"--gps\" is not an option of do"},
        {{"replay", "x", "-y", "--", "/bin/true"}, "\"-y\" is not an option"}};
    for (const auto& [arguments, reason] : cases)
    {
        EXPECT_EQ(Refusal(arguments), Refused(reason));
    }
}

TEST(CommandLineTest, TheProgramsOwnOptionsAreItsOwn)
{
    EXPECT_EQ(RunUnit({"run", "--fast", "--", "/bin/echo", "--help", "--gps=l27", "--"}).output,
              "--help --gps=l27 --\n");
}

}
