#include "tests/kit/Program.h"

#include "tests/kit/Emulator.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <map>
#include <spawn.h>
#include <unistd.h>

namespace Kit
{

namespace
{

constexpr const char* ARGUMENT = "--kit-program=";

std::map<std::string, Program::Work>& Programs()
{
    static std::map<std::string, Program::Work> programs;
    return programs;
}

std::vector<std::string> Environment(const std::vector<std::string>& added)
{
    std::vector<std::string> all;
    for (char** entry = environ; *entry != nullptr; ++entry)
    {
        const std::string present = *entry;
        const std::string name = present.substr(0, present.find('=') + 1);
        if (std::none_of(added.begin(), added.end(),
                         [&](const std::string& one) { return one.starts_with(name); }))
        {
            all.push_back(present);
        }
    }
    all.insert(all.end(), added.begin(), added.end());
    return all;
}

std::vector<char*> Pointers(std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts)
    {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

/// To the emulator, "/proc/self/exe" is itself.
std::string OwnPath()
{
    return std::filesystem::read_symlink("/proc/self/exe");
}

}

Program::Program(const char* programName, Work programWork)
{
    Programs()[programName] = programWork;
}

Program::Work Program::Find(const std::string& name)
{
    const auto found = Programs().find(name);
    return found == Programs().end() ? nullptr : found->second;
}

bool Program::RunByArguments(int argc, char** argv, int& status)
{
    const std::string argument = argc == 2 ? argv[1] : "";
    if (!argument.starts_with(ARGUMENT))
    {
        return false;
    }
    const Work work = Find(argument.substr(std::string(ARGUMENT).size()));
    if (work == nullptr)
    {
        std::fprintf(stderr, "kit: no program %s\n", argument.c_str());
        std::abort();
    }
    alarm(LONGEST_CHILD_SECONDS);
    status = work();
    return true;
}

ChildResult RunProgram(const std::string& name, const ProgramSetting& setting)
{
    std::array<int, 2> ends{};
    if (Program::Find(name) == nullptr || pipe2(ends.data(), O_CLOEXEC) != 0)
    {
        std::fprintf(stderr, "kit: program %s cannot be run\n", name.c_str());
        std::abort();
    }
    std::vector<std::string> arguments = Emulator::Command();
    arguments.insert(arguments.end(), {arguments.empty() ? "/proc/self/exe" : OwnPath(), ARGUMENT + name});
    std::vector<std::string> environment = Environment(setting.environment);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (setting.standardOutput == ProgramSetting::CLOSED)
    {
        posix_spawn_file_actions_addclose(&actions, STDOUT_FILENO);
    }
    else
    {
        const bool captured = setting.standardOutput == ProgramSetting::CAPTURED;
        posix_spawn_file_actions_adddup2(&actions, captured ? ends[1] : setting.standardOutput,
                                         STDOUT_FILENO);
    }
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
    pid_t child = -1;
    const int failure = posix_spawnp(&child, arguments.front().c_str(), &actions, nullptr,
                                     Pointers(arguments).data(), Pointers(environment).data());
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    if (failure != 0)
    {
        std::abort();
    }
    return AwaitChild(child, ends[0]);
}

}
