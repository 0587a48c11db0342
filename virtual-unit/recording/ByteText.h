#ifndef VIRTUAL_UNIT_RECORDING_BYTETEXT_H
#define VIRTUAL_UNIT_RECORDING_BYTETEXT_H

#include "virtual-unit/recording/TextCursor.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace VirtualUnit
{

/**
 * Bytes as text for people: "hex AA 55 02", or in quotes when all are printable ASCII, \r, \n or \t. In
 * quotes stand \" and \\ for these characters, and \x1B for any other byte (which only the texts of requests
 * use).
 */
class ByteText
{
public:
    static std::string Of(std::string_view bytes);
    static std::string Quoted(std::string_view text);
    static std::string Hex(std::string_view bytes); ///< "AA 55 02"

    /// What a mistake is told with: the bytes up to and with the one at `position`, the last of them only
    /// when they are many, and ".." for what is left out.
    static std::string Around(std::string_view bytes, std::size_t position);

    // The reverse; none: there is no such thing.
    static std::optional<std::string> Take(TextCursor& cursor);
    static std::optional<std::string> TakeQuoted(TextCursor& cursor);
    static std::optional<std::string> TakeHex(TextCursor& cursor); ///< at least one byte
};

}

#endif
