#ifndef DRIVERID_DRIVERID_H
#define DRIVERID_DRIVERID_H

#include "Serial/Serial.h"
#include "SerialProtocol/ISerialComm.h"
#include "base/Export.h"
#include "base/Tavbase/TavubufferDynamic.h"

#include <string>

namespace TavDevice
{

/**
 * The driver identification reader on "/dev/ttymxc2" (9600 baud), which reads the key that a driver presents,
 * and the record of the last driver ID on the storage card ("/mnt/sdcard/db/driver-id.json").
 *
 *     DriverId reader;
 *     std::string id;
 *     if (reader.Init() && reader.RequestDriverId(id) && !id.empty())
 *     {
 *         reader.SaveToFile(id);
 *     }
 *
 * Each command sends one frame and waits for its reply, three seconds at most. A failure is told by the
 * result and by one line in the log (and by the reason that ReadCmdMsg() writes to the console); nothing is
 * thrown.
 *
 * After a command whose reply could not be read, what the line still holds is dropped before the next one,
 * so that a reply that came too late is not taken for the next one's. One that comes while the next command
 * already waits cannot be told from that one's reply; it is taken for it, and the one after that is right
 * again.
 *
 * The port is opened by Init() and closed by Dispose() or the destructor. On a closed port commands fail
 * after the 600 ms that OnSend() goes on trying.
 *
 * Threads: no lock; an object belongs to one thread at a time. How long each operation holds it, and what
 * its results do not tell: docs/limits.md.
 */
class TAVDEVICE_API DriverId : public SerialProtocol::ISerialComm
{
public:
    /// Creates the directory of the record, with its parents. Where that fails, one line in the log says so
    /// and the record is not kept; the reader works all the same.
    DriverId();
    ~DriverId() override;

    /**
     * Opens the port and looks for the reader: five tries, 200 ms apart, of up to 3 s each. A reader that is
     * found has its driver ID reset. An open port is closed first.
     * @return true when the reader answered; otherwise the port is closed
     */
    bool Init();

    bool CheckDevicePresence(); ///< @return true when the reader acknowledges (command 0)

    /// Switches the reader's annoying mode on (command 1). @return true when it acknowledges; false at once
    /// unless Init() has found the reader some time before (which Dispose() and a pulled plug do not undo)
    bool StartAnnoying();
    bool StopAnnoying(); ///< the same for off (command 2)

    bool RequestDriverIdReset(); ///< @return true when the reader acknowledges (command 9)

    /**
     * Asks for the key that is presented (command 3).
     * @param id receives 12 upper-case hexadecimal digits, such as "00A1B2C3D4E5", or the empty text when no
     *           key is there; untouched on failure
     * @return true when the reader told either
     */
    bool RequestDriverId(std::string& id);

    void Dispose(); ///< closes the port; Init() opens it again

    /**
     * Loads the last driver ID.
     * @param id receives 12 characters; untouched when there are none
     * @return true when one was loaded
     */
    bool LoadFromFile(std::string& id);

    /// Stores a driver ID of 12 characters, and waits until it is on the card. Any other text, and
    /// "000000000000", removes the record instead.
    void SaveToFile(std::string& id);

    void RemoveFile(); ///< forgets the driver ID

    /// Sends a frame to the reader, by three tries, with 200 ms after each that fails. After a reply that
    /// could not be read, what the line holds is dropped first: 4096 bytes at most, without waiting.
    bool OnSend(TavubufferDynamic& frame) override;

    /// Takes what the port holds, without waiting. @return true when that filled the buffer to its capacity
    bool OnRead(TavubufferDynamic& buffer) override;

private:
    struct Layout; ///< checks the order of the fields

    /// What may still be on the line before a command.
    enum class Line : unsigned char
    {
        Clean,     ///< nothing
        Doubtful,  ///< the reply that could not be read
        Recovering ///< the reply of the last command, where that one took an earlier one's
    };

    bool ReadReply(unsigned int bytes); ///< ReadCmdMsg(), whose result decides what is thought of the line
    void DropLateReply();
    bool Acknowledged(); ///< decodes the reply that was received

    bool mPresent = false; ///< the reader has been found
    Line mLine = Line::Clean;
    Tavdevice::SerialPort::Serial mSerial;
    std::string mFileName;
    std::string mFilePath;
    bool mDirReady = true; ///< false when the directory of the record could not be created
};

/// Always true; kept for applications that call it.
TAVDEVICE_API bool RequestDeviceVersion();

}

#endif
