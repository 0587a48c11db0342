#ifndef TESTS_VIRTUAL_UNIT_RECORDING_NOTES_H
#define TESTS_VIRTUAL_UNIT_RECORDING_NOTES_H

#include "virtual-unit/ports/PortObserver.h"
#include "virtual-unit/recording/ByteText.h"

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

/// Writes down what an observer is told, one line each: "10 > \"AT\\r\"", with the time in milliseconds.
class Notes : public VirtualUnit::PortObserver
{
public:
    explicit Notes(TimePoint theBegin) : begin(theBegin) {}

    std::vector<std::string> lines;

    void Sent(std::string_view bytes, TimePoint at) override
    {
        Add(at, "> " + VirtualUnit::ByteText::Of(bytes));
    }

    void Received(std::string_view bytes, TimePoint at) override
    {
        Add(at, "< " + VirtualUnit::ByteText::Of(bytes));
    }

    void Answered(const std::string& request, const std::string& answer, TimePoint at) override
    {
        Add(at, "? " + request + " -> " + answer);
    }

    void Happened(const std::string& event, TimePoint at) override { Add(at, "! " + event); }

private:
    void Add(TimePoint at, const std::string& text)
    {
        const auto time = std::chrono::duration_cast<std::chrono::milliseconds>(at - begin);
        lines.push_back(std::to_string(time.count()) + " " + text);
    }

    TimePoint begin;
};

#endif
