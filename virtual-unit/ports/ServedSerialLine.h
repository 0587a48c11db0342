#ifndef VIRTUAL_UNIT_PORTS_SERVEDSERIALLINE_H
#define VIRTUAL_UNIT_PORTS_SERVEDSERIALLINE_H

#include "virtual-unit/peripherals/SerialPeripheral.h"
#include "virtual-unit/ports/SerialLine.h"
#include "virtual-unit/ports/ServedDevice.h"

#include <memory>
#include <utility>

namespace VirtualUnit
{

/// A serial port with an emulated device behind it, which is switched on when the port is first opened. The
/// port is there as long as the device is plugged in; when that comes back the port is a new one, and who had
/// the old one open stays hung up.
class ServedSerialLine : public ServedDevice
{
public:
    explicit ServedSerialLine(std::shared_ptr<SerialPeripheral> device)
        : peripheral(std::move(device)), line(*peripheral)
    {
    }

    int Open(int flags) override;

    bool Exists() const override;

    /// What a pseudo terminal does not know: TIOCOUTQ and TCSBRK of a line that is stuck.
    std::optional<IoctlResult> Ioctl(unsigned long request, std::uint64_t argument,
                                     CallerMemory& memory) override;

    int Descriptor() const override { return line.ApplicationEnd(); }

    /// Runs `function` while the device stands still. Calling threads: any.
    template <class Function>
    void Locked(Function&& function)
    {
        line.Locked(std::forward<Function>(function));
    }

private:
    std::shared_ptr<SerialPeripheral> peripheral;
    mutable SerialLine line; ///< its lock is taken to look at the device
};

}

#endif
