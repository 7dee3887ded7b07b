# Target-scoped helpers shared by every folder.
#
#   quellora_configure_target(target)            warnings, hardening, sanitizers, include root
#   quellora_build_unoptimized(target)           for tests, which spend more time compiling than running
#   quellora_add_library(name SOURCES … DEPENDS …)    one static library per folder
#   quellora_add_qml_module(name URI … SOURCES … QML_FILES … [IMPORTS …] DEPENDS …)
#                                                one static library that is also a QML module
#   quellora_add_test_program(name [VIEWS] [SOURCES …] DEPENDS …)
#                                                one test program per folder
#   quellora_add_tests(program NAMES … [LABELS …] [TIMEOUT …] [ENVIRONMENT …] [RUNNER …])
#                                                adds test_<name>.cpp and runs it offscreen by ctest

# What Debian's own packages are hardened with, and checked containers. The first needs optimisation.
set(optimized $<AND:$<CONFIG:Release>,$<NOT:$<BOOL:$<TARGET_PROPERTY:QUELLORA_UNOPTIMIZED>>>>)
set(QUELLORA_HARDENING_OPTIONS
    $<${optimized}:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>
    $<$<CONFIG:Release>:-fstack-protector-strong;-D_GLIBCXX_ASSERTIONS>)
set(QUELLORA_HARDENING_LINK_OPTIONS "")
if(NOT APPLE)
    # The loader resolves every function at the start and makes the tables read-only.
    set(QUELLORA_HARDENING_LINK_OPTIONS -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
endif()

function(quellora_build_unoptimized target)
    set_target_properties(${target} PROPERTIES QUELLORA_UNOPTIMIZED ON)
    target_compile_options(${target} PRIVATE $<$<CONFIG:Release>:-O0>)
endfunction()

function(quellora_configure_target target)
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wold-style-cast
        -Woverloaded-virtual -Wcast-align -Wunused -Wconversion -Wno-sign-conversion
        -Wformat=2 -Wimplicit-fallthrough
        $<$<CXX_COMPILER_ID:GNU>:-Wduplicated-cond -Wlogical-op -Wuseless-cast>
        $<$<BOOL:${QUELLORA_WERROR}>:-Werror>
        ${QUELLORA_HARDENING_OPTIONS})
    target_link_options(${target} PRIVATE ${QUELLORA_HARDENING_LINK_OPTIONS})
    target_compile_definitions(${target} PRIVATE
        QT_NO_CAST_TO_ASCII QT_NO_URL_CAST_FROM_STRING QT_NO_NARROWING_CONVERSIONS_IN_CONNECT
        QT_DEPRECATED_WARNINGS)
    target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/src)
    if(QUELLORA_SANITIZE)
        list(JOIN QUELLORA_SANITIZE "," sanitizers)
        target_compile_options(${target} PRIVATE -fsanitize=${sanitizers} -fno-sanitize-recover=all
            -fno-omit-frame-pointer)
        target_link_options(${target} PRIVATE -fsanitize=${sanitizers})
        get_target_property(type ${target} TYPE)
        if(type STREQUAL EXECUTABLE)
            target_sources(${target} PRIVATE $<TARGET_OBJECTS:quellora_sanitizer_options>)
        endif()
    endif()
endfunction()

# Qt's and the standard library's headers take most of the compile time. They are precompiled once per
# set of compiler options and shared. The project's own headers are not, so that changing one
# recompiles only the files that include it.
#
#   quellora_precompile(target [VIEWS])    VIEWS for targets that link Qt6::Quick
function(quellora_precompile target)
    # Objective-C++ cannot share them. The check for macOS also shows that every file includes what
    # it uses.
    if(APPLE)
        return()
    endif()
    cmake_parse_arguments(arg "VIEWS" "" "" ${ARGN})
    get_target_property(type ${target} TYPE)
    set(kind core)
    if(arg_VIEWS)
        set(kind views)
    endif()
    if(type STREQUAL EXECUTABLE)
        string(APPEND kind _tests)
    endif()
    target_precompile_headers(${target} REUSE_FROM quellora_precompiled_${kind})
