// What is tried on an emulated board, on the drivers of a kernel, comes out the same on the virtual unit: the
// scripts of tests/board say what they are run with, and what is to come of it.

#include "tests/kit/TempDir.h"
#include "tests/virtual-unit/RunningUnit.h"
#include "tests/virtual-unit/VirtualUnitTest.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace
{

namespace fs = std::filesystem;

std::vector<std::string> BoardScripts()
{
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(BOARD_SCRIPTS))
    {
        names.push_back(entry.path().stem());
    }
    std::ranges::sort(names);
    return names;
}

constexpr std::string_view REQUEST = "#   ";

/// The requests of a recorded port, as they came.
std::vector<std::string> Requests(const fs::path& port)
{
    std::vector<std::string> requests;
    for (const std::string& line : Lines(ReadFile(port)))
    {
        if (const auto begin = line.find(" ? \""); begin != std::string::npos)
        {
            const auto text = begin + 4;
            requests.push_back(line.substr(text, line.find('"', text) - text));
        }
    }
    return requests;
}

/// What the head of a script says.
struct Head
{
    std::vector<std::string> command;
    int status = 0;
    std::size_t times = 0; ///< that `line` is printed; any number when it is empty
    std::string line;
    std::string port;                  ///< "i2c-1"
    std::vector<std::string> requests; ///< that reach it first

    static Head Of(const fs::path& script)
    {
        Head head;
        for (const std::string& text : Lines(ReadFile(script)))
        {
            std::istringstream words(text);
            std::string hash;
            std::string key;
            words >> hash >> key;
            if (key == "run:")
            {
                for (std::string word; words >> word;)
                {
                    head.command.push_back(word);
                }
            }
            else if (key == "requests")
            {
                words >> key >> head.port;
                head.port.pop_back(); // the colon
            }
            else if (text.starts_with(REQUEST))
            {
                head.requests.push_back(text.substr(REQUEST.size()));
            }
            else if (key == "status:")
            {
                words >> head.status;
            }
            else if (key == "prints:")
            {
                words >> head.times >> std::ws;
                std::getline(words, head.line);
            }
        }
        return head;
    }
};

class BoardScriptTest : public VirtualUnitTest, public testing::WithParamInterface<std::string>
{
};

TEST_P(BoardScriptTest, ComesOutTheSameOnTheVirtualUnit)
{
    const fs::path script = fs::path(BOARD_SCRIPTS) / (GetParam() + ".script");
    Head head = Head::Of(script);
    ASSERT_FALSE(head.command.empty()) << "what is run with it?";
    const std::string example = head.command.front();
    head.command.front() = fs::path(EXAMPLES) / example / example;

    const fs::path recording = fs::path(Kit::TempDir::Path()) / GetParam();
    std::vector<std::string> arguments = {"run", "--fast", "--script", script, "--record", recording, "--"};
    arguments.insert(arguments.end(), head.command.begin(), head.command.end());
    const Outcome outcome = RunUnit(arguments);

    EXPECT_EQ(outcome.status, head.status) << outcome.errors << outcome.output;
    if (!head.line.empty())
    {
        EXPECT_EQ(std::ranges::count(Lines(outcome.output), head.line),
                  static_cast<std::ptrdiff_t>(head.times));
    }
    if (!head.port.empty())
    {
        std::vector<std::string> requests = Requests(recording / (head.port + ".port"));
        requests.resize(std::min(requests.size(), head.requests.size()));
        EXPECT_EQ(requests, head.requests);
    }
}

INSTANTIATE_TEST_SUITE_P(All, BoardScriptTest, testing::ValuesIn(BoardScripts()), [](const auto& instance) {
    std::string name = instance.param;
    std::ranges::replace(name, '-', '_');
    return name;
});

}
