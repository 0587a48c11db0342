#ifndef MODEM_MODULE3G_H
#define MODEM_MODULE3G_H

#include "Modem/Module3GSignalStatus.h"
#include "Modem/Operator.h"
#include "Modem/PreferredOperator.h"
#include "base/Export.h"
#include "base/ThreadSafety.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <ctime> // for applications that have relied on it
#include <list>
#include <mutex>
#include <poll.h>
#include <string>

namespace Tavdevice::Modem
{

/**
 * How many selection commands SetOperator() may still send in the life of the process, and one. Writable:
 * an application that has to select again raises it.
 */
extern TAVDEVICE_API int NR_OF_TRIES;

/// What CheckModulePresence() looks for in the output of "lsusb": the begin of the module's USB identifier.
extern TAVDEVICE_API std::string Bus_Module3G;

/**
 * The cellular module: a Quectel UMTS/HSPA module on USB, driven by AT commands (3GPP TS 27.007, and the
 * module's own, which begin with AT+Q).
 *
 *     if (Module3G::QueryModuleIMEI() == 0 && Module3G::IsRegistered())
 *     {
 *         use(Module3G::m3gIMEI);
 *     }
 *
 * Each operation is one exchange or a few: open the USB interface, write the command, gather the reply,
 * close the interface. Nothing stays open in between. There is one modem in the process: the results are
 * static members, whatever number of objects exist; an object only remembers CheckModulePresence(), and can
 * be neither copied nor moved.
 *
 * A module that takes no command holds the caller for the time of the exchange, not for the closing wait of
 * its line (30 s): each exchange sets that to none, where the driver allows it. OpenPort() does not.
 *
 * An operation reports failure by its result, as each tells. One exception is common to all that exchange:
 * Tavbase::IException with code -1 when the interface refuses its line settings; its text is also printed
 * to standard output, and the descriptor stays open. What else throws says so; IsRegistered() does.
 *
 * A reply that comes after its exchange has ended counts for the next one: the same command then gets the
 * old answer, another one fails or gets none of its own. After a failure that was a silence let a second
 * pass and ask once more before a result counts. docs/limits.md has the times and the other traps.
 *
 * Texts are taken as `char*`. A literal goes through a buffer of the caller's own, which no compiler warns
 * about:
 *
 *     char command[] = "AT+CSQ\r\n";
 *     Module3G::SendATCommand(command, 4);
 *
 * Threads: any thread may call any operation; exchanges take their turns (`mutexATCommands`), so that each
 * may first wait for another thread's, up to three minutes. Each
 * operation judges its own reply, whatever other threads exchange meanwhile. The static members are not
 * locked: they belong to the thread that calls the operations which write them.
 */
class TAVDEVICE_API Module3G
{
public:
    Module3G(); ///< clears the reply buffer, unless an exchange is using it
    ~Module3G();

    // --- The AT channel

    /**
     * Opens one of the module's USB interfaces: 115200 baud, 8N1, raw, reads do not wait.
     * @param path the device file
     * @return the descriptor, the caller's to close; -1 when it cannot be opened
     * @throws Tavbase::IException (code 0) when the settings are refused. The descriptor stays open then:
     *         so it has always been, and the module is reset before it can matter.
     */
    static int OpenPort(char* path);

    /**
     * One exchange. The reply counts only with the echo of the command in it, so the module's echo must be on
     * (its default). The text is in `bufferAtCommands` afterwards, as received.
     * @param command zero-terminated, with its "\r\n"
     * @param tries   polling cycles of 100 ms that the answer may take, the first of which does not read
     * @param port    path of the USB interface
     * @return 0 "OK"; -1 "ERROR"; -2 no final answer in time, or more than 3841 bytes without one; -3 not
     *         written by four attempts (also when the interface cannot be opened)
     * @throws Tavbase::IException (code -1)
     */
    static int SendATCommand(char* command, int tries, char* port);

