#ifndef VIRTUAL_UNIT_CALLS_CARDCALLS_H
#define VIRTUAL_UNIT_CALLS_CARDCALLS_H

#include "virtual-unit/calls/Answer.h"
#include "virtual-unit/calls/HeldCall.h"
#include "virtual-unit/calls/StorageCard.h"
#include "virtual-unit/calls/UnitPath.h"
#include "virtual-unit/calls/UnsyncedFiles.h"
#include "virtual-unit/peripherals/CardSlot.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace VirtualUnit
{

/// Answers the system calls that name a path on the storage card, and those that mount tables are about.
class CardCalls
{
public:
    /// @param theCard,itsSlot stay the caller's
    CardCalls(const StorageCard& theCard, CardSlot& itsSlot,
              std::function<void(const std::string& line)> report);

    /// For a call of which one path at least is on the card or leads over it.
    /// @param otherPath empty for a call that names one path only
    Answer Find(const HeldCall& held, const UnitPath& path, const UnitPath& otherPath);

    /// Takes the card out of the mount table, unless the calling program uses it (EBUSY). Its files can still
    /// be reached: other processes of the run may not have ended.
    Answer Unmount(const HeldCall& held);

    /// For a call that may make a file grow. @return the errno that the card answers with; 0: none, or the
    /// file is not on it
    int RefusalToWrite(const HeldCall& held) const;

    void Sync(const HeldCall& held); ///< takes note of one that is about to be carried out

    void LosePower(); ///< nothing uses the card any more

    Answer OpenMountTable(const HeldCall& held) const; ///< the unit's, as it is now; for reading only

private:
    Answer FindPlaced(const HeldCall& held, const UnitPath& path, const UnitPath& otherPath);
    int Refusal(const HeldCall& held, const UnitPath& path) const;
    int RefusalToOpen(const HeldCall& held, const UnitPath& path) const;
    int RefusalOfFull(const HeldCall& held, const UnitPath& path) const;
    bool IsOnCard(const std::string& link) const;
    void SyncMapping(const HeldCall& held);
    std::optional<std::string> FindInUse(const HeldCall& held) const;
    Answer FindForPath(const HeldCall& held, const UnitPath& path);
    Answer FindBeyond(const HeldCall& held, const UnitPath& path);
    Answer Open(const HeldCall& held, const std::string& path, std::uint64_t flags, std::uint64_t mode);
    Answer OpenHow(const HeldCall& held, const UnitPath& path);
    Answer ChangeTimes(const HeldCall& held, const std::string& path);
    Answer ChangeDirectory(const UnitPath& path);
    Answer Refuse(const HeldCall& held, const UnitPath& path, int error, const char* reason);

    const StorageCard& card;
    CardSlot& slot;
    std::optional<UnsyncedFiles> unsynced; ///< none: nothing is lost with the power
    std::function<void(const std::string& line)> reportLine;
};

}

#endif
