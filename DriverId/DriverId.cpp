#include "DriverId/DriverId.h"

#include "DriverId/DriverIdRecord.h"
#include "SerialProtocol/Frame.h"
#include "base/Tavbase/IException.h"
#include "base/Tavbase/Tavlog/Logger.h"
#include "base/Tavbase/Util/Text.h"
#include "base/Tavsystem/FileUtils/Tavdir.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <thread>

namespace TavDevice
{

namespace
{

using SerialProtocol::Reply;
using Tavbase::IException;
using Tavbase::Tavlog::Logger;
using Tavbase::Tavlog::LogType;

constexpr const char* PORT = "/dev/ttymxc2";
constexpr unsigned int SPEED = B9600;
constexpr int RAW_MODE = 1;

constexpr const char* RECORD_DIRECTORY = "/mnt/sdcard/db/";
constexpr const char* RECORD_NAME = "driver-id.json";

enum Command : unsigned char
{
    ACKNOWLEDGE = 0,
    START_ANNOYING = 1,
    STOP_ANNOYING = 2,
    REQUEST_DRIVER_ID = 3,
    RESET_DRIVER_ID = 9
};

constexpr unsigned int ACKNOWLEDGE_REPLY_BYTES = 10;
constexpr unsigned int DRIVER_ID_REPLY_BYTES = 17;

constexpr int PRESENCE_TRIES = 5;
constexpr int SEND_TRIES = 3;
constexpr std::chrono::milliseconds RETRY_PAUSE{200};

constexpr std::uint64_t LINE_BYTES =
    4096; // what the terminal keeps; noise beyond it is left to the next command
constexpr std::uint64_t DROPPED_AT_ONCE = 256;

constexpr LogType UNTAGGED = LogType{3};

void Require(bool done, const char* message)
{
    if (!done)
    {
        throw IException(message, done);
    }
}

/// Runs one command; an exception becomes an error line, which begins with `prefix`, and false.
template <class Steps>
bool Guarded(const char* prefix, Steps steps)
{
    try
    {
        return steps();
    }
    catch (const std::exception& e)
    {
        Logger::GetInstance() << LogType::Error << prefix << e.what() << std::endl;
        return false;
    }
}

void AppendDigits(std::string& text, unsigned char byte)
{
    constexpr unsigned char FIRST_WITH_TWO_DIGITS = 0x10;
    if (byte < FIRST_WITH_TWO_DIGITS)
    {
        text += '0';
    }
    text += Tavbase::Util::ToUpper(Tavbase::Util::ToHex(byte));
}

}

struct DriverId::Layout
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof" // the class has a base, whose part comes first
    static_assert(offsetof(DriverId, mPresent) < offsetof(DriverId, mSerial));
    static_assert(offsetof(DriverId, mSerial) < offsetof(DriverId, mFileName));
    static_assert(offsetof(DriverId, mFileName) < offsetof(DriverId, mFilePath));
    static_assert(offsetof(DriverId, mFilePath) < offsetof(DriverId, mDirReady));
    // In the padding before mSerial: that behind the last field may hold fields of a derived class.
    static_assert(offsetof(DriverId, mLine) == offsetof(DriverId, mPresent) + sizeof(mPresent));
    static_assert(offsetof(DriverId, mSerial) - offsetof(DriverId, mPresent) <= alignof(decltype(mSerial)));
#pragma GCC diagnostic pop
};

// The messages below differ in case ("send error", "Send error"): they are known as they are.

DriverId::DriverId() : mSerial(PORT, SPEED), mFileName(RECORD_NAME), mFilePath(RECORD_DIRECTORY + mFileName)
{
    mDirReady = Tavsystem::FileUtils::Tavdir(RECORD_DIRECTORY).Create();
    if (!mDirReady)
    {
        Logger::GetInstance() << LogType::Error << "Driver Id error: Unable to create directory" << std::endl;
    }
}

DriverId::~DriverId()
{
    mSerial.Close();
}

bool DriverId::Init()
{
    return Guarded("DID: ", [this] {
        mSerial.Close();
        mSerial.mode = RAW_MODE;
        if (!mSerial.Open())
        {
            mSerial.Close(); // without its settings the line would hold whoever reads from it
            throw IException("could not open serial", false);
        }
        for (int tries = 1; !CheckDevicePresence(); ++tries)
        {
            if (tries == PRESENCE_TRIES)
            {
                mSerial.Close();
                Logger::GetInstance() << LogType::Info << "Driver Id device not present" << std::endl;
                return false;
            }
            std::this_thread::sleep_for(RETRY_PAUSE);
        }
        Logger::GetInstance() << LogType::Info << "Driver id device present" << std::endl;
        mPresent = true;
        RequestDriverIdReset(); // a reader that does not reset is there all the same
        return true;
    });
}

