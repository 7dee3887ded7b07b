# Read after project(): imported packages name the machine's own header folder, which holds the
# headers of another C library. Enabled now, a language keeps what is set here.
enable_language(OBJCXX)
foreach(language IN ITEMS C CXX OBJC OBJCXX)
    set(CMAKE_${language}_IMPLICIT_INCLUDE_DIRECTORIES /usr/include /usr/include/x86_64-linux-gnu)
endforeach()

# The toolkit's description of itself asks for what its build for this machine uses.
foreach(target IN ITEMS WrapOpenGL::WrapOpenGL XKB::XKB WrapVulkanHeaders::WrapVulkanHeaders)
    add_library(${target} INTERFACE IMPORTED GLOBAL)
endforeach()
