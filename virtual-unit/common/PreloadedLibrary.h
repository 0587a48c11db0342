#ifndef VIRTUAL_UNIT_COMMON_PRELOADEDLIBRARY_H
#define VIRTUAL_UNIT_COMMON_PRELOADEDLIBRARY_H

#include <filesystem>
#include <string>

/// A library that is preloaded to programs on the unit.
namespace VirtualUnit::PreloadedLibrary
{

/// Where the dynamic linker is told what to load before a program's own libraries, the latest addition first.
constexpr const char* VARIABLE = "LD_PRELOAD";

/// Beside the program where it was built, in the directory of libraries where it was installed.
/// @param name of the file @throws std::runtime_error when it is in neither
std::filesystem::path Find(const char* name);

/// How all processes of a run reach what this one has open, as long as it lives. Not by its own path:
/// LD_PRELOAD is taken apart at blanks and colons, and knows no quotation.
std::string PathOf(int descriptor);

/// Has the programs that this process executes from now on load it before their own libraries, also those
/// that are built with the address sanitizer. @param path without blanks and colons
void Preload(const std::string& path);

/// Adds an option to a list of them in the environment.
void AddOption(const char* variable, const std::string& option);

}

#endif
