# The macOS application bundle: names, identifier and target properties.
#
# Included on every system: Info.plist is generated and tested everywhere, used on macOS only.
# The root CMakeLists.txt sets the minimum macOS version, CMAKE_OSX_DEPLOYMENT_TARGET.

# The bundle's folder, executable and visible name.
set(QUELLORA_BUNDLE_NAME Quellora)
# Also the domain of the standard user defaults and the key of the user's granted permissions:
# changing it loses both.
set(QUELLORA_BUNDLE_IDENTIFIER com.quellora.app)
set(QUELLORA_BUNDLE_COPYRIGHT "Copyright © 2026 The Quellora authors")

set(QUELLORA_INFO_PLIST ${PROJECT_BINARY_DIR}/packaging/macos/Info.plist)
configure_file(${CMAKE_CURRENT_LIST_DIR}/Info.plist.in ${QUELLORA_INFO_PLIST} @ONLY)

# quellora_make_bundle(target): makes the executable an application bundle with Info.plist and icon.
# Call it in the target's directory; the icon target must exist.
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
