#ifndef TESTS_VIRTUAL_UNIT_EMULATEDDEVICE_H
#define TESTS_VIRTUAL_UNIT_EMULATEDDEVICE_H

#include "tests/kit/MessageDevice.h"
#include "tests/virtual-unit/OwnMemory.h"
#include "virtual-unit/peripherals/IoctlPeripheral.h"
#include "virtual-unit/peripherals/MessagePeripheral.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

/// An emulated device that the library finds under a path, in a test with virtual time; its ioctls are
/// answered by it.
class EmulatedDevice
{
public:
    /// @param peripheral stays the caller's and outlives this object
    EmulatedDevice(const std::string& path, VirtualUnit::IoctlPeripheral& peripheral)
        : device(path, [this, &peripheral](unsigned long request, void* argument) {
              const std::scoped_lock lock(access);
              return peripheral.Answer({request, reinterpret_cast<std::uint64_t>(argument), memory},
                                       std::chrono::steady_clock::now());
          })
    {
    }

    /// Runs `function` while the device stands still.
    template <class Function>
    auto Locked(Function&& function)
    {
        const std::scoped_lock lock(access);
        return std::forward<Function>(function)();
    }

private:
    std::mutex access;
    OwnMemory memory;

protected:
    Kit::MessageDevice device; ///< last: it answers with the members above
};

/// The same for one with messages, which a thread carries between it and the library every few milliseconds.
class EmulatedMessages : public EmulatedDevice
{
public:
    /// Messages are carried first so long after the construction, then in these steps. A sleep of the library
    /// in whole steps never ends where one is carried.
    static constexpr std::chrono::milliseconds FIRST{1};
    static constexpr std::chrono::milliseconds STEP{5};

    EmulatedMessages(const std::string& path, VirtualUnit::MessagePeripheral& messagePeripheral)
        : EmulatedDevice(path, messagePeripheral), peripheral(messagePeripheral), carrier([this] { Carry(); })
    {
    }

    ~EmulatedMessages()
    {
        ending = true;
        carrier.join();
    }

private:
    void Carry()
    {
        std::this_thread::sleep_for(FIRST);
        while (!ending)
        {
            Locked([this] {
                const auto now = std::chrono::steady_clock::now();
                for (const std::string& message : device.Received())
                {
                    peripheral.Receive(message, now);
                }
                peripheral.Advance(now);
                for (const std::string& message : peripheral.TakeOutput())
                {
                    device.Send(message);
                }
                if (!peripheral.IsConnected())
                {
                    device.HangUp();
                }
            });
            std::this_thread::sleep_for(STEP);
        }
    }

    VirtualUnit::MessagePeripheral& peripheral;
    std::atomic<bool> ending = false;
    std::thread carrier;
};

#endif
