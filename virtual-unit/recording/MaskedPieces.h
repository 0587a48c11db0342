#ifndef VIRTUAL_UNIT_RECORDING_MASKEDPIECES_H
#define VIRTUAL_UNIT_RECORDING_MASKEDPIECES_H

#include "virtual-unit/recording/Mask.h"

#include <array>
#include <chrono>
#include <string>
#include <vector>

namespace VirtualUnit
{

/// Hides secrets in bytes that come piece by piece, also those that are spread over several pieces, and over
/// pieces between which others go the other way. Pieces are kept, whole and in their order, as long as a
/// secret may begin in them, or in one before them, that has not ended; they stay the same pieces.
class MaskedPieces
{
public:
    struct Piece
    {
        std::chrono::microseconds at{0};
        std::string bytes;
        bool back = false; ///< the other way: a secret is of one way

        bool operator==(const Piece&) const = default;
    };

    explicit MaskedPieces(const Mask& theMask) : mask(theMask) {}

    std::vector<Piece> Add(const Piece& piece); ///< @return those that are certain by that, oldest first

    std::vector<Piece> Flush(); ///< the rest

private:
    void MaskWay(bool back);

    Mask mask;
    std::array<std::string, 2> texts; ///< of the pieces that are kept, as they came, of each way
    std::vector<Piece> pieces;        ///< masked
};

}

#endif
