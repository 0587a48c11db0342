#ifndef SERIAL_CLOSINGWAIT_H
#define SERIAL_CLOSINGWAIT_H

namespace Tavdevice::SerialPort
{

/// As Serial::CloseWithoutWaiting(), for a line that is open under that descriptor.
bool CloseWithoutWaiting(int descriptor);

}

#endif
