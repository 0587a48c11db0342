#include "virtual-unit/recording/Mask.h"

#include <algorithm>
#include <utility>

namespace VirtualUnit
{

Mask::Mask(std::vector<std::string> theSecrets) : secrets(std::move(theSecrets))
{
    std::erase(secrets, "");
}

std::string Mask::Apply(std::string_view text, std::string_view masked) const
{
    std::string result(masked);
    for (const std::string& secret : secrets)
    {
        for (std::size_t at = text.find(secret); at != std::string_view::npos; at = text.find(secret, at + 1))
        {
            const auto begin = result.begin() + static_cast<std::ptrdiff_t>(at);
            std::replace_if(
                begin, begin + static_cast<std::ptrdiff_t>(secret.size()),
                [](char character) { return character >= '0' && character <= '9'; }, '0');
        }
    }
    return result;
}

std::size_t Mask::OpenTail(std::string_view text) const
{
    std::size_t longest = 0;
    for (const std::string& secret : secrets)
    {
        for (std::size_t size = std::min(text.size(), secret.size() - 1); size > longest; --size)
        {
            if (text.ends_with(std::string_view(secret).substr(0, size)))
            {
                longest = size;
            }
        }
    }
    return longest;
}

}
