// The reader beside another one, on documents with damage. Two differences are stated and kept out: the
// other reader takes a zero byte for the end of the text, and has no bound for the depth.

#include "tests/base/Tavbase/Json/Documents.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

using namespace Tavbase::Json;
using JsonTest::Documents;

namespace
{

constexpr std::uint64_t SEED = 816;
constexpr int CASES = 10'000;

std::optional<Value> Read(const std::string& text)
{
    try
    {
        return Deserialize(text);
    }
    catch (const JsonException&)
    {
        return std::nullopt;
    }
}

}

TEST(JsonDifferential, AcceptsRefusesAndReadsDamagedDocumentsAsAnotherReaderDoes)
{
    Documents documents(SEED);
    int accepted = 0;
    int refused = 0;
    for (int i = 0; i < CASES; ++i)
    {
        const std::string whole = Serialize(documents.Make(3));
        const std::string text = documents.Damage(whole);
        const auto where = [&] {
            return "seed " + std::to_string(SEED) + ", case " + std::to_string(i) + ": " + text;
        };
        const std::optional<Value> ours = Read(text);
        ASSERT_EQ(ours.has_value(), nlohmann::json::accept(text)) << where();
        if (ours)
        {
            ASSERT_EQ(nlohmann::json::parse(Serialize(*ours)), nlohmann::json::parse(text)) << where();
            ++accepted;
        }
        else
        {
            ++refused;
        }
    }
    // Both kinds are there in number, or the comparison shows little.
    EXPECT_GT(accepted, CASES / 20);
    EXPECT_GT(refused, CASES / 20);
}

TEST(JsonDifferential, WritesWhatAnotherReaderReads)
{
    Documents documents(SEED + 1);
    for (int i = 0; i < 2000; ++i)
    {
        const Value document = documents.Make(5);
        const std::string text = Serialize(document);
        ASSERT_TRUE(nlohmann::json::accept(text))
            << "seed " << SEED + 1 << ", document " << i << ": " << text;
        const std::string theirs = nlohmann::ordered_json::parse(text).dump();
        ASSERT_TRUE(JsonTest::IsSame(Deserialize(theirs), document))
            << "seed " << SEED + 1 << ", document " << i << ": " << text << " and " << theirs;
    }
}
