#ifndef VIRTUAL_UNIT_PORTS_SERIALLINE_H
#define VIRTUAL_UNIT_PORTS_SERIALLINE_H

#include "base/ThreadSafety.h"
#include "virtual-unit/peripherals/SerialPeripheral.h"

#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

namespace VirtualUnit
{

/**
 * A serial line with an emulated device at its far end: a pseudo terminal, and a thread that carries bytes
 * and time between it and the device. The application reads, writes, polls and sets the near end as it
 * would a UART.
 *
 * The device is switched on by Start(). Until then it does not run; from then on what it sends is kept for
 * the application, read or not, as far as the terminal's buffer (some 64 KiB) and MOST_WAITING bytes more go.
 *
 * The thread waits in poll() and takes the time from the steady clock, so that in a process whose C library
 * functions are stood in for it lives in their time. A wait is rounded up to whole milliseconds.
 *
 * Calling threads: any, but for Start(), Stop(), HangUp(), Renew(), Open(), Path() and ApplicationEnd(),
 * which belong to one thread.
 */
class SerialLine
{
public:
    static constexpr std::size_t MOST_WAITING = 4096;

    /**
     * Creates the terminal with the settings of a UART at 9600 baud, 8N1, but without echo: the device must
     * not hear itself before the application has made its own settings.
     * @param device stays the caller's and must outlive the line
     * @throws std::system_error when the system gives no pseudo terminal
     */
    explicit SerialLine(SerialPeripheral& device);
    SerialLine(const SerialLine&) = delete;
    SerialLine& operator=(const SerialLine&) = delete;
    ~SerialLine(); ///< stops; what the application has open is hung up

    void Start(); ///< begins to carry bytes and time; nothing when it runs, or after HangUp()
    void Stop();  ///< the device stands still, its time does not go on

    /// Stops and pulls the plug: reads of the application return 0 from now on. A line that runs does the
    /// same by itself when its device is not connected any more.
    void HangUp();

    /// Hangs up and becomes the host of the device anew, with another terminal: for a device that has been
    /// away and is back. @throws std::system_error when the system gives none; the line then stays hung up
    void Renew();

    bool HungUp() const;

    /**
     * Opens the application's end anew.
     * @param flags as for open(); O_NOCTTY is added
     * @return the descriptor, the caller's to close; -1 and errno on failure
     */
    int Open(int flags) const;

    const std::string& Path() const { return path; } ///< of the application's end, "/dev/pts/N"

    /// Open descriptors of both ends, the line's own: for settings and queues, and for a test that has to see
    /// what is on its way between them. Each belongs to the line; -1 for the device's end after HangUp().
    int ApplicationEnd() const { return slave; }

    int DeviceEnd() const;

    /// How much the application has sent that a device with a stuck line has not taken; 0 for any other
    /// device.
    std::size_t BytesNotTaken() const;

    /// Runs `function` while the device stands still, for example to change its faults or to restart it.
    /// The device's deadlines are looked at anew afterwards.
    template <class Function>
    auto Locked(Function&& function)
    {
        const Relook relook{*this}; // after the lock is given back
        const std::lock_guard lock(access);
        return std::forward<Function>(function)();
    }

    void
    WriteRaw(std::string_view bytes); ///< lets the application receive bytes that the device did not send

    std::string
    ReceivedText() const;          ///< what the application sent since the line was created, the last 64 KiB
    std::size_t LostBytes() const; ///< how many bytes found no room and were dropped, the oldest first

private:
    struct Relook
    {
        SerialLine& line;

        ~Relook() { line.Wake(); }
    };

    void OpenTerminal() TAV_REQUIRES(access);
    void CloseTerminal() TAV_REQUIRES(access);
    void Carry();
    void ReadMaster() TAV_REQUIRES(access);
    void Write(std::string_view bytes) TAV_REQUIRES(access);
    void FlushWaiting() TAV_REQUIRES(access);
    void Wake() const;

    int slave = -1; ///< kept open: without it the device's end would be hung up between two applications
    int wake = -1;  ///< an eventfd, readable when the thread has to look anew
    std::string path;

    mutable std::mutex access; ///< guards the device and everything below
    SerialPeripheral& peripheral TAV_GUARDED_BY(access);
    int master TAV_GUARDED_BY(access) = -1;     ///< the device's end
    std::string waiting TAV_GUARDED_BY(access); ///< sent by the device, not taken by the terminal yet
    std::string received TAV_GUARDED_BY(access);
    std::size_t lostBytes TAV_GUARDED_BY(access) = 0;
    bool ending TAV_GUARDED_BY(access) = false;

    std::thread thread;
};

}

#endif
