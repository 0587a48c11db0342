#ifndef VIRTUAL_UNIT_PORTS_SERVEDDRIVER_H
#define VIRTUAL_UNIT_PORTS_SERVEDDRIVER_H

#include "base/ThreadSafety.h"
#include "virtual-unit/common/Descriptor.h"
#include "virtual-unit/peripherals/IoctlPeripheral.h"
#include "virtual-unit/peripherals/MessagePeripheral.h"
#include "virtual-unit/ports/ServedDevice.h"

#include <memory>
#include <mutex>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace VirtualUnit
{

/**
 * A device file that is no serial line, with an emulated device behind it: its ioctls are answered here, its
 * messages, where it has any, go through a socket that keeps them apart.
 *
 * The device is switched on when it is first opened. All who have it open share one queue of messages, and
 * whether they wait: the flags of the latest open() hold for all. The file is there as long as the device is
 * plugged in; when that comes back, who had it open before stays hung up, and keeps the number of the node
 * from it.
 */
class ServedDriver : public ServedDevice
{
public:
    /// @throws std::system_error when the system gives no sockets
    explicit ServedDriver(std::shared_ptr<IoctlPeripheral> device);
    explicit ServedDriver(const std::shared_ptr<MessagePeripheral>& device);
    ~ServedDriver() override;

    int Open(int flags) override;
    std::optional<IoctlResult> Ioctl(unsigned long request, std::uint64_t argument,
                                     CallerMemory& memory) override;

    bool Exists() const override;
    bool HoldsWrites() const override;
    int WriteError(const struct stat& opened) override;
    unsigned int Node() override;

    int Descriptor() const override;

    /// Runs `function` while the device stands still. Calling threads: any.
    template <class Function>
    void Locked(Function&& function)
    {
        {
            const std::lock_guard lock(access);
            std::forward<Function>(function)();
            SettleNode();
        }
        Wake();
    }

private:
    ServedDriver(std::shared_ptr<IoctlPeripheral> device, MessagePeripheral* withMessages);

    void Connect();
    void SettleNode() TAV_REQUIRES(access);
    void Start();
    void Stop();
    void Carry();
    void Receive() TAV_REQUIRES(access);
    void Send(std::string_view message) const;
    void Wake() const;

    const std::shared_ptr<IoctlPeripheral> peripheral TAV_GUARDED_BY(access);
    /// The same device, or null when it has none.
    MessagePeripheral* const messages TAV_POINTEE_GUARDED_BY(access);
    const bool canBePulledOut;
    VirtualUnit::Descriptor deviceEnd; ///< replaced only while the thread does not run
    VirtualUnit::Descriptor wake;      ///< an eventfd, readable when the thread has to look anew

    mutable std::mutex access; ///< guards the device and what follows
    VirtualUnit::Descriptor applicationEnd TAV_GUARDED_BY(access);
    bool ending TAV_GUARDED_BY(access) = false;

    /// A socket that stood behind the path.
    struct FormerNode
    {
        ino_t socket;
        unsigned int node;
    };

    std::vector<FormerNode> formerNodes TAV_GUARDED_BY(access); ///< that somebody holds still
    unsigned int node TAV_GUARDED_BY(access) = 0;
    /// For the time that it has been back, but not been opened.
    bool nodeSettled TAV_GUARDED_BY(access) = false;

    std::thread thread;
};

}

#endif
