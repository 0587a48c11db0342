#ifndef VIRTUAL_UNIT_SUPERVISOR_H
#define VIRTUAL_UNIT_SUPERVISOR_H

#include "virtual-unit/DeviceTable.h"
#include "virtual-unit/Responder.h"

#include <string>
#include <vector>

namespace VirtualUnit
{

/**
 * Runs a program on the virtual unit, to its end.
 *
 * SIGTERM and SIGHUP, and SIGINT and SIGQUIT when a process sent them, are handed on to the program; ten
 * seconds later, or at the second of them, it is killed. Ctrl-C on a terminal reaches the program by itself.
 * What the program leaves running when it ends is ended too.
 *
 * It changes the calling process: signal mask, and the adoption of orphans. Call it from the only thread.
 *
 * @param command the program and its arguments
 * @param devices what is served; must not have been started
 * @param report  takes lines for people: what was refused, and why the program ended
 * @return the program's exit status; 128 and the signal's number when a signal ended it
 * @throws Application::NotStarted, std::system_error when this kernel or machine cannot do it
 */
int RunOnVirtualUnit(const std::vector<std::string>& command, const DeviceTable& devices,
                     const Responder::Report& report);

}

#endif
