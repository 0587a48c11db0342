#ifndef TESTS_GPSDEVICE_GPSTEST_H
#define TESTS_GPSDEVICE_GPSTEST_H

#include "GpsDevice/GpsDevice.h"
#include "tests/kit/DeviceTest.h"
#include "tests/kit/Peer.h"
#include "tests/kit/Terminal.h"

#include <chrono>
#include <fcntl.h>
#include <mutex>
#include <string>
#include <string_view>
#include <sys/ioctl.h>
#include <termios.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace GpsTests
{

using namespace std::chrono_literals;
using Tavdevice::GpsDevice::GpsDevice;
using Texts = std::vector<std::string>;

inline constexpr const char* DEVICE = "/dev/ttymxc0";
inline constexpr std::string_view QUERY = "$PMTK605*31\r\n";
inline constexpr std::string_view SELECTION = "$PMTK353,1,0,0,0,0*2A\r\n";

/// What the application gets.
class Receiver : public GpsDevice::IThreadDelegate
{
public:
    void ThreadCallback(void* value) override
    {
        const std::scoped_lock lock(access);
        texts.emplace_back(static_cast<const char*>(value));
        lastThread = std::this_thread::get_id();
    }

    Texts All() const
    {
        const std::scoped_lock lock(access);
        return texts;
    }

    /// Those that hold something: the blocks.
    Texts Blocks() const
    {
        Texts blocks = All();
        std::erase(blocks, "");
        return blocks;
    }

    std::size_t Count() const
    {
        const std::scoped_lock lock(access);
        return texts.size();
    }

    std::thread::id LastThread() const
    {
        const std::scoped_lock lock(access);
        return lastThread;
    }

    void Forget()
    {
        const std::scoped_lock lock(access);
        texts.clear();
    }

private:
    mutable std::mutex access;
    Texts texts;
    std::thread::id lastThread;
};

/// The lines of the log since the test began to look.
class GpsLogTest : public Kit::DeviceTest
{
protected:
    /// Names of the calls made on the device and of its sleeps, in order. The test's own sleep otherwise.
    static Texts Functions()
    {
        Texts names;
        for (const Kit::System::Call& call : Kit::System::Calls())
        {
            if (call.path == DEVICE || std::string_view(call.function) == "usleep")
            {
                names.emplace_back(call.function);
            }
        }
        return names;
    }
};

/// A device on a terminal whose other end the test holds.
class GpsTest : public GpsLogTest
{
protected:
    /// Opens the port; what that did is not looked at any more.
    void Prepare()
    {
        GpsDevice::IThreadDelegate* delegate = &receiver;
        gps.Prepare(delegate);
        ASSERT_FALSE(gps.HasError()) << gps.GetErrorMessage();
        ForgetLog();
        Kit::System::ForgetCalls();
    }

    /// Text arrives, and the device takes one step.
    void Step(std::string_view text)
    {
        line.Send(text);
        if (cutAnywhere)
        {
            AwaitDelivery(text.size());
        }
        gps.Run();
    }

    /// From now on a read gives what was sent since the last one, not one line: reads may be cut anywhere.
    void CutReadsAnywhere()
    {
        struct termios settings = {};
        ASSERT_EQ(tcgetattr(line.Descriptor(), &settings), 0);
        settings.c_lflag &= ~static_cast<tcflag_t>(ICANON);
        settings.c_cc[VMIN] = 1;
        settings.c_cc[VTIME] = 0;
        ASSERT_EQ(tcsetattr(line.Descriptor(), TCSANOW, &settings), 0);
        cutAnywhere = true;
    }

    /// Makes the device take the module for an SKM53, by what it hears.
    void BecomeSkm53()
    {
        line.Send("$GPRMC\r\n");
        gps.CheckL26Gps();
        ASSERT_EQ(gps.GetModule(), GpsDevice::Module::SKM53);
        line.Received();
        ForgetLog();
        Kit::System::ForgetCalls();
    }

    Kit::Terminal line{DEVICE};
    Receiver receiver;
    GpsDevice gps;

private:
    /// A longer text passes the kernel in pieces: waits until it is there as a whole.
    void AwaitDelivery(std::size_t bytes) const
    {
        const int nearEnd = ioctl(line.Descriptor(), TIOCGPTPEER, O_RDWR | O_NOCTTY);
        ASSERT_GE(nearEnd, 0);
        Kit::Clock::AwaitKernel([&] {
            int there = 0;
            return ioctl(nearEnd, FIONREAD, &there) != 0 || static_cast<std::size_t>(there) >= bytes;
        });
        close(nearEnd);
    }

    bool cutAnywhere = false;
};

using Module = Kit::Peer; ///< the module at the other end

}

#endif
