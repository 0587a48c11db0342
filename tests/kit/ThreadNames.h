#ifndef TESTS_KIT_THREADNAMES_H
#define TESTS_KIT_THREADNAMES_H

#include <string>
#include <vector>

namespace Kit
{

/// The names of the process's threads, as the system's tools show them. One that has been joined may take the
/// kernel a moment to forget: it is left out.
std::vector<std::string> ThreadNames();

}

#endif
