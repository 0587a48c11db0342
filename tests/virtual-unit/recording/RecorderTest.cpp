#include "virtual-unit/recording/Recorder.h"

#include "tests/kit/TempDir.h"

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <sys/resource.h>

namespace
{

using namespace std::chrono_literals;
using testing::EndsWith;
using VirtualUnit::Mask;
using VirtualUnit::PortObserver;
using VirtualUnit::Recorder;

namespace fs = std::filesystem;

class RecorderTest : public testing::Test
{
protected:
    RecorderTest() { fs::remove_all(directory); }

    std::string Content(const std::string& file = "ttymxc2.port") const
    {
        std::stringstream content;
        content << std::ifstream(directory + "/" + file).rdbuf();
        return content.str();
    }

    static std::string Head(const std::string& port)
    {
        return "# virtual-unit recording 1\n# port " + port + "\n";
    }

    static std::string Refusal(const std::function<void()>& action)
    {
        try
        {
            action();
            return "accepted";
        }
        catch (const Recorder::Unusable& unusable)
        {
            return unusable.what();
        }
    }

    const std::string port = "/dev/ttymxc2";
    const std::string head = Head(port);
    const std::string directory = Kit::TempDir::Path() + "/recording";
    const PortObserver::TimePoint begin{1h};
};

TEST_F(RecorderTest, EachPortHasAFile)
{
    Recorder recorder(directory, begin);
    recorder.Port(port).Happened("opened", begin + 512345us);
    recorder.Port("/dev/serial/by-id/usb-1a86-port0").Sent("AT\r", begin + 1s);
    recorder.Finish();
    EXPECT_EQ(Content(), head + "   0.512345 ! opened\n");
    EXPECT_EQ(Content("usb-1a86-port0.port"),
              Head("/dev/serial/by-id/usb-1a86-port0") + "   1.000000 > \"AT\\r\"\n");
}

TEST_F(RecorderTest, WhatHappensIsWrittenAtOnce)
{
    Recorder recorder(directory, begin);
    PortObserver& observer = recorder.Port(port);
    EXPECT_EQ(Content(), head);
    observer.Happened("opened", begin + 1s);
    observer.Sent("\xAA\x55", begin + 2s);
    observer.Received("OK\r\n", begin + 3s);
    observer.Happened("unplugged", begin + 4s);
    EXPECT_EQ(Content(), head + "   1.000000 ! opened\n"
                                "   2.000000 > hex AA 55\n"
                                "   3.000000 < \"OK\\r\\n\"\n"
                                "   4.000000 ! unplugged\n");
}

TEST_F(RecorderTest, RepeatedRequestsAreOneLine)
{
    Recorder recorder(directory, begin);
    PortObserver& observer = recorder.Port(port);
    for (int i = 1; i <= 37; ++i)
    {
        observer.Answered("read 0x1C:0x0C", "00", begin + i * 20ms);
    }
    EXPECT_EQ(Content(), head);
    observer.Sent("\1", begin + 1s); // ends it: the port is one channel
    observer.Answered("read 0x1C:0x0C", "00", begin + 2s);
    const std::string lines = head + "   0.020000 ? \"read 0x1C:0x0C\" -> \"00\" x 37 until 0.740000\n"
                                     "   1.000000 > hex 01\n";
    EXPECT_EQ(Content(), lines);
    recorder.Finish();
    EXPECT_EQ(Content(), lines + "   2.000000 ? \"read 0x1C:0x0C\" -> \"00\"\n");
}

TEST_F(RecorderTest, PinsAreRepeatedEachOnItsOwn)
{
    Recorder recorder(directory, begin);
    PortObserver& observer = recorder.Port(port);
    for (int i = 0; i < 6; ++i)
    {
        const std::string value = i % 2 == 0 ? "1" : "0";
        observer.Answered("pin 103 = " + value, "0", begin + i * 10ms + 1ms);
        observer.Answered("pin 102 = " + value, "0", begin + i * 10ms);
        observer.Received("\1", begin + i * 10ms);
    }
    observer.Answered("pin 104 = 1", "0", begin);
    recorder.Finish();
    EXPECT_THAT(Content(), EndsWith("   0.050000 < hex 01\n"
                                    "   0.000000 ? \"pin 102 = 1\" -> \"0\" | \"pin 102 = 0\" -> \"0\" x 6 "
                                    "until 0.050000  # left LED red\n"
                                    "   0.000000 ? \"pin 104 = 1\" -> \"0\"  # infrared LEDs\n"
                                    "   0.001000 ? \"pin 103 = 1\" -> \"0\" | \"pin 103 = 0\" -> \"0\" x 6 "
                                    "until 0.051000  # left LED green\n"));
}

TEST_F(RecorderTest, TimesDoNotGoBack)
{
    Recorder recorder(directory, begin);
    PortObserver& observer = recorder.Port(port);
    observer.Happened("opened", begin - 1s);
    observer.Sent("A", begin + 2s);
    observer.Received("B", begin + 1s);
    EXPECT_EQ(Content(), head + "   0.000000 ! opened\n"
                                "   2.000000 > \"A\"\n"
                                "   2.000000 < \"B\"\n");
}

TEST_F(RecorderTest, APresenceIsToldOnce)
{
    Recorder recorder(directory, begin);
    PortObserver& observer = recorder.Port(port);
    for (const char* event :
         {"plugged in", "unplugged", "unplugged", "plugged in", "plugged in", "opened", "opened"})
    {
        observer.Happened(event, begin);
    }
    EXPECT_EQ(Content(), head + "   0.000000 ! unplugged\n"
                                "   0.000000 ! plugged in\n"
                                "   0.000000 ! opened\n"
                                "   0.000000 ! opened\n");
}

TEST_F(RecorderTest, SecretsAreMaskedInBothDirectionsAndInRequests)
{
    Recorder recorder(directory, begin, Mask({"256"}));
    PortObserver& observer = recorder.Port(port);
    observer.Sent("AT 2", begin);
    observer.Sent("56\r", begin + 1ms);
    observer.Received("25", begin + 2ms);
    observer.Received("6 2", begin + 3ms);
    EXPECT_THAT(Content(), EndsWith("< \"00\"\n")); // the tail may be the begin of a secret
    observer.Answered("name 256", "'256'", begin + 4ms);
    observer.Received("2", begin + 5ms);
    observer.Sent("56", begin + 6ms); // the other direction
    observer.Received("2", begin + 7ms);
    recorder.Finish();
    EXPECT_EQ(Content(), head + "   0.000000 > \"AT 0\"\n"
                                "   0.001000 > \"00\\r\"\n"
                                "   0.002000 < \"00\"\n"
                                "   0.003000 < \"0 2\"\n"
                                "   0.004000 ? \"name 000\" -> \"'000'\"\n"
                                "   0.005000 < \"2\"\n"
                                "   0.006000 > \"56\"\n"
                                "   0.007000 < \"2\"\n");
}

TEST_F(RecorderTest, ASecretIsMaskedAroundWhatGoesTheOtherWay)
{
    Recorder recorder(directory, begin, Mask({"256"}));
    PortObserver& observer = recorder.Port(port);
    observer.Received("no 2", begin);
    observer.Sent("AT\r", begin + 1ms);
    observer.Received("56\r", begin + 2ms);
    EXPECT_EQ(Content(), head + "   0.000000 < \"no 0\"\n"
                                "   0.001000 > \"AT\\r\"\n"
                                "   0.002000 < \"00\\r\"\n");
}

TEST_F(RecorderTest, TheEndWritesTheRest)
{
    {
        Recorder recorder(directory, begin, Mask({"256"}));
        recorder.Port(port).Received("25", begin);
    }
    EXPECT_EQ(Content(), head + "   0.000000 < \"25\"\n");
}

TEST_F(RecorderTest, TheDirectoryMayBeThereWhenItIsEmpty)
{
    fs::create_directory(directory);
    Recorder recorder(directory, begin);
    recorder.Port(port);
    EXPECT_EQ(Content(), head);
    EXPECT_EQ(Refusal([&] { const Recorder again(directory, begin); }), "\"" + directory + "\" is not empty");
}

TEST_F(RecorderTest, WhatIsNoDirectoryIsRefused)
{
    std::ofstream(directory) << "a file";
    EXPECT_EQ(Refusal([&] { const Recorder recorder(directory, begin); }),
              "\"" + directory + "\" is no directory");
    const std::string missing = Kit::TempDir::Path() + "/missing/recording";
    EXPECT_EQ(Refusal([&] { const Recorder recorder(missing, begin); }),
              "\"" + missing + "\" cannot be used: No such file or directory");
}

TEST_F(RecorderTest, APortHasOneRecording)
{
    Recorder recorder(directory, begin);
    EXPECT_EQ(&recorder.Port(port), &recorder.Port(port));
}

TEST_F(RecorderTest, TwoPortsHaveDifferentNames)
{
    Recorder recorder(directory, begin);
    recorder.Port(port);
    EXPECT_EQ(Refusal([&] { recorder.Port("/dev/other/ttymxc2"); }),
              "\"" + directory + "/ttymxc2.port\" cannot be created: File exists");
}

/// Files of this process cannot grow beyond a size.
class SmallFiles
{
public:
    explicit SmallFiles(rlim_t bytes)
    {
        getrlimit(RLIMIT_FSIZE, &before);
        const rlimit limit = {bytes, before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }

    ~SmallFiles()
    {
        setrlimit(RLIMIT_FSIZE, &before);
        std::signal(SIGXFSZ, handler);
    }

private:
    void (*handler)(int) = std::signal(SIGXFSZ, SIG_IGN);
    rlimit before = {};
};

TEST_F(RecorderTest, WhatCannotBeWrittenIsToldAtTheEnd)
{
    Recorder recorder(directory, begin);
    PortObserver& observer = recorder.Port(port);
    std::string reason;
    {
        const SmallFiles full(head.size() + 10);
        observer.Sent("A", begin);
        observer.Sent("B", begin);
        reason = Refusal([&] { recorder.Finish(); });
    }
    EXPECT_EQ(reason, "\"" + directory + "/ttymxc2.port\" is not complete: File too large");
}

}
