// Calls each target with the inputs that are kept in its corpus.

#include "tests/fuzz/Target.h"
#include "tests/kit/LogCapture.h"
#include "virtual-unit/ports/DeviceTable.h"

#include <algorithm>
#include <exception>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <vector>

namespace Fuzz
{

Targets& All()
{
    static Targets targets;
    return targets;
}

}

namespace
{

namespace fs = std::filesystem;

class FuzzTest : public testing::TestWithParam<Fuzz::Targets::value_type>
{
protected:
    static void SetUpTestSuite() { VirtualUnit::DeviceTable::UnitPaths(); } // made once, and nobody's leak

    Kit::LogCapture log; // keeps it off the terminal
};

std::vector<fs::path> Inputs(const std::string& target)
{
    std::error_code none;
    std::vector<fs::path> paths;
    for (const auto& entry : fs::directory_iterator(fs::path(FUZZ_CORPUS) / target, none))
    {
        paths.push_back(entry.path());
    }
    std::ranges::sort(paths);
    return paths;
}

TEST_P(FuzzTest, WhatIsKeptIsTaken)
{
    const auto& [name, function] = GetParam();
    const std::vector<fs::path> paths = Inputs(name);
    ASSERT_FALSE(paths.empty()) << "no file in the corpus";
    for (const fs::path& path : paths)
    {
        std::ifstream file(path, std::ios::binary);
        ASSERT_TRUE(file.is_open()) << path;
        const std::string input{std::istreambuf_iterator<char>(file), {}};
        try
        {
            function(input);
        }
        catch (const Fuzz::Broken& broken)
        {
            ADD_FAILURE() << path.filename() << ": does not hold: " << broken.what;
        }
        catch (const std::exception& failure)
        {
            ADD_FAILURE() << path.filename() << ": not caught: " << failure.what();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Each, FuzzTest, testing::ValuesIn(Fuzz::All()),
                         [](const auto& target) { return target.param.first; });

/// A folder that belongs to no target is never read. (Not every build has every target.)
TEST(FuzzCorpusTest, EachFolderBelongsToATarget)
{
    for (const auto& entry : fs::directory_iterator(FUZZ_CORPUS))
    {
        const std::string name = entry.path().filename();
        EXPECT_TRUE(fs::exists(fs::path(FUZZ_CORPUS).parent_path() / (name + ".cpp"))) << name;
    }
}

}
