#ifndef VIRTUAL_UNIT_PORTS_DEVICETABLE_H
#define VIRTUAL_UNIT_PORTS_DEVICETABLE_H

#include "virtual-unit/peripherals/CardSlot.h"
#include "virtual-unit/peripherals/PowerSupply.h"
#include "virtual-unit/ports/ServedDevice.h"

#include <map>
#include <memory>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace VirtualUnit
{

/// Which paths are the unit's, which device stands behind each, and how its storage card and power are.
class DeviceTable
{
public:
    /// Patterns, as for fnmatch(), of all device files of the unit. What matches one and is not served does
    /// not exist for the application, whatever this machine has there.
    static const std::vector<std::string>& UnitPaths();

    void Serve(const std::string& path, std::unique_ptr<ServedDevice> device);

    void EndService(); ///< of all devices; the card stays as it is

    ServedDevice* Find(const std::string& path) const; ///< null when nothing is served there

    /// The device that a process has open. @param link "/proc/PID/fd/N" @return null when it is none of these
    ServedDevice* FindOpened(const std::string& link) const;

    /// What a write fails with since the node has gone; 0: it does not. @param link as for FindOpened()
    int WriteError(const std::string& link) const;

    bool BelongsToUnit(const std::string& path) const; ///< served, or one of UnitPaths()

    CardSlot& Card() const { return *card; } ///< of the unit whose devices these are

    PowerSupply& Power() const { return *power; } ///< of that unit, too

    const std::map<std::string, std::unique_ptr<ServedDevice>>& Served() const { return served; }

private:
    std::map<std::string, std::unique_ptr<ServedDevice>> served;
    mutable std::map<std::pair<dev_t, ino_t>, ServedDevice*> openedBefore; ///< by FindOpened()
    std::unique_ptr<CardSlot> card = std::make_unique<CardSlot>();
    std::unique_ptr<PowerSupply> power = std::make_unique<PowerSupply>();
};

}

#endif
