#ifndef VIRTUAL_UNIT_CALLS_UNITPATH_H
#define VIRTUAL_UNIT_CALLS_UNITPATH_H

#include <string>

namespace VirtualUnit
{

/// A path as the application sees it, absolute, without "." and "..".
class UnitPath
{
public:
    /// Where the storage card is mounted on the unit.
    static constexpr const char* CARD = "/mnt/sdcard";

    enum class Start
    {
        Elsewhere,
        CardDescriptor,      ///< relative to a directory of the card that the application has open
        CardWorkingDirectory ///< relative to a directory of the card where the application is
    };

    UnitPath() = default; ///< none: an empty text

    /// @param written absolute, in whichever way
    explicit UnitPath(const std::string& written, Start startsFrom = Start::Elsewhere);

    const std::string& Text() const { return text; }

    bool StartsFrom(Start point) const { return start == point; }

    bool IsOnCard() const;
    bool IsCard() const; ///< where it is mounted, itself

    bool IsMountTable() const; ///< the list of what is mounted, under one of its usual names

    /// It goes through the card and leaves it by "..", so that this machine's kernel cannot find the way.
    bool LeavesCard() const { return leavesCard; }

    std::string BelowCard() const; ///< for a path on the card: relative to its root, which is ""

private:
    std::string text;
    Start start = Start::Elsewhere;
    bool leavesCard = false;
};

}

#endif
