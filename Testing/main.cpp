// The bench program's entry. It is in the library itself, so that a program without a source of its own can
// run it.

#include "Testing/TestSerial.h"

#include <iostream>

TAVDEVICE_API int main()
{
    TestSerial();
    std::cout << "Bye Bye" << std::endl;
    return 0;
}
