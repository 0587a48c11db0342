#include "virtual-unit/calls/ApplicationMemory.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <sys/uio.h>
#include <unistd.h>

namespace VirtualUnit::ApplicationMemory
{

namespace
{

void* Pointer(std::uint64_t address)
{
    // An address of the other process; never followed here.
    return reinterpret_cast<void*>(address); // NOLINT(performance-no-int-to-ptr)
}

}

int ReadPath(pid_t thread, std::uint64_t address, std::string& path)
{
    // In two parts that meet at a page boundary: the second page need not be there when the text ends before
    // it.
    const auto pageSize = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
    const std::uint64_t toBoundary = pageSize - address % pageSize;
    std::array<char, PATH_MAX> text;
    const auto first = static_cast<std::size_t>(std::min<std::uint64_t>(toBoundary, text.size()));
    const iovec local = {text.data(), text.size()};
    const std::array<iovec, 2> remote = {
        {{Pointer(address), first}, {Pointer(address + first), text.size() - first}}};
    const ssize_t count = process_vm_readv(thread, &local, 1, remote.data(), remote.size(), 0);
    if (count < 0)
    {
        return errno;
    }
    const std::size_t length = strnlen(text.data(), static_cast<std::size_t>(count));
    if (length == static_cast<std::size_t>(count))
    {
        return length == text.size() ? ENAMETOOLONG : EFAULT;
    }
    path.assign(text.data(), length);
    return 0;
}

int Read(pid_t thread, std::uint64_t address, void* data, std::size_t size)
{
    const iovec local = {data, size};
    const iovec remote = {Pointer(address), size};
    const ssize_t count = process_vm_readv(thread, &local, 1, &remote, 1, 0);
    return count < 0 ? errno : static_cast<std::size_t>(count) == size ? 0 : EFAULT;
}

int Write(pid_t thread, std::uint64_t address, const void* data, std::size_t size)
{
    const iovec local = {const_cast<void*>(data), size};
    const iovec remote = {Pointer(address), size};
    const ssize_t count = process_vm_writev(thread, &local, 1, &remote, 1, 0);
    return count < 0 ? errno : static_cast<std::size_t>(count) == size ? 0 : EFAULT;
}

}
