#ifndef BASE_TAVBASE_TAVLOG_ENUMSTRING_H
#define BASE_TAVBASE_TAVLOG_ENUMSTRING_H

#include "base/Export.h"

#include <atomic>
#include <map>
#include <mutex>
#include <string>

namespace Tavbase::Tavlog
{

/**
 * The names of an enumeration's values.
 *
 * `Derived` supplies `static void RegisterEnumerators()`, which calls RegisterEnumerator() for each value;
 * it runs once, at the first access through any path. There is one map in the process, which lives until
 * the process ends, so that a name can still be looked up in the destructor of a static object.
 *
 * Threads: From() may be called from any thread. A name added after the first access is added before
 * other threads look names up.
 */
template <class Derived, class Enum>
class TAVBASE_API EnumStringBase
{
public:
    /// The registered name of a value, the first in the order of names where there are several; an empty
    /// text for a value that was never registered.
    static const std::string& From(Enum value)
    {
        static const std::string& dummy = *new std::string();
        for (const auto& [name, registered] : GetMap())
        {
            if (registered == value)
            {
                return name;
            }
        }
        return dummy;
    }

    /// Gives a value a name; a name that is there already changes its value.
    static void RegisterEnumerator(Enum value, const std::string& name) { GetMap()[name] = value; }

private:
    using Map = std::map<std::string, Enum>;

    static Map& GetMap()
    {
        static Map& map = *new Map();
        static std::atomic<bool> filled{false};
        if (!filled.load(std::memory_order_acquire))
        {
            // Recursive: RegisterEnumerators() comes back here for each name.
            static std::recursive_mutex& filling = *new std::recursive_mutex();
            static bool bFirstAccess = true;
            const std::scoped_lock lock(filling);
            if (bFirstAccess)
            {
                bFirstAccess = false;
                Derived::RegisterEnumerators();
                filled.store(true, std::memory_order_release);
            }
        }
        return map;
    }
};

/// The names of one enumeration; specialised for each that has names.
template <class Enum>
class EnumString;

}

#endif
