#ifndef TESTS_BOARD_HIDDEVICE_H
#define TESTS_BOARD_HIDDEVICE_H

#include "virtual-unit/common/Descriptor.h"

#include <functional>
#include <string>
#include <string_view>
#include <thread>

namespace Board
{

/**
 * The HID-to-I2C bridge as the kernel's user-space HID driver (uhid) hosts it: the kernel's generic driver
 * binds to it, and a node /dev/hidrawN comes.
 */
class HidDevice
{
public:
    using Receive = std::function<void(std::string_view report)>; ///< on the device's own thread

    /// Plugs it in. @throws std::system_error
    explicit HidDevice(Receive receive);
    HidDevice(const HidDevice&) = delete;
    HidDevice& operator=(const HidDevice&) = delete;
    ~HidDevice(); ///< pulls it out

    void Send(std::string_view report); ///< an input report; it gets its full length. Calling thread: any

private:
    void Serve();

    Receive receive;
    VirtualUnit::Descriptor fd;
    VirtualUnit::Descriptor end; ///< an eventfd
    std::thread thread;
};

}

#endif
