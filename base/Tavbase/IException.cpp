#include "base/Tavbase/IException.h"

#include <algorithm>

namespace Tavbase
{

IException::IException(const std::string& text, int value) noexcept : code(value)
{
    text.copy(message.data(), std::min(text.size(), message.size() - 1));
}

const char* IException::what() const noexcept
{
    return message.data();
}

}
