#include "virtual-unit/recording/RequestText.h"

#include "virtual-unit/peripherals/EventDriver.h"
#include "virtual-unit/peripherals/I2cPeripheral.h"
#include "virtual-unit/recording/ByteText.h"
#include "virtual-unit/recording/TextCursor.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <cstring>
#include <linux/hidraw.h>
#include <linux/ioctl.h>
#include <string_view>

namespace VirtualUnit
{

namespace
{

using Outcome = RequestText::Outcome;

constexpr std::string_view PIN = "pin ";
constexpr std::string_view DESCRIPTOR_SIZE = "descriptor size";
constexpr std::string_view NAME = "name ";
constexpr std::string_view INFO = "info";
constexpr std::string_view IOCTL = "ioctl ";
constexpr std::string_view SELECT = "select ";
constexpr std::string_view BY_FORCE = " by force";
constexpr std::string_view READ = "read ";
constexpr std::string_view WRITE = "write ";
constexpr std::string_view TRANSFER = "transfer ";
constexpr std::string_view BYTES = " bytes";
constexpr std::string_view COUNT = ", count ";
constexpr std::string_view ERROR_NUMBER = "errno ";

constexpr int HIGHEST_ERROR = 4095; // that the kernel can tell
constexpr int HEX = 16;

/// What a successful answer to a request is made of.
struct Form
{
    enum class Kind
    {
        Result,
        DescriptorSize,
        Name,
        Info,
        Byte,
        Block
    };

