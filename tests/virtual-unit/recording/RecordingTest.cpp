#include "virtual-unit/recording/Recording.h"

#include "tests/kit/TempDir.h"
#include "virtual-unit/recording/Recorder.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace
{

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using VirtualUnit::PortEntry;
using VirtualUnit::PortObserver;
using VirtualUnit::PortRecording;
using VirtualUnit::Recorder;
using VirtualUnit::Recording;

const std::vector<std::string> PORTS = {"/dev/ttymxc0", "/dev/ttymxc2", "/dev/tav_event"};
const std::string HEAD = "# virtual-unit recording 1\n# port /dev/ttymxc0\n";

class RecordingTest : public testing::Test
{
protected:
    RecordingTest()
    {
        std::filesystem::remove_all(directory);
        std::filesystem::create_directory(directory);
    }

    void Write(const std::string& content, const std::string& name = "ttymxc0.port") const
    {
        std::ofstream(directory + "/" + name) << content;
    }

    /// Without the name of the directory.
    std::string Refusal() const
    {
        try
        {
            Recording::Open(directory, PORTS);
            return "accepted";
        }
        catch (const Recording::Wrong& wrong)
        {
            std::string reason = wrong.what();
            const std::size_t at = reason.find(directory);
            return at == std::string::npos ? reason : reason.replace(at, directory.size(), "DIR");
        }
    }

    const std::string directory = Kit::TempDir::Path() + "/recording";
};

TEST_F(RecordingTest, LinesAreReadWithTheirNumbers)
{
    Write(HEAD + "# a comment\n\n   0.500000 ! opened\n   0.600000 > \"AT\\r\"\n");
    const PortRecording recording = Recording::Open(directory, PORTS).Port("/dev/ttymxc0");
    EXPECT_EQ(recording.port, "/dev/ttymxc0");
    ASSERT_THAT(recording.entries, SizeIs(2));
    EXPECT_TRUE(recording.entries[0].IsEvent("opened"));
    EXPECT_EQ(recording.entries[0].line, 5U);
    EXPECT_EQ(recording.entries[1].bytes, "AT\r");
    EXPECT_EQ(recording.entries[1].line, 6U);
}

TEST_F(RecordingTest, APortWithoutAFileHasNoEntries)
{
    Write(HEAD);
    const Recording recording = Recording::Open(directory, PORTS);
    EXPECT_THAT(recording.Port("/dev/ttymxc0").entries, IsEmpty());
    EXPECT_THAT(recording.Port("/dev/ttymxc2").entries, IsEmpty());
    EXPECT_EQ(recording.Port("/dev/ttymxc2").port, "/dev/ttymxc2");
}

TEST_F(RecordingTest, WhatWasRecordedReadsBackEqual)
{
    const PortObserver::TimePoint begin{1h};
    std::filesystem::remove(directory);
    Recorder recorder(directory, begin);
    PortObserver& observer = recorder.Port("/dev/ttymxc2");
    std::string all;
    for (int byte = 0; byte <= 255; ++byte)
    {
        all += static_cast<char>(byte);
    }
    observer.Happened("opened", begin + 1us);
    observer.Sent(all, begin + 2us);
    observer.Received("\"text\"\r\n", begin + 3us);
    observer.Answered("name 256", "'\x1B\"'", begin + 4us);
    for (int i = 0; i < 5; ++i)
    {
        observer.Answered("pin 102 = " + std::to_string(i % 2), "0", begin + 5us + i * 1us);
    }
    recorder.Finish();

    const std::vector<PortEntry> entries = Recording::Open(directory, PORTS).Port("/dev/ttymxc2").entries;
    EXPECT_THAT(
        entries,
        ElementsAre(PortEntry{PortEntry::Kind::Event, 1us, "opened", {}, 1, 0us, 3},
                    PortEntry{PortEntry::Kind::Sent, 2us, all, {}, 1, 0us, 4},
                    PortEntry{PortEntry::Kind::Received, 3us, "\"text\"\r\n", {}, 1, 0us, 5},
                    PortEntry{PortEntry::Kind::Requests, 4us, "", {{"name 256", "'\x1B\"'"}}, 1, 4us, 6},
                    PortEntry{PortEntry::Kind::Requests,
                              5us,
                              "",
                              {{"pin 102 = 0", "0"}, {"pin 102 = 1", "0"}},
                              5,
                              9us,
                              7}));
}

TEST_F(RecordingTest, ABadLineIsRefusedWithItsNumber)
{
    Write(HEAD + "   0.500000 ! opened\n\n   0.600000 > AT\n   0.7 ! opened\n");
    EXPECT_EQ(Refusal(), "\"DIR/ttymxc0.port\", line 5: has neither a text in quotes nor hexadecimal bytes");
}

TEST_F(RecordingTest, AFileWithoutItsHeadIsRefused)
{
    for (const char* content :
         {"", "\n", "   0.500000 ! opened\n", "# virtual-unit recording 2\n# port /dev/ttymxc0\n"})
    {
        Write(content);
        EXPECT_EQ(Refusal(), "\"DIR/ttymxc0.port\", line 1: is not \"# virtual-unit recording 1\"")
            << content;
    }
    for (const char* second : {"", "\n", "# a comment\n", "# port \n", "   0.500000 ! opened\n"})
    {
        Write("# virtual-unit recording 1\n" + std::string(second));
        EXPECT_EQ(Refusal(), "\"DIR/ttymxc0.port\", line 2: does not name the port") << second;
    }
}

TEST_F(RecordingTest, ALineWithoutEndIsRefused)
{
    Write(HEAD + "   0.500000 > \"AT\"");
    EXPECT_EQ(Refusal(), "\"DIR/ttymxc0.port\", line 3: has no end; a line feed is missing");
}

TEST_F(RecordingTest, TimesThatGoBackAreRefused)
{
    const std::string reason = "\"DIR/ttymxc0.port\", line 4: goes back in time";
    Write(HEAD + "   0.500000 ! opened\n   0.499999 > \"AT\"\n");
    EXPECT_EQ(Refusal(), reason);
    Write(HEAD + "   0.500000 ? \"info\" -> \"EIO\" x 2 until 0.700000\n   0.600000 > \"AT\"\n");
    EXPECT_EQ(Refusal(), reason);
    Write(HEAD + "   0.500000 ? \"pin 103 = 1\" -> \"0\"\n   0.400000 ? \"pin 103 = 0\" -> \"0\"\n");
    EXPECT_EQ(Refusal(), reason);
    Write(HEAD + "   0.500000 ? \"pin 103 = 1\" -> \"0\"\n   0.400000 ? \"pin 102 = 0\" -> \"0\"\n   0.3000"
                 "00 ! opened\n");
    EXPECT_EQ(Refusal(), "accepted");
}

TEST_F(RecordingTest, UnknownPortsAreRefused)
{
    Write("# virtual-unit recording 1\n# port /dev/ttymxc7\n");
    EXPECT_EQ(Refusal(), "\"DIR/ttymxc0.port\", line 2: names /dev/ttymxc7, which is no port of the unit");
}

TEST_F(RecordingTest, APortHasOneFile)
{
    Write(HEAD);
    Write(HEAD, "zopy.port");
    EXPECT_EQ(Refusal(),
              "\"DIR/zopy.port\", line 2: names /dev/ttymxc0, of which another file is the recording");
}

TEST_F(RecordingTest, ADirectoryWithoutRecordingsIsRefused)
{
    EXPECT_EQ(Refusal(), "\"DIR\" holds no recording, no file *.port");
    Write("something", "README");
    Write("something", "port");
    EXPECT_EQ(Refusal(), "\"DIR\" holds no recording, no file *.port");
}

TEST_F(RecordingTest, WhatCannotBeReadIsRefused)
{
    std::filesystem::create_directory(directory + "/ttymxc0.port");
    EXPECT_EQ(Refusal(), "\"DIR/ttymxc0.port\" cannot be read");
    std::filesystem::remove_all(directory);
    EXPECT_EQ(Refusal(), "\"DIR\" cannot be read: No such file or directory");
}

TEST_F(RecordingTest, ThePresenceOfADeviceIsTold)
{
    Write(
        HEAD +
        "   0.000000 ! unplugged\n   0.400000 ! plugged in\n   0.500000 ! opened\n   0.600000 ! unplugged\n");
    using Change = PortRecording::PresenceChange;
    EXPECT_THAT(Recording::Open(directory, PORTS).Port("/dev/ttymxc0").PresenceChanges(),
                ElementsAre(Change{0s, false}, Change{400ms, true}, Change{600ms, false}));
}

}
