#include "examples/common/Options.h"

#include "base/Tavbase/Tavlog/Logger.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>

namespace Examples
{

Options Options::ParseOrExit(int argc, const char* const* argv, const char* usage,
                             std::initializer_list<Extra> extras)
{
    Options options;
    for (int i = 1; i < argc; ++i)
    {
        const std::string_view option = argv[i];
        const bool hasValue = i + 1 < argc;
        if (option == "--help" || option == "-h")
        {
            std::fputs(usage, stdout);
            std::exit(EXIT_SUCCESS); // NOLINT(concurrency-mt-unsafe): before any thread
        }
        unsigned int number = 0;
        if (option == "--seconds" && hasValue)
        {
            const std::string_view text = argv[++i];
            const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
            if (error == std::errc() && end == text.data() + text.size())
            {
                options.seconds = std::chrono::seconds(number);
                continue;
            }
        }
        else if (option == "--log" && hasValue)
        {
            options.logFile = argv[++i];
            continue;
        }
        else if (const auto* const extra = std::ranges::find(extras, option, &Extra::name);
                 extra != extras.end())
        {
            if (bool* const* const wanted = std::get_if<bool*>(&extra->target))
            {
                **wanted = true;
                continue;
            }
            if (hasValue)
            {
                *std::get<std::string*>(extra->target) = argv[++i];
                continue;
            }
        }
        std::fputs(usage, stderr);
        std::exit(WRONG_COMMAND_LINE); // NOLINT(concurrency-mt-unsafe): before any thread
    }
    return options;
}

void Options::SetUpLog() const
{
    using Tavbase::Tavlog::Logger;

    Logger::GetInstance().EnableConsole(false);
    if (!logFile.empty() && !Logger::GetInstance().OpenFile(logFile))
    {
        std::perror(logFile.c_str());
    }
}

}
