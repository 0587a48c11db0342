#include "virtual-unit/peripherals/SoundChip.h"

#include <utility>

namespace VirtualUnit
{

namespace
{

constexpr unsigned char SIMPLE_TONE = 0x01;
constexpr unsigned char SIMPLE_SOUNDS = 0x3F;

constexpr unsigned char TUNED_POWER = 0x05;
constexpr unsigned char TUNED_ON = 0x56;
constexpr unsigned char TUNED_PITCH = 0x11;
constexpr unsigned char TUNED_TONE = 0x12;
constexpr unsigned char TUNED_SOUNDS = 0x80;

}

std::vector<SoundChip::Note> SoundChip::TakeNotes()
{
    return std::exchange(notes, {});
}

I2cSlave::Bytes SoundChip::ReadRegisters(unsigned char reg, std::size_t count, TimePoint /*now*/)
{
    Bytes bytes;
    while (bytes.size() < count)
    {
        bytes.push_back(registers[reg++]);
    }
    return bytes;
}

void SoundChip::WriteRegisters(unsigned char reg, std::span<const unsigned char> bytes, TimePoint now)
{
    for (const unsigned char value : bytes)
    {
        registers[reg++] = value;
    }
    if (const int pitch = Pitch(); pitch != heard)
    {
        heard = pitch;
        notes.push_back({now, pitch});
    }
}

int SoundChip::Pitch() const
{
    if (kind == Kind::Simple)
    {
        return registers[SIMPLE_TONE] == SIMPLE_SOUNDS ? SIMPLE_SOUNDS : Note::PAUSE;
    }
    const bool sounds = registers[TUNED_POWER] == TUNED_ON && (registers[TUNED_TONE] & TUNED_SOUNDS) != 0;
    return sounds ? registers[TUNED_PITCH] : Note::PAUSE;
}

}
