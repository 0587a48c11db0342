#ifndef VIRTUAL_UNIT_PERIPHERALS_HIDBRIDGE_H
#define VIRTUAL_UNIT_PERIPHERALS_HIDBRIDGE_H

#include "virtual-unit/peripherals/MessagePeripheral.h"
#include "virtual-unit/peripherals/SoundChip.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace VirtualUnit
{

/**
 * An emulated FT260, a USB-to-I2C bridge, behind the kernel's hidraw interface, with the two sound chips of
 * the beeper on its bus.
 *
 * | Report that is written | Bytes |
 * |---|---|
 * | I2C write | 0xD0 to 0xDE, slave address, condition, number of bytes, those bytes |
 * | I2C read | 0xC2, slave address, condition, number of bytes in two bytes, the low one first |
 *
 * Without a start condition (bit 1) nothing happens on the bus. The first byte written to a slave is its
 * register; a read goes on from the register that was written last. Reports that make no sense are passed
 * over, as those to a slave that is not there: the kernel takes them all.
 *
 * A read is answered at once, by input reports of up to 60 bytes of data: report ID, number of bytes, bytes.
 * The ID tells the size: 0xD0 for up to 4 bytes, 0xD1 for up to 8, and so on to 0xDE.
 *
 * HIDIOCGRDESCSIZE, HIDIOCGRAWNAME and HIDIOCGRAWINFO are answered; any other ioctl is ENOTTY.
 */
class HidBridge : public MessagePeripheral
{
public:
    static constexpr unsigned char FIRST_CHIP = 0x5A;  ///< SoundChip::Kind::Simple
    static constexpr unsigned char SECOND_CHIP = 0x62; ///< SoundChip::Kind::Tuned

    struct Identity
    {
        int descriptorBytes = 150;
        std::string name = "FTDI FT260";
        std::uint32_t bus = 0x03; ///< BUS_USB
        std::uint16_t vendor = 0x0403;
        std::uint16_t product = 0x6030;
    };

    /// What goes wrong; may be changed at any time. Errors are errno values, 0: none.
    struct Faults
    {
        int write = 0;                         ///< each write is refused, and does nothing
        int descriptorSize = 0;                ///< HIDIOCGRDESCSIZE
        int name = 0;                          ///< HIDIOCGRAWNAME
        int info = 0;                          ///< HIDIOCGRAWINFO
        bool noInput = false;                  ///< no input report comes
        std::optional<unsigned char> reportId; ///< of each input report
    };

    HidBridge();

    Identity identity;
    Faults faults;
    SoundChip first;
    SoundChip second;

    void Unplug(); ///< what is under way is lost, and the host is hung up
    void PlugIn(); ///< it needs a new host

    bool IsConnected() const override { return connected; }

    bool IsPlugged() const override { return plugged; }

    bool CanBePulledOut() const override { return true; }

    void Attach(const std::function<void()>& wakeHost) override;

    int Receive(std::string_view report, TimePoint now) override;
    int Answer(const Ioctl& call, TimePoint now) override;
    std::vector<std::string> TakeOutput() override;

private:
    SoundChip* Find(unsigned char address);
    void WriteToSlave(std::string_view report, TimePoint now);
    void ReadFromSlave(std::string_view report, TimePoint now);

    std::map<unsigned char, unsigned char> lastRegisters; ///< by slave address
    std::vector<std::string> output;
    bool plugged = true;
    bool connected = true; ///< and has been since there is this host
    std::function<void()> wake;
};

}

#endif
