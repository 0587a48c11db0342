#ifndef SERIAL_SERIAL_H
#define SERIAL_SERIAL_H

#include "base/Export.h"
#include "base/Tavbase/Interfaces/IError.h"
#include "base/Tavbase/TavubufferDynamic.h"

#include <chrono>
#include <string>
#include <sys/types.h>
#include <termios.h>

namespace Tavdevice::SerialPort
{

/**
 * One serial line: a UART of the board or a USB-serial adapter, with 8 data bits, no parity, one stop bit,
 * no flow control and no echo.
 *
 * Failures are reported by the result and recorded in the error record with the system's reason; those of
 * Open() and of the wait in Read() also by one line in the log. Nothing is thrown.
 *
 * An open port is closed by Close() or by the destructor. A copy shares the descriptor: copy a port before
 * it is opened, since whichever of the two is destroyed first closes the line for both.
 *
 * A descriptor of 0 counts as not open, even where the system hands it out. Programs that the application
 * starts inherit an open port.
 *
 * A read in line mode, and any output to a device that takes none, waits without a limit; a hang-up ends it
 * (docs/limits.md has the times).
 *
 * Threads: no lock; a port belongs to one thread at a time. The error record may be read from any.
 */
class TAVDEVICE_API Serial : public Tavbase::Interfaces::IError
{
public:
    /**
     * Names the line; does not touch it.
     * @param path  the device file, for example "/dev/ttymxc0"
     * @param speed the speed code of <termios.h>, for example B9600 (a code, not a number of baud)
     */
    Serial(std::string path, unsigned int speed);
    Serial(const Serial& other) = default;            ///< shares the descriptor
    Serial& operator=(const Serial& other) = default; ///< shares the descriptor; its own is lost
    ~Serial() override;

    /**
     * Opens the line and sets it up for the present `mode` and `timeout`; unread input is discarded.
     *
     * A port that is open already is opened a second time, and its former descriptor stays open without
     * an owner: Close() it first. When the settings cannot be read or made, the descriptor stays open
     * until Close().
     * @return false when the device cannot be opened or set up
     */
    bool Open();

    /// Up to 30 s while the device does not take what is still to go out.
    /// @return false when the port is not open, or could not be closed (it then stays open)
    bool Close();

    /**
     * Sends bytes, by one system call.
     * @return false for a null pointer, no bytes, a port that is not open or a failed write. A write that
     *         took only a part counts as sent.
     */
    bool Send(unsigned char* data, unsigned int length);

    bool Send(TavubufferDynamic& buffer); ///< sends the buffer's `length` bytes (its low 32 bits)

    /**
     * Takes what is there, at most 256 bytes, as the reading mode has it.
     * @param text replaced by the bytes up to the first zero byte; untouched on failure
     * @return false when nothing was read
     */
    bool Read(std::string& text);

    /**
     * Takes what is there, at most the buffer's `capacity`, by one read: a message may come in parts.
     * @param buffer  receives the bytes; its `length` is 0 when there were none
     * @param seconds how long to wait for the first byte; 0 or less: as the reading mode has it
     * @return true with bytes, and true with `length` 0 when the time ran out; false on an error, at the
     *         end of the line, when the port is not open or the buffer has no storage (`length` is then
     *         left as it was)
     */
    bool Read(TavubufferDynamic& buffer, int seconds);

    /**
     * Reads one byte, as the reading mode has it, without a look at whether the port is open.
     * @return true when `c` holds one
     */
    bool ReadLoop(char* c);

    /// Waits until all output has been sent, without a limit.
    /// @return 0, or -1 on an error; 0 or less at once when not open
    int Drain();

    void Flush(); ///< discards unread input, then waits until all output has been sent

    /**
     * Waits until the device has taken all output, where Drain() and Flush() would wait for ever: a device on
     * USB can be there and take nothing.
     * @param limit 24 hours at most; 0 or less: one look
     * @return false when there is still some at the limit; true at once when the port is not open, or its
     *         driver does not tell
     */
    bool AwaitOutput(std::chrono::milliseconds limit);

    /**
     * From now on the closing of this line drops what the device has not taken, where a driver waits for it
     * otherwise, half a minute as a rule. The setting is the line's own: it outlives Close() and holds for
     * whoever else has it open. AwaitOutput() first is what keeps the last bytes.
     * @return false when the port is not open, or its driver does not allow that; nothing is then changed
     */
    bool CloseWithoutWaiting();

private:
    struct termios config = {}; ///< the settings last read from and written to the device
    int fd = 0;
    std::string device;
    unsigned int baud;

public:
    /**
     * How reads return; set before Open().
     *   1  raw: whatever is there, at once or after `timeout`
     *   2  whole lines; a carriage return is read as a new line
     *   3  whole lines; a line may be empty
     *   0 and any other: whole lines
     */
    int mode = 0;

    /**
     * The read time-out of mode 1 in seconds, 0 for none; set before Open(). The device keeps it in tenths
     * of a second in eight bits, so that values above 25 wrap.
     */
    int timeout = 0;

private:
    struct Layout; ///< checks the order of the fields

    bool FailedRead(ssize_t result, const char* where);
    bool Fail(const char* message, const char* where);   ///< logs and records the present errno; false
    bool Record(const char* message, const char* where); ///< records the present errno; false
};

}

#endif
