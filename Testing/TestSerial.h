#ifndef TESTING_TESTSERIAL_H
#define TESTING_TESTSERIAL_H

#include "base/Export.h"

/**
 * For the bench: puts the first UART, "/dev/ttymxc0", at 10400 baud. What became of it is told on standard
 * output and error.
 * @return 1 when the UART cannot be opened, else 0
 */
TAVDEVICE_API int TestSerial();

#endif