endfunction()

# Call after find_package(Qt6).
function(quellora_add_precompiled_headers)
    if(APPLE)
        return()
    endif()
    set(nothing ${CMAKE_BINARY_DIR}/precompiled.cpp)
    file(GENERATE OUTPUT ${nothing} CONTENT "int main() {}\n")
    set(core <algorithm> <chrono> <functional> <memory> <optional> <utility> <vector> <QtCore/QtCore>)
    foreach(kind core views core_tests views_tests)
        set(target quellora_precompiled_${kind})
        if(kind MATCHES "tests$")
            add_executable(${target} ${nothing})
            quellora_build_unoptimized(${target})
        else()
            add_library(${target} STATIC ${nothing})
        endif()
        quellora_configure_target(${target})
        target_precompile_headers(${target} PRIVATE ${core})
        if(kind MATCHES "^views")
            target_link_libraries(${target} PRIVATE Qt6::Quick)
            target_precompile_headers(${target} PRIVATE <QtQml/QtQml> <QtQuick/QtQuick>)
        else()
            target_link_libraries(${target} PRIVATE Qt6::Core)
        endif()
    endforeach()
endfunction()

function(quellora_add_library name)
    cmake_parse_arguments(arg "" "" "SOURCES;DEPENDS;PRIVATE_DEPENDS" ${ARGN})
    add_library(${name} STATIC ${arg_SOURCES})
    set_target_properties(${name} PROPERTIES AUTOMOC ON)
    quellora_configure_target(${name})
    target_link_libraries(${name} PUBLIC ${arg_DEPENDS} PRIVATE ${arg_PRIVATE_DEPENDS})
    if("${arg_DEPENDS}" MATCHES "Qt6::|quellora_")
        quellora_precompile(${name})
    endif()
endfunction()

set(QUELLORA_NO_WARNINGS "")
foreach(warning all extra pedantic shadow old-style-cast conversion useless-cast unused
        unused-parameter unused-variable unused-but-set-variable)
    string(APPEND QUELLORA_NO_WARNINGS "#pragma GCC diagnostic ignored \"-W${warning}\"\n")
endforeach()

# To use the module, reference its registration function (see keepQmlModule() in ui/Ui.h) and add
# qrc:/qt/qml to the engine's import path.
function(quellora_add_qml_module name)
    cmake_parse_arguments(arg "" "URI" "SOURCES;QML_FILES;IMPORTS;DEPENDS;PRIVATE_DEPENDS" ${ARGN})
    string(REPLACE "." "/" path ${arg_URI})
    # The alias drops the folder, so that types are named after their files.
    set(folders ${CMAKE_CURRENT_SOURCE_DIR})
    foreach(file IN LISTS arg_QML_FILES arg_SOURCES)
        get_filename_component(folder ${file} DIRECTORY)
        get_filename_component(base ${file} NAME)
        if(folder)
            list(APPEND folders ${CMAKE_CURRENT_SOURCE_DIR}/${folder})
            if(file MATCHES "\\.qml$")
                set_source_files_properties(${file} PROPERTIES QT_RESOURCE_ALIAS ${base})
            endif()
        endif()
    endforeach()
    list(REMOVE_DUPLICATES folders)
    qt_add_library(${name} STATIC ${arg_SOURCES})
    qt_add_qml_module(${name}
        URI ${arg_URI}
        VERSION 1.0
        RESOURCE_PREFIX /qt/qml
        OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/qml/${path}
        NO_PLUGIN ${QUELLORA_QML_OPTIONS}
        IMPORTS ${arg_IMPORTS}
        QML_FILES ${arg_QML_FILES})
    set_target_properties(${name} PROPERTIES AUTOMOC ON)
    quellora_configure_target(${name})
    # The generated registration includes headers by their bare names.
    target_include_directories(${name} PRIVATE ${folders})
    target_link_libraries(${name}
        PUBLIC Qt6::Qml Qt6::Quick ${arg_DEPENDS} PRIVATE ${arg_PRIVATE_DEPENDS})
    quellora_precompile(${name} VIEWS)
    # QML compiles to many small files with the same includes: build them as one unit. Warnings are
    # for handwritten code only.
    get_target_property(sources ${name} SOURCES)
    list(FILTER sources INCLUDE REGEX "qmlcache.*\\.cpp$")
    set_source_files_properties(${sources} PROPERTIES UNITY_GROUP qml)
    set_target_properties(${name} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP
        UNITY_BUILD_CODE_BEFORE_INCLUDE "${QUELLORA_NO_WARNINGS}")
    get_target_property(sources ${name} SOURCES)
    list(FILTER sources INCLUDE REGEX "qmltyperegistrations")
    set_source_files_properties(${sources} PROPERTIES COMPILE_OPTIONS -w)
