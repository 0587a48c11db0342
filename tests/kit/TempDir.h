#ifndef TESTS_KIT_TEMPDIR_H
#define TESTS_KIT_TEMPDIR_H

#include <string>

namespace Kit
{

/// A directory of the test program's own, removed when the program ends.
class TempDir
{
public:
    static const std::string& Path();
};

}

#endif
