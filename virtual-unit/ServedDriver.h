#ifndef VIRTUAL_UNIT_SERVEDDRIVER_H
#define VIRTUAL_UNIT_SERVEDDRIVER_H

#include "virtual-unit/Descriptor.h"
#include "virtual-unit/ServedDevice.h"
#include "virtual-unit/peripherals/IoctlPeripheral.h"
#include "virtual-unit/peripherals/MessagePeripheral.h"

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace VirtualUnit
{

/**
 * A device file that is no serial line, with an emulated device behind it: its ioctls are answered here, its
 * messages, where it has any, go through a socket that keeps them apart.
 *
 * The device is switched on when it is first opened. All who have it open share one queue of messages, and
 * whether they wait: the flags of the latest open() hold for all.
 */
class ServedDriver : public ServedDevice
{
public:
    /// @throws std::system_error when the system gives no sockets
    ServedDriver(std::shared_ptr<IoctlPeripheral> device, std::string description);
    ServedDriver(const std::shared_ptr<MessagePeripheral>& device, std::string description);
    ~ServedDriver() override;

    int Open(int flags) override;
    std::optional<int> Ioctl(unsigned long request, std::uint64_t argument, CallerMemory& memory) override;

    int Descriptor() const override { return applicationEnd.Get(); }

    std::string Description() const override { return description; }

private:
    ServedDriver(std::shared_ptr<IoctlPeripheral> device, MessagePeripheral* withMessages,
                 std::string theDescription);

    void Start();
    void Carry();
    void Receive();
    void Send(std::string_view message) const;
    void Wake() const;

    std::shared_ptr<IoctlPeripheral> peripheral;
    MessagePeripheral* messages; ///< the same device, or null when it has none
    std::string description;

    VirtualUnit::Descriptor applicationEnd;
    VirtualUnit::Descriptor deviceEnd;
    VirtualUnit::Descriptor wake; ///< an eventfd, readable when the thread has to look anew

    std::mutex access; ///< guards the device and what follows
    bool ending = false;

    std::thread thread;
};

}

#endif