    static int SendATCommand(char* command, int tries); ///< the same on the main interface (if03)

    /// Notes the present time in `lastTransmitionTime`; for the application, when it has sent data.
    static void SetLastTransmissionTime();

    // --- Identity and status

    /// AT+CGSN into `m3gIMEI`, which is kept on failure. @return 0 or -1
    static int QueryModuleIMEI();
    static int QuerySimIMSI();  ///< AT+CIMI into `m3gSimIMSI`, likewise
    static int QuerySimICCID(); ///< AT+QCCID into `m3gSimICCID`, likewise; 19 digits are followed by "\r"
    /// ATI into `m3g_fw_version`, likewise. @throws std::out_of_range for a reply that ends with "Revision:"
    static int QueryModuleFwVersion();

    /// The four above and SetPowerSaveMode(0); each failure is logged, and the others are done all the same.
    /// @return 0; -1 after an exception, which is logged
    static int StoreModuleIdentityItems();

    /**
     * Looks for the module on the USB bus, by the shell command "lsusb". Up to two attempts, a second before
     * each.
     * @param force true: look, even when it was there the last time; false: once seen it is taken as there,
     *              also when it is gone
     */
    bool CheckModulePresence(bool force);

    /// AT+CBC. @return supply voltage in millivolts, or -1 @throws std::out_of_range for a reply that ends
    /// with "+CBC:"
    static int GetVoltageLevel();

    /// AT+QLTS, whose answer is not kept. @return 0 when there is one, or -1
    static int GetTime();

    /**
     * Without effect: the fields are read and dropped, no clock is set.
     * @param text "yy/MM/dd,hh:mm:ss"; may be shorter, or null
     */
    static void SaveDateTime(char* text);

    /**
     * AT+CSQ into `signal_status`.
     * @param alternatePort true: on the second USB interface (if02)
     * @return 0 or -1
     * @throws std::invalid_argument when the answer holds no number
     */
    static int CheckSignal(bool alternatePort);
    static int CheckSignal(); ///< on the main interface

    /**
     * Grades a signal strength.
     * @param rssi   0 to 31; 99: only the description is written, "Not known"
     * @param status receives it
     * @return 0; -1 for any other value, and nothing is written
     */
    static int SetSignalStatus(int rssi, Module3GSignalStatus* status);

    // --- Registration and operators

    /**
     * AT+CREG? into `registration_status`; a change is logged.
     * @return the state, 0 to 5 (GetRegistrationStatusDescription()), or -1
     * @throws std::invalid_argument when the state is no digit
     */
    static int GetRegistrationStatus();

    static std::string GetRegistrationStatusDescription(int status); ///< "Invalid status" beyond 0 to 5

    /// At home or roaming, by GetRegistrationStatus(). @throws as that does: std::invalid_argument
    static bool IsRegistered();

    /// Switches the module's registration reports with location on (AT+CREG=2, AT+CGREG=2).
    /// @return 0, or 1 on failure
    static int EnableNetworkRegistration();

    /**
     * Scans for operators (AT+COPS=?), which takes up to three minutes.
     * @param list the operators are appended, then all of it is sorted: highest access technology first
     * @return 0; -1 when the scan failed, and the list is as it was
     * @throws std::invalid_argument, std::out_of_range for numbers that are none; what precedes them is in
     *         the list, unsorted
     */
    static int GetCarriersList(std::list<Operator>* list);

    /// The order of GetCarriersList(). @return 1 when `a` comes before `b`, else 0
    static int CB_CompareOperator(Operator a, Operator b);

    static void PrintCarriersList(std::list<Operator>* list); ///< one line in the log for each operator

    /**
     * The row of `PreferredOperatorList` that was selected.
     * @param found receives it; without one, the last row; untouched when the list is empty
     * @return true when there is one
     */
    static bool FindPrefferedOperator(PreferredOperator& found);

    /// Clears the mark of the selected row. @return false when the list has rows and none is selected
    static bool RemovePrefferedOperator();

