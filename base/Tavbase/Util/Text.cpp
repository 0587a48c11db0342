#include "base/Tavbase/Util/Text.h"

#include <array>
#include <charconv>
#include <cstdint>

namespace Tavbase::Util
{

std::string ToHex(int value)
{
    std::array<char, 8> digits{};
    const auto bits = static_cast<std::uint32_t>(value);
    const auto result = std::to_chars(digits.data(), digits.data() + digits.size(), bits, 16);
    return {digits.data(), result.ptr};
}

std::string ToUpper(const std::string& text)
{
    std::string upper = text;
    for (char& c : upper)
    {
        if (c >= 'a' && c <= 'z')
        {
            c = static_cast<char>(c - 'a' + 'A');
        }
    }
    return upper;
}

}
