#ifndef BENCHMARKS_UNITTERMINAL_H
#define BENCHMARKS_UNITTERMINAL_H

#include "benchmarks/UnitPath.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace Benchmarks
{

/**
 * A pseudo terminal that is opened under the path of one of the unit's serial lines. One at a time.
 */
class UnitTerminal
{
public:
    explicit UnitTerminal(const char* unitPath); ///< ends the program where there are no pseudo terminals
    ~UnitTerminal();
    UnitTerminal(const UnitTerminal&) = delete;
    UnitTerminal& operator=(const UnitTerminal&) = delete;

    const char* SlavePath() const { return slavePath.c_str(); }

    int Master() const { return master; } ///< the far end; stays the object's

    /// Sends the text and waits until the other end can read all of it.
    void Feed(std::string_view text) const;

private:
    int master;
    int slave; ///< kept open, so that the line stays up while nobody else has it
    std::string slavePath;
    std::optional<UnitPath> redirection;
};

}

#endif
