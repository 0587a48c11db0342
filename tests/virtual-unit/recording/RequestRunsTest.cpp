#include "virtual-unit/recording/RequestRuns.h"

#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace
{

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using VirtualUnit::PortEntry;
using VirtualUnit::RequestRuns;

/// "A", "A x 3" or "A|B x 5", with the times of first and last request in milliseconds: "A x 3, 10-30".
std::string Text(const PortEntry& entry)
{
    std::string text;
    for (const PortEntry::Exchange& exchange : entry.exchanges)
    {
        text += (text.empty() ? "" : "|") + exchange.request;
    }
    text += entry.count > 1 ? " x " + std::to_string(entry.count) : "";
    const auto milliseconds = [](std::chrono::microseconds time) {
        return std::to_string(time.count() / 1000);
    };
    return text + ", " + milliseconds(entry.at) + "-" + milliseconds(entry.until);
}

std::vector<std::string> TextsOf(const std::vector<PortEntry>& entries)
{
    std::vector<std::string> texts;
    std::ranges::transform(entries, std::back_inserter(texts), Text);
    return texts;
}

class RequestRunsTest : public testing::Test
{
protected:
    std::vector<std::string> Add(char request, const std::string& answer = "0")
    {
        const auto at = 10ms * ++requests;
        return TextsOf(runs.Add({std::string(1, request), answer}, at));
    }

    /// All entries of the requests, one each 10 ms.
    static std::vector<std::string> All(const std::string& requests)
    {
        RequestRuns runs;
        std::vector<PortEntry> all;
        auto at = 0ms;
        for (const char request : requests)
        {
            const std::vector<PortEntry> entries = runs.Add({std::string(1, request), "0"}, at += 10ms);
            all.insert(all.end(), entries.begin(), entries.end());
        }
        const std::vector<PortEntry> rest = runs.Flush();
        all.insert(all.end(), rest.begin(), rest.end());
        return TextsOf(all);
    }

    RequestRuns runs;
    int requests = 0;
};

TEST_F(RequestRunsTest, DifferentRequestsAreEntriesOfTheirOwn)
{
    EXPECT_THAT(All("ABC"), ElementsAre("A, 10-10", "B, 20-20", "C, 30-30"));
    EXPECT_THAT(All(""), IsEmpty());
}

TEST_F(RequestRunsTest, EqualRequestsAreOne)
{
    EXPECT_THAT(All("AA"), ElementsAre("A x 2, 10-20"));
    EXPECT_THAT(All("XAAAAB"), ElementsAre("X, 10-10", "A x 4, 20-50", "B, 60-60"));
    EXPECT_THAT(All("AABB"), ElementsAre("A x 2, 10-20", "B x 2, 30-40"));
    EXPECT_THAT(All("ABABB"), ElementsAre("A|B x 4, 10-40", "B, 50-50"));
    EXPECT_THAT(All("XYAAA"), ElementsAre("X, 10-10", "Y, 20-20", "A x 3, 30-50"));
}

TEST_F(RequestRunsTest, TwoThatTakeTurnsAreOne)
{
    EXPECT_THAT(All("ABAB"), ElementsAre("A|B x 4, 10-40"));
    EXPECT_THAT(All("XABABABC"), ElementsAre("X, 10-10", "A|B x 6, 20-70", "C, 80-80"));
    EXPECT_THAT(All("ABABA"), ElementsAre("A|B x 5, 10-50"));
    EXPECT_THAT(All("ABABAA"), ElementsAre("A|B x 5, 10-50", "A, 60-60"));
    EXPECT_THAT(All("AABABA"), ElementsAre("A x 2, 10-20", "B|A x 4, 30-60"));
}

TEST_F(RequestRunsTest, OnceIsNoTurn)
{
    EXPECT_THAT(All("ABA"), ElementsAre("A, 10-10", "B, 20-20", "A, 30-30"));
    EXPECT_THAT(All("ABAC"), ElementsAre("A, 10-10", "B, 20-20", "A, 30-30", "C, 40-40"));
    EXPECT_THAT(All("ABACAC"), ElementsAre("A, 10-10", "B, 20-20", "A|C x 4, 30-60"));
    EXPECT_THAT(All("ABCAB"), ElementsAre("A, 10-10", "B, 20-20", "C, 30-30", "A, 40-40", "B, 50-50"));
}

TEST_F(RequestRunsTest, UpToFourThatTakeTurnsAreOne)
{
    EXPECT_THAT(All("XABCABCAY"), ElementsAre("X, 10-10", "A|B|C x 7, 20-80", "Y, 90-90"));
    EXPECT_THAT(All("ABCDABCD"), ElementsAre("A|B|C|D x 8, 10-80"));
    EXPECT_THAT(All("ABCDEABCDE"), testing::SizeIs(10));
    EXPECT_THAT(All("ABCABD"), testing::SizeIs(6));
}

TEST_F(RequestRunsTest, AnotherAnswerIsAnotherRequest)
{
    EXPECT_THAT(Add('A', "0"), IsEmpty());
    EXPECT_THAT(Add('A', "1"), IsEmpty());
    EXPECT_THAT(Add('A', "2"), IsEmpty());
    EXPECT_THAT(Add('A', "2"), ElementsAre("A, 10-10", "A, 20-20"));
    EXPECT_THAT(TextsOf(runs.Flush()), ElementsAre("A x 2, 30-40"));
}

TEST_F(RequestRunsTest, AnEntryIsGivenOutAsSoonAsItIsCertain)
{
    for (const char request : {'A', 'B', 'C', 'D', 'E', 'F', 'G'})
    {
        EXPECT_THAT(Add(request), IsEmpty());
    }
    EXPECT_THAT(Add('H'), ElementsAre("A, 10-10")) << "no longer the begin of four that take turns";
    EXPECT_THAT(Add('H'), testing::SizeIs(6));
    EXPECT_THAT(Add('H'), IsEmpty());
    EXPECT_THAT(Add('I'), ElementsAre("H x 3, 80-100"));
    EXPECT_THAT(TextsOf(runs.Flush()), ElementsAre("I, 110-110"));
    EXPECT_THAT(runs.Flush(), IsEmpty());
}

}
