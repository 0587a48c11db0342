#ifndef TESTS_BOARD_CHARACTERDEVICE_H
#define TESTS_BOARD_CHARACTERDEVICE_H

#include "virtual-unit/common/Descriptor.h"
#include "virtual-unit/peripherals/CallerMemory.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct fuse_session;
struct fuse_pollhandle;
struct fuse_req;

namespace Board
{

/**
 * A character device of the kernel whose driver is this process (CUSE).
 *
 * Calling threads: any, but for the callback, which comes on the device's own thread.
 */
class CharacterDevice
{
public:
    /// @return what the ioctl returns; below 0: a negated errno
    using Ioctl =
        std::function<int(unsigned long request, std::uint64_t argument, VirtualUnit::CallerMemory& memory)>;

    /// @param name "tav_event" for /dev/tav_event, which is there when the constructor is done
    /// @throws std::system_error
    CharacterDevice(const std::string& name, Ioctl answer);
    CharacterDevice(const CharacterDevice&) = delete;
    CharacterDevice& operator=(const CharacterDevice&) = delete;
    ~CharacterDevice(); ///< the node goes; who has it open is hung up

    void Send(std::string message); ///< one read of whoever has it open

    struct Operations; ///< what the kernel calls

private:
    void Serve();
    void AnswerReads();

    Ioctl answerIoctl;
    VirtualUnit::Descriptor end; ///< an eventfd
    fuse_session* session = nullptr;
    std::mutex access; ///< guards what follows
    std::deque<std::string> messages;
    std::deque<fuse_req*> reads; ///< that wait for a message
    fuse_pollhandle* polling = nullptr;
    std::thread thread;
};

}

#endif
