#ifndef VIRTUAL_UNIT_RUN_USBBUS_H
#define VIRTUAL_UNIT_RUN_USBBUS_H

#include "virtual-unit/common/PrivateDirectory.h"
#include "virtual-unit/peripherals/CellularModule.h"

#include <string>

namespace VirtualUnit
{

/**
 * The unit's USB bus as "lsusb" lists it: while this object lives, the programs that this process starts find
 * an lsusb of its own first in PATH. The cellular module is on the list as long as it is on the bus.
 * Beside it stand reboot, poweroff, halt, shutdown and systemctl, which only say that nothing is done.
 *
 * It changes PATH. Create it while the process has one thread.
 */
class UsbBus
{
public:
    explicit UsbBus(CellularModule& module); ///< @throws std::system_error
    UsbBus(const UsbBus&) = delete;
    UsbBus& operator=(const UsbBus&) = delete;
    ~UsbBus();

private:
    void List(bool withModule) const;

    CellularModule& module;
    PrivateDirectory directory;
    std::string formerPath;
};

}

#endif
