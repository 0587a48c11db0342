#ifndef TESTS_KIT_OUTPUT_H
#define TESTS_KIT_OUTPUT_H

#include <string>

namespace Kit
{

/// Takes what is written to standard output by write(), which is how the log's console sink writes, while
/// one lives. What goes through stdio (printf, std::cout) passes by.
class Output
{
public:
    Output();
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    static std::string Text(); ///< so far
};

}

#endif
