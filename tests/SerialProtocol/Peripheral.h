#ifndef TESTS_SERIALPROTOCOL_PERIPHERAL_H
#define TESTS_SERIALPROTOCOL_PERIPHERAL_H

#include "SerialProtocol/ISerialComm.h"
#include "base/Tavbase/TavubufferDynamic.h"

#include <cstddef>
#include <deque>
#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace SerialProtocolTests
{

/// A line to a peripheral on which the test says what each look finds.
class Peripheral : public SerialProtocol::ISerialComm
{
public:
    void Hear(std::string_view bytes) ///< each byte is found by a look of its own
    {
        line.insert(line.end(), bytes.begin(), bytes.end());
    }

    void Pause(std::size_t count = 1) ///< so many looks find nothing
    {
        line.insert(line.end(), count, std::nullopt);
    }

    bool OnSend(TavubufferDynamic& frame) override
    {
        sent.emplace_back(reinterpret_cast<const char*>(frame.data), static_cast<std::size_t>(frame.length));
        sendBuffer = &frame;
        return sends;
    }

    bool OnRead(TavubufferDynamic& buffer) override
    {
        EXPECT_EQ(buffer.capacity, 1u);
        EXPECT_EQ(buffer.length, 0u);
        ++looks;
        if (beforeLook)
        {
            beforeLook(looks);
        }
        const std::optional<char> found = line.empty() ? std::nullopt : line.front();
        if (!line.empty())
        {
            line.pop_front();
        }
        if (found)
        {
            *buffer.data = static_cast<unsigned char>(*found);
            buffer.length = 1;
            taken += *found;
        }
        return found.has_value();
    }

    std::function<void(std::size_t look)> beforeLook; ///< told the number of the look, from 1
    bool sends = true;

    std::deque<std::optional<char>> line; ///< what the next looks find; nothing when it is empty
    std::size_t looks = 0;
    std::string taken;             ///< all bytes that were found
    std::vector<std::string> sent; ///< frames
    TavubufferDynamic* sendBuffer = nullptr;
};

}

#endif