    /**
     * Registers with an operator: the module's choice, when `autoCarrierSelection` is on or
     * `PreferredOperatorList` is empty (which turns it on); else the selected row, or the first row that the
     * network offers, which is then selected.
     * @return 1, also when no row is offered; 0 when the scan failed or found nothing
     * @throws as GetCarriersList()
     */
    static int SelectNetwork();

    /**
     * Selects an operator (AT+COPS), for up to three minutes. Sends one command in the life of the process,
     * whether it succeeds or not: see NR_OF_TRIES.
     * @param code MCC and MNC as one decimal number; 0 or less: the module's choice
     * @return always 0
     */
    static int SetOperator(int code);

    /// @return 0
    static int SwitchToAutoCarrierSelectionMode();
    static void SwitchToManualCarrierSelectionMode(); ///< nothing when `PreferredOperatorList` is empty

    /**
     * AT+COPS?, for up to three minutes.
     * @param name receives the current operator's name, followed by a comma and one more character, as in
     *             "Operator,2": cut it at the last comma; untouched on failure
     * @return true when a name was read
     */
    static bool GetCarrierName(std::string& name);

    // --- Configuration and power-down. What the values mean is told by the module's AT command manual.

    static int SetPowerSaveMode(int mode);     ///< 0 or 1 (pwrsavedtr). @return 0; -1, also for other values
    static int SetNetworkSearchMode(int mode); ///< 0 to 2 (nwscanmode), at once. @return likewise
    static int SetBand(int band);              ///< 1 to 512 (band), at once. @return likewise
    /// @param limit in millivolts @return 0 or -1
    static int SetLowVoltageLimit(int limit, bool enable);
    /// Asks for the sleep setting (AT+QSCLK?) and changes nothing. @param mode 0 or 1 @return 0 or -1
    static int SetSleepMode(int mode);

    /// Hangs up, deactivates the data context, detaches; up to 332 s. Ends at the first failure.
    /// @return 1, or 0 on failure
    static int SendDisconnectCommands();

    /// Switches the module off (AT+QPOWD=1): ten seconds. It then tries to set the power-save mode, which
    /// normally fails, and logs the outcome.
    static void SendPowerDownCommand();

    // --- What the operations read and write

    static int registration_status; ///< by GetRegistrationStatus(); -1 at first

    static std::chrono::system_clock::time_point start; ///< for the application
    static std::chrono::system_clock::time_point end;   ///< for the application

    static std::list<PreferredOperator> PreferredOperatorList; ///< the application's, in its order

    static std::string m3gSimICCID;    ///< by QuerySimICCID(); empty at first
    static std::string m3gSimIMSI;     ///< by QuerySimIMSI(); likewise
    static std::string m3gIMEI;        ///< by QueryModuleIMEI(); likewise
    static std::string m3g_fw_version; ///< by QueryModuleFwVersion(); likewise

    static std::mutex mutexATCommands; ///< held for the whole of an exchange

    static int failedRegistrations;   ///< the application's count; the library only resets it
    static bool autoCarrierSelection; ///< true: the module chooses the operator; false at first

    /// By SetLastTransmissionTime(): seconds since 1970; 0 at first. No std::time_t: on a 32-bit target its
    /// size is chosen by macros (_TIME_BITS) that the library and its application need not have in common.
    static std::int64_t lastTransmitionTime;

    static pollfd cFds; ///< for the application

    static Module3GSignalStatus signal_status; ///< by CheckSignal()

    /// The reply of the latest exchange, at most 4096 bytes and a zero byte. It lives as long as the process.
    static char* bufferAtCommands TAV_POINTEE_GUARDED_BY(mutexATCommands);

    std::string label; ///< for the application
    int counter = 0;   ///< for the application

private:
    struct Layout; ///< checks the order of the fields

    std::atomic<bool> modulePresent{false};
};

}

#endif
