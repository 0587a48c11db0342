#include "virtual-unit/ports/ServedSerialLine.h"

#include <cerrno>
#include <sys/ioctl.h>
#include <system_error>

namespace VirtualUnit
{

int ServedSerialLine::Open(int flags)
{
    const bool cameBack =
        line.Locked([this] { return peripheral->IsPlugged() && !peripheral->IsConnected(); });
    if (cameBack)
    {
        try
        {
            line.Renew();
        }
        catch (const std::system_error& failure)
        {
            errno = failure.code().value();
            return -1;
        }
    }
    line.Start();
    return line.Open(flags);
}

std::optional<ServedDevice::IoctlResult> ServedSerialLine::Ioctl(unsigned long request,
                                                                 std::uint64_t argument, CallerMemory& memory)
{
    constexpr std::chrono::milliseconds LOOK_INTERVAL{100};
    const auto notTaken = static_cast<int>(line.BytesNotTaken());
    if (notTaken == 0)
    {
        return std::nullopt;
    }
    if (request == TIOCOUTQ)
    {
        return IoctlResult{-memory.Write(argument, &notTaken, sizeof(notTaken))};
    }
    return IoctlResult{0, LOOK_INTERVAL, true}; // it waits until all is taken
}

bool ServedSerialLine::Exists() const
{
    return line.Locked([this] { return peripheral->IsPlugged(); });
}

}
