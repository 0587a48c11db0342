#ifndef VIRTUAL_UNIT_RUN_SUPERVISOR_H
#define VIRTUAL_UNIT_RUN_SUPERVISOR_H

#include "virtual-unit/calls/Responder.h"
#include "virtual-unit/peripherals/CellularModule.h"
#include "virtual-unit/ports/DeviceTable.h"
#include "virtual-unit/run/Way.h"

#include <functional>
#include <string>
#include <vector>

namespace VirtualUnit
{

/// Whom a run tells what happens.
struct RunListener
{
    Responder::Report report;              ///< lines for people: refusals, why the program ended
    std::function<void()> started = [] {}; ///< threads may be started from now on
    std::function<void(int number)> signalled = [](int) {
    };                                   ///< the program got a signal to end it, or SIGKILL with the power
    std::function<void()> ended = [] {}; ///< no process is left; nothing has been told of the end
};

/**
 * Runs a program on the virtual unit, to its end.
 *
 * SIGTERM and SIGHUP, and SIGINT and SIGQUIT when a process sent them, are handed on to the program; ten
 * seconds later, or at the second of them, it is killed. Ctrl-C on a terminal reaches the program by itself.
 * What the program leaves running when it ends is ended too. Where the power is cut, all is killed at once.
 *
 * It changes the calling process: signal mask, PATH, and the adoption of orphans. Call it from the only
 * thread.
 *
 * @param way      how the program's system calls get here; used once
 * @param command the program and its arguments
 * @param devices what is served; must not have been started
 * @param module  the cellular module, which is among them: it shows on the USB bus
 * @param sdcard  the directory that holds the storage card's content; empty: a private one, which is empty at
 *                first and removed at the end
 * @param listener is called on this thread
 * @return the program's exit status; 128 and the signal's number when a signal ended it; 0 when the power was
 * cut
 * @throws StorageCard::Unusable, Application::NotStarted, std::system_error when this kernel or machine
 * cannot do it
 */
int RunOnVirtualUnit(Way& way, const InterceptedCalls& calls, const std::vector<std::string>& command,
                     const DeviceTable& devices, CellularModule& module, const std::string& sdcard,
                     const RunListener& listener);

}

#endif
