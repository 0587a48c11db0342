#include "base/Tavbase/Util/NewDate.h"

#include <array>
#include <cstring>
#include <ctime>
#include <type_traits>

namespace Tavbase::Util
{

namespace
{

/// The last text of a thread. It has no destructor, so that it still works while the thread is ending.
struct LastDate
{
    std::time_t second;
    std::size_t formatLength; ///< 0: nothing kept yet
    std::size_t textLength;
    std::array<char, 48> format;
    std::array<char, 80> text;
};

static_assert(std::is_trivially_destructible_v<LastDate>);

// Found at a fixed distance from the thread's own register: no call, and no allocation at a thread's first
// line.
[[gnu::tls_model("initial-exec")]] thread_local constinit LastDate last{};

bool IsKept(const std::string& format, std::time_t second)
{
    return last.second == second && last.formatLength == format.size() &&
           std::memcmp(last.format.data(), format.data(), format.size()) == 0;
}

void Keep(const std::string& format, std::time_t second, const std::string& text)
{
    if (format.size() > last.format.size() || text.size() > last.text.size())
    {
        return;
    }
    last.second = second;
    last.formatLength = format.copy(last.format.data(), last.format.size());
    last.textLength = text.copy(last.text.data(), last.text.size());
}

/// strftime() returns 0 for an empty text and for a buffer that is too small: a blank in front tells which.
std::string Format(const std::string& format, const std::tm& local)
{
    const std::string pattern = ' ' + format;
    std::string text(pattern.size() + 64, '\0');
    std::size_t length = 0;
    while ((length = std::strftime(text.data(), text.size(), pattern.c_str(), &local)) == 0)
    {
        text.resize(2 * text.size());
    }
    return text.substr(1, length - 1);
}

}

std::string NewDate(std::string format) // NOLINT(performance-unnecessary-value-param): the stated interface
{
    if (format.empty())
    {
        return {};
    }
    const std::time_t now = std::time(nullptr);
    if (!IsKept(format, now))
    {
        std::tm local{};
        if (localtime_r(&now, &local) == nullptr)
        {
            return {};
        }
        std::string text = Format(format, local);
        Keep(format, now, text);
        return text;
    }
    return {last.text.data(), last.textLength};
}

}
