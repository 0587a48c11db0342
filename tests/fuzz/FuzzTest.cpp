// Calls each target with the inputs that are kept in its corpus.

#include "tests/fuzz/Target.h"
#include "tests/kit/LogCapture.h"
#include "tests/kit/TempDir.h"
#include "virtual-unit/ports/DeviceTable.h"

#include <algorithm>
#include <cctype>
#include <exception>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <utility>
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

std::string ReadInput(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.is_open()) << path;
    return {std::istreambuf_iterator<char>(file), {}};
}

/// The words of an input: where they begin, and how long they are. Its end where it has none.
std::vector<std::pair<std::size_t, std::size_t>> Words(const std::string& input)
{
    std::vector<std::pair<std::size_t, std::size_t>> words;
    std::size_t begin = 0;
    for (std::size_t i = 0; i <= input.size(); ++i)
    {
        if (i == input.size() || std::isalnum(static_cast<unsigned char>(input[i])) == 0)
        {
            if (i > begin)
            {
                words.emplace_back(begin, i - begin);
            }
            begin = i + 1;
        }
    }
    if (words.empty())
    {
        words.emplace_back(input.size(), 0);
    }
    return words;
}

TEST_P(FuzzTest, WhatIsKeptIsTaken)
{
    const auto& [name, function] = GetParam();
    const std::vector<fs::path> paths = Inputs(name);
    ASSERT_FALSE(paths.empty()) << "no file in the corpus";
    for (const fs::path& path : paths)
    {
        const std::string input = ReadInput(path);
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

/// A text from outside in place of each word in turn: it is a text, and no command, format or name of a file.
TEST_P(FuzzTest, ATextReachesNoShellNoFormatAndNoPath)
{
    constexpr std::size_t MOST_WORDS = 24; // of an input
    const auto& [name, function] = GetParam();
    const std::string made = Kit::TempDir::Path() + "/made";
    fs::remove(made);
    const std::vector<std::string> texts = {"$(touch " + made + ")", "\";touch " + made + ";\"",
                                            "%1$999999d%s%s%s%n", made};
    std::size_t runs = 0;
    for (const fs::path& path : Inputs(name))
    {
        const std::string input = ReadInput(path);
        const auto words = Words(input);
        const std::size_t step = words.size() / MOST_WORDS + 1;
        for (std::size_t i = 0; i < words.size(); i += step)
        {
            for (const std::string& text : texts)
            {
                std::string hostile = input;
                hostile.replace(words[i].first, words[i].second, text);
                EXPECT_NO_THROW(function(hostile)) << path.filename() << ", word " << i << ": " << text;
                ASSERT_FALSE(fs::exists(made)) << path.filename() << ", word " << i << ": " << text;
                ++runs;
            }
        }
    }
    EXPECT_GT(runs, 0U);
    EXPECT_LT(log.RawFile().size(), 900'000 + runs * 1000) << "a format was followed";
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
