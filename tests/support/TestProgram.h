#pragma once

#include <QTest>

#include <type_traits>

namespace quellora {

/// Registry of the tests in one program. "test_query png_decoder" runs the tests of
/// test_png_decoder.cpp; further arguments are passed to Qt Test. Each file registers itself with
/// one of the macros below.
class TestProgram
{
public:
    using Main = int (*)(int argc, char **argv);

    /// @param file source file; determines the test's name
    /// @param main runs the test; its argv does not contain the test's name
    TestProgram(const char *file, Main main);

    /// Runs the tests in @p Test with an application object; void means none.
    template <class Application, class Test>
    static int run(int argc, char **argv)
    {
        if constexpr (std::is_void_v<Application>) {
            Test test;
            return QTest::qExec(&test, argc, argv);
        } else {
            Application application(argc, argv);
            Test test;
            return QTest::qExec(&test, argc, argv);
        }
    }
};

} // namespace quellora

/// Registers a test class; it runs with an application object of class @p Application (void: none).
#define QUELLORA_TEST(Application, Test)                                                           \
    QUELLORA_TEST_MAIN((quellora::TestProgram::run<Application, Test>))

/// Registers a file with its own main function.
#define QUELLORA_TEST_MAIN(main) static const quellora::TestProgram registeredTest(__FILE__, main);
