# The Debian packages `quellora` and `quellora-backend`: cpack --preset linux.
#
# Version: that of the project with Debian's revision; the first entry of debian/changelog has the
# same one, which a test compares.

set(debian_dir ${CMAKE_CURRENT_SOURCE_DIR}/debian)

# The licences of the page's scripts, the icons and the fonts, which are compiled in, come from the
# packages that were fetched; each becomes a paragraph of the copyright file.
function(quellora_license_text result file)
    file(READ ${file} text)
    # Square brackets and semicolons have a meaning in CMake's lists; the text is none.
    string(REGEX REPLACE "[ \t\r]+\n" "\n" text "${text}")
    string(STRIP "${text}" text)
    string(REGEX REPLACE "\n" "\n " text " ${text}")
    string(REGEX REPLACE "\n \n" "\n .\n" text "${text}")
    string(REGEX REPLACE "\n \n" "\n .\n" text "${text}")
    set(${result} "${text}" PARENT_SCOPE)
endfunction()

set(modules ${PROJECT_BINARY_DIR}/assets/node_modules)
quellora_license_text(QUELLORA_LICENSE_MIT ${PROJECT_SOURCE_DIR}/LICENSE)
quellora_license_text(QUELLORA_LICENSE_ICONS ${modules}/lucide-static/LICENSE)
quellora_license_text(QUELLORA_LICENSE_INTER ${modules}/@fontsource/inter/LICENSE)
quellora_license_text(QUELLORA_LICENSE_MONO ${modules}/@fontsource/jetbrains-mono/LICENSE)
quellora_license_text(QUELLORA_LICENSE_MARKED ${modules}/marked/LICENSE)
quellora_license_text(QUELLORA_LICENSE_HIGHLIGHT ${modules}/@highlightjs/cdn-assets/LICENSE)
quellora_license_text(QUELLORA_LICENSE_KATEX ${modules}/katex/LICENSE)
configure_file(debian/copyright.in ${CMAKE_CURRENT_BINARY_DIR}/debian/copyright.application @ONLY)
configure_file(debian/copyright-backend.in ${CMAKE_CURRENT_BINARY_DIR}/debian/copyright.backend
    @ONLY)
quellora_compress(${debian_dir}/changelog changelog.Debian)
quellora_compress(${PROJECT_SOURCE_DIR}/CHANGELOG.md changelog)

# quellora_install_debian_files(package component)
function(quellora_install_debian_files package component)
    set(documents share/doc/${package})
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/debian/copyright.${component}
        DESTINATION ${documents} RENAME copyright
        COMPONENT ${component}_debian EXCLUDE_FROM_ALL)
    install(FILES
        ${CMAKE_CURRENT_BINARY_DIR}/compressed/changelog.Debian.gz
        ${CMAKE_CURRENT_BINARY_DIR}/compressed/changelog.gz
        DESTINATION ${documents} COMPONENT ${component}_debian EXCLUDE_FROM_ALL)
    install(FILES ${debian_dir}/${package}.lintian-overrides
        DESTINATION share/lintian/overrides RENAME ${package}
        COMPONENT ${component}_debian EXCLUDE_FROM_ALL)
endfunction()

quellora_install_debian_files(quellora application)
# KWin compares its command with the path of the running program, so it is of no use below another
# prefix; the script packaging/linux/install writes that path.
install(FILES quellora-screenshot.desktop
    DESTINATION share/applications COMPONENT application_debian EXCLUDE_FROM_ALL)
set(components application application_debian)
if(TARGET quellora-backend)
    quellora_install_debian_files(quellora-backend backend)
    # They name the program by its path in the package, so they are of no use below another prefix.
    install(FILES quellora-backend.service DESTINATION lib/systemd/user
        COMPONENT backend_debian EXCLUDE_FROM_ALL)
    install(FILES system/quellora-backend.service DESTINATION lib/systemd/system
        COMPONENT backend_debian EXCLUDE_FROM_ALL)
    install(FILES ${PROJECT_SOURCE_DIR}/server/quellora-backend.example.toml
        DESTINATION share/doc/quellora-backend/examples
        COMPONENT backend_debian EXCLUDE_FROM_ALL)
    list(APPEND components backend backend_debian)
