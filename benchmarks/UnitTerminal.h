#ifndef BENCHMARKS_UNITTERMINAL_H
#define BENCHMARKS_UNITTERMINAL_H

#include <cstddef>
#include <string>
#include <string_view>

namespace Benchmarks
{

/**
 * A pseudo terminal that is opened under the path of one of the unit's serial lines. One at a time: this
 * program's open() looks there for the path.
 */
class UnitTerminal
{
public:
    explicit UnitTerminal(const char* unitPath); ///< ends the program where there are no pseudo terminals
    ~UnitTerminal();
    UnitTerminal(const UnitTerminal&) = delete;
    UnitTerminal& operator=(const UnitTerminal&) = delete;

    const char* SlavePath() const { return slavePath.c_str(); }

    /// Sends the text and waits until the other end can read all of it.
    void Feed(std::string_view text) const;

private:
    int master;
    int slave; ///< kept open, so that the line stays up while nobody else has it
    std::string slavePath;
};

}

#endif
