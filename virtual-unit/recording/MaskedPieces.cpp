#include "virtual-unit/recording/MaskedPieces.h"

#include <cstddef>
#include <utility>

namespace VirtualUnit
{

namespace
{

constexpr std::size_t MOST_KEPT = 1000; // a number is not spread over so many

}

std::vector<MaskedPieces::Piece> MaskedPieces::Add(const Piece& piece)
{
    if (pieces.size() == MOST_KEPT)
    {
        std::vector<Piece> complete = Flush();
        const std::vector<Piece> more = Add(piece);
        complete.insert(complete.end(), more.begin(), more.end());
        return complete;
    }
    texts.at(piece.back ? 1 : 0) += piece.bytes;
    pieces.push_back(piece);
    MaskWay(piece.back);

    std::array<std::size_t, 2> certain = {};
    for (std::size_t way = 0; way < texts.size(); ++way)
    {
        certain.at(way) = texts.at(way).size() - mask.OpenTail(texts.at(way));
    }
    std::array<std::size_t, 2> ends = {};
    std::size_t count = 0;
    for (const Piece& kept : pieces)
    {
        const std::size_t way = kept.back ? 1 : 0;
        if (ends.at(way) + kept.bytes.size() > certain.at(way))
        {
            break;
        }
        ends.at(way) += kept.bytes.size();
        ++count;
    }
    std::vector<Piece> complete(pieces.begin(), pieces.begin() + static_cast<std::ptrdiff_t>(count));
    pieces.erase(pieces.begin(), pieces.begin() + static_cast<std::ptrdiff_t>(count));
    texts[0].erase(0, ends[0]);
    texts[1].erase(0, ends[1]);
    return complete;
}

void MaskedPieces::MaskWay(bool back)
{
    std::string masked;
    for (const Piece& kept : pieces)
    {
        masked += kept.back == back ? kept.bytes : "";
    }
    masked = mask.Apply(texts.at(back ? 1 : 0), masked);
    std::size_t begin = 0;
    for (Piece& kept : pieces)
    {
        if (kept.back == back)
        {
            kept.bytes = masked.substr(begin, kept.bytes.size());
            begin += kept.bytes.size();
        }
    }
}

std::vector<MaskedPieces::Piece> MaskedPieces::Flush()
{
    texts = {};
    return std::exchange(pieces, {});
}

}
