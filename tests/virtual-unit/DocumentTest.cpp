// What users read is what the program says of itself.

#include "tests/virtual-unit/VirtualUnitTest.h"

#include <gtest/gtest.h>
#include <set>
#include <sstream>
#include <string>

namespace
{

std::string Help()
{
    return RunUnit({"--help"}).output;
}

std::string FirstWords(const std::string& text) ///< two, if there are so many
{
    std::istringstream words(text);
    std::string first;
    std::string second;
    words >> first >> second;
    return second.empty() ? first : first + " " + second;
}

/// What the code spans of the document begin with: one word, and two.
std::set<std::string> Beginnings(const std::string& document)
{
    std::set<std::string> beginnings;
    std::istringstream spans(document);
    for (std::string prose, span; std::getline(spans, prose, '`') && std::getline(spans, span, '`');)
    {
        beginnings.insert({span.substr(0, span.find(' ')), FirstWords(span)});
    }
    return beginnings;
}

TEST(DocumentTest, TellsEachStepThatTheHelpTells)
{
    const std::set<std::string> beginnings = Beginnings(ReadFile(VIRTUAL_UNIT_DOCUMENT));
    const std::string help = Help();
    std::istringstream steps(help.substr(help.find("Steps,")));
    std::string line;
    int count = 0;
    while (std::getline(steps, line))
    {
        if (!line.starts_with("  "))
        {
            continue;
        }
        // "  sim in|out     the SIM is ...": the document has each of the alternatives as a span of its own.
        const std::string step = line.substr(2, line.find("  ", 2) - 2);
        const std::string beginning = FirstWords(step.substr(0, step.find('|')));
        EXPECT_TRUE(beginnings.contains(beginning)) << beginning;
        ++count;
    }
    EXPECT_GT(count, 40);
}

TEST(DocumentTest, TellsEachOptionThatTheHelpTells)
{
    const std::set<std::string> beginnings = Beginnings(ReadFile(VIRTUAL_UNIT_DOCUMENT));
    std::istringstream help(Help());
    int count = 0;
    for (std::string word; help >> word;)
    {
        if (word.starts_with("--") && word.find_first_of("|[]():;,") == std::string::npos && word != "--")
        {
            ++count;
            EXPECT_TRUE(beginnings.contains(word) || word == "--help") << word;
        }
    }
    EXPECT_GT(count, 18);
}

}