bool DriverId::CheckDevicePresence()
{
    return Guarded("ACK command execution failed: ", [this] {
        Logger::GetInstance().File() << LogType::Info << "Send ACK command to identify driver id device"
                                     << std::endl;
        Require(SendCmdMsg(ACKNOWLEDGE), "send error");
        Require(ReadReply(ACKNOWLEDGE_REPLY_BYTES), "read error");
        const bool present = Acknowledged();
        if (!present)
        {
            Logger::GetInstance().File() << UNTAGGED << "ACK command, device not present" << std::endl;
        }
        return present;
    });
}

bool DriverId::StartAnnoying()
{
    return mPresent && Guarded("Annoying command execution failed: ", [this] {
               // Whether it was sent is not looked at, other than when it is stopped: the reply tells.
               SendCmdMsg(START_ANNOYING);
               Require(ReadReply(ACKNOWLEDGE_REPLY_BYTES), "Read error");
               return Acknowledged();
           });
}

bool DriverId::StopAnnoying()
{
    return mPresent && Guarded("Stop annoying failed: ", [this] {
               Require(SendCmdMsg(STOP_ANNOYING), "Send error");
               Require(ReadReply(ACKNOWLEDGE_REPLY_BYTES), "Read error");
               return Acknowledged();
           });
}

bool DriverId::RequestDriverIdReset()
{
    return Guarded("Request driver id reset execution failed: ", [this] {
        Logger::GetInstance() << LogType::Info << "Send Driver ID reset" << std::endl;
        Require(SendCmdMsg(RESET_DRIVER_ID), "send error");
        Require(ReadReply(ACKNOWLEDGE_REPLY_BYTES), "read error");
        return Acknowledged();
    });
}

bool DriverId::RequestDriverId(std::string& id)
{
    return Guarded("Request driver id execution failed: ", [this, &id] {
        Require(SendCmdMsg(REQUEST_DRIVER_ID), "Send error");
        Require(ReadReply(DRIVER_ID_REPLY_BYTES), "Read driver key error");
        std::array<unsigned char, SerialProtocol::IDENTIFIER_BYTES> identifier{};
        switch (static_cast<Reply::Result>(ParseRcvMsg(identifier.data())))
        {
        case Reply::Result::Identifier:
            id.clear();
            for (const unsigned char byte : identifier)
            {
                AppendDigits(id, byte);
            }
            return true;
        case Reply::Result::NoIdentifier:
            id.clear();
            return true;
        default:
            Logger::GetInstance().File() << LogType::Error << "Error, no driver Id found" << std::endl;
            return false;
        }
    });
}

void DriverId::Dispose()
{
    mSerial.Close();
}

bool DriverId::LoadFromFile(std::string& id)
{
    return mDirReady && DriverIdRecord(mFilePath).Load(id);
}

void DriverId::SaveToFile(std::string& id)
{
    if (mDirReady)
    {
        DriverIdRecord(mFilePath).Save(id);
    }
}

void DriverId::RemoveFile()
{
    DriverIdRecord(mFilePath).Remove();
}

bool DriverId::OnSend(TavubufferDynamic& frame)
{
    if (mLine != Line::Clean)
    {
        DropLateReply();
    }
    for (int tries = 0; tries < SEND_TRIES; ++tries)
    {
        if (mSerial.Send(frame))
        {
            return true;
        }
        std::this_thread::sleep_for(RETRY_PAUSE);
    }
    return false;
}

bool DriverId::OnRead(TavubufferDynamic& buffer)
{
    mSerial.Read(buffer, 0);
    return buffer.length == buffer.capacity;
}

bool DriverId::ReadReply(unsigned int bytes)
{
    const bool read = ReadCmdMsg(bytes);
    if (!read)
    {
        mLine = Line::Doubtful;
    }
    else if (mLine == Line::Doubtful)
    {
        mLine = Line::Recovering; // this may have been the late reply, and its own be still to come
    }
    return read;
}

void DriverId::DropLateReply()
{
    TavubufferDynamic dropped(DROPPED_AT_ONCE);
    std::uint64_t total = 0;
    while (total < LINE_BYTES && mSerial.Read(dropped, 0))
    {
        total += dropped.length;
    }
    if (mLine == Line::Recovering && total == 0)
    {
        mLine = Line::Clean;
    }
}

bool DriverId::Acknowledged()
{
    return static_cast<Reply::Result>(ParseRcvMsg(nullptr)) == Reply::Result::Acknowledged;
}

bool RequestDeviceVersion()
{
    return true;
}

}
