#ifndef TESTS_BOARD_USBDEVICE_H
#define TESTS_BOARD_USBDEVICE_H

#include "virtual-unit/common/Descriptor.h"

#include <array>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace Board
{

/**
 * A USB device with vendor-specific interfaces, plugged into the kernel's virtual host controller: the
 * kernel's own serial drivers bind to it. Each interface has a bulk endpoint for each direction, whose bytes
 * are handed over here.
 *
 * Calling threads: any, but for the callbacks, which come on the device's own thread.
 */
class UsbDevice
{
public:
    struct Identity
    {
        std::uint16_t vendor = 0;
        std::uint16_t product = 0;
        std::string manufacturer; ///< empty: it tells none
        std::string name;
        unsigned int interfaces = 1;
        bool hasInterrupt = false; ///< each interface has an interrupt endpoint as well
    };

    /// Answers a vendor's control request. @return what is read from the device, at most `length` bytes
    using Control = std::function<std::string(const std::array<std::uint8_t, 8>& setup, std::size_t length)>;

    /// Takes what the host has sent to an interface.
    /// @param again these bytes have been handed over before, and were not taken
    /// @return false: the line takes no output, and the host waits
    using Receive = std::function<bool(unsigned int interface, std::string_view bytes, bool again)>;

    /**
     * Plugs it in.
     * @param port of the controller, 0 to 7; one device each
     * @throws std::system_error when there is no such controller, or no root
     */
    UsbDevice(Identity itself, unsigned int port, Control control, Receive receive);
    UsbDevice(const UsbDevice&) = delete;
    UsbDevice& operator=(const UsbDevice&) = delete;
    ~UsbDevice(); ///< pulls it out

    void Send(unsigned int interface, std::string_view bytes); ///< to the host

    void Retry(); ///< hands over once more what has not been taken

private:
    struct Request
    {
        std::uint32_t number = 0;
        std::uint32_t device = 0;
        bool in = false;
        std::uint32_t endpoint = 0;
        std::uint32_t length = 0;
        std::array<std::uint8_t, 8> setup{};
        std::string data;
        bool handedOver = false;
    };

    void Serve();
    void Take(const Request& request);
    void Unlink(const Request& request, std::uint32_t number);
    std::string AnswerControl(const Request& request, int& status) const;
    std::string DeviceDescriptor() const;
    std::string Configuration() const;
    static std::string Text(const std::string& text);
    void AnswerInput(unsigned int interface);
    void AnswerOutput(unsigned int interface);
    void Reply(const Request& request, int status, std::string_view data, std::uint32_t actual);
    bool ReadWhole(void* data, std::size_t size);

    const Identity identity;
    const Control answerControl;
    const Receive receive;
    VirtualUnit::Descriptor line;

    std::mutex access;                                   ///< guards what follows, and writes to `line`
    std::map<unsigned int, std::deque<Request>> inputs;  ///< of the host that wait for bytes, by interface
    std::map<unsigned int, std::deque<Request>> outputs; ///< that wait until they are taken
    std::deque<Request> interrupts;
    std::map<unsigned int, std::string> waiting; ///< bytes for the host

    std::thread thread;
};

}

#endif
