// A program with one fault of each kind, to see that it is reported: sanitizer_faults KIND

#include <climits>
#include <cstdlib>
#include <string_view>
#include <thread>
#include <vector>

namespace {

void readBeyondTheEnd()
{
    const std::vector<int> three(3);
    volatile std::size_t fourth = 3;
    static volatile int value = 0;
    value = three.data()[fourth];
}

void leak()
{
    static char *volatile place = nullptr;
    place = new char[10];
    place = nullptr;
}

void overflow()
{
    volatile int most = INT_MAX;
    most = most + 1;
}

class Animal
{
public:
    virtual ~Animal() = default;
    virtual int legs() const { return 4; }
};

class Plant
{
public:
    virtual ~Plant() = default;
    virtual int leaves() const { return 2; }
};

void takeForAnother()
{
    Plant plant;
    static volatile int value = 0;
    void *const place = &plant;
    value = static_cast<Animal *>(place)->legs();
}

void race()
{
    int value = 0;
    std::thread other([&value] { ++value; });
    ++value;
    other.join();
}

} // namespace

int main(int argc, char **argv)
{
    const std::string_view kind = argc > 1 ? argv[1] : "";
    if (kind == "memory")
        readBeyondTheEnd();
    else if (kind == "leak")
        leak();
    else if (kind == "undefined")
        overflow();
    else if (kind == "type")
        takeForAnother();
    else if (kind == "race")
        race();
    else
        return EXIT_FAILURE;
    return EXIT_SUCCESS;
}
