# CMake asks the machine it runs on whether programs have search paths for libraries.
set(CMAKE_SHARED_LIBRARY_RUNTIME_C_FLAG "-Wl,-rpath,")
