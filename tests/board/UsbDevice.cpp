#include "tests/board/UsbDevice.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <endian.h>
#include <fstream>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Board
{

namespace
{

// The protocol between the virtual host controller and the far end, documented in the kernel's
// Documentation/usb/usbip_protocol.rst; numbers are big-endian.

constexpr std::uint32_t SUBMIT = 1;
constexpr std::uint32_t UNLINK = 2;
constexpr std::uint32_t SUBMITTED = 3;
constexpr std::uint32_t UNLINKED = 4;

constexpr std::size_t HEADER_BYTES = 48;
constexpr std::size_t UNLINK_NUMBER = 20; // offsets in the header
constexpr std::size_t LENGTH = 24;
constexpr std::size_t SETUP = 40;

constexpr const char* ATTACH = "/sys/devices/platform/vhci_hcd.0/attach";
constexpr int FULL_SPEED = 2;
constexpr std::uint16_t PACKET_BYTES = 64;

using Header = std::array<std::uint8_t, HEADER_BYTES>;

std::uint32_t Number(const Header& header, std::size_t at)
{
    std::uint32_t number = 0;
    std::memcpy(&number, header.data() + at, sizeof number);
    return be32toh(number);
}

void Put(Header& header, std::size_t at, std::uint32_t number)
{
    number = htobe32(number);
    std::memcpy(header.data() + at, &number, sizeof number);
}

void Put16(std::string& text, unsigned int number)
{
    text += static_cast<char>(number & 0xFF);
    text += static_cast<char>(number >> 8);
}

// Universal Serial Bus Specification 2.0, chapter 9.
constexpr std::uint8_t GET_STATUS = 0;
constexpr std::uint8_t GET_DESCRIPTOR = 6;
constexpr std::uint8_t GET_CONFIGURATION = 8;
constexpr std::uint8_t TYPE_MASK = 0x60;
constexpr std::uint8_t STANDARD = 0x00;
constexpr char DEVICE = 1;
constexpr char CONFIGURATION = 2;
constexpr char STRING = 3;
constexpr char INTERFACE = 4;
constexpr char ENDPOINT = 5;
constexpr char VENDOR_SPECIFIC = static_cast<char>(0xFF);
constexpr char BULK = 2;
constexpr char INTERRUPT = 3;
constexpr unsigned int IN = 0x80;

// Endpoint numbers: bulk 1 to n, one for each interface; behind them the interrupt endpoints.

}

UsbDevice::UsbDevice(Identity itself, unsigned int port, Control control, Receive receiver)
    : identity(std::move(itself)), answerControl(std::move(control)), receive(std::move(receiver))
{
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) != 0)
    {
        throw std::system_error(errno, std::generic_category(), "socketpair");
    }
    line = VirtualUnit::Descriptor(ends[0]);
    const VirtualUnit::Descriptor controllers(ends[1]); // the kernel keeps the socket
    std::ofstream attach(ATTACH);
    attach << port << ' ' << controllers.Get() << ' ' << ((1U << 16) | (port + 2)) << ' ' << FULL_SPEED
           << std::flush;
    if (!attach)
    {
        throw std::system_error(errno, std::generic_category(), ATTACH);
    }
    thread = std::thread(&UsbDevice::Serve, this);
}

UsbDevice::~UsbDevice()
{
    shutdown(line.Get(), SHUT_RDWR);
    thread.join();
}

bool UsbDevice::ReadWhole(void* data, std::size_t size)
{
    return size == 0 || recv(line.Get(), data, size, MSG_WAITALL) == static_cast<ssize_t>(size);
}

void UsbDevice::Serve()
{
    Header header{};
    while (ReadWhole(header.data(), header.size()))
    {
        Request request;
        request.number = Number(header, 4);
        request.device = Number(header, 8);
        request.in = Number(header, 12) != 0;
        request.endpoint = Number(header, 16);
        if (Number(header, 0) == UNLINK)
        {
            Unlink(request, Number(header, UNLINK_NUMBER));
            continue;
        }
        if (Number(header, 0) != SUBMIT)
        {
            return;
        }
        request.length = Number(header, LENGTH);
        std::copy_n(header.begin() + SETUP, request.setup.size(), request.setup.begin());
        if (!request.in)
        {
            request.data.resize(request.length);
            if (!ReadWhole(request.data.data(), request.length))
            {
                return;
            }
        }
        Take(request);
    }
}

void UsbDevice::Take(const Request& request)
{
    const std::lock_guard lock(access);
    if (request.endpoint == 0)
    {
        int status = 0;
        const std::string answer = AnswerControl(request, status);
        Reply(request, status, request.in ? std::string_view(answer).substr(0, request.length) : "",
              request.in ? 0 : request.length);
        return;
    }
    const unsigned int interface = request.endpoint - 1;
    if (interface >= identity.interfaces)
    {
        interrupts.push_back(request); // nothing ever comes
    }
    else if (request.in)
    {
        inputs[interface].push_back(request);
        AnswerInput(interface);
    }
    else
    {
        outputs[interface].push_back(request);
        AnswerOutput(interface);
    }
}

