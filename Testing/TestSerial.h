#ifndef TESTING_TESTSERIAL_H
#define TESTING_TESTSERIAL_H

#include "base/Export.h"

/**
 * For the bench: puts the first UART, "/dev/ttymxc0", at 10400 baud. What became of it is told on standard
 * output and error.
 * @return 1 when the UART cannot be opened, else 0, also when the settings were refused: a mainline kernel
 *         does that (ENOTTY), since the requests are those of the board's
 *
 * The library exports a `main` that calls it. A program whose own one is in a static library behind this
 * library on the linker's line, as with gtest_main, gets that one in silence (docs/limits.md).
 */
TAVDEVICE_API int TestSerial();

#endif
