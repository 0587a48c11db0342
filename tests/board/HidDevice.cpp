#include "tests/board/HidDevice.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/input.h>
#include <linux/uhid.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Board
{

namespace
{

constexpr unsigned char FIRST_DATA_REPORT = 0xD0;
constexpr unsigned char LAST_DATA_REPORT = 0xDE;
constexpr unsigned char READ_REQUEST = 0xC2;
constexpr std::size_t READ_REQUEST_BYTES = 4; // behind the ID

/// Of a data report, behind the ID: for input the number of bytes and the bytes.
std::size_t InputBytes(unsigned char id)
{
    return 1 + 4 * (static_cast<std::size_t>(id - FIRST_DATA_REPORT) + 1);
}

std::size_t OutputBytes(unsigned char id)
{
    return InputBytes(id) + 2; // the slave's address and the condition as well
}

// Device Class Definition for HID 1.11, 6.2.2.
std::string Descriptor()
{
    std::string text = {0x06,
                        0x00,
                        static_cast<char>(0xFF),
                        0x09,
                        0x01,
                        static_cast<char>(0xA1),
                        0x01,
                        0x15,
                        0x00,
                        0x26,
                        static_cast<char>(0xFF),
                        0x00,
                        0x75,
                        0x08};
    const auto report = [&](unsigned char id, std::size_t bytes, unsigned char item) {
        text += std::string({static_cast<char>(0x85), static_cast<char>(id), static_cast<char>(0x95),
                             static_cast<char>(bytes), 0x09, 0x01, static_cast<char>(item), 0x02});
    };
    constexpr unsigned char INPUT = 0x81;
    constexpr unsigned char OUTPUT = 0x91;
    report(READ_REQUEST, READ_REQUEST_BYTES, OUTPUT);
    for (unsigned char id = FIRST_DATA_REPORT; id <= LAST_DATA_REPORT; ++id)
    {
        report(id, InputBytes(id), INPUT);
        report(id, OutputBytes(id), OUTPUT);
    }
    return text + static_cast<char>(0xC0);
}

void Write(int fd, const uhid_event& event)
{
    if (write(fd, &event, sizeof event) < 0)
    {
        throw std::system_error(errno, std::generic_category(), "/dev/uhid");
    }
}

}

HidDevice::HidDevice(Receive receiver)
    : receive(std::move(receiver)), fd(open("/dev/uhid", O_RDWR | O_CLOEXEC)), end(eventfd(0, EFD_CLOEXEC))
{
    uhid_event event = {};
    event.type = UHID_CREATE2;
    const std::string descriptor = Descriptor();
    uhid_create2_req& create = event.u.create2;
    std::strcpy(reinterpret_cast<char*>(create.name), "FTDI FT260");
    create.rd_size = static_cast<std::uint16_t>(descriptor.size());
    std::copy(descriptor.begin(), descriptor.end(), create.rd_data);
    create.bus = BUS_USB;
    create.vendor = 0x0403;
    create.product = 0x6030;
    Write(fd.Get(), event);
    thread = std::thread(&HidDevice::Serve, this);
}

HidDevice::~HidDevice()
{
    eventfd_write(end.Get(), 1);
    thread.join();
}

void HidDevice::Serve()
{
    std::array<pollfd, 2> events = {{{fd.Get(), POLLIN, 0}, {end.Get(), POLLIN, 0}}};
    while (poll(events.data(), events.size(), -1) >= 0 && events[1].revents == 0)
    {
        uhid_event event = {};
        if (read(fd.Get(), &event, sizeof event) <= 0)
        {
            return;
        }
        switch (event.type)
        {
        case UHID_OUTPUT:
            receive({reinterpret_cast<const char*>(event.u.output.data), event.u.output.size});
            break;
        case UHID_GET_REPORT: {
            uhid_event answer = {};
            answer.type = UHID_GET_REPORT_REPLY;
            answer.u.get_report_reply.id = event.u.get_report.id;
            answer.u.get_report_reply.err = EIO;
            Write(fd.Get(), answer);
            break;
        }
        case UHID_SET_REPORT: {
            uhid_event answer = {};
            answer.type = UHID_SET_REPORT_REPLY;
            answer.u.set_report_reply.id = event.u.set_report.id;
            receive({reinterpret_cast<const char*>(event.u.set_report.data), event.u.set_report.size});
            Write(fd.Get(), answer);
            break;
        }
        default:
            break; // started, opened, closed, stopped
        }
    }
}

void HidDevice::Send(std::string_view report)
{
    uhid_event event = {};
    event.type = UHID_INPUT2;
    const auto id = static_cast<unsigned char>(report.front());
    std::copy(report.begin(), report.end(), event.u.input2.data);
    event.u.input2.size = static_cast<std::uint16_t>(
        id >= FIRST_DATA_REPORT && id <= LAST_DATA_REPORT ? 1 + InputBytes(id) : report.size());
    Write(fd.Get(), event);
}

}
