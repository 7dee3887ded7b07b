# Target-scoped helpers shared by every folder.
#
#   quellora_configure_target(target)            warnings, sanitizers, include root
#   quellora_add_library(name SOURCES … DEPENDS …)    one static library per folder
#   quellora_add_test(name SOURCES … DEPENDS … [LABELS …] [ENVIRONMENT …])
#                                                one Qt Test executable, run offscreen by ctest

function(quellora_configure_target target)
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wold-style-cast
        -Woverloaded-virtual -Wcast-align -Wunused -Wconversion -Wno-sign-conversion
        -Wformat=2 -Wimplicit-fallthrough
        $<$<CXX_COMPILER_ID:GNU>:-Wduplicated-cond -Wlogical-op -Wuseless-cast>
        $<$<BOOL:${QUELLORA_WERROR}>:-Werror>)
    target_compile_definitions(${target} PRIVATE
        QT_NO_CAST_TO_ASCII QT_NO_URL_CAST_FROM_STRING QT_NO_NARROWING_CONVERSIONS_IN_CONNECT
        QT_DEPRECATED_WARNINGS)
    target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/src)
    if(QUELLORA_SANITIZE)
        list(JOIN QUELLORA_SANITIZE "," sanitizers)
        target_compile_options(${target} PRIVATE -fsanitize=${sanitizers} -fno-omit-frame-pointer)
        target_link_options(${target} PRIVATE -fsanitize=${sanitizers})
    endif()
endfunction()

function(quellora_add_library name)
    cmake_parse_arguments(arg "" "" "SOURCES;DEPENDS;PRIVATE_DEPENDS" ${ARGN})
    add_library(${name} STATIC ${arg_SOURCES})
    set_target_properties(${name} PROPERTIES AUTOMOC ON)
    quellora_configure_target(${name})
    target_link_libraries(${name} PUBLIC ${arg_DEPENDS} PRIVATE ${arg_PRIVATE_DEPENDS})
endfunction()

function(quellora_add_test name)
    cmake_parse_arguments(arg "" "" "SOURCES;DEPENDS;LABELS;ENVIRONMENT" ${ARGN})
    add_executable(${name} ${arg_SOURCES})
    set_target_properties(${name} PROPERTIES
        AUTOMOC ON RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
    quellora_configure_target(${name})
    # Tests are compiled more often than they run.
    target_compile_options(${name} PRIVATE $<$<CONFIG:Release>:-O0>)
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
    target_link_libraries(${name} PRIVATE ${arg_DEPENDS} Qt6::Test)
    add_test(NAME ${name} COMMAND ${name})
    if(NOT arg_LABELS)
        set(arg_LABELS unit)
    endif()
    set_tests_properties(${name} PROPERTIES
        LABELS "${arg_LABELS}" TIMEOUT 120
        ENVIRONMENT "QT_QPA_PLATFORM=offscreen;${arg_ENVIRONMENT}")
endfunction()
