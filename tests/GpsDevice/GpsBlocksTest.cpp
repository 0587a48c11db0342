// What goes in comes out: every sentence once and in order, however the reads are cut.

#include "tests/GpsDevice/GpsTest.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <random>
#include <sstream>

namespace GpsTests
{

namespace
{

/// Where the module has the RMC in its second: an L26 first, an SKM53 last.
enum class Order
{
    RmcFirst,
    RmcLast
};

void PrintTo(Order order, std::ostream* out)
{
    *out << (order == Order::RmcFirst ? "RmcFirst" : "RmcLast");
}

bool HasRmc(std::string_view text)
{
    return text.find("$GPRMC") != std::string_view::npos || text.find("$GNRMC") != std::string_view::npos;
}

std::string Joined(const Texts& texts)
{
    std::string all;
    for (const std::string& text : texts)
    {
        all += text;
    }
    return all;
}

/// Text as a receiver sends it: line ends of its own, no '#' comments of whoever recorded it.
std::string Sentences(std::istream& input)
{
    std::string all;
    for (std::string sentence; std::getline(input, sentence);)
    {
        while (!sentence.empty() && sentence.back() == '\r')
        {
            sentence.pop_back();
        }
        if (!sentence.empty() && sentence.front() != '#')
        {
            all += sentence + "\r\n";
        }
    }
    return all;
}

Texts Lines(const std::string& text)
{
    Texts lines;
    for (std::size_t at = 0; at < text.size();)
    {
        const std::size_t end = text.find('\n', at) + 1;
        lines.push_back(text.substr(at, end - at));
        at = end;
    }
    return lines;
}

/// A few seconds of a drive, with everything that a module may say in between.
std::string Sample(Order order)
{
    std::string all;
    for (int second = 0; second < 8; ++second)
    {
        const std::string time = "08150" + std::to_string(second) + ".000";
        const std::string talker = second % 3 == 2 ? "GN" : "GP";
        const std::string rmc =
            "$" + talker + "RMC," + time + ",A,4807.0380,N,01131.0000,E,22.40,84.40,010326,,,A*7F\r\n";
        const std::string rest =
            "$GPGGA," + time + ",4807.0380,N,01131.0000,E,1,08,0.94,545.4,M,46.9,M,,*5A\r\n" +
            "$GPGSA,A,3,04,09,16,26,07,03,27,02,,,,,1.21,0.94,0.76*01\r\n" +
            (second == 4 ? "$PMTK011,MTKGPS*08\r\n" : "") + "$GPGSV,1,1,02,04,77,125,41,09,63,293,38*7C\r\n";
        all += order == Order::RmcFirst ? rmc + rest : rest + rmc;
    }
    return all;
}

/// Feeds the device read by read, and knows what has to come out.
class BlocksTest : public GpsTest, public testing::WithParamInterface<Order>
{
protected:
    void Begin()
    {
        ASSERT_NO_FATAL_FAILURE(Prepare());
        if (GetParam() == Order::RmcLast)
        {
            ASSERT_NO_FATAL_FAILURE(BecomeSkm53());
        }
        ASSERT_NO_FATAL_FAILURE(CutReadsAnywhere());
    }

    void Read(const std::string& text)
    {
        if (text.empty())
        {
            return;
        }
        Kit::System::ForgetCalls();
        Step(text);
        const auto calls = Kit::System::CallsOf("read");
        ASSERT_EQ(calls.size(), 1u);
        ASSERT_EQ(calls[0].result, static_cast<long>(text.size())) << "the line was not cut as it was meant";
        if (GetParam() == Order::RmcLast)
        {
            open += text;
        }
        if (HasRmc(text))
        {
            blocks.push_back(open);
            open.clear();
        }
        if (GetParam() == Order::RmcFirst)
        {
            open += text;
        }
        sent += text;
    }

