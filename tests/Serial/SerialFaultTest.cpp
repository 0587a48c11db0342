// Every call that a port makes fails in turn, and input that no device should send arrives.

#include "tests/Serial/SerialTest.h"

#include <cerrno>
#include <cstdint>
#include <ostream>
#include <random>
#include <thread>

using testing::ElementsAre;
using testing::ElementsAreArray;

namespace SerialTests
{

namespace
{

/// What failed in one session that uses everything.
using Failed = std::vector<std::string>;

Failed Session(Kit::Terminal& line, Serial& port)
{
    Failed failed;
    const auto note = [&failed](const char* step, bool done) {
        if (!done)
        {
            failed.emplace_back(step);
        }
    };
    TavubufferDynamic buffer(64);
    std::string text;
    char c = '?';
    unsigned char byte = 'x';
    note("Open", port.Open());
    line.Send("first\nsecond\nthird\n");
    note("Send", port.Send(&byte, 1));
    note("Read buffer", port.Read(buffer, 1));
    note("Read text", port.Read(text));
    note("ReadLoop", port.ReadLoop(&c));
    note("Drain", port.Drain() == 0);
    note("Close", port.Close());
    return failed;
}

struct SweepRow
{
    const char* function;
    std::vector<Failed> failures; ///< by the 1st, 2nd, ... call of the function
};

void PrintTo(const SweepRow& row, std::ostream* out)
{
    *out << row.function;
}

class SerialSweep : public Kit::DeviceTest, public testing::WithParamInterface<SweepRow>
{
};

TEST_P(SerialSweep, EachCallFailingInTurnHasItsStatedResult)
{
    const SweepRow& row = GetParam();
    for (const int error : {EIO, EINTR, EAGAIN, ENXIO})
    {
        for (std::size_t nth = 1; nth <= row.failures.size() + 1; ++nth)
        {
            Kit::System::Reset();
            Kit::Terminal line("/dev/ttymxc1");
            Serial port("/dev/ttymxc1", B9600);
            Kit::System::Fail(row.function, error, static_cast<int>(nth));
            const Failed failed = Session(line, port);
            if (nth > row.failures.size())
            {
                EXPECT_THAT(failed, ElementsAre()) << "a call more than expected";
                EXPECT_EQ(Kit::System::FailuresDone(), 0) << nth;
                continue;
            }
            EXPECT_THAT(failed, ElementsAreArray(row.failures[nth - 1]))
                << row.function << ' ' << nth << ", errno " << error;
            EXPECT_EQ(Kit::System::FailuresDone(), 1);
            port.Close();
            line.Received();
            EXPECT_THAT(Session(line, port), ElementsAre()) << "the port is as good as new";
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    All, SerialSweep,
    testing::Values(SweepRow{"open",
                             {{"Open", "Send", "Read buffer", "Read text", "ReadLoop", "Drain", "Close"}}},
                    SweepRow{"tcgetattr", {{"Open"}}}, SweepRow{"tcsetattr", {{"Open"}}},
                    SweepRow{"tcflush", {{}}}, SweepRow{"tcdrain", {{}, {"Drain"}}},
                    SweepRow{"write", {{"Send"}}}, SweepRow{"select", {{"Read buffer"}}},
                    SweepRow{"read", {{"Read buffer"}, {"Read text"}, {"ReadLoop"}}},
                    SweepRow{"close", {{"Close"}}}),
    [](const testing::TestParamInfo<SweepRow>& row) { return std::string(row.param.function); });

TEST_F(SerialTest, ADeadSystemIsSurvived)
{
    Kit::System::Fail("*", EIO, 1, 100'000);
    const Failed failed = Session(line, port);
    EXPECT_THAT(failed,
                ElementsAre("Open", "Send", "Read buffer", "Read text", "ReadLoop", "Drain", "Close"));
    EXPECT_GE(Kit::System::FailuresDone(), 1);
}

// Too much and no sense ----------------------------------------------------------------------------------

constexpr std::size_t TEN_MEGABYTES = 10'000'000;

TEST_F(SerialTest, TenMegabytesWithoutALineEndAreNoLine)
{
    ASSERT_TRUE(OpenIn(0));
    TavubufferDynamic large(8192);
    const std::string part(50'000, 'x');
    for (std::size_t sent = 0; sent < TEN_MEGABYTES; sent += part.size())
    {
        line.Send(part);
    }
    EXPECT_TRUE(port.Read(large, 1));
    EXPECT_EQ(large.length, 0u);
    line.Send("\nnext\n");
    EXPECT_TRUE(port.Read(large, 1));
    EXPECT_GT(large.length, 0u);
    EXPECT_LE(large.length, 4096u) << "what a terminal keeps of a line";
    EXPECT_EQ(large.data[large.length - 1], '\n');
    EXPECT_TRUE(port.Read(large, 1));
    EXPECT_EQ(std::string(reinterpret_cast<char*>(large.data), static_cast<std::size_t>(large.length)),
              "next\n");
}

TEST_F(SerialTest, TenMegabytesWithoutALineEndPassARawLine)
{
    ASSERT_TRUE(OpenIn(1));
    std::thread peer([this] {
        std::mt19937 random(1);
        std::string part(50'000, ' ');
        for (std::size_t sent = 0; sent < TEN_MEGABYTES; sent += part.size())
        {
            std::generate(part.begin(), part.end(), [&] { return static_cast<char>('a' + random() % 26); });
            line.Send(part);
        }
    });
    TavubufferDynamic large(4096);
    std::mt19937 random(1);
    std::uint64_t received = 0;
    bool same = true;
    for (int silences = 0; received < TEN_MEGABYTES && silences < 1000;)
    {
        EXPECT_TRUE(port.Read(large, 1));
        silences = large.length == 0 ? silences + 1 : 0;
        for (std::size_t i = 0; i < large.length; ++i)
        {
            same = same && large.data[i] == 'a' + random() % 26;
        }
        received += large.length;
    }
    peer.join();
    EXPECT_EQ(received, TEN_MEGABYTES);
    EXPECT_TRUE(same);
}

TEST_F(SerialTest, NoiseOnALineOfTextDoesNoHarm)
{
    ASSERT_TRUE(OpenIn(0));
    std::mt19937 random(20260301);
    std::uint64_t bytes = 0;
    for (int part = 0; part < 100; ++part)
    {
        std::string noise(500, '\0');
        std::generate(noise.begin(), noise.end(), [&] { return static_cast<char>(random()); });
        line.Send(noise);
        // A terminal's end-of-file character (4) shows as a read of nothing, which is a failure; what lies
        // behind it is read next.
        while (port.Read(buffer, 1) ? buffer.length > 0 : true)
        {
            EXPECT_LE(buffer.length, buffer.capacity);
            bytes += buffer.length;
        }
    }
    EXPECT_GT(bytes, 1000u);
    EXPECT_FALSE(port.HasError());
    line.Send("\n");
    EXPECT_TRUE(port.Read(buffer, 1));
    line.Send("sense\n");
    EXPECT_TRUE(port.Read(buffer, 1));
    EXPECT_EQ(Bytes(), "sense\n");
}

}

}
