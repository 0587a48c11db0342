// An application that has nothing but the installed tree: something of each library, without any device.
// consumer DIRECTORY: a directory that it may write to.

#include "GpsDevice/GpsDevice.h"
#include "Serial/Serial.h"
#include "base/Tavbase/Interfaces/IThread.h"
#include "base/Tavbase/Json/Json.h"
#include "base/Tavbase/Tavlog/Logger.h"
#include "base/Tavbase/TavubufferDynamic.h"
#include "base/Tavsystem/FileUtils/Tavdir.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <termios.h>
#include <thread>

namespace
{

void Require(bool holds, const std::string& what)
{
    if (!holds)
    {
        std::cout << "failed: " << what << std::endl;
        std::exit(1); // NOLINT(concurrency-mt-unsafe): no other thread of this program is left
    }
}

class Worker : public Tavbase::Interfaces::IThread
{
public:
    Worker() { name = "consumer"; }

    ~Worker() override { Stop(); }

    void Run() override
    {
        int value = 7;
        DoCallback(&value);
        Cancel();
    }
};

class Receiver : public Tavbase::Interfaces::IThread::IThreadDelegate
{
public:
    void ThreadCallback(void* value) override { sum += *static_cast<int*>(value); }

    int sum = 0;
};

void UseThread()
{
    Receiver receiver;
    Worker worker;
    worker.AddCallback(&receiver);
    Require(worker.Start(), "start of a thread");
    while (worker.IsRunning())
    {
        std::this_thread::yield();
    }
    worker.Stop();
    Require(receiver.sum == 7, "value of a thread");
}

void UseSerial(const std::string& directory)
{
    Tavdevice::SerialPort::Serial line(directory + "/no-line", B9600);
    Require(!line.Open(), "no line to open");
    Require(line.GetErrorNumber() == ENOENT, "reason for no line");
}

void UseGps()
{
    char sentence[] = "$PMTK605*31";
    Tavdevice::GpsDevice::GpsDevice gps;
    Require(gps.GetName() == "GPS-DEVICE", "name of the GPS device");
    Require(gps.CalculateCheckSum(sentence) == 0x31, "check sum");
    std::cout << std::endl;
}

void UseJson()
{
    const auto document = Tavbase::Json::Deserialize(R"({"driver-id": "00A1B2C3D4E5"})");
    Require(document.ToObject()["driver-id"].ToString() == "00A1B2C3D4E5", "JSON member");
    Require(Tavbase::Json::Serialize(document) == R"({"driver-id":"00A1B2C3D4E5"})", "JSON text");
}

void UseDirectoryAndLog(const std::string& directory)
{
    using namespace Tavbase::Tavlog;
    Require(Tavsystem::FileUtils::Tavdir(directory + "/a/b").Create(), "directory with its parent");
    const std::string path = directory + "/a/b/log";
    Logger& log = Logger::GetInstance();
    Require(log.OpenFile(path), "log file");
    log << LogType::Warning << LogModule::CONFIG << "number " << 42 << std::endl;
    log.CloseFile();
    std::ifstream file(path);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    Require(text.ends_with("[WARNING][#CONFIG]number 42\n"), "log line: " + text);
}

}

int main(int argc, char** argv)
{
    Require(argc == 2, "one argument");
    const std::string directory = argv[1];
    const TavubufferDynamic buffer(64);
    Require(buffer.capacity == 64, "buffer");
    UseThread();
    UseSerial(directory);
    UseGps();
    UseJson();
    UseDirectoryAndLog(directory);
    Tavbase::Tavlog::Logger::GetInstance().Flush(); // its lines come before the last one
    std::cout << "consumer: all well" << std::endl;
    return 0;
}