endif()

# Libraries that the programs are linked with are found by dpkg-shlibdeps. The rest:
#
# QML modules that src/**/*.qml imports and those that these load. A test compares the list.
set(QUELLORA_DEBIAN_QML_MODULES
    qml6-module-qtqml
    qml6-module-qtqml-models
    qml6-module-qtqml-workerscript
    qml6-module-qtquick
    qml6-module-qtquick-controls
    qml6-module-qtquick-templates
    qml6-module-qtquick-window
    qml6-module-qtwebchannel
    qml6-module-qtwebengine)
# Plugins and programs: Qt's plugins for SVG and WebP images and for Wayland, the page engine's processes and
# resources, xdg-open, the key names of the keyboard layouts, the message bus of the capture tool.
set(QUELLORA_DEBIAN_PARTS
    hicolor-icon-theme libsystemd0 libqt6svg6 libqt6webengine6-data libqt6webenginecore6-bin qt6-image-formats-plugins
    qt6-wayland xdg-utils xkb-data)

list(JOIN QUELLORA_DEBIAN_QML_MODULES ", " qml_modules)
list(JOIN QUELLORA_DEBIAN_PARTS ", " parts)

# Read by packaging/CMakeLists.txt and by include(CPack) there.
macro(quellora_set name)
    set(${name} ${ARGN} PARENT_SCOPE)
endmacro()

quellora_set(CPACK_QUELLORA_DEBIAN_COMPONENTS ${components})
quellora_set(CPACK_COMPONENT_APPLICATION_GROUP application)
quellora_set(CPACK_COMPONENT_APPLICATION_DEBIAN_GROUP application)
quellora_set(CPACK_COMPONENT_BACKEND_GROUP backend)
quellora_set(CPACK_COMPONENT_BACKEND_DEBIAN_GROUP backend)

quellora_set(CPACK_DEB_COMPONENT_INSTALL ON)
quellora_set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
quellora_set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
quellora_set(CPACK_DEBIAN_PACKAGE_MAINTAINER "The Quellora authors <quellora@localhost>")
quellora_set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
quellora_set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
quellora_set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

quellora_set(CPACK_DEBIAN_APPLICATION_PACKAGE_NAME quellora)
quellora_set(CPACK_DEBIAN_APPLICATION_PACKAGE_SECTION utils)
quellora_set(CPACK_DEBIAN_APPLICATION_PACKAGE_DEPENDS "${qml_modules}, ${parts}")
quellora_set(CPACK_DEBIAN_APPLICATION_PACKAGE_RECOMMENDS
    "quellora-backend, xdg-desktop-portal")
quellora_set(CPACK_DEBIAN_APPLICATION_DESCRIPTION
"desktop overlay assistant
Quellora lives in a floating, translucent panel. A hot key takes a
screenshot and sends it with a question to the backend; the answer is
streamed back as formatted text with highlighted code.

The panel never takes the focus, stays above other windows and is left out
of the screenshot. Threads can be kept, annotated and searched. It runs on
X11 and on Wayland desktops, on GNOME's through XWayland.")

quellora_set(CPACK_DEBIAN_BACKEND_PACKAGE_NAME quellora-backend)
quellora_set(CPACK_DEBIAN_BACKEND_PACKAGE_SECTION net)
quellora_set(CPACK_DEBIAN_BACKEND_PACKAGE_DEPENDS "tesseract-ocr-eng")
quellora_set(CPACK_DEBIAN_BACKEND_PACKAGE_RECOMMENDS "ca-certificates")
quellora_set(CPACK_DEBIAN_BACKEND_PACKAGE_SUGGESTS "quellora")
quellora_set(CPACK_DEBIAN_BACKEND_DESCRIPTION
"local backend of the Quellora assistant
Answers the requests of the Quellora app on one machine: accounts, sessions,
questions with screenshots and usage, in an SQLite file or in PostgreSQL.

With a model configured it forwards questions to it and streams the answer.
Without one it works offline and shows the text that it reads in the
screenshot. Systemd units are included, one for the user's own service
manager and one for the system's, which serves a team. None is enabled by
itself.")
