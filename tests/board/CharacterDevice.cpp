#include "tests/board/CharacterDevice.h"

#define FUSE_USE_VERSION 31

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cuse_lowlevel.h>
#include <fcntl.h>
#include <filesystem>
#include <fuse_opt.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/uio.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Board
{

namespace
{

/// The memory of the process that waits in an ioctl.
class WaitingMemory : public VirtualUnit::CallerMemory
{
public:
    explicit WaitingMemory(pid_t caller) : process(caller) {}

    int Read(std::uint64_t address, void* data, std::size_t size) override
    {
        const iovec local = {data, size};
        const iovec remote = {Pointer(address), size};
        return Result(process_vm_readv(process, &local, 1, &remote, 1, 0), size);
    }

    int Write(std::uint64_t address, const void* data, std::size_t size) override
    {
        const iovec local = {const_cast<void*>(data), size};
        const iovec remote = {Pointer(address), size};
        return Result(process_vm_writev(process, &local, 1, &remote, 1, 0), size);
    }

private:
    static void* Pointer(std::uint64_t address)
    {
        return reinterpret_cast<void*>(
            static_cast<std::uintptr_t>(address)); // NOLINT(performance-no-int-to-ptr)
    }

    static int Result(ssize_t count, std::size_t size)
    {
        return count < 0 ? errno : static_cast<std::size_t>(count) == size ? 0 : EFAULT;
    }

    pid_t process;
};

}

struct CharacterDevice::Operations
{
    static CharacterDevice& Of(fuse_req_t request)
    {
        return *static_cast<CharacterDevice*>(fuse_req_userdata(request));
    }

    static void Open(fuse_req_t request, fuse_file_info* file)
    {
        file->direct_io = 1;
        file->nonseekable = 1;
        fuse_reply_open(request, file);
    }

    static void Read(fuse_req_t request, std::size_t /*size*/, off_t /*offset*/, fuse_file_info* file)
    {
        CharacterDevice& device = Of(request);
        const std::lock_guard lock(device.access);
        if (device.messages.empty() && (file->flags & O_NONBLOCK) != 0)
        {
            fuse_reply_err(request, EAGAIN);
            return;
        }
        device.reads.push_back(request);
        fuse_req_interrupt_func(request, Interrupted, &device);
        device.AnswerReads();
    }

    static void Interrupted(fuse_req_t request, void* data)
    {
        auto& device = *static_cast<CharacterDevice*>(data);
        const std::unique_lock lock(device.access, std::try_to_lock); // it may be set from within Read()
        if (lock && std::erase(device.reads, request) > 0)
        {
            fuse_reply_err(request, EINTR);
        }
    }

    static void Ioctl(fuse_req_t request, int command, void* argument, fuse_file_info* /*file*/,
                      unsigned int /*flags*/, const void* /*input*/, std::size_t /*inputSize*/,
                      std::size_t /*outputSize*/)
    {
        WaitingMemory memory(fuse_req_ctx(request)->pid);
        const int result = Of(request).answerIoctl(static_cast<unsigned int>(command),
                                                   reinterpret_cast<std::uintptr_t>(argument), memory);
        if (result < 0)
        {
            fuse_reply_err(request, -result);
        }
        else
        {
            fuse_reply_ioctl(request, result, nullptr, 0);
        }
    }

    static void Poll(fuse_req_t request, fuse_file_info* /*file*/, fuse_pollhandle* handle)
    {
        CharacterDevice& device = Of(request);
        const std::lock_guard lock(device.access);
        if (handle != nullptr)
        {
            if (device.polling != nullptr)
            {
                fuse_pollhandle_destroy(device.polling);
            }
            device.polling = handle;
        }
        fuse_reply_poll(request, device.messages.empty() ? 0 : POLLIN | POLLRDNORM);
    }
};

CharacterDevice::CharacterDevice(const std::string& name, Ioctl answer)
    : answerIoctl(std::move(answer)), end(eventfd(0, EFD_CLOEXEC))
{
    static const cuse_lowlevel_ops OPERATIONS = [] {
        cuse_lowlevel_ops operations = {};
        operations.open = Operations::Open;
        operations.read = Operations::Read;
        operations.ioctl = Operations::Ioctl;
        operations.poll = Operations::Poll;
        return operations;
    }();
    const std::string named = "DEVNAME=" + name;
    const char* information[] = {named.c_str()};
    cuse_info info = {};
    info.dev_info_argc = 1;
    info.dev_info_argv = information;
    info.flags = CUSE_UNRESTRICTED_IOCTL;
    char program[] = "board";
    char foreground[] = "-f";
    char* arguments[] = {program, foreground, nullptr};
    int multithreaded = 0;
    session = cuse_lowlevel_setup(2, arguments, &info, &OPERATIONS, &multithreaded, this);
    if (session == nullptr)
    {
        throw std::system_error(EIO, std::generic_category(), "/dev/cuse");
    }
    fuse_remove_signal_handlers(session); // they are the program's
    thread = std::thread(&CharacterDevice::Serve, this);
    while (!std::filesystem::exists("/dev/" + name))
    {
        usleep(1000);
    }
}

CharacterDevice::~CharacterDevice()
{
    eventfd_write(end.Get(), 1);
    thread.join();
    fuse_session_destroy(session);
}

void CharacterDevice::Serve()
{
    std::array<pollfd, 2> files = {{{fuse_session_fd(session), POLLIN, 0}, {end.Get(), POLLIN, 0}}};
    fuse_buf buffer = {};
    while (poll(files.data(), files.size(), -1) >= 0 && files[1].revents == 0)
    {
        const int received = fuse_session_receive_buf(session, &buffer);
        if (received > 0)
        {
            fuse_session_process_buf(session, &buffer);
        }
        else if (received != -EINTR && received != -EAGAIN)
        {
            break; // the kernel has ended the connection
        }
    }
    std::free(buffer.mem); // NOLINT(cppcoreguidelines-no-malloc): the library's
}

void CharacterDevice::Send(std::string message)
{
    const std::lock_guard lock(access);
    messages.push_back(std::move(message));
    AnswerReads();
    if (polling != nullptr && !messages.empty())
    {
        fuse_lowlevel_notify_poll(polling);
        fuse_pollhandle_destroy(polling);
        polling = nullptr;
    }
}

void CharacterDevice::AnswerReads()
{
    while (!reads.empty() && !messages.empty())
    {
        fuse_req_interrupt_func(reads.front(), nullptr, nullptr);
        fuse_reply_buf(reads.front(), messages.front().data(), messages.front().size());
        messages.pop_front();
        reads.pop_front();
    }
}

}
