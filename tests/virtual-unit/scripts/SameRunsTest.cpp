// Runs in virtual time that do not differ: from each other, and in what they take however long they last.

#include "tests/kit/Leaks.h"
#include "tests/kit/TempDir.h"
#include "tests/virtual-unit/RunningUnit.h"
#include "tests/virtual-unit/VirtualUnitTest.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <sys/resource.h>
#include <vector>

namespace
{

namespace fs = std::filesystem;

/// All files below a directory, by their paths from there.
std::map<std::string, std::string> ContentOf(const fs::path& directory)
{
    std::map<std::string, std::string> content;
    for (const auto& entry : fs::recursive_directory_iterator(directory))
    {
        if (entry.is_regular_file())
        {
            content[fs::relative(entry.path(), directory)] = ReadFile(entry.path());
        }
    }
    return content;
}

class SameRunsTest : public VirtualUnitTest
{
protected:
    static std::string File(const std::string& name) { return Kit::TempDir::Path() + "/" + name; }

    /// A run of the monitor with everything that happens at once, of so many seconds.
    static Outcome Monitor(int seconds, std::vector<std::string> options)
    {
        const std::string script = File("script");
        std::string steps = ReadFile(READY_SCRIPTS "/all-at-once.script");
        steps.erase(steps.rfind('\n', steps.size() - 2) + 1);     // its end
        std::ofstream(script) << steps << seconds << ".63 end\n"; // at no moment of anything else
        options.insert(options.begin(), {"run", "--fast", "--script", script});
        options.insert(options.end(), {"--", MONITOR, "--lines", "/dev/null"});
        return RunUnit(options);
    }
};

TEST_F(SameRunsTest, TenRunsHaveTheSameLogJournalAndTrafficToTheLastByte)
{
    std::map<std::string, std::string> first;
    for (int run = 0; run < 10; ++run)
    {
        const std::string directory = File("run");
        fs::create_directory(directory);
        const Outcome outcome =
            Monitor(45, {"--date", "2026-03-01T08:15:00Z", "--log", directory + "/log", "--journal",
                         directory + "/journal", "--record", directory + "/recording"});
        ASSERT_EQ(outcome.status, 0) << outcome.errors;
        const std::map<std::string, std::string> content = ContentOf(directory);
        if (run == 0)
        {
            first = content;
            EXPECT_GE(first.size(), 8U);
        }
        EXPECT_EQ(content.size(), first.size()) << "run " << run;
        for (const auto& [name, text] : content)
        {
            EXPECT_EQ(text, first[name]) << name << ", run " << run;
        }
        fs::remove_all(directory);
    }
}

TEST_F(SameRunsTest, ALongRunTakesNoMoreMemoryThanAShorterOne)
{
    constexpr long MORE_KIBIBYTES = 1024; // of what an allocator keeps for later
    if (!Kit::Leaks::CanCount())
    {
        GTEST_SKIP() << "the sanitizers keep memory that was given back";
    }
    const auto largest = [](int seconds) {
        EXPECT_EQ(Monitor(seconds, {}).status, 0);
        rusage use = {};
        getrusage(RUSAGE_CHILDREN, &use); // of those that were larger than what had ended before
        return use.ru_maxrss;
    };
    const long ofShort = largest(100);
    EXPECT_GT(ofShort, 0);
    EXPECT_LE(largest(300), ofShort + MORE_KIBIBYTES);
}

}
