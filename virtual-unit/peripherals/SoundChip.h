#ifndef VIRTUAL_UNIT_PERIPHERALS_SOUNDCHIP_H
#define VIRTUAL_UNIT_PERIPHERALS_SOUNDCHIP_H

#include "virtual-unit/peripherals/I2cSlave.h"

#include <array>
#include <cstddef>
#include <span>
#include <vector>

namespace VirtualUnit
{

/**
 * One of the emulated beeper's two sound chips, which tells what it played.
 *
 * Of their data sheets nothing is known here; the meaning of their registers is taken from how they are used,
 * such that each pattern ends in silence:
 *
 * | Chip | Register | Value |
 * |---|---|---|
 * | Simple | 0x01 | 0x3F sounds, any other is silence; the pitch is always 0x3F |
 * | Tuned | 0x05 | 0x56 on, any other off |
 * | Tuned | 0x11 | the pitch |
 * | Tuned | 0x12 | bit 7: sounds, while on |
 */
class SoundChip : public I2cSlave
{
public:
    enum class Kind
    {
        Simple,
        Tuned
    };

    /// From a time on a tone is heard, or none: then it is a pause.
    struct Note
    {
        static constexpr int PAUSE = -1;

        TimePoint at;
        int pitch = PAUSE;

        bool operator==(const Note&) const = default;
    };

    SoundChip(unsigned char busAddress, Kind itsKind) : I2cSlave(busAddress), kind(itsKind) {}

    std::vector<Note> TakeNotes(); ///< the changes since the last call, oldest first; it begins in silence

protected:
    Bytes ReadRegisters(unsigned char reg, std::size_t count, TimePoint now) override;
    void WriteRegisters(unsigned char reg, std::span<const unsigned char> bytes, TimePoint now) override;

private:
    int Pitch() const;

    Kind kind;
    std::array<unsigned char, 256> registers{};
    int heard = Note::PAUSE;
    std::vector<Note> notes;
};

}

#endif
