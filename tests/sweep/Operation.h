#ifndef TESTS_SWEEP_OPERATION_H
#define TESTS_SWEEP_OPERATION_H

#include <functional>
#include <map>
#include <string>

/// What the sources of this folder are written with. Each operation of a class is tried with every failure
/// that the system may have for it: SweepTest.cpp.
namespace Sweep
{

/// Makes the surroundings, tries() the operation in them and returns; what it made is gone then.
using Operation = std::function<void()>;

using Operations = std::map<std::string, Operation>;

Operations& All(); ///< of this program, by name: "Serial.Open"

/// The operation itself, with the failure of the present cell. @param operation gives its result as a text
void Try(const std::function<std::string()>& operation);

inline std::string Text(bool result)
{
    return result ? "true" : "false";
}

inline std::string Text(int result)
{
    return std::to_string(result);
}

}

/// An operation: the class, a word for what is done, and the body.
#define SWEEP(theClass, what)                                                                                \
    static void theClass##what();                                                                            \
    [[maybe_unused]] static const bool is##theClass##what##There =                                           \
        Sweep::All().emplace(#theClass "." #what, theClass##what).second;                                    \
    static void theClass##what()

#endif
