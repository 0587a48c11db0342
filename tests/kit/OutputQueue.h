#ifndef TESTS_KIT_OUTPUTQUEUE_H
#define TESTS_KIT_OUTPUTQUEUE_H

#include <atomic>
#include <chrono>
#include <map>
#include <string>
#include <string_view>

namespace Kit
{

/**
 * What a pseudo terminal does not have: the driver of a USB line, which keeps output until the device takes
 * it. A device that takes none holds whoever drains its line, for ever, and whoever closes it, for the line's
 * closing wait (30 s unless it is set to none), all in virtual time. What is left at the closing is lost.
 *
 * It is made beside a Terminal, before the library opens that, and outlives the library's descriptors. One
 * line of a test has one; its calls come from one thread.
 */
class OutputQueue
{
public:
    static constexpr std::chrono::milliseconds NEVER{-1};

    /// @param lag how long the device needs to take what is written; NEVER: it takes nothing
    OutputQueue(std::string device, std::chrono::milliseconds lag);
    ~OutputQueue();
    OutputQueue(const OutputQueue&) = delete;
    OutputQueue& operator=(const OutputQueue&) = delete;

    void Refuse(unsigned long request, int error); ///< from now on the ioctl fails with that errno

    void TakeAfter(std::chrono::milliseconds lag) { taking = lag; } ///< holds for what is written from now on

    // For the kit's stand-ins.

    static OutputQueue* Of(const char* device); ///< null when that has none
    void Write(int fd, std::string_view bytes);
    bool Answers(unsigned long request) const;
    int Ioctl(int fd, unsigned long request, void* argument);
    void Drain(int fd);
    void Close(int fd);

private:
    void Deliver(int fd); ///< what the device has taken by now
    void Wait(int fd, std::chrono::nanoseconds limit);

    std::string path;
    std::atomic<std::chrono::milliseconds> taking;
    std::chrono::nanoseconds takenAt{0}; ///< of what is in the queue
    std::string queue;
    std::map<unsigned long, int> refused;
    unsigned short closingWait = 3000; ///< hundredths of a second, as the kernel has it
};

}

#endif
