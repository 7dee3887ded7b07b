# CMake takes the rpath flag from the host system unless it is set.
set(CMAKE_SHARED_LIBRARY_RUNTIME_C_FLAG "-Wl,-rpath,")
