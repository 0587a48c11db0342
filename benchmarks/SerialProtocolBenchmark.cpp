// The frames of the command protocol: the CRC, and a whole response collected, checked and decoded, each
// beside the same with Boost's CRC.

#include "SerialProtocol/Crc16.h"
#include "SerialProtocol/Frame.h"
#include "SerialProtocol/FrameCollector.h"
#include "benchmarks/Run.h"

#include <algorithm>
#include <array>
#include <benchmark/benchmark.h>
#include <boost/crc.hpp>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <numeric>
#include <span>
#include <string_view>

namespace
{

constexpr std::size_t LONG_BYTES = 255; // the most that a frame's length could tell

constexpr std::array<unsigned char, SerialProtocol::LONGEST_RESPONSE_BYTES> RESPONSE = {
    0xAA, 0x55, 0x05, 0x01, 0x01, 0x03, 0x10, 0x00, 0x00, 0x00, 0xAB, 0x05, 0x00, 0x00, 0x00, 0xEF, 0x0D};

using Bytes = std::span<const unsigned char>;

struct Library
{
    static unsigned int Crc(Bytes bytes) { return SerialProtocol::Crc16(0, bytes); }
};

struct Boost
{
    static unsigned int Crc(Bytes bytes)
    {
        boost::crc_optimal<16, 0x8005, 0, 0, false, false> crc;
        crc.process_bytes(bytes.data(), bytes.size());
        return crc.checksum();
    }
};

std::array<unsigned char, LONG_BYTES> LongText()
{
    std::array<unsigned char, LONG_BYTES> bytes{};
    std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(1));
    return bytes;
}

template <class Crc16>
void Crc(benchmark::State& state)
{
    auto bytes = LongText();
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(bytes);
        benchmark::DoNotOptimize(Crc16::Crc(bytes));
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes.size()));
}

/// The rule of FrameIsAccepted(), with a given CRC.
template <class Crc16>
bool Accepted(Bytes frame)
{
    const std::size_t crcOffset = frame.size() - SerialProtocol::FRAME_END_BYTES;
    const unsigned int crc = Crc16::Crc(frame.first(crcOffset));
    return frame[crcOffset] == crc >> 8 || frame[crcOffset + 1] == crc;
}

template <>
bool Accepted<Library>(Bytes frame)
{
    return SerialProtocol::FrameIsAccepted(frame);
}

template <class Crc16>
void Frames(benchmark::State& state)
{
    auto response = RESPONSE;
    const auto crcOffset = RESPONSE.size() - SerialProtocol::FRAME_END_BYTES;
    const unsigned int crc = Boost::Crc(Bytes(RESPONSE).first(crcOffset));
    response[crcOffset] = static_cast<unsigned char>(crc >> 8);
    response[crcOffset + 1] = static_cast<unsigned char>(crc & 0xFF);
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(response);
        std::array<unsigned char, SerialProtocol::LONGEST_RESPONSE_BYTES + 1> storage;
        SerialProtocol::FrameCollector collector(storage, response.size());
        for (const unsigned char byte : response)
        {
            collector.Take(byte);
        }
        if (collector.Count() != response.size() || !Accepted<Crc16>(Bytes(storage).first(response.size())))
        {
            state.SkipWithError("the frame was not accepted");
            return;
        }
        benchmark::DoNotOptimize(
            SerialProtocol::DecodeReply(Bytes(storage).first<SerialProtocol::REPLY_BYTES>()));
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}

BENCHMARK(Crc<Library>)->Name("Crc/Library")->UseRealTime();
BENCHMARK(Crc<Boost>)->Name("Crc/Boost")->UseRealTime();
BENCHMARK(Frames<Library>)->Name("Frames/Library")->UseRealTime();
BENCHMARK(Frames<Boost>)->Name("Frames/Boost")->UseRealTime();

}

int main(int argc, char** argv)
{
    const auto bytes = LongText();
    if (Library::Crc(bytes) != Boost::Crc(bytes))
    {
        return EXIT_FAILURE; // not the same work
    }
    return Benchmarks::Run(argc, argv);
}
