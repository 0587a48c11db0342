#ifndef BASE_TAVBASE_JSON_UTF8_H
#define BASE_TAVBASE_JSON_UTF8_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Tavbase::Json
{

/**
 * How many bytes the first character of the text takes in UTF-8 (RFC 3629): 1 to 4, or 0 when the text is
 * empty or does not begin with a well-formed character. Not well-formed are also longer forms than needed,
 * halves of surrogate pairs, and what lies above U+10FFFF.
 */
std::size_t Utf8Length(std::string_view text) noexcept;

/// Adds a character, up to U+10FFFF and no half of a surrogate pair, to the text.
void AppendUtf8(std::string& text, std::uint32_t character);

}

#endif
