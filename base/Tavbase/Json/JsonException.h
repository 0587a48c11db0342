#ifndef BASE_TAVBASE_JSON_JSONEXCEPTION_H
#define BASE_TAVBASE_JSON_JSONEXCEPTION_H

#include "base/Export.h"
#include "base/Tavbase/IException.h"

#include <cstddef>
#include <string>

namespace Tavbase::Json
{

/**
 * What goes wrong with JSON: a text that is not JSON, a value that is asked for as something else than it
 * is, a document that cannot be written. what() tells what and, for a text, where. Code() is always 0.
 */
class TAVBASE_API JsonException : public IException
{
public:
    /// An error that has no place in a text.
    explicit JsonException(const std::string& problem);

    /// An error in `text` at the byte `offset`; with text.size() the text ends too early.
    JsonException(const std::string& problem, const std::string& text, std::size_t offset);

    std::size_t Offset() const noexcept { return place.offset; } ///< bytes before the place of the error

    std::size_t Line() const noexcept { return place.line; } ///< from 1; 0: no place in a text

    std::size_t Column() const noexcept { return place.column; } ///< from 1, in bytes; 0: no place in a text

private:
    struct Place
    {
        std::size_t offset = 0;
        std::size_t line = 0;
        std::size_t column = 0;
    };

    JsonException(const std::string& problem, const Place& where);
    static Place Locate(const std::string& text, std::size_t offset);

    Place place;
};

}

#endif
