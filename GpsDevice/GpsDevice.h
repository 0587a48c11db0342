#ifndef GPSDEVICE_GPSDEVICE_H
#define GPSDEVICE_GPSDEVICE_H

#include "Serial/Serial.h"
#include "base/Export.h"
#include "base/Tavbase/Interfaces/IError.h"
#include "base/Tavbase/Interfaces/IThread.h"
#include "base/Tavbase/TavubufferDynamic.h"

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

namespace Tavdevice::GpsDevice
{

/**
 * The GPS receiver on "/dev/ttymxc0" (9600 baud): a Quectel L26 or an SKM53.
 *
 * The thread finds out which of the two is fitted, switches GLONASS off, and then reads NMEA 0183 text and
 * hands it to the application in blocks, one for each RMC sentence (one a second). Nothing is parsed here:
 * the raw text is the product.
 *
 *     GpsDevice gps;
 *     IThread::IThreadDelegate* receiver = &mine;
 *     gps.Prepare(receiver);
 *     gps.Start();
 *     ...
 *     gps.Stop();
 *
 * What a receiver's ThreadCallback() gets: a pointer to a zero-terminated text (`const char*`), valid only
 * during the call. It is either one block, sentence after sentence with the line ends that the module
 * sends, or the empty text after each second without input and each failed read.
 *
 * A block of an L26 begins with its RMC sentence (and the first one holds what arrived before the first
 * RMC); a block of an SKM53 ends with it. Without an RMC sentence the text gathers without a limit, up to
 * 3.4 MB an hour, and no receiver is called meanwhile. Text that was begun outlives Stop(): the first block
 * after the next Start() begins with it.
 *
 * When the port cannot be opened, the error record says why, and the thread ends by itself at its first
 * step. A line that hung up is not opened again: make a new object.
 *
 * Calling threads: Prepare(), Start() and Stop() belong to the application's thread; Prepare() and
 * FindDeviceType() must not be called while the thread runs. Receivers are called on the thread of the
 * device and delay the next read, and Stop(). The error record may be read from any thread. Times and traps:
 * docs/limits.md.
 */
class TAVDEVICE_API GpsDevice : public Tavbase::Interfaces::IThread, public Tavbase::Interfaces::IError
{
public:
    /// Which module is fitted.
    enum class Module : std::int32_t
    {
        L26 = 0, ///< also the assumption when nothing is recognised
        SKM53 = 1
    };

    GpsDevice();
    ~GpsDevice() override; ///< ends the thread, closes the port

    /**
     * Opens the port and registers the receiver, which stays the caller's and must outlive the thread. On
     * an open port it does nothing, and the receiver is not registered. Whether it worked is told by the
     * error record (HasError(), GetErrorMessage()).
     *
     * The receiver is registered even when the port cannot be opened. A later attempt would register it a
     * second time, and it would then be called twice: pass a null pointer, which is not registered.
     */
    void Prepare(IThreadDelegate*& delegate);

    /// Discards unread input, finds out the module and switches GLONASS off: up to some six seconds. A stop
    /// ends that with the present read, a second at most; nothing is then said of the module, and GLONASS may
    /// stay on until the next start.
    /// @return always 1
    int RunBefore() override;
    /// One read of at most one second, and what follows from it; after a failed read a pause of a second.
    void Run() override;
    void RunAfter() override;

    /**
     * The check sum of an NMEA 0183 sentence: the exclusive or of all bytes between the first '$' and the
     * first '*'. Prints "========= CalculateCheckSum: " and the sum in two hexadecimal digits to standard
     * output, without a line end.
     * @param text zero-terminated
     * @return 0 to 255; 0 and nothing printed when there is no '$'; 0 when there is no '*' behind it
     */
    unsigned int CalculateCheckSum(char* text);

    /// Finds out the module by listening alone, three seconds at most; the port must be open.
    void FindDeviceType();

    /// Reports in the log that the module has started anew, as its latest text tells (PMTK010 and PMTK011
    /// messages). After 5000 reports in the life of the process it is silent.
    void FindDeviceReset();

    /// Asks for the firmware release (PMTK605), listens, and switches GLONASS off (PMTK353). @return always 1
    int CheckL26Gps();

    Module GetModule() const { return module; } ///< valid once RunBefore() or FindDeviceType() has returned

private:
    bool SentenceContains(std::string_view text) const;
    bool ReadText(std::string& text); ///< one read of at most one second; false when it failed
    void IdentifyModule();            ///< the first listening period, after the query
    void AwaitSelection();            ///< the second one, after GLONASS was switched off

    struct Layout; ///< checks the order of the fields

    TavubufferDynamic readBuffer;
    SerialPort::Serial serial;
    bool portOpen = false;
    std::string block;           ///< text since the last hand-over
    std::string currentSentence; ///< text of the latest read
    std::string spareText;       ///< never used; part of the object's layout
    std::int32_t logInterval = 120;
    std::uint64_t blockCounter = 0;
    std::int32_t detectionTimeout = 3; ///< seconds
    std::atomic<Module> module{Module::L26};
};

}

#endif
