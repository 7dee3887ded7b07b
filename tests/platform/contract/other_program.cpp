#include "platform/contract/OtherProgram.h"

/// The other program alone, for tests that are not written in C++.
int main(int argc, char **argv)
{
    return quellora::OtherProgram::run(argc, argv, {});
}
