#ifndef BASE_TAVBASE_UTIL_STANDARDSTREAMS_H
#define BASE_TAVBASE_UTIL_STANDARDSTREAMS_H

#include "base/Export.h"

#include <unistd.h>

namespace Tavbase::Util
{

/**
 * Keeps what was opened from becoming a standard stream: where the application has closed one of those, a new
 * descriptor gets its number, and what other threads print would go into the file or out on the line.
 * @param descriptor   as open() gave it, -1 included
 * @param lowestStream the lowest number that it must not have: 1 lets it be standard input
 * @return the descriptor itself, or one above 2 for the same, with the same flags, in its place; -1 with
 * errno when there is none, the descriptor is then closed
 */
TAVBASE_API int AboveStandardStreams(int descriptor, int lowestStream = STDOUT_FILENO);

}

#endif
