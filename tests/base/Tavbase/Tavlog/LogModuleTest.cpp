#include "base/Tavbase/Tavlog/LogModule.h"

#include "base/Tavbase/Interfaces/IThread.h"
#include "tests/base/Tavbase/Tavlog/LogTest.h"
#include "tests/kit/Program.h"

#include <array>
#include <atomic>
#include <climits>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

using Tavbase::Tavlog::EnumString;
using Tavbase::Tavlog::EnumStringBase;
using Tavbase::Tavlog::LogModule;
using testing::ElementsAre;

namespace
{

static_assert(std::is_base_of_v<EnumStringBase<EnumString<LogModule>, LogModule>, EnumString<LogModule>>);

constexpr std::array<const char*, 15> NAMES = {
    "Tavthread", "Tavaq", "FaceRec",       "Sdw",     "DaD",    "CELL", "LT",           "WNET",
    "CONFIG",    "Event", "Accelerometer", "RamDisk", "Report", "Vdb",  "EventRecovery"};

TEST(LogModuleTest, EachValueHasItsName)
{
    for (std::size_t value = 0; value < NAMES.size(); ++value)
    {
        EXPECT_EQ(EnumString<LogModule>::From(static_cast<LogModule>(value)), NAMES.at(value));
    }
}

TEST(LogModuleTest, TheEnumeratorsHaveTheValuesOfTheTable)
{
    const std::array<LogModule, 15> modules = {
        LogModule::Tavthread, LogModule::Tavaq,         LogModule::FaceRec,
        LogModule::Sdw,       LogModule::DaD,           LogModule::CELL,
        LogModule::LT,        LogModule::WNET,          LogModule::CONFIG,
        LogModule::Event,     LogModule::Accelerometer, LogModule::RamDisk,
        LogModule::Report,    LogModule::Vdb,           LogModule::EventRecovery};
    for (std::size_t value = 0; value < modules.size(); ++value)
    {
        EXPECT_EQ(static_cast<std::size_t>(modules.at(value)), value);
    }
}

TEST(LogModuleTest, AValueOutsideTheTableHasAnEmptyName)
{
    for (const int value : {-1, 15, 16, 1000, INT_MAX, INT_MIN})
    {
        EXPECT_EQ(EnumString<LogModule>::From(static_cast<LogModule>(value)), "") << value;
    }
}

using LogModuleLineTest = Kit::DeviceTest;

TEST_F(LogModuleLineTest, EachValueTagsALineWithItsName)
{
    std::vector<std::string> expected;
    for (std::size_t value = 0; value < NAMES.size(); ++value)
    {
        Tests::Log() << Tests::LogType::Info << static_cast<LogModule>(value) << "text" << std::endl;
        expected.push_back(std::string("[#") + NAMES.at(value) + "]text");
    }
    EXPECT_EQ(log.File(), expected);
    EXPECT_EQ(log.Console(), expected);
}

TEST_F(LogModuleLineTest, AnUnregisteredModuleIsAnEmptyTag)
{
    Tests::Log() << Tests::LogType::Error << static_cast<LogModule>(15) << "text" << std::endl;
    EXPECT_THAT(log.File(), ElementsAre("[ERROR][#]text"));
    EXPECT_THAT(log.Console(), ElementsAre("[ERROR][#]text"));
}

KIT_PROGRAM(FirstLinesOfManyThreadsAtOnce)
{
    constexpr int THREADS = 8;
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < THREADS; ++thread)
    {
        threads.emplace_back([&ready] {
            ++ready;
            while (ready < THREADS)
            {
                std::this_thread::yield();
            }
            Tests::Log() << Tests::LogType::Info << LogModule::EventRecovery << std::endl;
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    return 0;
}

TEST(LogModuleTest, ManyThreadsMayWriteTheVeryFirstLinesAtOnce)
{
    const Kit::ChildResult result = Kit::RunProgram("FirstLinesOfManyThreadsAtOnce");
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(Kit::LogLines(result.output),
                testing::AllOf(testing::SizeIs(8), testing::Each("[#EventRecovery]")));
}

class Failing : public Tavbase::Interfaces::IThread
{
public:
    ~Failing() override { Stop(); }

    void Run() override { throw std::runtime_error("boom"); }
};

KIT_PROGRAM(ANameAddedByTheApplication)
{
    // The line is written by the library's own code.
    EnumString<LogModule>::RegisterEnumerator(LogModule::Tavthread, "Added");
    Failing failing;
    failing.Start();
    while (failing.IsRunning())
    {
        std::this_thread::yield();
    }
    return 0;
}

TEST(LogModuleTest, TheApplicationAndTheLibraryHaveOneMap)
{
    const Kit::ChildResult result = Kit::RunProgram("ANameAddedByTheApplication");
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(Kit::LogLines(result.output), ElementsAre("[ERROR][#Added] : ended by an exception: boom"));
}

}
