// Each ready script, from end to end, in virtual time: what an application sees is what the script caused,
// and a recording of it is replayed.

#include "tests/kit/TempDir.h"
#include "tests/virtual-unit/RunningUnit.h"
#include "tests/virtual-unit/VirtualUnitTest.h"
#include "virtual-unit/recording/PortEntry.h"
#include "virtual-unit/recording/PortFormat.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace
{

namespace fs = std::filesystem;
using VirtualUnit::PortEntry;
using VirtualUnit::PortFormat;
using namespace std::string_literals;

std::vector<std::string> ReadyScripts()
{
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(READY_SCRIPTS))
    {
        names.push_back(entry.path().stem());
    }
    std::ranges::sort(names);
    return names;
}

/// The plain lines of the monitor, those of each subject together: subjects have threads of their own.
std::string ViewOfApplication(const fs::path& path)
{
    std::vector<std::string> lines = Lines(ReadFile(path));
    std::ranges::stable_sort(lines, {}, [](const std::string& line) {
        // Each LED and each alert device is a subject.
        const bool several = line.starts_with("led: ") || line.starts_with("alert: ");
        return line.substr(0, line.find(' ', several ? line.find(' ') + 1 : 0));
    });
    std::string view;
    for (const std::string& line : lines)
    {
        view += line + "\n";
    }
    return view;
}

std::string WithoutTime(const std::string& line)
{
    constexpr std::string_view BEHIND_TIME = " s  ";
    return line.substr(line.find(BEHIND_TIME) + BEHIND_TIME.size());
}

/// What the script caused, what sounded, and how the pins were left.
std::string ViewOfUnit(const fs::path& log, const fs::path& journal)
{
    std::string view;
    for (const std::string& line : Lines(ReadFile(log)))
    {
        view += WithoutTime(line).starts_with("script: ") ? WithoutTime(line) + "\n" : "";
    }
    std::map<std::string, std::string> pins;
    for (const std::string& timed : Lines(ReadFile(journal)))
    {
        const std::string line = WithoutTime(timed);
        if (line.starts_with("pin "))
        {
            pins[line.substr(0, line.find('='))] = line;
        }
        else
        {
            view += line + "\n";
        }
    }
    for (const auto& [pin, line] : pins)
    {
        view += line + "\n";
    }
    return view;
}

/// A byte that a recording says was sent, and that was another one.
struct ChangedByte
{
    std::string port;
    std::size_t line = 0;
    std::size_t byte = 0;
};

/// Changes a byte that the application sends, in the middle of what it sends to a port.
ChangedByte ChangeByte(const fs::path& directory, const std::string& port)
{
    const fs::path file = directory / (fs::path(port).filename().string() + PortFormat::SUFFIX);
    std::vector<std::string> lines = Lines(ReadFile(file));
    std::vector<std::size_t> sent;
    for (std::size_t i = 0; i < lines.size(); ++i)
    {
        const std::optional<PortEntry> entry = PortFormat::Parse(lines[i]);
        if (entry && entry->kind == PortEntry::Kind::Sent)
        {
            sent.push_back(i);
        }
    }
    const std::size_t line = sent.at(sent.size() / 2);
    PortEntry entry = *PortFormat::Parse(lines[line]);
    const std::size_t byte = entry.bytes.size() / 2;
    entry.bytes[byte] = static_cast<char>(entry.bytes[byte] ^ 1);
    lines[line] = PortFormat::Line(entry);
    std::ofstream rewritten(file, std::ios::binary);
    for (const std::string& text : lines)
    {
        rewritten << text << "\n";
    }
    return {port, line + 1, byte + 1};
}

class ReadyScriptTest : public VirtualUnitTest, public testing::WithParamInterface<std::string>
{
protected:
    void SetUp() override
    {
        VirtualUnitTest::SetUp();
        directory = fs::path(Kit::TempDir::Path()) / GetParam();
        fs::create_directories(directory);
    }

    void TearDown() override { fs::remove_all(directory); }

    std::string File(const std::string& name) const { return directory / name; }

    /// A run of the monitor, whose lines go to the file of that name.
    Outcome Monitor(std::vector<std::string> arguments, const std::string& lines) const
    {
        for (const std::string& argument : {"--fast"s, "--"s, std::string(MONITOR), "--lines"s, File(lines)})
        {
            arguments.emplace_back(argument);
        }
        return RunUnit(arguments);
    }

    Outcome Play() const
    {
        return Monitor({"run", "--script", std::string(READY_SCRIPTS) + "/" + GetParam() + ".script",
                        "--record", File("recording"), "--log", File("log"), "--journal", File("journal")},
                       "lines");
    }

    fs::path directory;
};

TEST_P(ReadyScriptTest, TheApplicationSeesWhatTheScriptCauses)
{
    const Outcome run = Play();
    EXPECT_EQ(run.status, 0) << run.output << run.errors;
    const std::string seen = "# the application\n" + ViewOfApplication(File("lines")) + "# the unit\n" +
                             ViewOfUnit(File("log"), File("journal"));
    const std::string golden = std::string(GOLDEN_FILES) + "/" + GetParam() + ".golden";
    if (std::getenv("TAVDEVICE_WRITE_GOLDEN") != nullptr)
    {
        std::ofstream(golden) << seen;
    }
    EXPECT_EQ(seen, ReadFile(golden)) << run.errors;
}

TEST_P(ReadyScriptTest, AReplayIsIdentical)
{
    ASSERT_EQ(Play().status, 0);
    const Outcome replay = Monitor({"replay", File("recording")}, "replayed-lines");
    EXPECT_EQ(replay.status, 0) << replay.output << replay.errors;
    EXPECT_THAT(replay.errors, testing::Not(testing::HasSubstr("replay: ")));
    EXPECT_EQ(ViewOfApplication(File("replayed-lines")), ViewOfApplication(File("lines")));
}

TEST_P(ReadyScriptTest, AByteThatIsChangedInTheRecordingIsToldByTheReplay)
{
    ASSERT_EQ(Play().status, 0);
    const ChangedByte changed =
        ChangeByte(File("recording"),
                   GetParam().size() % 2 == 0 // either port in half of the scripts
                       ? "/dev/ttymxc2"
                       : "/dev/serial/by-id/usb-Quectel__Incorporated_UMTS_HSPA_Module-if03-port0");
    const Outcome replay = Monitor({"replay", File("recording")}, "replayed-lines");
    EXPECT_EQ(replay.status, 4) << replay.output;
    EXPECT_THAT(replay.errors,
                testing::HasSubstr("virtual-unit: replay: " + changed.port + ": recording line " +
                                   std::to_string(changed.line) + ", byte " + std::to_string(changed.byte) +
                                   ": expected 0x"));
}

INSTANTIATE_TEST_SUITE_P(All, ReadyScriptTest, testing::ValuesIn(ReadyScripts()), [](const auto& script) {
    std::string name = script.param;
    std::ranges::replace(name, '-', '_');
    return name;
});

TEST(ReadyScriptsTest, EachHasItsGoldenFileAndThereAreADozen)
{
    std::vector<std::string> goldens;
    for (const auto& entry : fs::directory_iterator(GOLDEN_FILES))
    {
        if (entry.path().extension() == ".golden")
        {
            goldens.push_back(entry.path().stem());
        }
    }
    std::ranges::sort(goldens);
    EXPECT_EQ(goldens, ReadyScripts());
    EXPECT_GE(goldens.size(), 12U);
}

}
