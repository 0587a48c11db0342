#ifndef VIRTUAL_UNIT_SCRIPT_STEP_H
#define VIRTUAL_UNIT_SCRIPT_STEP_H

#include "virtual-unit/unit/Unit.h"

#include <functional>
#include <string>

namespace VirtualUnit
{

/// Something that happens to the unit, as a script, a person or a test says it: "key 00A1B2C3D4E5".
class Step
{
public:
    /// @throws Values::Wrong
    static Step Parse(const std::string& words);

    static std::string List(); ///< all steps there are, for people, a line each

    const std::string& Words() const { return words; } ///< as they were given, with single spaces

    bool EndsProgram() const { return words == "end"; }

    bool FillsCard() const { return words == "card full"; }

    void Do(Unit& unit) const { action(unit); } ///< Calling threads: any

private:
    using Action = std::function<void(Unit&)>;

    Step(std::string itsWords, Action itsAction) : words(std::move(itsWords)), action(std::move(itsAction)) {}

    std::string words;
    Action action;
};

}

#endif
