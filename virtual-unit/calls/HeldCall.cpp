#include "virtual-unit/calls/HeldCall.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>

namespace VirtualUnit
{

std::string HeldCall::LinkOf(std::uint64_t descriptor) const
{
    return "/proc/" + std::to_string(Thread()) + "/fd/" + std::to_string(static_cast<int>(descriptor));
}

std::uint64_t HeldCall::OwnSize(int offset) const
{
    if (sizeof(long) == sizeof(std::uint64_t) || call.size == InterceptedCall::Size::Word)
    {
        return OwnArgument(offset);
    }
#ifdef __arm__
    constexpr bool ALIGNS = true;
#else
    constexpr bool ALIGNS = false;
#endif
    int index = call.argument + offset;
    index += ALIGNS && call.size == InterceptedCall::Size::AlignedPair ? index % 2 : 0;
    constexpr int HALF = 32;
    return Argument(index) | Argument(index + 1) << HALF;
}

int HeldCall::ReadPath(const InterceptedCall::NamedPath& where, std::string& path) const
{
    path.clear();
    if (where.index == InterceptedCall::NONE)
    {
        return 0;
    }
    return Kind() == InterceptedCall::Kind::Socket ? ReadSocketPath(where.index, path)
                                                   : source.ReadPath(request, Argument(where.index), path);
}

int HeldCall::ReadSocketPath(int index, std::string& path) const
{
    sockaddr_un address = {};
    const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(Argument(index + 1), sizeof(address)));
    const int error = Read(Argument(index), &address, size);
    if (error == 0 && address.sun_family == AF_UNIX)
    {
        path.assign(address.sun_path, strnlen(address.sun_path, sizeof(address.sun_path)));
    }
    return error;
}

int HeldCall::Read(std::uint64_t address, void* data, std::size_t size) const
{
    return source.Read(request, address, data, size);
}

int HeldCall::Write(std::uint64_t address, const void* data, std::size_t size) const
{
    return source.Write(request, address, data, size);
}

int HeldCall::ReadOpenHow(open_how& how) const
{
    if (Kind() == InterceptedCall::Kind::Open)
    {
        how = {OwnArgument(), OwnArgument(1), 0};
        return 0;
    }
    return OwnArgument(1) < sizeof(how) ? EINVAL : Read(OwnArgument(), &how, sizeof(how));
}

Answer HeldCall::Store(const void* data, std::size_t size, std::uint64_t address) const
{
    return Answer::Error(Write(address, data, size));
}

}
