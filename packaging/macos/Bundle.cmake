# The macOS application bundle: names and versions in one place, and the target's properties.
#
# Included on every system: Info.plist is written and tested on all of them, used on macOS only.
# The oldest macOS we run on is CMAKE_OSX_DEPLOYMENT_TARGET, set once in the root CMakeLists.txt.

# The bundle's folder, executable and visible name.
set(QUELLORA_BUNDLE_NAME Quellora)
# Also the domain of the standard user defaults, and what the user's permissions are granted to:
# a change here makes every user start over.
set(QUELLORA_BUNDLE_IDENTIFIER com.quellora.app)
set(QUELLORA_BUNDLE_COPYRIGHT "Copyright © 2026 The Quellora authors")

set(QUELLORA_INFO_PLIST ${PROJECT_BINARY_DIR}/packaging/macos/Info.plist)
configure_file(${CMAKE_CURRENT_LIST_DIR}/Info.plist.in ${QUELLORA_INFO_PLIST} @ONLY)

# quellora_make_bundle(target): makes the executable an application bundle with Info.plist and icon.
# Call it where the target is made; the icon target must exist.
function(quellora_make_bundle target)
    set_target_properties(${target} PROPERTIES
        OUTPUT_NAME ${QUELLORA_BUNDLE_NAME}
        MACOSX_BUNDLE TRUE
        MACOSX_BUNDLE_INFO_PLIST ${QUELLORA_INFO_PLIST}
        INSTALL_RPATH "@executable_path/../Frameworks")
    set(icns ${PROJECT_BINARY_DIR}/assets/icons/Quellora.icns)
    target_sources(${target} PRIVATE ${icns})
    set_source_files_properties(${icns} PROPERTIES
        GENERATED TRUE MACOSX_PACKAGE_LOCATION Resources)
    add_dependencies(${target} quellora_app_icon)
endfunction()
