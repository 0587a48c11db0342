#ifndef VIRTUAL_UNIT_CALLS_RESPONDER_H
#define VIRTUAL_UNIT_CALLS_RESPONDER_H

#include "virtual-unit/calls/Answer.h"
#include "virtual-unit/calls/CallSource.h"
#include "virtual-unit/calls/CardCalls.h"
#include "virtual-unit/calls/HeldCall.h"
#include "virtual-unit/calls/InterceptedCalls.h"
#include "virtual-unit/calls/StorageCard.h"
#include "virtual-unit/calls/UnitPath.h"
#include "virtual-unit/ports/DeviceTable.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace VirtualUnit
{

/**
 * Answers the system calls that are held up: those on the unit's paths from the device table or the
 * storage card, those that read the mount table with the unit's, the forbidden ones with EPERM; all others go
 * on to the kernel.
 *
 * It sees a path as it is written, made absolute, with "." and ".." and doubled slashes taken out; symbolic
 * links are not followed. It keeps a program from reaching this machine's devices by accident, not by intent.
 */
class Responder
{
public:
    using Report = std::function<void(const std::string& line)>;

    /// All but `report` stay the caller's.
    Responder(CallSource& callSource, const InterceptedCalls& intercepted, const DeviceTable& devices,
              const StorageCard& theCard, Report report);
    Responder(const Responder&) = delete;
    Responder& operator=(const Responder&) = delete;
    ~Responder() = default;

    /// Takes the next call, if there is one, and answers it. @throws std::system_error when the kernel lacks
    /// what is needed
    void AnswerNext();

    using Clock = std::chrono::steady_clock;

    std::optional<Clock::time_point> NextDeadline() const; ///< when AnswerDue() has something to do

    void AnswerDue(); ///< answers the calls that take their time, and that have taken it

    void LosePower() { cardCalls.LosePower(); } ///< nothing runs under the filter any more

private:
    /// An answer that is not given yet.
    struct Later
    {
        Clock::time_point due;
        WaitingCall request;
        Answer answer;
    };

    Answer Find();
    Answer FindForPaths(const HeldCall& held, const UnitPath& path, const UnitPath& otherPath);
    Answer FindForDevice(const HeldCall& held, const std::string& path);
    Answer FindForIoctl(const HeldCall& held);
    Answer FindForWrite(const HeldCall& held);
    Answer FindForUnmount(const HeldCall& held, const UnitPath& path);
    Answer LetExecute(const std::string& path);
    Answer Forbid(const char* name);
    Answer RefuseUnreadable(const HeldCall& held, int error, bool ofUnit);
    void Send(const Answer& answer);
    void ReportOnce(const std::string& line);
    bool StillWaits();
    bool BelongsToUnit(const UnitPath& path) const;
    UnitPath Absolute(const HeldCall& held, const InterceptedCall::NamedPath& where,
                      const std::string& path) const;

    CallSource& source;
    const InterceptedCalls& systemCalls;
    const DeviceTable& table;
    const StorageCard& card;
    CardCalls cardCalls;
    Report reportLine;
    std::set<std::string> reported;
    std::vector<Later> later;
    WaitingCall request; ///< the one that is being answered
};

}

#endif
