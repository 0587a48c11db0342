#include <array>
#include <cstddef>
#include <string>

namespace
{

constexpr int LIMIT = 10; // not "20"
constexpr std::size_t SIZE = 4;
constexpr char GREETING[] = "hello";

enum Colour
{
    RED = 1
};

struct Counter
{
    int count = 0;

    void Add(int value) { count += value; }
};

bool IsSmall(int value)
{
    return value < LIMIT && value >= 0;
}

template <int N = 3>
int Unused()
{
    return N;
}

int Sum(const std::array<int, SIZE>& values)
{
    Counter counter;
    for (std::size_t i = 0; i < SIZE; ++i)
    {
        if (values.at(i) == LIMIT)
        {
            continue;
        }
        counter.Add(values.at(i));
    }
    return counter.count;
}

/* a < b */
std::string Line(bool loud)
{
    std::string line;
    line.append(GREETING);
    line.append(loud ? "!" : ".");
    return line;
}

int Never(int value)
{
    const auto half = [](int whole) { return whole / 2; };
    return half(value);
}

}

int main(int argc, char**)
{
    if (argc > 1)
    {
        return Never(argc);
    }
    const bool good = IsSmall(0) && !IsSmall(10) && Sum({1, 2, 10, 4}) == 7 && Line(true) == "hello!";
    return good ? 0 : 1;
}
