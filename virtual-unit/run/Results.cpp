#include "virtual-unit/run/Results.h"

#include "virtual-unit/common/Escapes.h"

#include <algorithm>
#include <array>
#include <cerrno>

namespace VirtualUnit
{

namespace
{

bool Failed(const Verdict& verdict)
{
    return !verdict.fault.empty();
}

std::string Time(std::chrono::duration<double> time)
{
    std::array<char, 64> text = {};
    std::snprintf(text.data(), text.size(), "%.3f", time.count());
    return text.data();
}

std::string TestCase(const std::string& suite, const std::string& name, std::chrono::duration<double> time,
                     const std::string& fault)
{
    const std::string head = "  <testcase classname=\"" + Escapes::Xml(suite) + "\" name=\"" +
                             Escapes::Xml(name) + "\" time=\"" + Time(time) + "\"";
    return fault.empty()
               ? head + "/>\n"
               : head + ">\n    <failure message=\"" + Escapes::Xml(fault) + "\"/>\n  </testcase>\n";
}

}

void Results::Add(const Verdict& verdict)
{
    const std::lock_guard lock(access);
    verdicts.push_back(verdict);
}

void Results::End(int status)
{
    const std::lock_guard lock(access);
    programStatus = status;
    lasted = std::chrono::steady_clock::now() - begin;
}

int Results::ExitStatus() const
{
    const std::lock_guard lock(access);
    return programStatus == 0 && std::ranges::any_of(verdicts, Failed) ? FAILED : programStatus;
}

int Results::WriteJUnit(std::FILE* file, const std::string& suite) const
{
    const std::lock_guard lock(access);
    const auto failures = std::ranges::count_if(verdicts, Failed) + (programStatus == 0 ? 0 : 1);
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites>\n<testsuite name=\"" +
                       Escapes::Xml(suite) + "\" tests=\"" + std::to_string(verdicts.size() + 1) +
                       "\" failures=\"" + std::to_string(failures) + "\" errors=\"0\" skipped=\"0\" time=\"" +
                       Time(lasted) + "\">\n";
    text += TestCase(suite, "the program", lasted,
                     programStatus == 0 ? "" : "it ended with status " + std::to_string(programStatus));
    for (const Verdict& verdict : verdicts)
    {
        text += TestCase(suite, "line " + std::to_string(verdict.line) + ": " + verdict.words, verdict.lasted,
                         verdict.fault);
    }
    text += "</testsuite>\n</testsuites>\n";
    return std::fputs(text.c_str(), file) >= 0 && std::fflush(file) == 0 ? 0 : errno;
}

}
