#include "virtual-unit/peripherals/HidBridge.h"

#include <algorithm>
#include <cerrno>
#include <linux/hidraw.h>
#include <linux/ioctl.h>
#include <utility>

namespace VirtualUnit
{

namespace
{

constexpr unsigned char FIRST_DATA_REPORT = 0xD0;
constexpr unsigned char LAST_DATA_REPORT = 0xDE;
constexpr unsigned char READ_REQUEST = 0xC2;
constexpr unsigned char START = 0x02;

constexpr std::size_t SHORTEST_REPORT = 2; // that the kernel takes
constexpr std::size_t WRITE_HEADER_BYTES = 4;
constexpr std::size_t READ_REQUEST_BYTES = 5;
constexpr std::size_t DATA_STEP = 4;
constexpr std::size_t MOST_DATA = 60;

unsigned char At(std::string_view report, std::size_t place)
{
    return static_cast<unsigned char>(report[place]);
}

bool Starts(std::string_view report)
{
    return (At(report, 2) & START) != 0;
}

/// How many bytes a report with that ID can carry.
std::size_t Room(unsigned char id)
{
    return (id - FIRST_DATA_REPORT + std::size_t{1}) * DATA_STEP;
}

}

HidBridge::HidBridge()
    : first(FIRST_CHIP, SoundChip::Kind::Simple), second(SECOND_CHIP, SoundChip::Kind::Tuned)
{
}

void HidBridge::Unplug()
{
    plugged = false;
    connected = false;
    output.clear();
    if (wake)
    {
        wake();
    }
}

void HidBridge::PlugIn()
{
    plugged = true;
    connected = connected || !wake;
}

void HidBridge::Attach(const std::function<void()>& wakeHost)
{
    wake = wakeHost;
    connected = plugged;
}

int HidBridge::Receive(std::string_view report, TimePoint now)
{
    if (faults.write != 0)
    {
        return faults.write;
    }
    if (report.size() < SHORTEST_REPORT)
    {
        return EINVAL;
    }
    const unsigned char id = At(report, 0);
    if (id >= FIRST_DATA_REPORT && id <= LAST_DATA_REPORT)
    {
        WriteToSlave(report, now);
    }
    else if (id == READ_REQUEST)
    {
        ReadFromSlave(report, now);
    }
    return 0;
}

void HidBridge::WriteToSlave(std::string_view report, TimePoint now)
{
    if (report.size() < WRITE_HEADER_BYTES)
    {
        return;
    }
    const std::size_t count = At(report, 3);
    const std::string_view text = report.substr(WRITE_HEADER_BYTES);
    SoundChip* const slave = Find(At(report, 1));
    if (slave == nullptr || !Starts(report) || count == 0 || count > Room(At(report, 0)) ||
        text.size() < count)
    {
        return;
    }
    const I2cSlave::Bytes bytes(text.begin() + 1, text.begin() + static_cast<std::ptrdiff_t>(count));
    if (slave->Write(At(text, 0), bytes, now))
    {
        lastRegisters[slave->Address()] = At(text, 0);
    }
}

void HidBridge::ReadFromSlave(std::string_view report, TimePoint now)
{
    SoundChip* const slave = report.size() < READ_REQUEST_BYTES ? nullptr : Find(At(report, 1));
    if (slave == nullptr || !Starts(report))
    {
        return;
    }
    const std::size_t count = At(report, 3) | static_cast<std::size_t>(At(report, 4)) << 8;
    const std::optional<I2cSlave::Bytes> bytes = slave->Read(lastRegisters[slave->Address()], count, now);
    if (!bytes || faults.noInput)
    {
        return;
    }
    for (std::size_t done = 0; done < bytes->size(); done += MOST_DATA)
    {
        const std::size_t size = std::min(MOST_DATA, bytes->size() - done);
        const auto id = static_cast<unsigned char>(FIRST_DATA_REPORT + (size - 1) / DATA_STEP);
        std::string input = {static_cast<char>(faults.reportId.value_or(id)), static_cast<char>(size)};
        const auto begin = bytes->begin() + static_cast<std::ptrdiff_t>(done);
        input.append(begin, begin + static_cast<std::ptrdiff_t>(size));
        output.push_back(std::move(input));
    }
}

int HidBridge::Answer(const Ioctl& call, TimePoint /*now*/)
{
    // The size that the caller gives to the name is part of the request.
    if (_IOC_TYPE(call.request) == 'H' && _IOC_NR(call.request) == _IOC_NR(HIDIOCGRAWNAME(0)) &&
        _IOC_DIR(call.request) == _IOC_READ)
    {
        const std::size_t size = std::min<std::size_t>(identity.name.size() + 1, _IOC_SIZE(call.request));
        const int error =
            faults.name != 0 ? faults.name : call.memory.Write(call.argument, identity.name.c_str(), size);
        return error != 0 ? -error : static_cast<int>(size);
    }
    switch (call.request)
    {
    case HIDIOCGRDESCSIZE:
        return -(faults.descriptorSize != 0
                     ? faults.descriptorSize
                     : call.memory.Write(call.argument, &identity.descriptorBytes, sizeof(int)));
    case HIDIOCGRAWINFO: {
        hidraw_devinfo info = {};
        info.bustype = identity.bus;
        info.vendor = static_cast<__s16>(identity.vendor);
        info.product = static_cast<__s16>(identity.product);
        return -(faults.info != 0 ? faults.info : call.memory.Write(call.argument, &info, sizeof(info)));
    }
    default:
        return -ENOTTY;
    }
}

std::vector<std::string> HidBridge::TakeOutput()
{
    return std::exchange(output, {});
}

SoundChip* HidBridge::Find(unsigned char address)
{
    return address == FIRST_CHIP ? &first : address == SECOND_CHIP ? &second : nullptr;
}

}
