#include "SerialProtocol/ISerialComm.h"

#include "SerialProtocol/Crc16.h"
#include "SerialProtocol/Frame.h"
#include "SerialProtocol/FrameCollector.h"
#include "base/Tavbase/IException.h"
#include "base/Tavbase/Tavlog/Logger.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cxxabi.h>
#include <exception>
#include <span>
#include <thread>

namespace SerialProtocol
{

namespace
{

using Tavbase::IException;
using Tavbase::Tavlog::Logger;
using Tavbase::Tavlog::LogType;

constexpr std::size_t BUFFER_BYTES = 20; // more than the longest response and the byte that is too much
static_assert(BUFFER_BYTES > LONGEST_RESPONSE_BYTES);

// By the steady clock: the unit sets its wall clock from the network, maybe in the middle of a response.
constexpr std::chrono::seconds RESPONSE_TIME{3};
constexpr std::chrono::milliseconds NO_BYTE_PAUSE{100};

void Clear(TavubufferDynamic& buffer)
{
    std::fill_n(buffer.data, buffer.capacity, static_cast<unsigned char>(0));
}

void LogFailure(const char* what)
{
    Logger::GetInstance().Console() << LogType::Error << "DID: " << what << std::endl;
}

int HexDigit(char digit)
{
    return digit <= '9' ? digit - '0' : digit - 'a' + 10;
}

}

struct ISerialComm::Layout
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof" // the class has a base
    static_assert(offsetof(ISerialComm, lastStatus) == sizeof(ISerialCommInterface));
    static_assert(offsetof(ISerialComm, lastStatus) < offsetof(ISerialComm, txBuffer));
    static_assert(offsetof(ISerialComm, txBuffer) < offsetof(ISerialComm, rxBuffer));
#pragma GCC diagnostic pop
};

ISerialComm::ISerialComm() : txBuffer(BUFFER_BYTES), rxBuffer(BUFFER_BYTES)
{
}

ISerialComm::~ISerialComm() = default;

bool ISerialComm::OnSend(TavubufferDynamic& /*frame*/)
{
    return false;
}

bool ISerialComm::OnRead(TavubufferDynamic& /*buffer*/)
{
    return false;
}

bool ISerialComm::SendCmdMsg(unsigned char command)
{
    const CommandFrame frame = BuildCommandFrame(command);
    std::ranges::copy(frame, txBuffer.data);
    txBuffer.length = frame.size();
    return OnSend(txBuffer);
}

bool ISerialComm::ReadCmdMsg(unsigned int expected)
{
    if (expected > LONGEST_RESPONSE_BYTES)
    {
        return false;
    }
    Clear(rxBuffer);
    rxBuffer.capacity = expected;
    rxBuffer.length = 0;
    try
    {
        Receive(expected);
        return true;
    }
    catch (const std::exception& e)
    {
        LogFailure(e.what());
    }
    catch (const abi::__forced_unwind&)
    {
        throw; // the thread is being cancelled; swallowing this would end the process
    }
    catch (...)
    {
        LogFailure("unknown exception");
    }
    return false;
}

void ISerialComm::Receive(unsigned int expected)
{
    FrameCollector collector(std::span(rxBuffer.data, BUFFER_BYTES), expected);
    TavubufferDynamic received(1);
    const auto end = std::chrono::steady_clock::now() + RESPONSE_TIME;
    for (bool complete = false; !complete && std::chrono::steady_clock::now() < end;)
    {
        received.length = 0;
        if (OnRead(received) && received.data != nullptr)
        {
            complete = collector.Take(*received.data);
            rxBuffer.length = collector.Count();
        }
        else
        {
            std::this_thread::sleep_for(NO_BYTE_PAUSE);
        }
    }
    if (rxBuffer.length != expected || expected < FRAME_END_BYTES)
    {
        throw IException("read buffer ==> error");
    }
    if (!FrameIsAccepted(std::span(rxBuffer.data, expected)))
    {
        throw IException("CRC error");
    }
}

int ISerialComm::ParseRcvMsg(unsigned char* out)
{
    const Reply reply = DecodeReply(std::span<const unsigned char, REPLY_BYTES>(rxBuffer.data, REPLY_BYTES));
    switch (reply.result)
    {
    case Reply::Result::Status:
        lastStatus = reply.status;
        break;
    case Reply::Result::Acknowledged:
        break;
    case Reply::Result::NoIdentifier:
    case Reply::Result::Identifier:
        if (out == nullptr)
        {
            return static_cast<int>(Reply::Result::Error);
        }
        if (reply.result == Reply::Result::Identifier)
        {
            std::ranges::copy(reply.identifier, out);
        }
        break;
    case Reply::Result::Error:
        std::printf("ERROR FROM DRIVER ID...%d...", reply.type); // the line is left to whoever prints next
        break;
    case Reply::Result::Unknown:
        return static_cast<int>(reply.result);
    }
    ClearBuffers();
    return static_cast<int>(reply.result);
}

void ISerialComm::ClearBuffers()
{
    Clear(rxBuffer);
    Clear(txBuffer);
}

unsigned short ISerialComm::crc16(unsigned short init, unsigned char* data, unsigned char length)
{
    return Crc16(init, std::span(data, length));
}

unsigned char ISerialComm::Ascii2Byte(char* pair)
{
    return static_cast<unsigned char>(HexDigit(pair[0]) * 16 + HexDigit(pair[1]));
}

}
