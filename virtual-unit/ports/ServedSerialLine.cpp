#include "virtual-unit/ports/ServedSerialLine.h"

#include <cerrno>
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

bool ServedSerialLine::Exists() const
{
    return line.Locked([this] { return peripheral->IsPlugged(); });
}

}
