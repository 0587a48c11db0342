#ifndef TESTS_KIT_MESSAGEDEVICE_H
#define TESTS_KIT_MESSAGEDEVICE_H

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace Kit
{

/**
 * A device of the unit that is no serial line: an I2C adapter, a HID bridge, the event driver. Its reads and
 * writes carry whole messages, and the test answers its ioctls.
 *
 * It is made before the library opens it and outlives every descriptor that the library has of it. All of
 * them are one device: what one of them reads, the others do not get.
 */
class MessageDevice
{
public:
    /**
     * Answers an ioctl, on the thread that makes it.
     * @param argument the request's third argument: the caller's memory, or a number
     * @return the ioctl's result; below 0 a negated errno
     */
    using Answer = std::function<int(unsigned long request, void* argument)>;

    explicit MessageDevice(std::string device);               ///< refuses every ioctl: ENOTTY
    MessageDevice(std::string device, Answer answerToIoctls); ///< for example "/dev/i2c-1"
    ~MessageDevice();
    MessageDevice(const MessageDevice&) = delete;
    MessageDevice& operator=(const MessageDevice&) = delete;

    void Send(std::string_view message); ///< is what one read of the library gives; not empty

    /// What each write of the library held since the last call, oldest first.
    std::vector<std::string> Received();

    void HangUp(); ///< the other end goes away for good: a read gives nothing from now on

    // For the kit's stand-ins.

    static MessageDevice* At(const char* device); ///< null when there is none under that path
    int Open(int flags) const;                    ///< a new descriptor of the device
    int Ioctl(unsigned long request, void* argument) const;

private:
    std::string path;
    Answer answer;
    int testEnd = -1;
    int libraryEnd = -1;
};

}

#endif
