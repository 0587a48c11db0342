#ifndef TESTS_KIT_EMULATOR_H
#define TESTS_KIT_EMULATOR_H

#include <string>
#include <vector>

namespace Kit
{

/// QEMU's user emulation, where it runs this program because that was built for another machine than this
/// one.
class Emulator
{
public:
    static bool IsThere();

    /// What stands before a program and its arguments to run it; empty: nothing has to.
    static const std::vector<std::string>& Command();

    /// It has not all of the real-time signals, and takes handlers for the others without a word: those are
    /// made to look used, so that nobody chooses one.
    static void TakeSignalsThatNeverCome();
};

}

/// Ends a test that asks for what the emulator does not have. @param what of the kernel is missing there
#define KIT_SKIP_EMULATED(what)                                                                              \
    do                                                                                                       \
    {                                                                                                        \
        if (Kit::Emulator::IsThere())                                                                        \
        {                                                                                                    \
            GTEST_SKIP() << "skipped under QEMU: " << (what);                                                \
        }                                                                                                    \
    } while (false)

#endif
