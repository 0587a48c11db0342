#include "virtual-unit/recording/MaskedPieces.h"

#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace
{

using namespace std::chrono_literals;
using VirtualUnit::Mask;
using VirtualUnit::MaskedPieces;
using Piece = MaskedPieces::Piece;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

const std::string TEXT = "\r\n262011234567890\r\n\r\nOK\r\n";
const std::string MASKED = "\r\n000000000000000\r\n\r\nOK\r\n";
const Mask SUBSCRIBER({"262011234567890"});

std::vector<Piece> All(const Mask& mask, const std::vector<Piece>& pieces)
{
    MaskedPieces masked(mask);
    std::vector<Piece> all;
    for (const Piece& piece : pieces)
    {
        const std::vector<Piece> complete = masked.Add(piece);
        all.insert(all.end(), complete.begin(), complete.end());
    }
    const std::vector<Piece> rest = masked.Flush();
    all.insert(all.end(), rest.begin(), rest.end());
    return all;
}

TEST(MaskedPiecesTest, ASecretMayBeSplitAnywhere)
{
    for (std::size_t first = 0; first <= TEXT.size(); ++first)
    {
        for (std::size_t second = first; second <= TEXT.size(); ++second)
        {
            EXPECT_THAT(All(SUBSCRIBER, {{1ms, TEXT.substr(0, first)},
                                         {2ms, TEXT.substr(first, second - first)},
                                         {3ms, TEXT.substr(second)}}),
                        ElementsAre(Piece{1ms, MASKED.substr(0, first)},
                                    Piece{2ms, MASKED.substr(first, second - first)},
                                    Piece{3ms, MASKED.substr(second)}))
                << first << " " << second;
        }
    }
}

TEST(MaskedPiecesTest, ASecretMayComeByteByByte)
{
    std::vector<Piece> pieces;
    std::vector<Piece> expected;
    for (std::size_t i = 0; i < TEXT.size(); ++i)
    {
        pieces.push_back({1ms * i, TEXT.substr(i, 1)});
        expected.push_back({1ms * i, MASKED.substr(i, 1)});
    }
    EXPECT_THAT(All(SUBSCRIBER, pieces), ElementsAreArray(expected));
}

TEST(MaskedPiecesTest, SecretsMayOverlapAcrossPieces)
{
    EXPECT_THAT(All(Mask({"1212"}), {{1ms, "12"}, {2ms, "12"}, {3ms, "12"}, {4ms, "13"}}),
                ElementsAre(Piece{1ms, "00"}, Piece{2ms, "00"}, Piece{3ms, "00"}, Piece{4ms, "13"}));
}

TEST(MaskedPiecesTest, OnlyPiecesInWhichASecretMayBeginAreKept)
{
    MaskedPieces pieces(SUBSCRIBER);
    EXPECT_THAT(pieces.Add({1ms, "AT+CIMI\r"}), ElementsAre(Piece{1ms, "AT+CIMI\r"}));
    EXPECT_THAT(pieces.Add({2ms, "\r\n2620"}), IsEmpty());
    EXPECT_THAT(pieces.Add({3ms, "1123"}), IsEmpty());
    EXPECT_THAT(pieces.Add({4ms, "999 2"}), ElementsAre(Piece{2ms, "\r\n2620"}, Piece{3ms, "1123"}));
    EXPECT_THAT(pieces.Add({5ms, "62"}), IsEmpty());
    EXPECT_THAT(pieces.Flush(), ElementsAre(Piece{4ms, "999 2"}, Piece{5ms, "62"}));
    EXPECT_THAT(pieces.Flush(), IsEmpty());
    EXPECT_THAT(pieces.Add({6ms, "011234567890"}), ElementsAre(Piece{6ms, "011234567890"}));
}

TEST(MaskedPiecesTest, ASecretMayBeInterleavedWithTheOtherWay)
{
    EXPECT_THAT(All(SUBSCRIBER, {{1ms, "\r\n2620"},
                                 {2ms, "AT\r", true},
                                 {3ms, "11234"},
                                 {4ms, "26", true},
                                 {5ms, "567890"},
                                 {6ms, "2011234567890", true}}),
                ElementsAre(Piece{1ms, "\r\n0000"}, Piece{2ms, "AT\r", true}, Piece{3ms, "00000"},
                            Piece{4ms, "00", true}, Piece{5ms, "000000"}, Piece{6ms, "0000000000000", true}));
    EXPECT_THAT(All(SUBSCRIBER, {{1ms, "2620112"}, {2ms, "34567890", true}}),
                ElementsAre(Piece{1ms, "2620112"}, Piece{2ms, "34567890", true}))
        << "half of it each way is none";
}

TEST(MaskedPiecesTest, WhatIsLeftOpenDoesNotKeepTheOtherWayForEver)
{
    MaskedPieces pieces(SUBSCRIBER);
    EXPECT_THAT(pieces.Add({1ms, "2"}), IsEmpty());
    std::size_t count = 0;
    for (int i = 0; i < 5000; ++i)
    {
        count += pieces.Add({2ms, "x", true}).size();
    }
    EXPECT_GT(count, 3999U);
}

TEST(MaskedPiecesTest, WithoutSecretsNothingIsKept)
{
    MaskedPieces pieces{Mask()};
    EXPECT_THAT(pieces.Add({1ms, "262"}), ElementsAre(Piece{1ms, "262"}));
}

}
