// Each ready script, from end to end: what an application sees is what the script caused, and a recording of
// it is replayed. Scripts take their time, so that all of them run at once.

#include "tests/kit/TempDir.h"
#include "tests/virtual-unit/RunningUnit.h"
#include "tests/virtual-unit/VirtualUnitTest.h"
#include "virtual-unit/recording/PortEntry.h"
#include "virtual-unit/recording/PortFormat.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <termios.h>
#include <thread>
#include <unistd.h>
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

/// Measures how long this machine holds up what is written to a terminal, on a thread of its own. Where two
/// other programs keep both of its processors busy, that may be half a second, longer than the library waits
/// for an answer: the same would happen to a unit whose UARTs stop.
class TerminalWatch
{
public:
    TerminalWatch() : master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)), thread([this] { Measure(); }) {}

    ~TerminalWatch() { Stop(); }

    std::chrono::milliseconds Stop() ///< @return the longest time
    {
        ending = true;
        if (thread.joinable())
        {
            thread.join();
            close(master);
        }
        return longest;
    }

private:
    void Measure()
    {
        std::array<char, 64> name = {};
        grantpt(master);
        unlockpt(master);
        ptsname_r(master, name.data(), name.size());
        const int slave = open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        termios settings = {};
        tcgetattr(slave, &settings);
        cfmakeraw(&settings);
        tcsetattr(slave, TCSANOW, &settings);
        while (!ending)
        {
            const auto begin = std::chrono::steady_clock::now();
            char byte = 'x';
            if (write(slave, &byte, 1) != 1 || read(master, &byte, 1) != 1)
            {
                break;
            }
            const auto time = std::chrono::steady_clock::now() - begin;
            longest = std::max(longest, std::chrono::duration_cast<std::chrono::milliseconds>(time));
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        close(slave);
    }

    int master;
    std::atomic<bool> ending{false};
    std::chrono::milliseconds longest{0};
    std::thread thread;
};

/// What is left of one script.
struct Played
{
    std::string name;
    fs::path directory; ///< with all files of it
    std::string port;   ///< of which a byte is changed
    std::unique_ptr<RunningUnit> running;
    std::unique_ptr<RunningUnit> replaying;
    std::unique_ptr<RunningUnit> replayingChanged;

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
        constexpr int MOST_TRIALS = 4;
        constexpr std::chrono::milliseconds TOO_LONG{60};
        for (int trial = 1; trial <= MOST_TRIALS; ++trial)
        {
            TerminalWatch watch;
            PlayAll();
            const std::chrono::milliseconds longest = watch.Stop();
            if (longest < TOO_LONG)
            {
                break;
            }
            std::cout << "This machine held a terminal up for " << longest.count() << " ms"
                      << (trial < MOST_TRIALS ? ": all scripts once more\n" : "\n");
        }
    }

    static void TearDownTestSuite()
    {
        Forget();
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

    static void Forget()
    {
        for (const auto& [name, script] : played)
        {
            fs::remove_all(script.directory);
        }
        played.clear();
    }

    static void PlayAll()
    {
        Forget();
        const std::vector<std::string> ports = {
            "/dev/ttymxc2", "/dev/serial/by-id/usb-Quectel__Incorporated_UMTS_HSPA_Module-if03-port0"};
        for (const std::string& name : ReadyScripts())
        {
            Played& script = played[name];
            script.name = name;
            script.port = ports[played.size() % ports.size()];
            script.directory = fs::path(Kit::TempDir::Path()) / ("script-" + name);
            fs::create_directories(script.directory);
            StartRun(script);
        }
        for (bool all = false; !all; std::this_thread::sleep_for(std::chrono::milliseconds(20)))
        {
            all = true;
            for (auto& [name, script] : played)
            {
                all = GoOn(script) && all;
            }
        }
    }

    static void StartRun(Played& script)
    {
        const auto file = [&script](const char* what) { return (script.directory / what).string(); };
        script.running =
            Start({"run", "--script", std::string(READY_SCRIPTS) + "/" + script.name + ".script", "--record",
                   file("recording"), "--log", file("log"), "--journal", file("journal")},
                  file("lines"));
    }

    static void StartReplays(Played& script)
    {
        const auto file = [&script](const char* what) { return (script.directory / what).string(); };
        script.replaying =
            Start({"replay", file("recording"), "--record", file("again")}, file("replayed-lines"));
        fs::copy(file("recording"), file("changed"));
        script.changed = ChangeByte(file("changed"), script.port);
        script.replayingChanged = Start({"replay", file("changed")}, file("changed-lines"));
    }

    /// Takes what has ended and starts what comes next. @return true when nothing comes any more
    static bool GoOn(Played& script)
    {
        const auto take = [](std::unique_ptr<RunningUnit>& unit, Outcome& outcome) {
            const bool ended = unit != nullptr && unit->HasEnded();
            if (ended)
            {
                outcome = unit->End();
                unit.reset();
            }
            return ended;
        };
        if (take(script.running, script.run))
        {
            StartReplays(script);
        }
        take(script.replaying, script.replay);
        take(script.replayingChanged, script.changedReplay);
        return script.running == nullptr && script.replaying == nullptr && script.replayingChanged == nullptr;
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
