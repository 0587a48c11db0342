#include "Sensors/Beeper/Beeper.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <thread>

namespace Tavdevice
{

namespace
{

using std::chrono::milliseconds;

constexpr const char* BRIDGE = "/dev/hidraw0";
constexpr unsigned char FIRST_CHIP = 0x5A;
constexpr unsigned char SECOND_CHIP = 0x62;
constexpr std::size_t DATA_BYTES = 64;

constexpr milliseconds AFTER_OPENING{10};

void Pause(milliseconds duration)
{
    std::this_thread::sleep_for(duration);
}

}

struct Beeper::Layout
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof" // the class has a base, whose part comes first
    static_assert(offsetof(Beeper, bridge) < offsetof(Beeper, address1));
    static_assert(offsetof(Beeper, address1) < offsetof(Beeper, address2));
#pragma GCC diagnostic pop
};

Beeper::Beeper() : address1(FIRST_CHIP), address2(SECOND_CHIP)
{
}

Beeper::~Beeper() = default;

bool Beeper::Open()
{
    const bool opened = bridge.Open(BRIDGE);
    if (opened)
    {
        SetPresent(true);
    }
    return opened;
}

bool Beeper::Close()
{
    return bridge.Close();
}

bool Beeper::CheckPresence()
{
    const bool opened = Open();
    if (opened || IsPresent()) // another thread's search may have found nothing meanwhile
    {
        Close();
    }
    return IsPresent();
}

bool Beeper::Alert()
{
    return Alert_2();
}

bool Beeper::Alert_1()
{
    Open();
    const int repetitions = level == 2 ? 2 : 1;
    for (int i = 0; i < repetitions; ++i)
    {
        Write(address1, {0x01, 0x3F});
        Pause(milliseconds(100));
        Write(address1, {0x01, 0x2A});
        Pause(milliseconds(50));
    }
    Close();
    return true;
}

bool Beeper::Alert_2()
{
    if (level == 0)
    {
        return false;
    }
    Open();
    Pause(AFTER_OPENING);
    const int repetitions = level == 2 || level == 3 ? level : 1;
    for (int i = 0; i < repetitions; ++i)
    {
        Write(address2, {0x05, 0x56});
        Write(address2, {0x11, 0x0A, 0x80});
        Pause(milliseconds(600));
        Write(address2, {0x11, 0x05, 0x80});
        Pause(milliseconds(600));
        Write(address2, {0x11, 0x2B, 0x00});
        Pause(milliseconds(800));
        Write(address2, {0x05, 0x55});
        Pause(milliseconds(1000));
    }
    Close();
    return true;
}

void Beeper::Write(unsigned char address, std::initializer_list<unsigned char> bytes)
{
    std::array<unsigned char, DATA_BYTES> data{};
    std::ranges::copy(bytes, data.begin());
    int status = 0;
    bridge.I2C_Write(address, FT260_I2C_START_AND_STOP, data.data(),
                     static_cast<unsigned short>(bytes.size()), &status);
}

}
