# Compiles and links the program for arm64 macOS on Linux with clang, the macOS C library's headers, our
# own declarations of the system's API and text stubs of libraries. The result is not executable; the
# build itself is the check.
#
# QUELLORA_MACOS_SDK is the folder filled by tools/macos-check/run.

if(NOT IS_DIRECTORY "${QUELLORA_MACOS_SDK}")
    message(FATAL_ERROR "QUELLORA_MACOS_SDK names no folder; use tools/macos-check/run")
endif()

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR arm64)
set(CMAKE_SYSTEM_VERSION 22)

foreach(language IN ITEMS C CXX OBJC OBJCXX)
    set(CMAKE_${language}_COMPILER_TARGET arm64-apple-macos13)
endforeach()
set(CMAKE_C_COMPILER /usr/bin/clang-14)
set(CMAKE_CXX_COMPILER /usr/bin/clang++-14)
set(CMAKE_OBJC_COMPILER /usr/bin/clang-14)
set(CMAKE_OBJCXX_COMPILER /usr/bin/clang++-14)
set(CMAKE_AR /usr/bin/llvm-ar-14)
set(CMAKE_RANLIB /usr/bin/llvm-ranlib-14)
set(CMAKE_STRIP /usr/bin/llvm-strip-14)
set(CMAKE_NM /usr/bin/llvm-nm-14)
set(CMAKE_INSTALL_NAME_TOOL /usr/bin/llvm-install-name-tool-14)
set(CMAKE_OSX_SYSROOT "${QUELLORA_MACOS_SDK}/sdk")
set(CMAKE_OSX_DEPLOYMENT_TARGET 13.0)
set(CMAKE_OSX_ARCHITECTURES arm64)

execute_process(COMMAND clang++-14 -print-resource-dir
    OUTPUT_VARIABLE clang_resources OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
set(libc "${QUELLORA_MACOS_SDK}/libc/lib/libc/include")
string(CONCAT c_flags
    "-nostdinc -isystem ${clang_resources}/include"
    " -isystem ${libc}/any-macos.13-any -isystem ${libc}/aarch64-macos.13-none"
    " -isystem ${libc}/any-macos-any -isystem ${QUELLORA_MACOS_SDK}/libraries")
string(CONCAT cxx_flags
    "-stdlib=libc++ -isystem ${QUELLORA_MACOS_SDK}/libc/lib/libcxx/include"
    " ${c_flags} -D_LIBCPP_ABI_VERSION=1 -D_LIBCPP_ABI_NAMESPACE=__1 -DBOOST_ASIO_HAS_STD_INVOKE_RESULT=1"
    " -D_LIBCPP_HAS_NO_VENDOR_AVAILABILITY_ANNOTATIONS")
set(declarations " -isystem ${CMAKE_CURRENT_LIST_DIR}/sdk/include -DSDK_STRICT")
set(CMAKE_C_FLAGS_INIT "${c_flags}")
set(CMAKE_CXX_FLAGS_INIT "${cxx_flags}")
set(CMAKE_OBJC_FLAGS_INIT "${c_flags}${declarations}")
set(CMAKE_OBJCXX_FLAGS_INIT "${cxx_flags}${declarations}")
set(CMAKE_EXE_LINKER_FLAGS_INIT "--ld-path=${CMAKE_CURRENT_LIST_DIR}/link -mlinker-version=711 -Wno-unused-command-line-argument")

set(CMAKE_USER_MAKE_RULES_OVERRIDE "${CMAKE_CURRENT_LIST_DIR}/rules.cmake")

# Compiler checks cannot link a program yet.
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES QUELLORA_MACOS_SDK)

# CMake packages and symbol names of the libraries come from the host.
set(Qt6_DIR /usr/lib/x86_64-linux-gnu/cmake/Qt6)
set(CMAKE_LIBRARY_PATH /usr/lib/x86_64-linux-gnu)
set(CMAKE_PREFIX_PATH /usr/lib/x86_64-linux-gnu/cmake /usr)
set(CMAKE_FIND_FRAMEWORK NEVER)
set(CMAKE_PROJECT_quellora_INCLUDE "${CMAKE_CURRENT_LIST_DIR}/after-project.cmake")
