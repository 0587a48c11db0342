#ifndef BASE_TAVBASE_JSON_JSON_H
#define BASE_TAVBASE_JSON_JSON_H

#include "base/Export.h"
#include "base/Tavbase/Json/Array.h"
#include "base/Tavbase/Json/JsonException.h"
#include "base/Tavbase/Json/Object.h"
#include "base/Tavbase/Json/Value.h"

#include <cstddef>
#include <string>

/**
 * JSON documents as text, by RFC 8259, in UTF-8. Nothing depends on the locale. Threads: any.
 */
namespace Tavbase::Json
{

/// How many arrays and objects may be open inside each other in a text that is read or written.
constexpr std::size_t MAX_DEPTH = 128;

/**
 * Reads a text that is one JSON value of any type, with blanks, tabs and line ends around it.
 *
 * Beyond the grammar of RFC 8259:
 * - A byte order mark in front is skipped; it counts in the offset and the column of an error.
 * - Strings must be well-formed UTF-8 (RFC 3629), and an escape such as `\ud83d` must be followed by the
 *   other half of its pair. They may hold zero bytes (`\u0000`).
 * - A number without fraction and exponent, other than -0, becomes an integer when it fits (Value.h). Any
 *   other becomes the nearest double, which is 0 where it is too small for one; a number too large for a
 *   double is refused.
 * - A key that is there twice has the last value, at the place of the first.
 *
 * @throws JsonException with the place of the error, when the text is anything else or nested deeper than
 *         MAX_DEPTH
 */
TAVBASE_API Value Deserialize(const std::string& text);

/**
 * The text of a value, without blanks and line ends: {"driver-id":"00A1B2C3D4E5"}.
 *
 * Deserialize() gives the same value back: a double is written with as few digits as determine it, and
 * with a ".0" where it would else read as an integer. In strings the quote, the backslash and the control
 * characters below 0x20 are escaped, everything else stands as it is.
 *
 * @throws JsonException for an infinite number, a number that is none (NaN), a string or key that is not
 *         well-formed UTF-8, and a document nested deeper than MAX_DEPTH
 */
TAVBASE_API std::string Serialize(const Value& value);

}

#endif
