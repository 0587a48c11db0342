#ifndef TESTS_BOARD_FARENDS_H
#define TESTS_BOARD_FARENDS_H

#include "tests/board/CharacterDevice.h"
#include "tests/board/HidDevice.h"
#include "tests/board/UsbDevice.h"
#include "virtual-unit/common/Descriptor.h"
#include "virtual-unit/ports/DeviceTable.h"

#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace Board
{

/**
 * Puts the devices of an emulated unit behind the drivers of this machine's kernel: the serial lines at the
 * far ends of two UARTs, module and buzzer board on the USB bus, the bridge under the HID driver, the event
 * driver and the accelerometer's bus as character devices. An application finds all of them at their usual
 * paths.
 */
class FarEnds
{
public:
    /// A UART under test and the one at its far end.
    struct Wire
    {
        std::string path; ///< "/dev/ttymxc0"
        std::string farEnd;
    };

    /// @param devices of a unit in service; they outlive this object @throws std::system_error
    FarEnds(const VirtualUnit::DeviceTable& devices, const std::vector<Wire>& wires);
    FarEnds(const FarEnds&) = delete;
    FarEnds& operator=(const FarEnds&) = delete;
    ~FarEnds(); ///< takes all of them away

private:
    /// The port of the unit, and what it is connected with.
    struct Line
    {
        std::string path;
        VirtualUnit::Descriptor port; ///< the unit's; none: its device is not there
        VirtualUnit::Descriptor uart; ///< none: it is on the USB bus
        unsigned int interface = 0;
        std::string kept; ///< bytes for the port, which has no room
    };

    /// A device on the USB bus with its serial ports.
    struct UsbPorts
    {
        UsbDevice::Identity identity;
        unsigned int socket = 0; ///< of the controller
        UsbDevice::Control control;
        std::vector<Line> lines;
        std::unique_ptr<UsbDevice> device; ///< null: it is pulled out
    };

    VirtualUnit::ServedDevice& Served(const std::string& path) const;
    bool Open(Line& line) const;
    bool TakesOutput(const Line& line) const;
    void AwaitNodes() const;
    void EndThread();
    void Carry();
    void CarryUart(Line& line);
    void CarryUsb(UsbPorts& usb);
    void CarryMessages();
    void Settle();
    void Plug(UsbPorts& usb);
    int Answer(const std::string& path, unsigned long request, std::uint64_t argument,
               VirtualUnit::CallerMemory& memory) const;

    const VirtualUnit::DeviceTable& table;
    std::vector<Line> uarts;
    std::vector<std::unique_ptr<UsbPorts>> usb;
    VirtualUnit::Descriptor hidPort;
    std::unique_ptr<HidDevice> hid;
    VirtualUnit::Descriptor eventsPort;
    std::unique_ptr<CharacterDevice> events;
    std::vector<std::unique_ptr<CharacterDevice>> adapters;
    VirtualUnit::Descriptor ending; ///< an eventfd
    std::thread thread;
};

}

#endif
