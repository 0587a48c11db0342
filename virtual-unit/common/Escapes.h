#ifndef VIRTUAL_UNIT_COMMON_ESCAPES_H
#define VIRTUAL_UNIT_COMMON_ESCAPES_H

#include <string>
#include <string_view>

/// Texts of any bytes as parts of documents for other programs. A byte that is no UTF-8, or that the document
/// cannot have, becomes "\xHH", for people.
namespace VirtualUnit::Escapes
{

std::string Json(std::string_view text); ///< a string, with its quotation marks
std::string Xml(std::string_view text);  ///< for an element's content, and for an attribute in double quotes

}

#endif
