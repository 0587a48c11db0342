#include "Serial/ClosingWait.h"

#include <linux/serial.h>
#include <sys/ioctl.h>

namespace Tavdevice::SerialPort
{

bool CloseWithoutWaiting(int descriptor)
{
    serial_struct settings = {};
    if (ioctl(descriptor, TIOCGSERIAL, &settings) != 0)
    {
        return false;
    }
    settings.closing_wait = ASYNC_CLOSING_WAIT_NONE;
    return ioctl(descriptor, TIOCSSERIAL, &settings) == 0;
}

}
