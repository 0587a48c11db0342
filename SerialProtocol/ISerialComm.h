#ifndef SERIALPROTOCOL_ISERIALCOMM_H
#define SERIALPROTOCOL_ISERIALCOMM_H

#include "SerialProtocol/ISerialCommInterface.h"
#include "base/Export.h"
#include "base/Tavbase/TavubufferDynamic.h"

namespace SerialProtocol
{

/**
 * Request and response with a peripheral on a serial line: a command frame goes out, a response frame comes
 * in (Frame.h tells their layout). The line itself is the derived class's, which overrides OnSend() and
 * OnRead().
 *
 *     if (SendCmdMsg(0x00) && ReadCmdMsg(10))
 *     {
 *         const int result = ParseRcvMsg(nullptr);
 *     }
 *
 * A reply that comes after its ReadCmdMsg() has given up stays on the line and is taken for the reply of the
 * next command, and that one's for the one after it, and so on: nothing in a frame tells which command it
 * answers. A derived class whose line keeps input drops it in OnSend(), before the frame, when the last
 * reading failed (TavDevice::DriverId does).
 *
 * Failures are told by the result; those of ReadCmdMsg() by one line on the console's log besides. No
 * operation of this class throws of its own, but for the constructor, when there is no memory; SendCmdMsg()
 * passes on what OnSend() throws (docs/limits.md).
 *
 * Threads: no lock; an object belongs to one thread at a time.
 */
class TAVDEVICE_API ISerialComm : public ISerialCommInterface
{
public:
    ISerialComm();
    ISerialComm(const ISerialComm&) = delete;
    ISerialComm& operator=(const ISerialComm&) = delete;
    ~ISerialComm() override;

    /**
     * To be overridden: sends a frame.
     * @param frame `length` bytes at `data`; stays the caller's
     * @return true when it has been sent; here false
     */
    bool OnSend(TavubufferDynamic& frame) override;

    /**
     * To be overridden: takes one byte from the line, without a long wait. An exception that leaves it ends
     * the ReadCmdMsg() that called it, which reports it.
     * @param buffer has a capacity of 1; receives the byte
     * @return true when the buffer holds one; here false
     */
    bool OnRead(TavubufferDynamic& buffer) override;

    /// Sends the frame of a command through OnSend(). @return what that returned @throws what that throws
    bool SendCmdMsg(unsigned char command) override;

    /**
     * Receives one response frame through OnRead(), asking again every 100 ms while there is no byte, for
     * three seconds at most. What comes before the frame's first byte (0xAA) is dropped.
     * @param expected the frame's length in bytes, 4 to 17
     * @return true when a frame of that length came whose CRC is accepted (FrameIsAccepted()). False after a
     *         time-out, a frame that is shorter or longer, a wrong CRC and an exception of OnRead(), each
     *         told by an error line on the console alone; false at once, without a line, above 17.
     */
    bool ReadCmdMsg(unsigned int expected) override;

    /**
     * Decodes the response that ReadCmdMsg() received. Once decoded it is forgotten; a result of 5, and of -1
     * for want of `out`, leaves it in place.
     * @param out room for the 6 bytes of an identifier, which is written the last byte of the frame's first;
     *            null when none is wanted
     * @return 0 acknowledged; 1 a status (GetLastStatus()); 2 no identifier is present; 3 an identifier, in
     *         `out`; -1 an identifier without `out`, or an error that the peripheral reports (types 0x60 and
     *         0x99), which is printed to standard output as "ERROR FROM DRIVER ID...", the type as a decimal
     *         number and "...", without a line end; 5 anything else
     */
    int ParseRcvMsg(unsigned char* out) override;

    void ClearBuffers(); ///< forgets what was received and sent last

    unsigned char GetLastStatus() const { return lastStatus; } ///< of the latest status response; 0 at first

    /**
     * The CRC of the frames; see Crc16.h.
     * @param init 0, or the CRC of the bytes before these
     * @param data `length` bytes; may be null when there are none
     */
    static unsigned short crc16(unsigned short init, unsigned char* data, unsigned char length);

    /**
     * The byte that two hexadecimal digits stand for, the high half first. Only 0 to 9 and the lower-case a
     * to f are understood; anything else gives some byte.
     * @param pair two characters
     */
    static unsigned char Ascii2Byte(char* pair);

private:
    struct Layout; ///< checks the order of the fields

    void Receive(unsigned int expected); ///< @throws IException when no acceptable frame came

    unsigned char lastStatus = 0;
    TavubufferDynamic txBuffer;
    TavubufferDynamic rxBuffer; ///< its capacity is the length of the frame that was expected last
};

}

#endif
