#ifndef SENSORS_BUZZER_BUZZERSERIAL_H
#define SENSORS_BUZZER_BUZZERSERIAL_H

#include "Sensors/Alerter.h"
#include "Serial/Serial.h"
#include "base/Export.h"

#include <string>

namespace Tavdevice
{

/**
 * A buzzer board on the USB-serial adapter "/dev/serial/by-id/usb-1a86_USB2.0-Serial-if00-port0" (115200
 * baud), which is driven by lines typed at its prompt.
 *
 * Each operation that opens the board waits for its answer without a limit: a board that takes its commands
 * and never answers holds the caller. One that does not even take them within half a second is not there: one
 * error line says so ("BUZZER TAKES NO OUTPUT").
 *
 * The closing waits half a second at most for the board to take the last command; what is left is dropped.
 */
class TAVDEVICE_API BuzzerSerial : public Alerter
{
public:
    BuzzerSerial();
    ~BuzzerSerial() override; ///< closes the port

    /**
     * Opens the port, resets the board's command line and waits for the answer to the presence command. Sets
     * `isPresent` to whether that went well; what the board answered is not looked at. An open port is closed
     * first.
     * @return false when there is no adapter, it cannot be opened or set up, or takes no output; the port is
     *         then closed, but for one that refused its settings
     */
    bool Open() override;
    bool Close() override; ///< closes the port, unless no alert device is present @return false on failure

    /// Sounds for 500 ms at level 1, 2000 ms at level 3, 1000 ms at any other. @return as BuzzDevice()
    bool Alert() override;
    bool CheckPresence() override;

    /**
     * Opens the board, has it sound, and closes it; the board goes on by itself.
     * @param count    how many times
     * @param duration in milliseconds
     * @return false when an alert is being played, or the board is not there; true does not tell that it
     *         sounded (docs/limits.md)
     */
    bool BuzzDevice(int count, int duration);

    void SendSTX();       ///< one control byte, 0x02
    void SendETX();       ///< 0x03
    void SendEOT();       ///< 0x04
    void ResetSequence(); ///< the control bytes that bring the board back to its prompt

    /// The board's output inside a reply, which begins with its marker "OMSGS" and one separator, and has one
    /// before the marker "OMSGE". @return empty without both markers, or with nothing between them
    std::string UnpackOutput(std::string& text);

    std::string SplitLastLine(std::string& text); ///< the last line of a text, without its line end

private:
    struct Layout; ///< checks the order of the fields

    void SendByte(unsigned char byte);
    void SendLine(const std::string& command);
    bool OutputTaken(); ///< false when the board takes none: it is then closed and not present
    void AwaitReply();  ///< takes bytes until the board's output has ended

    SerialPort::Serial port;

public:
    int defaultCount = 1;      ///< for the application's use, as arguments of BuzzDevice()
    int defaultDuration = 500; ///< in milliseconds
};

}

#endif
