#ifndef BASE_TAVBASE_UTIL_TEXT_H
#define BASE_TAVBASE_UTIL_TEXT_H

#include "base/Export.h"

#include <string>

namespace Tavbase::Util
{

/**
 * The value in hexadecimal: lower-case digits without a prefix and without leading zeros. A negative value
 * is written as its 32 bits in two's complement: -1 gives "ffffffff". Any thread.
 */
TAVBASE_API std::string ToHex(int value);

/// The text with a to z turned into A to Z and every other byte as it is, in any locale. Any thread.
TAVBASE_API std::string ToUpper(const std::string& text);

}

#endif
