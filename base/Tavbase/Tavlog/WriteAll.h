#ifndef BASE_TAVBASE_TAVLOG_WRITEALL_H
#define BASE_TAVBASE_TAVLOG_WRITEALL_H

#include <cstddef>
#include <string_view>

namespace Tavbase::Tavlog
{

/**
 * Writes the whole text, however many calls it takes; a descriptor that does not block is waited for while
 * it takes some of it within a second.
 * @return how many bytes were written: fewer than the text has when the rest could not be
 */
std::size_t WriteAll(int descriptor, std::string_view text);

}

#endif
