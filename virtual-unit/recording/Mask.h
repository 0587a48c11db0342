#ifndef VIRTUAL_UNIT_RECORDING_MASK_H
#define VIRTUAL_UNIT_RECORDING_MASK_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace VirtualUnit
{

/// Hides secrets, such as the number of a subscriber: each of their digits becomes 0, so that lengths stay.
class Mask
{
public:
    Mask() = default;                                ///< hides nothing
    explicit Mask(std::vector<std::string> secrets); ///< empty ones are passed over

    std::string Apply(std::string_view text) const { return Apply(text, text); }

    /// @param masked of the same size, the secrets of which have been hidden in part already
    std::string Apply(std::string_view text, std::string_view masked) const;

    /// How many bytes at the end of a text may be the begin of a secret.
    std::size_t OpenTail(std::string_view text) const;

private:
    std::vector<std::string> secrets;
};

}

#endif