endfunction()

# Lets the thread sanitizer know where the toolkit hands work from thread to thread.
function(quellora_tell_handovers name)
    if("thread" IN_LIST QUELLORA_SANITIZE)
        target_sources(${name} PRIVATE $<TARGET_OBJECTS:quellora_sanitizer_handover>)
        target_link_libraries(${name} PRIVATE ${CMAKE_DL_LIBS})
    endif()
endfunction()

function(quellora_add_test_program name)
    cmake_parse_arguments(arg "VIEWS" "" "SOURCES;DEPENDS" ${ARGN})
    add_executable(${name} ${PROJECT_SOURCE_DIR}/tests/support/TestProgram.cpp
        ${PROJECT_SOURCE_DIR}/tests/support/TestProgram.h ${arg_SOURCES})
    set_target_properties(${name} PROPERTIES
        AUTOMOC ON RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
    quellora_configure_target(${name})
    quellora_build_unoptimized(${name})
    target_include_directories(${name} PRIVATE
        ${PROJECT_SOURCE_DIR}/tests ${CMAKE_CURRENT_SOURCE_DIR})
    target_link_libraries(${name} PRIVATE ${arg_DEPENDS} Qt6::Test)
    quellora_tell_handovers(${name})
    if(arg_VIEWS)
        quellora_precompile(${name} VIEWS)
    else()
        quellora_precompile(${name})
    endif()
endfunction()

# RUNNER is a command that runs the program given as its last argument, for instance on a private
# display. VARIANT names a second run of the same tests in another environment.
function(quellora_add_tests program)
    cmake_parse_arguments(arg "" "TIMEOUT;VARIANT" "NAMES;LABELS;ENVIRONMENT;RUNNER" ${ARGN})
    if(NOT arg_LABELS)
        set(arg_LABELS unit)
    endif()
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 120)
    endif()
    # Tests on a private display choose the platform themselves.
    if(NOT arg_RUNNER)
        list(PREPEND arg_ENVIRONMENT QT_QPA_PLATFORM=offscreen)
    endif()
    foreach(name IN LISTS arg_NAMES)
        get_filename_component(base ${name} NAME)
        get_filename_component(folder ${name} DIRECTORY)
        set(test ${program}.${base})
        if(arg_VARIANT)
            string(APPEND test _${arg_VARIANT})
        else()
            string(JOIN "/" source ${folder} test_${base}.cpp)
            target_sources(${program} PRIVATE ${source})
        endif()
        add_test(NAME ${test} COMMAND ${arg_RUNNER} $<TARGET_FILE:${program}> ${base})
        set_tests_properties(${test} PROPERTIES
            LABELS "${arg_LABELS}" TIMEOUT ${arg_TIMEOUT} ENVIRONMENT "${arg_ENVIRONMENT}")
    endforeach()
endfunction()
