#include "virtual-unit/peripherals/KeyReader.h"

#include <algorithm>
#include <boost/crc.hpp>
#include <charconv>
#include <stdexcept>
#include <utility>

namespace VirtualUnit
{

namespace
{

using FrameCrc = boost::crc_optimal<16, 0x8005, 0, 0, false, false>;
using KeyCrc = boost::crc_optimal<8, 0x31, 0, 0, true, true>; // that of 1-Wire devices

constexpr std::size_t HEADER_BYTES = 5;
constexpr std::size_t CRC_AND_TRAILER_BYTES = 4;
constexpr std::size_t COMMAND_BYTES = HEADER_BYTES + 1 + CRC_AND_TRAILER_BYTES;

enum Command : unsigned char
{
    PRESENCE = 0,
    ANNOYING_ON = 1,
    ANNOYING_OFF = 2,
    REQUEST_KEY = 3,
    FORGET_KEY = 9
};

constexpr unsigned char STATUS_ANNOYING = 0x01;
constexpr unsigned char STATUS_KEY = 0x02;

constexpr char FAMILY_CODE = 0x01;
constexpr std::size_t KEY_BYTES = 8; // family code, number, CRC
constexpr std::size_t KEY_DIGITS = 12;

template <class Crc>
typename Crc::value_type Checksum(std::string_view bytes)
{
    Crc crc;
    crc.process_bytes(bytes.data(), bytes.size());
    return crc.checksum();
}

std::string Frame(KeyReader::FrameType type, std::string_view payload)
{
    std::string frame = {'\xAA', '\x55', static_cast<char>(type), '\x01', static_cast<char>(payload.size())};
    frame += payload;
    const unsigned int crc = Checksum<FrameCrc>(frame);
    frame += {static_cast<char>(crc >> 8), static_cast<char>(crc & 0xFF), '\xEF', '\x0D'};
    return frame;
}

void Spoil(char& byte)
{
    byte = static_cast<char>(~byte);
}

/// What the key of that number holds, in the order in which it is read.
std::string KeyContent(std::string_view digits)
{
    std::string content(1, FAMILY_CODE);
    for (std::size_t rest = digits.size(); rest > 0; rest -= 2)
    {
        unsigned char byte = 0;
        const char* pair = digits.data() + rest - 2;
        std::from_chars(pair, pair + 2, byte, 16);
        content += static_cast<char>(byte);
    }
    content += static_cast<char>(Checksum<KeyCrc>(content));
    return content;
}

}

bool KeyReader::IsKey(std::string_view text)
{
    constexpr std::string_view DIGITS = "0123456789ABCDEFabcdef";
    return text.size() == KEY_DIGITS && text.find_first_not_of(DIGITS) == std::string_view::npos;
}

KeyReader::KeyReader() : KeyReader(Options())
{
}

KeyReader::KeyReader(const Options& theOptions) : options(theOptions)
{
    if (!options.key.empty() && !IsKey(options.key))
    {
        throw std::invalid_argument("not a key: " + options.key);
    }
    transmitter.options = options.line;
}

void KeyReader::Present(std::string_view key)
{
    if (!IsKey(key))
    {
        throw std::invalid_argument("not a key: " + std::string(key));
    }
    contact = remembered = KeyContent(key);
}

void KeyReader::TakeAway()
{
    contact.clear();
}

std::string KeyReader::Key() const
{
    constexpr std::string_view DIGITS = "0123456789ABCDEF";
    std::string digits;
    for (std::size_t i = contact.empty() ? 0 : KEY_BYTES - 2; i > 0;
         --i) // the number, the highest byte first
    {
        const auto byte = static_cast<unsigned char>(contact[i]);
        digits += {DIGITS[byte >> 4], DIGITS[byte & 0xF]};
    }
    return digits;
}

bool KeyReader::KeyIsToCome() const
{
    return !options.key.empty() && (!switchedOn || presentAt);
}

void KeyReader::Elapse(TimePoint now)
{
    if (!switchedOn)
    {
        switchedOn = true;
        if (!options.key.empty())
        {
            presentAt = now + options.keyAfter;
        }
    }
    if (presentAt && *presentAt <= now)
    {
        Present(options.key);
        presentAt.reset();
    }
}

void KeyReader::Receive(std::string_view bytes, TimePoint now)
{
    Elapse(now);
    received += bytes;
    std::size_t at = 0;
    while (received.size() - at >= COMMAND_BYTES)
    {
        const std::string_view frame = std::string_view(received).substr(at, COMMAND_BYTES);
        const std::string_view payload = frame.substr(HEADER_BYTES, 1);
        if (frame != Frame(FrameType::Command, payload))
        {
            ++at;
            continue;
        }
        Obey(static_cast<unsigned char>(payload.front()), now);
        at += COMMAND_BYTES;
    }
    received.erase(0, at);
}

void KeyReader::Obey(unsigned char command, TimePoint now)
{
    if (faults.absentChecks != 0)
    {
        faults.absentChecks -= command == PRESENCE ? 1 : 0;
        return;
    }
    FrameType type = FrameType::Acknowledge;
    std::string payload(1, static_cast<char>(command));
    switch (command)
    {
    case PRESENCE:
        break;
    case ANNOYING_ON:
    case ANNOYING_OFF:
        annoying = command == ANNOYING_ON;
        break;
    case REQUEST_KEY:
        type = FrameType::Identifier;
        payload = remembered.empty() ? std::string(KEY_BYTES, '\0') : remembered;
        break;
    case FORGET_KEY:
        remembered = contact;
        break;
    default:
        type = FrameType::Error99;
        break;
    }
    Reply(type, payload, now);
}

void KeyReader::Reply(FrameType type, std::string_view payload, TimePoint now)
{
    std::string frame = Frame(type, payload);
    if (faults.substitute)
    {
        std::string status(1, static_cast<char>(Status()));
        status.resize(faults.substitute->payloadBytes);
        frame = Frame(faults.substitute->type, status);
    }
    const std::size_t crc = frame.size() - CRC_AND_TRAILER_BYTES;
    if (faults.wrongCrcHigh)
    {
        Spoil(frame[crc]);
    }
    if (faults.wrongCrcLow)
    {
        Spoil(frame[crc + 1]);
    }
    frame.resize(std::min(frame.size(), faults.bytesSent.value_or(frame.size())));
    transmitter.Send(faults.noise + frame + (faults.doubled ? frame : ""), now + faults.delay);
}

unsigned char KeyReader::Status() const
{
    return static_cast<unsigned char>((annoying ? STATUS_ANNOYING : 0) |
                                      (remembered.empty() ? 0 : STATUS_KEY));
}

std::optional<SerialPeripheral::TimePoint> KeyReader::NextDeadline() const
{
    const std::optional<TimePoint> sending = transmitter.NextDeadline();
    return sending && presentAt ? std::min(sending, presentAt) : sending ? sending : presentAt;
}

void KeyReader::Advance(TimePoint now)
{
    Elapse(now);
    if (faults.silent)
    {
        transmitter.Discard();
    }
    transmitter.Take(now, output);
}

std::vector<std::string> KeyReader::TakeOutput()
{
    return std::exchange(output, {});
}

}
