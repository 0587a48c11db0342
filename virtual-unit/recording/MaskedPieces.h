#ifndef VIRTUAL_UNIT_RECORDING_MASKEDPIECES_H
#define VIRTUAL_UNIT_RECORDING_MASKEDPIECES_H

#include "virtual-unit/recording/Mask.h"

#include <chrono>
#include <string>
#include <vector>

namespace VirtualUnit
{

/// Hides secrets in bytes that come piece by piece, also those that are spread over several pieces. Pieces
/// are kept, whole, as long as a secret may begin in them that has not ended; they stay the same pieces.
class MaskedPieces
{
public:
    struct Piece
    {
        std::chrono::microseconds at{0};
        std::string bytes;

        bool operator==(const Piece&) const = default;
    };

    explicit MaskedPieces(const Mask& theMask) : mask(theMask) {}

    std::vector<Piece> Add(const Piece& piece); ///< @return those that are certain by that, oldest first

    std::vector<Piece> Flush(); ///< the rest

private:
    Mask mask;
    std::string text;          ///< of the pieces that are kept, as it came
    std::vector<Piece> pieces; ///< masked
};

}

#endif
