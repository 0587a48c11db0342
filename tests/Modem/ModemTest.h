#ifndef TESTS_MODEM_MODEMTEST_H
#define TESTS_MODEM_MODEMTEST_H

#include "Modem/Module3G.h"
#include "base/Tavbase/IException.h"
#include "tests/Modem/ScriptedModule.h"
#include "tests/kit/DeviceTest.h"
#include "tests/kit/Leaks.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <list>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace ModemTests
{

using Kit::Clock;
using Tavbase::IException;
using Tavdevice::Modem::Module3G;
using Tavdevice::Modem::Operator;
using Tavdevice::Modem::PreferredOperator;

inline constexpr const char* MAIN_PORT =
    "/dev/serial/by-id/usb-Quectel__Incorporated_UMTS_HSPA_Module-if03-port0";
inline constexpr const char* ALTERNATE_PORT =
    "/dev/serial/by-id/usb-Quectel__Incorporated_UMTS_HSPA_Module-if02-port0";

inline constexpr std::size_t REPLY_BYTES = 4096;

inline constexpr std::chrono::milliseconds CYCLE{100};
inline constexpr int SHORT_CYCLES = 4;

/// What an application finds in the class when its process begins, put back before and after each test.
class ModemStateTest : public Kit::DeviceTest
{
protected:
    ModemStateTest() { PutBack(); }

    ~ModemStateTest() override { PutBack(); }

    static int Exchange(std::string command, int tries) // a copy: the class takes char*
    {
        return Module3G::SendATCommand(command.data(), tries);
    }

    static int ExchangeOn(std::string port, std::string command, int tries)
    {
        return Module3G::SendATCommand(command.data(), tries, port.data());
    }

    static std::string Gathered() { return Module3G::bufferAtCommands; }

    /// As another thread sees it.
    static bool LockIsFree()
    {
        bool isFree = false;
        std::thread([&isFree] {
            isFree = Module3G::mutexATCommands.try_lock();
            if (isFree)
            {
                Module3G::mutexATCommands.unlock();
            }
        }).join();
        return isFree;
    }

    /// For a test in which the line refuses its settings so often: each time the descriptor stays open.
    static void AllowDescriptors(int count)
    {
        Kit::Leaks::Holdings left;
        left.descriptors = count;
        Kit::Leaks::Allow(left);
    }

    static std::size_t Count(const std::string& function) { return Kit::System::CallsOf(function).size(); }

    /// Both sinks get every line of the modem.
    Texts Logged() const
    {
        EXPECT_EQ(log.File(), log.Console());
        return log.File();
    }

private:
    static void PutBack()
    {
        Tavdevice::Modem::NR_OF_TRIES = 2;
        Tavdevice::Modem::Bus_Module3G = "05c6:9";
        Module3G::registration_status = -1;
        Module3G::PreferredOperatorList.clear();
        for (std::string* text :
             {&Module3G::m3gSimICCID, &Module3G::m3gSimIMSI, &Module3G::m3gIMEI, &Module3G::m3g_fw_version})
        {
            std::string().swap(*text); // with its memory
        }
        Module3G::failedRegistrations = 0;
        Module3G::autoCarrierSelection = false;
        Module3G::lastTransmitionTime = 0;
        Module3G::signal_status = {};
        std::memset(Module3G::bufferAtCommands, 0, REPLY_BYTES);
    }
};

/// A module on the main interface.
class ModemTest : public ModemStateTest
{
protected:
    ScriptedModule module{MAIN_PORT};
};

}

#endif
