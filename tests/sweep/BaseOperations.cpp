#include "base/Tavbase/Interfaces/DelegateList.h"
#include "base/Tavbase/Interfaces/IThread.h"
#include "base/Tavbase/Json/Json.h"
#include "base/Tavbase/Tavlog/FileLogPolicy.h"
#include "base/Tavbase/Tavlog/Logger.h"
#include "base/Tavbase/Util/NewDate.h"
#include "base/Tavbase/Util/TemperatureMonitor.h"
#include "base/Tavbase/Util/Text.h"
#include "base/Tavsystem/FileUtils/Tavdir.h"
#include "base/Tavsystem/SysUtil/ExecSystemCmdThroughPipe.h"
#include "base/Tavsystem/System/UnmountAll.h"
#include "tests/kit/System.h"
#include "tests/kit/TempDir.h"
#include "tests/sweep/Operation.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

namespace
{

using Sweep::Text;
using Tavbase::Tavlog::FileLogPolicy;
using Tavbase::Tavlog::Logger;
using Tavbase::Tavlog::LogType;
using namespace std::chrono_literals;

/// A storage card of its own, on which the calls can fail.
struct Card
{
    Card()
    {
        std::filesystem::create_directory(path);
        Kit::System::Redirect("/mnt/sdcard", path);
    }

    ~Card()
    {
        Kit::System::Unredirect("/mnt/sdcard");
        std::filesystem::remove_all(path);
    }

    Card(const Card&) = delete;
    Card& operator=(const Card&) = delete;

    /// The files that are there, in order, with their bytes.
    std::string Files() const
    {
        std::string text;
        for (const char* name : {"log", "log.1", "log.2"})
        {
            std::error_code none;
            const auto bytes = std::filesystem::file_size(path + "/" + name, none);
            if (!none)
            {
                text += std::string(text.empty() ? "" : ", ") + name + " " + std::to_string(bytes);
            }
        }
        return text.empty() ? "no file" : text;
    }

    std::string path = Kit::TempDir::Path() + "/card";
};

struct Mounts
{
    Mounts()
    {
        std::ofstream(path) << "/dev/root / ext4 rw 0 0\n/dev/mmcblk0p1 /mnt/sdcard vfat rw 0 0\n";
        Kit::System::Redirect("/proc/self/mounts", path);
        Kit::System::AnswerUnmounts();
    }

    ~Mounts() { Kit::System::Unredirect("/proc/self/mounts"); }

    Mounts(const Mounts&) = delete;
    Mounts& operator=(const Mounts&) = delete;

    std::string path = Kit::TempDir::Path() + "/mounts";
};

SWEEP(System, UnmountAll)
{
    const Mounts mounts;
    Sweep::Try([] {
        Tavsystem::System::UnmountAll();
        return std::string("done");
    });
}

SWEEP(Tavdir, Create)
{
    const Card card;
    Sweep::Try([] {
        Tavsystem::FileUtils::Tavdir directory("/mnt/sdcard/one/two");
        return Text(directory.Create());
    });
}

SWEEP(SysUtil, ExecSystemCmdThroughPipe)
{
    Sweep::Try([] { return Tavsystem::SysUtil::ExecSystemCmdThroughPipe("echo text"); });
}

SWEEP(TemperatureMonitor, GetInstance)
{
    const std::string path = Kit::TempDir::Path() + "/zone";
    std::ofstream(path) << "41500\n";
    Kit::System::Redirect("/sys/class/thermal/thermal_zone0/temp", path);
    std::this_thread::sleep_for(10s); // the reading before is too old now
    Sweep::Try([] {
        const auto& monitor = Tavbase::Util::TemperatureMonitor::GetInstance();
        return Text(monitor.IsAvailable()) + " " + Text(monitor.GetTemperature());
    });
    Kit::System::Unredirect("/sys/class/thermal/thermal_zone0/temp");
    std::this_thread::sleep_for(10s);
    Tavbase::Util::TemperatureMonitor::GetInstance(); // whose lines in the log would carry it
}

SWEEP(FileLogPolicy, Use)
{
    const Card card;
    FileLogPolicy policy;
    Sweep::Try([&] { return Text(policy.Use("/mnt/sdcard/log", 100, 2)) + " " + card.Files(); });
}

SWEEP(FileLogPolicy, Write)
{
    const Card card;
    FileLogPolicy policy;
    policy.Use("/mnt/sdcard/log", 100, 2);
    Sweep::Try([&] {
        policy.Write("a line\n");
        return card.Files();
    });
}

SWEEP(FileLogPolicy, WriteToAFullFile)
{
    const Card card;
    FileLogPolicy policy;
    policy.Use("/mnt/sdcard/log", 10, 2);
    policy.Write("a line\n");
    policy.Write("two lines\n");
    Sweep::Try([&] {
        policy.Write("three lines\n");
        return card.Files();
    });
}

/// To the file that the test looks at, whose path is nobody's that a call could fail for.
SWEEP(Logger, Line)
{
    Sweep::Try([] {
        Logger::GetInstance() << LogType::Info << "a line that is " << 60 << " bytes long, and some more"
                              << std::endl;
        Logger::GetInstance().Flush();
        return std::string("done");
    });
}

SWEEP(Util, NewDate)
{
    Sweep::Try([] { return Text(static_cast<int>(Tavbase::Util::NewDate("%Y-%m-%d %H:%M:%S").size())); });
}

SWEEP(Util, ToUpper)
{
    Sweep::Try([] { return Tavbase::Util::ToUpper("a text that is too long to lie in the object itself"); });
}

SWEEP(Json, Deserialize)
{
    Sweep::Try([] {
        const auto value = Tavbase::Json::Deserialize(R"({"driver-id":"00A1B2C3D4E5","list":[1,2.5,null]})");
        return Tavbase::Json::Serialize(value);
    });
}

struct Thread : Tavbase::Interfaces::IThread
{
    ~Thread() override { Stop(); }

    void Run() override { ThreadSleep(1s, 1s); }
};

SWEEP(IThread, StartAndStop)
{
    Thread thread;
    Sweep::Try([&] {
        const bool started = thread.Start();
        thread.Stop();
        return Text(started);
    });
}

struct Receiver : Tavbase::Interfaces::IThread::IThreadDelegate
{
    void ThreadCallback(void*) override {}
};

SWEEP(IThread, AddCallback)
{
    Receiver receiver;
    Thread thread;
    Sweep::Try([&] {
        thread.AddCallback(&receiver);
        return std::string("done");
    });
}

}
