// What a program hands its supervisor: calls with any arguments, paths and structures that lie in its memory,
// or do not. Each is answered, nothing outside the card is made, and no device of the unit is left to the
// kernel.
//
// The first byte says how the card is, and each call follows: its place in the supervisor's list, and its
// arguments, each a byte that says what it is and the value. The whole input is the program's memory, too.

#include "tests/fuzz/Target.h"
#include "tests/kit/TempDir.h"
#include "virtual-unit/calls/CallSource.h"
#include "virtual-unit/calls/InterceptedCalls.h"
#include "virtual-unit/calls/Responder.h"
#include "virtual-unit/calls/StorageCard.h"
#include "virtual-unit/calls/UnitPath.h"
#include "virtual-unit/peripherals/EventDriver.h"
#include "virtual-unit/peripherals/HidBridge.h"
#include "virtual-unit/ports/DeviceTable.h"
#include "virtual-unit/ports/ServedDriver.h"
#include "virtual-unit/time/VirtualTime.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace VirtualTime
{

void Executes(pid_t /*thread*/)
{
    // no program is executed here
}

}

namespace
{

using namespace VirtualUnit;

constexpr std::uint64_t MEMORY = 0x10000; // where the program's memory begins

/// A program that makes calls, one after the other: it is this process, but for its memory.
class FuzzedProgram : public CallSource
{
public:
    explicit FuzzedProgram(std::string_view itsMemory) : memory(itsMemory) {}

    int Descriptor() const override { return -1; }

    std::optional<WaitingCall> Next() override { return call; }

    bool StillWaits(const WaitingCall& /*waiting*/) override { return true; }

    int ReadPath(const WaitingCall& /*waiting*/, std::uint64_t address, std::string& path) override
    {
        if (address < MEMORY || address - MEMORY >= memory.size())
        {
            return EFAULT;
        }
        const auto begin = static_cast<std::size_t>(address - MEMORY);
        const std::size_t end = memory.find('\0', begin);
        path = memory.substr(begin, end - begin);
        return path.size() >= PATH_MAX ? ENAMETOOLONG : end == std::string::npos ? EFAULT : 0;
    }

    int Read(const WaitingCall& /*waiting*/, std::uint64_t address, void* data, std::size_t size) override
    {
        if (!IsThere(address, size))
        {
            return EFAULT;
        }
        std::memcpy(data, memory.data() + (address - MEMORY), size);
        return 0;
    }

    int Write(const WaitingCall& /*waiting*/, std::uint64_t address, const void* data,
              std::size_t size) override
    {
        if (!IsThere(address, size))
        {
            return EFAULT;
        }
        std::memcpy(memory.data() + (address - MEMORY), data, size);
        return 0;
    }

    void Respond(const WaitingCall& /*waiting*/, const Answer& answer) override
    {
        ++answers;
        last = answer;
        FUZZ_REQUIRE(answer.type != Answer::Type::None && answer.type != Answer::Type::Again);
        FUZZ_REQUIRE(answer.error >= 0 && answer.error < 4096);
        if (answer.type == Answer::Type::Descriptor)
        {
            FUZZ_REQUIRE(close(answer.descriptor) == 0);
        }
    }

    WaitingCall call;
    int answers = 0;
    Answer last;

private:
    bool IsThere(std::uint64_t address, std::size_t size) const
    {
        return address >= MEMORY && address - MEMORY <= memory.size() &&
               size <= memory.size() - (address - MEMORY);
    }