    /// Brings out what the device still keeps, and looks at the whole.
    void End()
    {
        const std::string before = sent;
        const std::string last = "\r\n$GPRMC,end\r\n";
        ASSERT_NO_FATAL_FAILURE(Read(last));
        const Texts received = receiver.All();
        EXPECT_EQ(received, blocks);
        EXPECT_EQ(Joined(received), GetParam() == Order::RmcLast ? before + last : before)
            << "every sentence, once and in order";
    }

    std::string sent;
    Texts blocks;
    std::string open; ///< the block that is not complete yet
};

TEST_P(BlocksTest, ReadsOfOneLine)
{
    ASSERT_NO_FATAL_FAILURE(Begin());
    for (const std::string& sentence : Lines(Sample(GetParam())))
    {
        ASSERT_NO_FATAL_FAILURE(Read(sentence));
    }
    const Texts received = receiver.All();
    ASSERT_EQ(received.size(), 8u);
    for (std::size_t i = 0; i < received.size(); ++i)
    {
        const Texts sentences = Lines(received[i]);
        if (GetParam() == Order::RmcLast)
        {
            EXPECT_TRUE(HasRmc(sentences.back())) << received[i];
        }
        else if (i == 0)
        {
            EXPECT_EQ(received[i], "") << "what came before the first RMC";
            continue;
        }
        else
        {
            EXPECT_TRUE(HasRmc(sentences.front())) << received[i];
        }
        EXPECT_EQ(std::count_if(sentences.begin(), sentences.end(), HasRmc), 1) << received[i];
        EXPECT_EQ(sentences.size(), received[i].find("PMTK011") == std::string::npos ? 4u : 5u);
        const std::size_t time = received[i].find("08150");
        for (std::size_t at = time; at != std::string::npos; at = received[i].find("08150", at + 1))
        {
            EXPECT_EQ(received[i][at + 5], received[i][time + 5]) << "sentences of one second stay together";
        }
    }
    ASSERT_NO_FATAL_FAILURE(End());
}

TEST_P(BlocksTest, OneReadOfEverything)
{
    ASSERT_NO_FATAL_FAILURE(Begin());
    ASSERT_NO_FATAL_FAILURE(Read(Sample(GetParam())));
    EXPECT_EQ(receiver.Count(), 1u);
    ASSERT_NO_FATAL_FAILURE(End());
}

TEST_P(BlocksTest, ReadsOfOneByte)
{
    ASSERT_NO_FATAL_FAILURE(Begin());
    for (const char byte : Sample(GetParam()))
    {
        ASSERT_NO_FATAL_FAILURE(Read(std::string(1, byte)));
    }
    EXPECT_EQ(receiver.Count(), 0u) << "an RMC sentence is looked for within one read";
    ASSERT_NO_FATAL_FAILURE(End());
}

TEST_P(BlocksTest, AnyCutInTwo)
{
    ASSERT_NO_FATAL_FAILURE(Begin());
    const std::string text = "$GPGGA,1*00\r\n$GPRMC,1*00\r\n$GNRMC,2*00\r\n$GPGSV,2*00\r\n";
    for (std::size_t cut = 0; cut <= text.size(); ++cut)
    {
        ASSERT_NO_FATAL_FAILURE(Read(text.substr(0, cut)));
        ASSERT_NO_FATAL_FAILURE(Read(text.substr(cut)));
    }
    ASSERT_NO_FATAL_FAILURE(End());
}

TEST_P(BlocksTest, AnyCutInThree)
{
    ASSERT_NO_FATAL_FAILURE(Begin());
    const std::string text = "$GPRMC,1\r\n$GPGGA,1\r\n$GNRMC,2\r\n";
    for (std::size_t first = 0; first <= text.size(); ++first)
    {
        for (std::size_t second = first; second <= text.size(); ++second)
        {
            ASSERT_NO_FATAL_FAILURE(Read(text.substr(0, first)));
            ASSERT_NO_FATAL_FAILURE(Read(text.substr(first, second - first)));
            ASSERT_NO_FATAL_FAILURE(Read(text.substr(second)));
        }
    }
    ASSERT_NO_FATAL_FAILURE(End());
}

TEST_P(BlocksTest, RandomCuts)
{
    ASSERT_NO_FATAL_FAILURE(Begin());
    const std::string text = Sample(GetParam());
    std::mt19937 random(20260301);
    for (int run = 0; run < 60; ++run)
    {
        const std::size_t longest = 1 + random() % 300;
        for (std::size_t at = 0; at < text.size();)
        {
            const std::size_t bytes = 1 + random() % longest;
            ASSERT_NO_FATAL_FAILURE(Read(text.substr(at, bytes)));
            at += bytes;
        }
    }
    ASSERT_NO_FATAL_FAILURE(End());
}

// Recorded output of real receivers ----------------------------------------------------------------------

std::filesystem::path Recordings()
{
    const char* const chosen = std::getenv("TAVDEVICE_NMEA_DATA");
    return chosen != nullptr ? chosen : TAVDEVICE_NMEA_DATA;
}

class RecordedTest : public BlocksTest
{
protected:
    void SetUp() override
    {
        if (Recordings().empty())
        {
            GTEST_SKIP() << "no recordings: TAVDEVICE_NMEA_DATA names no directory";
        }
        for (const auto& entry : std::filesystem::directory_iterator(Recordings()))
        {
            if (entry.path().extension() == ".log" || entry.path().extension() == ".nmea")
            {
                std::ifstream file(entry.path(), std::ios::binary);
                texts.push_back(Sentences(file));
            }
        }
        ASSERT_FALSE(texts.empty()) << "no recordings in " << Recordings();
    }

