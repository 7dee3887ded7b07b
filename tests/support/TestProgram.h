#pragma once

#include <QTest>

#include <type_traits>

namespace quellora {

/// One test program holds the tests of a whole folder: "test_query png_decoder" runs those of
/// test_png_decoder.cpp, further arguments are Qt Test's. Each file registers itself by one of the
/// macros below.
class TestProgram
{
public:
    using Main = int (*)(int argc, char **argv);

    /// @param file the source file, which names the test
    /// @param main runs it; its argv has no name of the test any more
    TestProgram(const char *file, Main main);

    /// Runs the tests in @p Test with an application object, or with none for void.
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

/// Registers a file whose tests need no more than the application object of class @p Application.
#define QUELLORA_TEST(Application, Test)                                                           \
    QUELLORA_TEST_MAIN((quellora::TestProgram::run<Application, Test>))

/// Registers a file that has a main function of its own.
#define QUELLORA_TEST_MAIN(main) static const quellora::TestProgram registeredTest(__FILE__, main);