    std::string memory;
};

std::uint64_t FuzzedArgument(Fuzz::Input& rest, const DeviceTable& table)
{
    const auto number = [&rest](std::size_t bytes) {
        std::uint64_t value = 0;
        const std::string_view text = rest.Bytes(bytes);
        std::memcpy(&value, text.data(), text.size());
        return value;
    };
    switch (rest.Byte() % 8)
    {
    case 0:
        return 0;
    case 1:
        return MEMORY + number(2);
    case 2:
        return static_cast<std::uint64_t>(AT_FDCWD);
    case 3: // a descriptor of a device
        return static_cast<std::uint64_t>(
            std::next(table.Served().begin(), rest.Byte() % 2)->second->Descriptor());
    case 4:
        return number(1);
    case 5:
        return number(4);
    case 6:
        return ~number(1);
    default:
        return number(8);
    }
}

std::unique_ptr<ServedDevice> ServedMessages(const std::shared_ptr<MessagePeripheral>& device)
{
    return std::make_unique<ServedDriver>(device);
}

/// A card, and a file beside it to which one of its links leads.
class CardBesideAFile
{
public:
    CardBesideAFile()
    {
        std::filesystem::create_directories(folder + "/card/directory");
        std::ofstream(folder + "/card/file") << "content";
        std::ofstream(folder + "/beside") << "beside";
        std::filesystem::create_symlink("../beside", folder + "/card/link");
    }

    ~CardBesideAFile()
    {
        std::error_code ignored;
        std::filesystem::permissions(folder + "/card", std::filesystem::perms::owner_all, ignored);
        std::filesystem::remove_all(folder, ignored);
    }

    CardBesideAFile(const CardBesideAFile&) = delete;
    CardBesideAFile& operator=(const CardBesideAFile&) = delete;

    std::string Directory() const { return folder + "/card"; }

    bool IsAlone() const ///< nothing beside the card has changed
    {
        std::ifstream file(folder + "/beside");
        const std::string content{std::istreambuf_iterator<char>(file), {}};
        const std::filesystem::directory_iterator entries(folder);
        return content == "beside" && std::distance(begin(entries), end(entries)) == 2;
    }

private:
    std::string folder = Kit::TempDir::Path() + "/of-the-unit";
};

/// An absolute path that is the unit's is never left to the kernel where a file is opened.
void RequireServed(FuzzedProgram& program, const InterceptedCall& call, const DeviceTable& table)
{
    std::string text;
    if (call.kind != InterceptedCall::Kind::Open ||
        program.ReadPath(program.call, program.call.arguments.at(static_cast<std::size_t>(call.path.index)),
                         text) != 0 ||
        !text.starts_with('/'))
    {
        return;
    }
    const UnitPath path(text);
    FUZZ_REQUIRE(program.last.type != Answer::Type::GoOn ||
                 !(path.IsOnCard() || path.LeavesCard() || table.BelongsToUnit(path.Text())));
}

}

FUZZ_TARGET(Calls)
{
    const InterceptedCalls calls;
    const CardBesideAFile files;
    const StorageCard card(files.Directory());
    DeviceTable table;
    table.Serve("/dev/hidraw0", ServedMessages(std::make_shared<HidBridge>()));
    table.Serve("/dev/tav_event", ServedMessages(std::make_shared<EventDriver>()));

    Fuzz::Input rest(input);
    const unsigned char how = rest.Byte();
    table.Card().Change([how](CardSlot::Condition& condition) {
        condition.readOnly = how % 2 != 0;
        condition.full = how / 2 % 2 != 0;
        condition.out = how / 4 % 2 != 0;
        condition.busy = how / 8 % 2 != 0;
    });
    FuzzedProgram program(input);
    Responder responder(program, calls, table, card,
                        [](const std::string& line) { FUZZ_REQUIRE(!line.empty()); });
    for (int made = 0; made < 20 && !rest.AtEnd(); ++made)
    {
        const InterceptedCalls::Numbered& numbered = calls.All()[rest.Byte() % calls.All().size()];
        program.call = {static_cast<std::uint64_t>(made), getpid(), numbered.number};
        for (std::uint64_t& argument : program.call.arguments)
        {
            argument = FuzzedArgument(rest, table);
        }
        const int before = program.answers;
        responder.AnswerNext();
        const bool waits = responder.NextDeadline().has_value();
        FUZZ_REQUIRE(program.answers == before + 1 || waits ||
                     numbered.call->kind == InterceptedCall::Kind::Ioctl);
        if (program.answers > before)
        {
            RequireServed(program, *numbered.call, table);
        }
    }
    FUZZ_REQUIRE(files.IsAlone());
}