    std::vector<std::string> texts;
};

TEST_P(RecordedTest, ReadsOfOneLine)
{
    ASSERT_NO_FATAL_FAILURE(Begin());
    std::size_t rmcs = 0;
    for (const std::string& text : texts)
    {
        for (const std::string& sentence : Lines(text))
        {
            rmcs += HasRmc(sentence) ? 1 : 0;
            ASSERT_NO_FATAL_FAILURE(Read(sentence));
        }
    }
    EXPECT_EQ(receiver.Count(), rmcs);
    EXPECT_GT(rmcs, 0u);
    for (std::size_t i = GetParam() == Order::RmcFirst ? 1 : 0; i < receiver.Count(); ++i)
    {
        const Texts sentences = Lines(receiver.All()[i]);
        EXPECT_TRUE(HasRmc(GetParam() == Order::RmcLast ? sentences.back() : sentences.front()));
    }
    ASSERT_NO_FATAL_FAILURE(End());
}

TEST_P(RecordedTest, RandomCuts)
{
    ASSERT_NO_FATAL_FAILURE(Begin());
    std::mt19937 random(20260301);
    for (int run = 0; run < 20; ++run)
    {
        for (const std::string& text : texts)
        {
            const std::size_t longest = 1 + random() % 400;
            for (std::size_t at = 0; at < text.size();)
            {
                const std::size_t bytes = 1 + random() % longest;
                ASSERT_NO_FATAL_FAILURE(Read(text.substr(at, bytes)));
                at += bytes;
            }
        }
    }
    ASSERT_NO_FATAL_FAILURE(End());
}

TEST_P(RecordedTest, AnyCutInTwo)
{
    ASSERT_NO_FATAL_FAILURE(Begin());
    for (const std::string& text : texts)
    {
        const std::string begin = text.substr(0, 600);
        for (std::size_t cut = 0; cut <= begin.size(); ++cut)
        {
            ASSERT_NO_FATAL_FAILURE(Read(begin.substr(0, cut)));
            ASSERT_NO_FATAL_FAILURE(Read(begin.substr(cut)));
        }
    }
    ASSERT_NO_FATAL_FAILURE(End());
}

INSTANTIATE_TEST_SUITE_P(Orders, BlocksTest, testing::Values(Order::RmcFirst, Order::RmcLast),
                         testing::PrintToStringParamName());
INSTANTIATE_TEST_SUITE_P(Orders, RecordedTest, testing::Values(Order::RmcFirst, Order::RmcLast),
                         testing::PrintToStringParamName());

}

}
