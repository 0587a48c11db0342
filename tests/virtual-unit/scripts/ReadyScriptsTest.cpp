// Each ready script, from end to end: what an application sees is what the script caused, and a recording of
// it is replayed. Scripts take their time, so that all of them run at once.

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
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace
{

namespace fs = std::filesystem;
using VirtualUnit::PortEntry;
using VirtualUnit::PortFormat;

std::string ReadFile(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

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

/// What is left of one script.
struct Played
{
    fs::path directory; ///< with all files of it
    Outcome run;
    Outcome replay;
    ChangedByte changed;
    Outcome changedReplay;
};

class ReadyScriptTest : public VirtualUnitTest, public testing::WithParamInterface<std::string>
{
protected:
    static void SetUpTestSuite()
    {
        VirtualUnitTest::SetUpTestSuite();
        if (check.status == CANNOT_RUN)
        {
            return;
        }
        for (const std::string& name : ReadyScripts())
        {
            played[name].directory = fs::path(Kit::TempDir::Path()) / ("script-" + name);
            fs::create_directories(played[name].directory);
        }
        PlayAll();
        ReplayAll();
    }

    static void TearDownTestSuite()
    {
        for (const auto& [name, script] : played)
        {
            fs::remove_all(script.directory);
        }
        played.clear();
        VirtualUnitTest::TearDownTestSuite();
    }

    static std::unique_ptr<RunningUnit> Start(std::vector<std::string> arguments, const fs::path& lines)
    {
        RunningUnit::Options options;
        options.longestSeconds = 70;
        for (const char* const argument : {"--", MONITOR, "--lines", lines.c_str()})
        {
            arguments.emplace_back(argument);
        }
        return std::make_unique<RunningUnit>(arguments, options);
    }

    static void PlayAll()
    {
        std::map<std::string, std::unique_ptr<RunningUnit>> runs;
        for (const auto& [name, script] : played)
        {
            const auto file = [&script](const char* what) { return (script.directory / what).string(); };
            runs[name] =
                Start({"run", "--script", std::string(READY_SCRIPTS) + "/" + name + ".script", "--record",
                       file("recording"), "--log", file("log"), "--journal", file("journal")},
                      file("lines"));
        }
        for (auto& [name, script] : played)
        {
            script.run = runs[name]->End();
        }
    }

    static void ReplayAll()
    {
        const std::vector<std::string> ports = {
            "/dev/ttymxc2", "/dev/serial/by-id/usb-Quectel__Incorporated_UMTS_HSPA_Module-if03-port0"};
        std::map<std::string, std::unique_ptr<RunningUnit>> replays;
        std::map<std::string, std::unique_ptr<RunningUnit>> changedReplays;
        std::size_t turn = 0;
        for (auto& [name, script] : played)
        {
            const auto file = [&directory = script.directory](const char* what) {
                return (directory / what).string();
            };
            replays[name] =
                Start({"replay", file("recording"), "--record", file("again")}, file("replayed-lines"));
            fs::copy(file("recording"), file("changed"));
            script.changed = ChangeByte(file("changed"), ports[turn++ % ports.size()]);
            changedReplays[name] = Start({"replay", file("changed")}, file("changed-lines"));
        }
        for (auto& [name, script] : played)
        {
            script.replay = replays[name]->End();
            script.changedReplay = changedReplays[name]->End();
        }
    }

    const Played& Script() const { return played.at(GetParam()); }

    static inline std::map<std::string, Played> played;
};

TEST_P(ReadyScriptTest, TheApplicationSeesWhatTheScriptCauses)
{
    const Played& script = Script();
    EXPECT_EQ(script.run.status, 0) << script.run.output << script.run.errors;
    const std::string seen = "# the application\n" + ViewOfApplication(script.directory / "lines") +
                             "# the unit\n" +
                             ViewOfUnit(script.directory / "log", script.directory / "journal");
    const std::string golden = std::string(GOLDEN_FILES) + "/" + GetParam() + ".golden";
    if (std::getenv("TAVDEVICE_WRITE_GOLDEN") != nullptr)
    {
        std::ofstream(golden) << seen;
    }
    EXPECT_EQ(seen, ReadFile(golden)) << script.run.errors;
}

TEST_P(ReadyScriptTest, AReplayIsIdentical)
{
    const Played& script = Script();
    EXPECT_EQ(script.replay.status, 0) << script.replay.output << script.replay.errors;
    EXPECT_THAT(script.replay.errors, testing::Not(testing::HasSubstr("replay: ")));
    EXPECT_EQ(ViewOfApplication(script.directory / "replayed-lines"),
              ViewOfApplication(script.directory / "lines"));
}

TEST_P(ReadyScriptTest, AByteThatIsChangedInTheRecordingIsToldByTheReplay)
{
    const Played& script = Script();
    const ChangedByte& changed = script.changed;
    EXPECT_EQ(script.changedReplay.status, 4) << script.changedReplay.output;
    EXPECT_THAT(script.changedReplay.errors,
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
