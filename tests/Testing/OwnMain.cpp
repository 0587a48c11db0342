// The main of a program that keeps it in a static library, as test frameworks do.

#include <cstdio>

int main()
{
    std::puts("its own main");
    return 7;
}
