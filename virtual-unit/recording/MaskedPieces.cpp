#include "virtual-unit/recording/MaskedPieces.h"

#include <utility>

namespace VirtualUnit
{

std::vector<MaskedPieces::Piece> MaskedPieces::Add(const Piece& piece)
{
    text += piece.bytes;
    pieces.push_back(piece);
    std::string masked;
    for (const Piece& kept : pieces)
    {
        masked += kept.bytes;
    }
    masked = mask.Apply(text, masked);
    std::size_t begin = 0;
    for (Piece& kept : pieces)
    {
        kept.bytes = masked.substr(begin, kept.bytes.size());
        begin += kept.bytes.size();
    }
    const std::size_t certain = text.size() - mask.OpenTail(text);
    std::vector<Piece> complete;
    std::size_t end = 0;
    while (!pieces.empty() && end + pieces.front().bytes.size() <= certain)
    {
        end += pieces.front().bytes.size();
        complete.push_back(std::move(pieces.front()));
        pieces.erase(pieces.begin());
    }
    text.erase(0, end);
    return complete;
}

std::vector<MaskedPieces::Piece> MaskedPieces::Flush()
{
    text.clear();
    return std::exchange(pieces, {});
}

}
