#ifndef TESTS_GPIO_PRINTED_H
#define TESTS_GPIO_PRINTED_H

#include "tests/kit/Clock.h"

#include <chrono>
#include <iostream>
#include <mutex>
#include <streambuf>
#include <string>
#include <vector>

namespace GpioTests
{

/// Takes what is written to std::cout while one lives. A text counts when it has been flushed.
class Printed : public std::streambuf
{
public:
    Printed() : before(std::cout.rdbuf(this)) {}

    Printed(const Printed&) = delete;
    Printed& operator=(const Printed&) = delete;

    ~Printed() override { std::cout.rdbuf(before); }

    std::vector<std::string> Texts() const
    {
        const std::scoped_lock lock(access);
        return texts;
    }

    std::vector<std::chrono::nanoseconds> Times() const ///< of the texts, in virtual time
    {
        const std::scoped_lock lock(access);
        return times;
    }

    int Writes() const ///< how many pieces the texts came in
    {
        const std::scoped_lock lock(access);
        return writes;
    }

    bool IsEmpty() const ///< not even a text that has not been flushed
    {
        const std::scoped_lock lock(access);
        return texts.empty() && pending.empty();
    }

    void Forget()
    {
        const std::scoped_lock lock(access);
        texts.clear();
        times.clear();
    }

protected:
    int_type overflow(int_type character) override
    {
        const std::scoped_lock lock(access);
        ++writes;
        pending += traits_type::to_char_type(character);
        return character;
    }

    std::streamsize xsputn(const char* text, std::streamsize count) override
    {
        const std::scoped_lock lock(access);
        ++writes;
        pending.append(text, static_cast<std::size_t>(count));
        return count;
    }

    int sync() override
    {
        const std::scoped_lock lock(access);
        if (!pending.empty())
        {
            texts.push_back(pending);
            times.push_back(Kit::Clock::Elapsed());
            pending.clear();
        }
        return 0;
    }

private:
    mutable std::mutex access;
    int writes = 0;
    std::string pending;
    std::vector<std::string> texts;
    std::vector<std::chrono::nanoseconds> times;
    std::streambuf* before;
};

}

#endif
