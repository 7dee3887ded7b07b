#include "support/TestProgram.h"

#include <cstdio>
#include <map>
#include <string>
#include <string_view>

namespace quellora {

namespace {

std::map<std::string, TestProgram::Main, std::less<>> &registeredTests()
{
    static std::map<std::string, TestProgram::Main, std::less<>> tests;
    return tests;
}

/// The test's name: "b" for "a/test_b.cpp".
std::string testName(std::string_view file)
{
    constexpr std::string_view prefix = "test_";
    file = file.substr(file.find_last_of('/') + 1);
    file = file.substr(0, file.find_last_of('.'));
    return std::string(file.starts_with(prefix) ? file.substr(prefix.size()) : file);
}

} // namespace

TestProgram::TestProgram(const char *file, Main main)
{
    if (!registeredTests().emplace(testName(file), main).second)
        qFatal("Two tests are named %s", testName(file).c_str());
}

} // namespace quellora

int main(int argc, char **argv)
{
    const auto &tests = quellora::registeredTests();
    const auto test = argc > 1 ? tests.find(std::string_view(argv[1])) : tests.end();
    if (test == tests.end()) {
        std::fprintf(stderr, "Usage: %s TEST [ARGUMENT]...\nTests:\n", argv[0]);
        for (const auto &[name, main] : tests)
            std::fprintf(stderr, "  %s\n", name.c_str());
        return 2;
    }
    argv[1] = argv[0];
    return test->second(argc - 1, argv + 1);
}
