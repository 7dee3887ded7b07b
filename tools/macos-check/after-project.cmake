# Included after project(). Imported packages add the host's include folders, which contain the wrong C
# library; implicit include folders are dropped. OBJCXX is enabled here so that enabling it later does
# not reset them.
enable_language(OBJCXX)
foreach(language IN ITEMS C CXX OBJC OBJCXX)
    set(CMAKE_${language}_IMPLICIT_INCLUDE_DIRECTORIES /usr/include /usr/include/x86_64-linux-gnu)
endforeach()

# Qt's CMake package requires the dependencies of its Linux build.
foreach(target IN ITEMS WrapOpenGL::WrapOpenGL XKB::XKB WrapVulkanHeaders::WrapVulkanHeaders)
    add_library(${target} INTERFACE IMPORTED GLOBAL)
endforeach()
