#include "I2C/HidI2C.h"

#include "base/Tavbase/Util/StandardStreams.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <fcntl.h>
#include <linux/hidraw.h>
#include <linux/input.h>
#include <sys/ioctl.h>
#include <thread>
#include <unistd.h>

namespace Tavdevice
{

namespace
{

constexpr const char* FIRST_BRIDGE = "/dev/hidraw0";

// FT260 reports.
constexpr unsigned char WRITE_REQUEST = 0xD0;
constexpr unsigned char READ_REQUEST = 0xC2;
constexpr unsigned char INPUT_REPORTS[] = {0xDE, 0x3C};
constexpr std::size_t REQUEST_HEADER_BYTES = 4;
constexpr std::size_t READ_REQUEST_BYTES = 5;
constexpr std::size_t REPORT_BYTES = 64;
constexpr unsigned short LONGEST_WRITE = 4;
constexpr unsigned short LONGEST_READ = 60;

constexpr std::size_t NAME_BYTES = 256;
constexpr int PRINTED_BYTES = 20;
constexpr std::chrono::microseconds READ_TIME{500'000};

using Report = std::array<unsigned char, REPORT_BYTES>;

const char* BusName(unsigned int type)
{
    switch (type)
    {
    case BUS_USB:
        return "USB";
    case BUS_HIL:
        return "HIL";
    case BUS_BLUETOOTH:
        return "Bluetooth";
    case BUS_VIRTUAL:
        return "Virtual";
    default:
        return "Other";
    }
}

void Store(int value, int* target)
{
    if (target != nullptr)
    {
        *target = value;
    }
}

}

struct HidI2C::Layout
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof" // the class has a virtual operation
    static_assert(offsetof(HidI2C, device) < offsetof(HidI2C, fd));
#pragma GCC diagnostic pop
};

HidI2C::HidI2C() : device(FIRST_BRIDGE)
{
}

HidI2C::~HidI2C() = default;

bool HidI2C::Open(const std::string& path)
{
    device = path;
    fd = Tavbase::Util::OpenNoStandardStream(device.c_str(), O_RDWR | O_NONBLOCK);
    if (fd < 0)
    {
        std::perror("Unable to open device");
        return false;
    }

    int descriptorSize = 0;
    if (ioctl(fd, HIDIOCGRDESCSIZE, &descriptorSize) < 0)
    {
        std::perror("HIDIOCGRDESCSIZE");
        return false;
    }
    std::printf("Report Descriptor Size: %d\n", descriptorSize);

    std::array<char, NAME_BYTES + 1> name{}; // one more, which stays zero
    if (ioctl(fd, HIDIOCGRAWNAME(NAME_BYTES), name.data()) < 0)
    {
        std::perror("HIDIOCGRAWNAME");
    }
    else
    {
        std::printf("Raw Name: %s\n", name.data());
    }

    hidraw_devinfo info = {};
    if (ioctl(fd, HIDIOCGRAWINFO, &info) < 0)
    {
        std::perror("HIDIOCGRAWINFO");
        return false;
    }
    std::puts("Raw Info:");
    std::printf("\tbustype: %d (%s)\n", static_cast<int>(info.bustype), BusName(info.bustype));
    std::printf("\tvendor: 0x%04hx\n", static_cast<unsigned short>(info.vendor));
    std::printf("\tproduct: 0x%04hx\n", static_cast<unsigned short>(info.product));
    return true;
}

bool HidI2C::Close()
{
    return fd < 1 || close(fd) >= 0; // the descriptor is remembered, deliberately
}

bool HidI2C::I2C_Write(unsigned char address, FT260_I2C_FLAG flag, unsigned char* data, unsigned short len,
                       int* written)
{
    if (len > LONGEST_WRITE || fd == 0 || (data == nullptr && len > 0))
    {
        return false;
    }
    Report report = {WRITE_REQUEST, address, flag, static_cast<unsigned char>(len)};
    std::copy_n(data, len, report.begin() + REQUEST_HEADER_BYTES);
    const std::size_t size = REQUEST_HEADER_BYTES + len;
    if (write(fd, report.data(), size) != static_cast<ssize_t>(size))
    {
        std::perror("write");
        Store(-1, written);
        return false;
    }
    Store(len, written);
    return true;
}

bool HidI2C::I2C_Read(unsigned char address, FT260_I2C_FLAG flag, unsigned char* /*data*/, unsigned short len,
                      int* count)
{
    if (len > LONGEST_READ || fd == 0)
    {
        return false;
    }
    // The length stands in the fifth byte, behind a zero, deliberately.
    Report report = {READ_REQUEST, address, flag, 0, static_cast<unsigned char>(len)};
    if (write(fd, report.data(), READ_REQUEST_BYTES) < 0)
    {
        std::perror("write read command");
        return false;
    }
    std::this_thread::sleep_for(READ_TIME);
    if (read(fd, report.data(), report.size()) < 0)
    {
        std::perror("read error =====> -1");
        return false;
    }
    if (std::ranges::find(INPUT_REPORTS, report[0]) == std::end(INPUT_REPORTS))
    {
        return false;
    }
    Store(report[1], count);
    DoPrint(reinterpret_cast<char*>(report.data()), PRINTED_BYTES);
    return true;
}

void HidI2C::DoPrint(char* report, int n)
{
    std::printf("Report: ");
    for (int i = 0; i < n; ++i)
    {
        std::printf("0x%02X ", static_cast<unsigned char>(report[i]));
    }
    std::printf("\n");
}

}
