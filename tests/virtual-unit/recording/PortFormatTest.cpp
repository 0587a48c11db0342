#include "virtual-unit/recording/PortFormat.h"

#include <chrono>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace
{

using namespace std::chrono_literals;
using VirtualUnit::PortEntry;
using VirtualUnit::PortFormat;
using Kind = PortEntry::Kind;

PortEntry Bytes(Kind kind, std::chrono::microseconds at, const std::string& bytes)
{
    PortEntry entry;
    entry.kind = kind;
    entry.at = at;
    entry.bytes = bytes;
    return entry;
}

PortEntry Requests(std::chrono::microseconds at, const std::vector<PortEntry::Exchange>& exchanges,
                   std::size_t count, std::chrono::microseconds until)
{
    PortEntry entry;
    entry.kind = Kind::Requests;
    entry.at = at;
    entry.exchanges = exchanges;
    entry.count = count;
    entry.until = until;
    return entry;
}

/// Each kind of line.
std::vector<std::pair<PortEntry, std::string>> Lines()
{
    return {
        {Bytes(Kind::Event, 512345us, "opened"), "   0.512345 ! opened"},
        {Bytes(Kind::Event, 1s, "unplugged"), "   1.000000 ! unplugged"},
        {Bytes(Kind::Event, 1s + 1us, "plugged in"), "   1.000001 ! plugged in"},
        {Bytes(Kind::Event, 2s, PortEntry::SignalEvent(15)), "   2.000000 ! signal 15"},
        {Bytes(Kind::Sent, 612345us, "\xAA\x55\x02"), "   0.612345 > hex AA 55 02"},
        {Bytes(Kind::Received, 12345s, "$PMTK605*31\r\n"), R"(12345.000000 < "$PMTK605*31\r\n")"},
        {Bytes(Kind::Sent, 0s, ""), R"(   0.000000 > "")"},
        {Requests(1200ms, {{"pin 103 = 1", "0"}}, 1, 1200ms),
         R"(   1.200000 ? "pin 103 = 1" -> "0"  # left LED green)"},
        {Requests(1300ms, {{"read 0x1C:0x0C", "00"}}, 37, 2041ms),
         R"(   1.300000 ? "read 0x1C:0x0C" -> "00" x 37 until 2.041000)"},
        {Requests(2100ms, {{"pin 102 = 1", "0"}, {"pin 102 = 0", "ENXIO"}}, 7, 5100ms),
         R"(   2.100000 ? "pin 102 = 1" -> "0" | "pin 102 = 0" -> "ENXIO" x 7 until 5.100000  # left LED red)"},
        {Requests(1s,
                  {{"read 0x1C:0x0C", "00"},
                   {"read 0x1C:0x00", "16"},
                   {"read 0x1C:0x01", "00"},
                   {"read 0x1C:0x02", "EIO"}},
                  9, 2s),
         R"(   1.000000 ? "read 0x1C:0x0C" -> "00" | "read 0x1C:0x00" -> "16" | "read 0x1C:0x01" -> "00" | )"
         R"("read 0x1C:0x02" -> "EIO" x 9 until 2.000000)"},
        {Requests(3s, {{"name 256", "'My \"X\"'"}}, 1, 3s), R"(   3.000000 ? "name 256" -> "'My \"X\"'")"},
    };
}

TEST(PortFormatTest, EntriesAreLines)
{
    for (const auto& [entry, line] : Lines())
    {
        EXPECT_EQ(PortFormat::Line(entry), line);
    }
}

TEST(PortFormatTest, LinesAreReadBack)
{
    for (const auto& [entry, line] : Lines())
    {
        EXPECT_EQ(PortFormat::Parse(line), entry) << line;
    }
}

TEST(PortFormatTest, ThePinsNameMayBeMissing)
{
    const std::string line = R"(   1.200000 ? "pin 103 = 1" -> "0")";
    const PortEntry entry = Requests(1200ms, {{"pin 103 = 1", "0"}}, 1, 1200ms);
    EXPECT_EQ(PortFormat::Parse(line), entry) << "as in recordings of before";
    EXPECT_EQ(PortFormat::Parse(line + "  # anything"), entry);
}

TEST(PortFormatTest, CommentsAreNoEntries)
{
    for (const char* line : {"", "#", "# anything", "#0.000000 ! opened"})
    {
        EXPECT_EQ(PortFormat::Parse(line), std::nullopt) << line;
    }
}

std::string Reason(const std::string& line)
{
    try
    {
        PortFormat::Parse(line);
        return "accepted";
    }
    catch (const PortFormat::Wrong& wrong)
    {
        return wrong.what();
    }
}

TEST(PortFormatTest, BadLinesAreRefused)
{
    const std::pair<const char*, std::vector<std::string>> reasons[] = {
        {"has no time in seconds with six digits behind the point",
         {"opened", " ", "! opened", "1 ! opened", "1. ! opened", ".500000 ! opened", "1.00000 ! opened",
          "-1.000000 ! opened", "+1.000000 ! opened", "x1.000000 ! opened", "1,000000 ! opened",
          "1.00000x ! opened", "\t1.000000 ! opened", "9999999999.000000 ! opened",
          "99999999999999999999.000000 ! opened"}},
        {"has none of the signs !, >, < and ? behind its time",
         {"1.000000", "1.000000 ", "1.0000000 ! opened", "1.000000! opened", "1.000000  ! opened",
          "1.000000 !opened", "1.000000 * opened", "1.000000 >"}},
        {"tells an event that is neither opened nor unplugged nor plugged in nor a signal",
         {"1.000000 ! ", "1.000000 ! closed", "1.000000 ! Opened", "1.000000 !  opened", "1.000000 ! signal",
          "1.000000 ! signal ", "1.000000 ! signal 0", "1.000000 ! signal 65", "1.000000 ! signal -1"}},
        {"has neither a text in quotes nor hexadecimal bytes",
         {"1.000000 > ", "1.000000 > AT", "1.000000 > \"AT", "1.000000 < hex", "1.000000 < hex A",
          R"(1.000000 < "\q")"}},
        {"has no request and answer in quotes",
         {"1.000000 ? ", R"(1.000000 ? "pin 103 = 1")", R"(1.000000 ? "pin 103 = 1" -> 0)",
          R"(1.000000 ? "pin 103 = 1" "0")", R"(1.000000 ? pin 103 = 1 -> "0")",
          R"(1.000000 ? "pin 103 = 1" -> "0" | x 3 until 2.000000)"}},
        {"has a request that is none, or an answer that is none to it",
         {R"(1.000000 ? "pin 103" -> "0")", R"(1.000000 ? "pin 103 = 1" -> "on")",
          R"(1.000000 ? "pin 103 = 1" -> "0" | "pin 103 = 0" -> "on" x 3 until 2.000000)"}},
        {"has requests of different pins that take turns",
         {R"(1.000000 ? "pin 103 = 1" -> "0" | "pin 104 = 1" -> "0" x 3 until 2.000000)"}},
        {"does not tell how many requests there were, 2 or more, and until when",
         {R"(1.000000 ? "info" -> "EIO" x until 2.000000)",
          R"(1.000000 ? "info" -> "EIO" x 1 until 2.000000)", R"(1.000000 ? "info" -> "EIO" x 3)",
          R"(1.000000 ? "info" -> "EIO" x -3 until 2.000000)"}},
        {"has no time in seconds with six digits behind the point",
         {R"(1.000000 ? "info" -> "EIO" x 3 until 2)", R"(1.000000 ? "info" -> "EIO" x 3 until )"}},
        {"ends before it begins", {R"(1.000000 ? "info" -> "EIO" x 3 until 0.999999)"}},
        {"has several requests but no count",
         {R"(1.000000 ? "read 0x1C:0x0C" -> "00" | "read 0x1C:0x0D" -> "00" | "read 0x1C:0x0E" -> "00" x 2 until 2.000000)",
          R"(1.000000 ? "pin 103 = 1" -> "0" | "pin 103 = 0" -> "0")"}},
        {"goes on behind its end",
         {"1.000000 ! opened ", "1.000000 ! openedx", "1.000000 ! opened\r", R"(1.000000 > "AT" )",
          R"(1.000000 > "AT"x)", "1.000000 > hex AAA", R"(1.000000 ? "info" -> "EIO" )",
          R"(1.000000 ? "info" -> "EIO" until 2.000000)",
          R"(1.000000 ? "info" -> "EIO" x 3 until 2.0000000)"}},
    };
    for (const auto& [reason, lines] : reasons)
    {
        for (const std::string& line : lines)
        {
            EXPECT_EQ(Reason(line), reason) << line;
        }
    }
}

TEST(PortFormatTest, TheSecondLineNamesThePort)
{
    EXPECT_EQ(PortFormat::PortLine("/dev/ttymxc2"), "# port /dev/ttymxc2");
    EXPECT_EQ(PortFormat::PortOf("# port /dev/ttymxc2"), "/dev/ttymxc2");
    EXPECT_EQ(PortFormat::PortOf("# a port"), std::nullopt);
}

}
