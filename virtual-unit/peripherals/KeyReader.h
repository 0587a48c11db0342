#ifndef VIRTUAL_UNIT_PERIPHERALS_KEYREADER_H
#define VIRTUAL_UNIT_PERIPHERALS_KEYREADER_H

#include "virtual-unit/peripherals/SerialPeripheral.h"
#include "virtual-unit/peripherals/Transmitter.h"

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace VirtualUnit
{

/**
 * An emulated driver-ID reader: a contact for the drivers' keys, behind a serial line.
 *
 * It speaks when it is spoken to. A frame is AA 55, the type, 01, the number of bytes of the payload, the
 * payload, a CRC-16 over all of that (polynomial 0x8005, not reflected, high byte first), EF 0D. A command is
 * of type 0x02 and has one byte of payload:
 *
 * | Command | Reply |
 * |---|---|
 * | 0, is the reader there? | acknowledge (type 0x01, 10 bytes) |
 * | 1 and 2, annoying on and off | acknowledge |
 * | 3, which key? | identifier (type 0x05, 17 bytes) |
 * | 9, forget the key | acknowledge |
 * | any other | error 0x99, 10 bytes |
 *
 * The payload of an acknowledge and of an error is the command's. That of an identifier is what a 1-Wire key
 * holds: the family code 0x01, six bytes of number, the lowest first, and the key's own CRC-8. Without a key
 * all eight bytes are zero. A frame with any wrong byte, and everything else that comes, is passed over.
 *
 * A key is written as 12 hexadecimal digits of its number, the highest byte first: of "00A1B2C3D4E5", 0xE5 is
 * sent first. A number whose last eight digits are zero looks to the application like no key at all.
 *
 * The reader remembers the key that touched it last, also when it is taken away, until it is told to forget
 * it. A key that is still in contact then is read anew at once.
 */
class KeyReader : public SerialPeripheral
{
public:
    enum class FrameType : unsigned char
    {
        Acknowledge = 0x01,
        Command = 0x02,
        Identifier = 0x05,
        Status = 0x06,
        Error60 = 0x60,
        Error99 = 0x99
    };

    struct Options
    {
        std::string key;                       ///< presented, as by Present(); empty: none
        std::chrono::milliseconds keyAfter{0}; ///< so long after the reader is switched on
        Transmitter::Options line;             ///< how replies reach the application: pieces, speed
    };

    /// A frame that is sent in place of a reply. Its first byte of payload is the reader's status: bit 0
    /// annoying, bit 1 a key is remembered; the others are zero.
    struct Substitute
    {
        FrameType type = FrameType::Status;
        std::size_t payloadBytes = 1; ///< 1 makes a frame of 10 bytes, 8 one of 17
    };

    /// What goes wrong; each may be switched on and off at any time, and holds for the replies from then on.
    struct Faults
    {
        bool silent = false;          ///< nothing is sent, what is under way is lost; commands are obeyed
        std::size_t absentChecks = 0; ///< there is no reader until so many commands 0 have come; counts down
        std::chrono::milliseconds delay{0};   ///< between a command and its reply
        std::string noise;                    ///< sent right before each reply
        std::optional<Substitute> substitute; ///< sent in place of each reply
        bool wrongCrcHigh = false;            ///< all bits of the CRC's high byte are wrong
        bool wrongCrcLow = false;             ///< all bits of its low byte are wrong
        std::optional<std::size_t> bytesSent; ///< so many bytes of each frame at most
        bool doubled = false;                 ///< each frame is sent twice, in one stretch
    };

    static bool IsKey(std::string_view text); ///< 12 hexadecimal digits, of either case

    KeyReader();
    explicit KeyReader(const Options& options); ///< @throws std::invalid_argument when `key` is not one

    Faults faults;

    /// A key touches the reader, and stays until it is taken away or another one touches.
    void Present(std::string_view key); ///< @throws std::invalid_argument unless IsKey(key)
    void TakeAway();                    ///< nothing when there is none

    std::string Key() const; ///< the key in contact; empty: none

    bool KeyIsToCome() const; ///< that of the options has not been presented yet

    void SetLine(const Transmitter::Options& line) { transmitter.options = line; }

    bool Annoying() const { return annoying; }

    void Receive(std::string_view bytes, TimePoint now) override;
    std::optional<TimePoint> NextDeadline() const override;
    void Advance(TimePoint now) override;
    std::vector<std::string> TakeOutput() override;

private:
    void Elapse(TimePoint now);
    void Obey(unsigned char command, TimePoint now);
    void Reply(FrameType type, std::string_view payload, TimePoint now);
    unsigned char Status() const;

    Options options;
    Transmitter transmitter;
    std::vector<std::string> output;
    std::string received; ///< that is not understood yet
    bool switchedOn = false;
    std::optional<TimePoint> presentAt; ///< the key of the options, when it is still to come
    std::string contact;                ///< what the key in contact holds; empty: none
    std::string remembered;             ///< what the last key held; empty: none
    bool annoying = false;
};

}

#endif
