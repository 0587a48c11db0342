#ifndef VIRTUAL_UNIT_CALLS_PROGRAMFILE_H
#define VIRTUAL_UNIT_CALLS_PROGRAMFILE_H

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace VirtualUnit
{

/// What a file that is to be executed tells of itself in its ELF header; of a script, what its interpreter
/// tells. A file that cannot be read, or is neither, tells nothing.
class ProgramFile
{
public:
    explicit ProgramFile(const std::string& path);

    /// For people, where it is of another architecture than this process: what it is, and what this one is.
    std::optional<std::string> WhyForeign() const;

    bool IsStatic() const; ///< without the dynamic linker; one that is foreign need not be

private:
    std::string name; ///< of what runs
    bool isInterpreter = false;
    std::vector<char> beginning; ///< empty: no program
};

}

#endif
