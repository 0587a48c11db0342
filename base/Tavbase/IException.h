#ifndef BASE_TAVBASE_IEXCEPTION_H
#define BASE_TAVBASE_IEXCEPTION_H

#include "base/Export.h"

#include <array>
#include <exception>
#include <string>

namespace Tavbase
{

/**
 * The exception type of the device classes: a message and an integer code.
 *
 * The message is held inside the object, so that copying an exception never allocates and never fails.
 */
class TAVBASE_API IException : public std::exception
{
public:
    static constexpr std::size_t MESSAGE_SIZE = 1024; ///< bytes of the message, the closing zero included

    /**
     * @param text  the message; cut to MESSAGE_SIZE - 1 bytes, and at its first zero byte
     * @param value the code that belongs to it; what it means is told where it is thrown
     */
    explicit IException(const std::string& text, int value = 0) noexcept;

    const char* what() const noexcept override; ///< the message; valid as long as the object

    int Code() const noexcept { return code; } ///< as the constructor got it

private:
    std::array<char, MESSAGE_SIZE> message{};
    int code;
};

}

#endif