void UsbDevice::Unlink(const Request& request, std::uint32_t number)
{
    const std::lock_guard lock(access);
    bool found = false;
    const auto drop = [&](std::deque<Request>& requests) {
        found =
            std::erase_if(requests, [&](const Request& each) { return each.number == number; }) > 0 || found;
    };
    for (auto* const all : {&inputs, &outputs})
    {
        for (auto& [interface, requests] : *all)
        {
            drop(requests);
        }
    }
    drop(interrupts);
    Header header{};
    Put(header, 0, UNLINKED);
    Put(header, 4, request.number);
    Put(header, 20, static_cast<std::uint32_t>(found ? -ECONNRESET : 0));
    send(line.Get(), header.data(), header.size(), MSG_NOSIGNAL);
}

std::string UsbDevice::AnswerControl(const Request& request, int& status) const
{
    const std::array<std::uint8_t, 8>& setup = request.setup;
    if ((setup[0] & TYPE_MASK) != STANDARD)
    {
        return answerControl(setup, request.length);
    }
    switch (setup[1])
    {
    case GET_DESCRIPTOR:
        switch (setup[3])
        {
        case DEVICE:
            return DeviceDescriptor();
        case CONFIGURATION:
            return Configuration();
        case STRING:
            switch (setup[2])
            {
            case 0:
                return {"\x04\x03\x09\x04", 4}; // English
            case 1:
                return Text(identity.manufacturer);
            case 2:
                return Text(identity.name);
            default:
                break;
            }
            [[fallthrough]];
        default:
            status = -EPIPE;
            return {};
        }
    case GET_STATUS:
        return {"\0\0", 2};
    case GET_CONFIGURATION:
        return "\1";
    default:
        return {}; // set configuration, interface, feature: nothing is to be done
    }
}

std::string UsbDevice::DeviceDescriptor() const
{
    std::string text = {18, DEVICE};
    Put16(text, 0x0200);
    text += std::string({0, 0, 0, PACKET_BYTES});
    Put16(text, identity.vendor);
    Put16(text, identity.product);
    Put16(text, 0x0100);
    text += std::string({static_cast<char>(identity.manufacturer.empty() ? 0 : 1), 2, 0, 1});
    return text;
}

std::string UsbDevice::Configuration() const
{
    std::string interfaces;
    const auto endpoint = [&](unsigned int address, char type) {
        interfaces += std::string({7, ENDPOINT, static_cast<char>(address), type});
        Put16(interfaces, PACKET_BYTES);
        interfaces += type == INTERRUPT ? '\x20' : '\0';
    };
    for (unsigned int i = 0; i < identity.interfaces; ++i)
    {
        const char endpoints = identity.hasInterrupt ? 3 : 2;
        interfaces += std::string({9, INTERFACE, static_cast<char>(i), 0, endpoints, VENDOR_SPECIFIC,
                                   VENDOR_SPECIFIC, VENDOR_SPECIFIC, 0});
        endpoint(IN | (i + 1), BULK);
        endpoint(i + 1, BULK);
        if (identity.hasInterrupt)
        {
            endpoint(IN | (identity.interfaces + i + 1), INTERRUPT);
        }
    }
    std::string text = {9, CONFIGURATION};
    Put16(text, static_cast<unsigned int>(9 + interfaces.size()));
    text += std::string({static_cast<char>(identity.interfaces), 1, 0, static_cast<char>(0x80), 50});
    return text + interfaces;
}

std::string UsbDevice::Text(const std::string& text)
{
    std::string descriptor = {static_cast<char>(2 + 2 * text.size()), STRING};
    for (const char character : text)
    {
        descriptor += character;
        descriptor += '\0';
    }
    return descriptor;
}

void UsbDevice::AnswerInput(unsigned int interface)
{
    std::deque<Request>& requests = inputs[interface];
    std::string& bytes = waiting[interface];
    while (!requests.empty() && !bytes.empty())
    {
        const std::size_t count = std::min<std::size_t>(bytes.size(), requests.front().length);
        Reply(requests.front(), 0, std::string_view(bytes).substr(0, count), 0);
        bytes.erase(0, count);
        requests.pop_front();
    }
}

void UsbDevice::AnswerOutput(unsigned int interface)
{
    std::deque<Request>& requests = outputs[interface];
    while (!requests.empty() &&
           receive(interface, requests.front().data, std::exchange(requests.front().handedOver, true)))
    {
        Reply(requests.front(), 0, {}, requests.front().length);
        requests.pop_front();
    }
}

void UsbDevice::Reply(const Request& request, int status, std::string_view data, std::uint32_t actual)
{
    Header header{};
    Put(header, 0, SUBMITTED);
    Put(header, 4, request.number);
    Put(header, 20, static_cast<std::uint32_t>(status));
    Put(header, LENGTH, request.in ? static_cast<std::uint32_t>(data.size()) : actual);
    std::string reply(reinterpret_cast<const char*>(header.data()), header.size());
    reply += data;
    send(line.Get(), reply.data(), reply.size(), MSG_NOSIGNAL);
}

void UsbDevice::Send(unsigned int interface, std::string_view bytes)
{
    const std::lock_guard lock(access);
    waiting[interface] += bytes;
    AnswerInput(interface);
}

void UsbDevice::Retry()
{
    const std::lock_guard lock(access);
    for (auto& [interface, requests] : outputs)
    {
        AnswerOutput(interface);
    }
}

}
