#include "tests/base/Tavbase/Json/Documents.h"

#include <gtest/gtest.h>

using namespace Tavbase::Json;
using JsonTest::Documents;
using JsonTest::IsSame;

namespace
{

constexpr std::uint64_t VALUES_SEED = 20260301;
constexpr int DOCUMENTS = 3000;

}

TEST(JsonRoundTrip, WhatWasWrittenReadsAsTheSameDocument)
{
    Documents documents(VALUES_SEED);
    for (int i = 0; i < DOCUMENTS; ++i)
    {
        const Value document = documents.Make(6);
        const std::string text = Serialize(document);
        const Value again = Deserialize(text);
        ASSERT_TRUE(IsSame(document, again)) << "seed " << VALUES_SEED << ", document " << i << ": " << text;
        ASSERT_EQ(Serialize(again), text) << "seed " << VALUES_SEED << ", document " << i;
    }
}

TEST(JsonRoundTrip, ACopyIsTheSameDocument)
{
    Documents documents(VALUES_SEED + 1);
    for (int i = 0; i < DOCUMENTS; ++i)
    {
        const Value document = documents.Make(6);
        const Value copy = document; // NOLINT(performance-unnecessary-copy-initialization): what is tested
        ASSERT_TRUE(IsSame(document, copy))
            << "seed " << VALUES_SEED + 1 << ", document " << i << ": " << Serialize(document);
    }
}

TEST(JsonRoundTrip, AGeneratedDocumentIsRefusedWhereverItIsCutShort)
{
    Documents documents(VALUES_SEED + 2);
    for (int i = 0; i < 200; ++i)
    {
        Array around; // so that no shorter text is a whole value
        around.Push(documents.Make(4));
        const std::string text = Serialize(around);
        for (std::size_t length = 0; length < text.size(); ++length)
        {
            ASSERT_THROW(Deserialize(text.substr(0, length)), JsonException)
                << "seed " << VALUES_SEED + 2 << ", document " << i << ", " << length << " bytes of " << text;
        }
    }
}

TEST(JsonRoundTrip, TellsDocumentsApart)
{
    EXPECT_FALSE(IsSame(1, 1.0));
    EXPECT_FALSE(IsSame(0.0, -0.0));
    EXPECT_FALSE(IsSame(-1, 18446744073709551615U));
    EXPECT_FALSE(IsSame(Deserialize("[1,2]"), Deserialize("[1]")));
    EXPECT_FALSE(IsSame(Deserialize("{\"a\":1,\"b\":2}"), Deserialize("{\"b\":2,\"a\":1}")));
    EXPECT_TRUE(IsSame(Deserialize("{\"a\":[1,\"x\",null]}"), Deserialize("{\"a\":[1,\"x\",null]}")));
}