    Kind kind = Kind::Result;
    std::size_t size = 0; ///< of a name's room or of a block
};

bool IsName(unsigned long request)
{
    return _IOC_TYPE(request) == 'H' && _IOC_NR(request) == _IOC_NR(HIDIOCGRAWNAME(0)) &&
           _IOC_DIR(request) == _IOC_READ;
}

std::string HexNumber(std::uint64_t number, int digits)
{
    std::array<char, 32> text = {};
    std::snprintf(text.data(), text.size(), "0x%0*llX", digits, static_cast<unsigned long long>(number));
    return text.data();
}

std::optional<std::uint64_t> TakeHexNumber(TextCursor& cursor, std::size_t digits = 0)
{
    return cursor.Take("0x") ? cursor.TakeNumber(HEX, digits) : std::nullopt;
}

/// Takes "0x1C:0x0C".
bool TakeRegister(TextCursor& cursor)
{
    return TakeHexNumber(cursor, 2) && cursor.Take(":") && TakeHexNumber(cursor, 2);
}

std::optional<Form> FormOfRead(TextCursor& cursor)
{
    if (!TakeRegister(cursor))
    {
        return std::nullopt;
    }
    if (cursor.AtEnd())
    {
        return Form{Form::Kind::Byte};
    }
    const std::optional<std::uint64_t> count = cursor.Take(", ") ? cursor.TakeNumber() : std::nullopt;
    const bool known = count && *count <= I2C_SMBUS_BLOCK_MAX && cursor.Take(BYTES);
    return known ? std::optional(Form{Form::Kind::Block, static_cast<std::size_t>(*count)}) : std::nullopt;
}

/// Takes a request whose answer is only what the ioctl returns.
bool TakePlain(TextCursor& cursor)
{
    if (cursor.Take(PIN))
    {
        return cursor.TakeNumber() && cursor.Take(" = ") && cursor.TakeNumber();
    }
    if (cursor.Take(IOCTL))
    {
        return TakeHexNumber(cursor).has_value();
    }
    if (cursor.Take(SELECT))
    {
        const bool taken = TakeHexNumber(cursor).has_value();
        cursor.Take(BY_FORCE);
        return taken;
    }
    if (cursor.Take(WRITE))
    {
        return TakeRegister(cursor) && (!cursor.Take(" ") || ByteText::TakeHex(cursor));
    }
    return cursor.Take(TRANSFER) && TakeRegister(cursor) && cursor.Take(", direction ") &&
           cursor.TakeNumber() && cursor.Take(", type ") && cursor.TakeNumber();
}

std::optional<Form> FormOf(const std::string& request)
{
    TextCursor cursor(request);
    std::optional<Form> form;
    if (cursor.Take(DESCRIPTOR_SIZE))
    {
        form = Form{Form::Kind::DescriptorSize};
    }
    else if (cursor.Take(INFO))
    {
        form = Form{Form::Kind::Info};
    }
    else if (cursor.Take(NAME))
    {
        const std::optional<std::uint64_t> room = cursor.TakeNumber();
        form = room ? std::optional(Form{Form::Kind::Name, static_cast<std::size_t>(*room)}) : std::nullopt;
    }
    else if (cursor.Take(READ))
    {
        form = FormOfRead(cursor);
    }
    else if (TakePlain(cursor))
    {
        form = Form{};
    }
    return cursor.AtEnd() ? form : std::nullopt;
}

std::string ErrorText(int error)
{
    const char* const name = strerrorname_np(error);
    return name != nullptr ? name : std::string(ERROR_NUMBER) + std::to_string(error);
}

std::optional<int> ErrorOf(const std::string& answer)
{
    TextCursor cursor(answer);
    if (cursor.Take(ERROR_NUMBER))
    {
        const std::optional<std::uint64_t> number = cursor.TakeNumber();
        const bool known = number && *number > 0 && *number <= HIGHEST_ERROR && cursor.AtEnd();
        return known ? std::optional(static_cast<int>(*number)) : std::nullopt;
    }
    for (int error = 1; error <= HIGHEST_ERROR; ++error)
    {
        if (const char* const name = strerrorname_np(error); name != nullptr && answer == name)
        {
            return error;
        }
    }
    return std::nullopt;
}

template <class Value>
std::string Stored(const Value& value)
{
    std::string bytes(sizeof(value), '\0');
    std::memcpy(bytes.data(), &value, sizeof(value));
    return bytes;
}

/// What is stored may be shorter than the value.
template <class Value>
Value Loaded(const std::string& bytes)
{
    Value value{};
    std::memcpy(&value, bytes.data(), std::min(sizeof(value), bytes.size()));
    return value;
}

std::string InfoText(const hidraw_devinfo& info)
{
    return "bus " + HexNumber(info.bustype, 4) + ", vendor " +
           HexNumber(static_cast<std::uint16_t>(info.vendor), 4) + ", product " +
           HexNumber(static_cast<std::uint16_t>(info.product), 4);
}

std::string BlockText(const std::string& stored, std::size_t asked)
{
    const std::size_t count = stored.empty() ? 0 : static_cast<unsigned char>(stored.front());
    const std::string bytes =
        ByteText::Hex(std::string_view(stored).substr(std::min<std::size_t>(1, stored.size())));
    return count == asked ? bytes : bytes + std::string(COUNT) + std::to_string(count);
}

std::optional<Outcome> DecodeResult(TextCursor& cursor)
{
    const std::optional<std::uint64_t> result = cursor.TakeNumber();
    return result && *result <= INT_MAX ? std::optional(Outcome{static_cast<int>(*result), {}})
                                        : std::nullopt;
}

std::optional<Outcome> DecodeDescriptorSize(TextCursor& cursor)
{
    const std::optional<Outcome> size = DecodeResult(cursor);
    return size ? std::optional(Outcome{0, Stored(size->result)}) : std::nullopt;
}

std::optional<Outcome> DecodeName(TextCursor& cursor, std::size_t room)
{
    if (!cursor.Take("'"))
    {
        return std::nullopt;
    }
    std::string name;
    while (const std::optional<char> character = cursor.TakeCharacter())
    {
        name += *character;
    }
    if (name.empty() || name.back() != '\'')
    {
        return std::nullopt;
    }
    name.pop_back();
    if (name.size() > room || name.find('\0') != std::string::npos) // it would end there
    {
        return std::nullopt;
    }
    name += name.size() < room ? std::string(1, '\0') : "";
    return Outcome{static_cast<int>(name.size()), name};
}

std::optional<Outcome> DecodeInfo(TextCursor& cursor)
{
    const auto number = [&cursor](std::string_view what) {
        return cursor.Take(what) ? TakeHexNumber(cursor) : std::nullopt;
    };
    const std::optional<std::uint64_t> bus = number("bus ");
    const std::optional<std::uint64_t> vendor = number(", vendor ");
    const std::optional<std::uint64_t> product = number(", product ");
    if (!bus || !vendor || !product || *bus > UINT32_MAX || *vendor > UINT16_MAX || *product > UINT16_MAX)
    {
        return std::nullopt;
    }
    hidraw_devinfo info = {};
    info.bustype = static_cast<__u32>(*bus);
    info.vendor = static_cast<__s16>(*vendor);
    info.product = static_cast<__s16>(*product);
    return Outcome{0, Stored(info)};
}

std::optional<Outcome> DecodeBytes(TextCursor& cursor, const Form& form)
{
    const bool block = form.kind == Form::Kind::Block;
    const std::size_t size = block ? form.size : 1;
    const std::optional<std::string> bytes =
        size == 0 ? std::optional<std::string>("") : ByteText::TakeHex(cursor);
    std::optional<std::uint64_t> count = form.size;
    if (block && cursor.Take(COUNT))
    {
        count = cursor.TakeNumber();
    }
    if (!bytes || bytes->size() != size || !count || *count > UINT8_MAX)
    {
        return std::nullopt;
    }
    return Outcome{0, (block ? std::string(1, static_cast<char>(*count)) : "") + *bytes};
}

std::optional<Outcome> DecodeSuccess(TextCursor& cursor, const Form& form)
{
    switch (form.kind)
    {
    case Form::Kind::DescriptorSize:
        return DecodeDescriptorSize(cursor);
    case Form::Kind::Name:
        return DecodeName(cursor, form.size);
    case Form::Kind::Info:
        return DecodeInfo(cursor);
    case Form::Kind::Byte:
    case Form::Kind::Block:
        return DecodeBytes(cursor, form);
    default:
        return DecodeResult(cursor);
    }
}

}

std::string RequestText::Of(const Ioctl& call)
{
    if (call.request >= EventDriver::FIRST_PIN && call.request <= EventDriver::LAST_PIN)
    {
        return std::string(PIN) + std::to_string(call.request) + " = " +
               std::to_string(static_cast<std::uint32_t>(call.argument)); // the callers pass 32 bits
    }
    if (IsName(call.request))
    {
        return std::string(NAME) + std::to_string(_IOC_SIZE(call.request));
    }
    return call.request == HIDIOCGRDESCSIZE ? std::string(DESCRIPTOR_SIZE)
           : call.request == HIDIOCGRAWINFO ? std::string(INFO)
                                            : std::string(IOCTL) + HexNumber(call.request, 1);
}

RequestText::Outcome RequestText::Given(const Ioctl& call, int result)
{
    const std::size_t size = result < 0                         ? 0
                             : call.request == HIDIOCGRDESCSIZE ? sizeof(int)
                             : call.request == HIDIOCGRAWINFO   ? sizeof(hidraw_devinfo)
                             : IsName(call.request)             ? static_cast<std::size_t>(result)
                                                                : 0;
    std::string stored(size, '\0');
    if (size > 0 && call.memory.Read(call.argument, stored.data(), size) != 0)
    {
        stored.clear();
    }
    return {result, stored};
}

std::string RequestText::OfSelection(std::uint64_t address, bool force)
{
    return std::string(SELECT) + HexNumber(address, 2) + (force ? std::string(BY_FORCE) : "");
}

std::string RequestText::OfTransfer(unsigned char slave, unsigned char direction, unsigned char reg,
                                    std::uint32_t type, const i2c_smbus_data& data)
{
    const std::string place = HexNumber(slave, 2) + ":" + HexNumber(reg, 2);
    const bool block = I2cPeripheral::IsBlock(type);
    const std::size_t count = I2cPeripheral::Count(direction, type, data);
    if ((direction != I2C_SMBUS_READ && direction != I2C_SMBUS_WRITE) ||
        (!block && type != I2C_SMBUS_BYTE_DATA) || count > I2C_SMBUS_BLOCK_MAX)
    {
        return std::string(TRANSFER) + place + ", direction " + std::to_string(direction) + ", type " +
               std::to_string(type);
    }
    if (direction == I2C_SMBUS_READ)
    {
        return std::string(READ) + place + (block ? ", " + std::to_string(count) + std::string(BYTES) : "");
    }
    const auto* const bytes = reinterpret_cast<const char*>(block ? data.block + 1 : &data.byte);
    return std::string(WRITE) + place + (count > 0 ? " " : "") + ByteText::Hex({bytes, count});
}

RequestText::Outcome RequestText::Given(unsigned char direction, std::uint32_t type, std::size_t count,
                                        const i2c_smbus_data& data, int error)
{
    if (error != 0 || direction != I2C_SMBUS_READ)
    {
        return {-error, {}};
    }
    return {0, Stored(data).substr(0, I2cPeripheral::IsBlock(type) ? count + 1 : 1)};
}

std::string RequestText::Encode(const std::string& request, const Outcome& outcome)
{
    if (outcome.result < 0)
    {
        return ErrorText(-outcome.result);
    }
    const Form form = FormOf(request).value_or(Form{});
    switch (form.kind)
    {
    case Form::Kind::DescriptorSize:
        return std::to_string(Loaded<int>(outcome.stored));
    case Form::Kind::Name:
        return "'" + outcome.stored.substr(0, outcome.stored.find('\0')) + "'";
    case Form::Kind::Info:
        return InfoText(Loaded<hidraw_devinfo>(outcome.stored));
    case Form::Kind::Byte:
        return ByteText::Hex(outcome.stored);
    case Form::Kind::Block:
        return BlockText(outcome.stored, form.size);
    default:
        return std::to_string(outcome.result);
    }
}

std::optional<RequestText::Outcome> RequestText::Decode(const std::string& request, const std::string& answer)
{
    const std::optional<Form> form = FormOf(request);
    if (!form)
    {
        return std::nullopt;
    }
    TextCursor cursor(answer);
    std::optional<Outcome> success = DecodeSuccess(cursor, *form);
    if (success && cursor.AtEnd())
    {
        return success;
    }
    const std::optional<int> error = ErrorOf(answer);
    return error ? std::optional(Outcome{-*error, {}}) : std::nullopt;
}

std::string RequestText::Channel(const std::string& request)
{
    return request.starts_with(PIN) ? request.substr(0, request.find(' ', PIN.size())) : "";
}

std::string_view RequestText::NameOf(const std::string& request)
{
    TextCursor cursor(request);
    const std::optional<std::uint64_t> pin = cursor.Take(PIN) ? cursor.TakeNumber() : std::nullopt;
    return pin && *pin <= EventDriver::LAST_PIN ? EventDriver::NameOf(static_cast<unsigned int>(*pin))
                                                : std::string_view();
}

}
