#ifndef BENCHMARKS_UNITPATH_H
#define BENCHMARKS_UNITPATH_H

#include <string>

namespace Benchmarks
{

/// Has this program's open() find another file under a path of the unit. One at a time.
class UnitPath
{
public:
    UnitPath(const char* unitPath, std::string target);
    ~UnitPath();
    UnitPath(const UnitPath&) = delete;
    UnitPath& operator=(const UnitPath&) = delete;

private:
    std::string target;
};

}

#endif
