#ifndef BASE_TAVBASE_UTIL_NEWDATE_H
#define BASE_TAVBASE_UTIL_NEWDATE_H

#include "base/Export.h"

#include <string>

namespace Tavbase::Util
{

/**
 * The current local time as text.
 *
 * @param format a strftime(3) pattern, for example "%Y-%m-%d %H:%M:%S"; it ends at its first zero byte
 * @return the text, of any length; empty for an empty pattern, and when the clock shows a year that
 *         cannot be expressed
 *
 * Threads: any, also before the static constructors and after the static destructors of the program. The
 * last text is kept for each thread and is given again while pattern and second are the same: a change of
 * the time zone (tzset(3)) or of the locale shows from the next second on (docs/limits.md).
 *
 * @throws std::bad_alloc
 */
TAVBASE_API std::string NewDate(std::string format);

}

#endif
