# quellora_add_app_icon(target SVG …)
#
# Renders the icon at build time and adds `target`, part of the default build. Outputs, below the
# current binary folder:
#
#   png/<size>.png      square images for Linux desktops
#   Quellora.iconset/   the same images under the names that Apple's iconutil expects
#   Quellora.icns       the icon of the macOS bundle
#
# rsvg-convert renders; iconutil packs on a Mac and png2icns elsewhere. png2icns omits the @2x entries
# below 512, which is sufficient for checking a bundle; releases are built on a Mac. Without either
# tool there is no .icns, which only a macOS build needs.
# Sets QUELLORA_ICON_PNG_DIR and QUELLORA_ICNS (empty without a packer) for the caller.
function(quellora_add_app_icon target svg)
    find_program(QUELLORA_RSVG_CONVERT rsvg-convert REQUIRED)
    find_program(QUELLORA_ICONUTIL iconutil)
    find_program(QUELLORA_PNG2ICNS png2icns)

    set(png_dir ${CMAKE_CURRENT_BINARY_DIR}/png)
    set(iconset ${CMAKE_CURRENT_BINARY_DIR}/Quellora.iconset)
    set(icns ${CMAKE_CURRENT_BINARY_DIR}/Quellora.icns)
    file(MAKE_DIRECTORY ${png_dir} ${iconset})

    set(pictures "")
    foreach(size 16 24 32 48 64 128 256 512 1024)
        add_custom_command(OUTPUT ${png_dir}/${size}.png
            COMMAND ${QUELLORA_RSVG_CONVERT} --width ${size} --height ${size}
                --output ${png_dir}/${size}.png ${svg}
            DEPENDS ${svg}
            VERBATIM)
        list(APPEND pictures ${png_dir}/${size}.png)
    endforeach()

    set(entries "")
    foreach(points 16 32 128 256 512)
        math(EXPR doubled "2 * ${points}")
        foreach(entry "${points}=icon_${points}x${points}" "${doubled}=icon_${points}x${points}@2x")
            string(REGEX MATCH "^([0-9]+)=(.+)$" matched ${entry})
            set(picture ${png_dir}/${CMAKE_MATCH_1}.png)
            set(named ${iconset}/${CMAKE_MATCH_2}.png)
            add_custom_command(OUTPUT ${named}
                COMMAND ${CMAKE_COMMAND} -E copy ${picture} ${named}
                DEPENDS ${picture}
                VERBATIM)
            list(APPEND entries ${named})
        endforeach()
    endforeach()

    set(packed ${icns})
    if(CMAKE_HOST_APPLE AND QUELLORA_ICONUTIL)
        add_custom_command(OUTPUT ${icns}
            COMMAND ${QUELLORA_ICONUTIL} --convert icns --output ${icns} ${iconset}
            DEPENDS ${entries}
            VERBATIM)
    elseif(QUELLORA_PNG2ICNS)
        set(sources "")
        foreach(size 16 32 48 128 256 512 1024)
            list(APPEND sources ${png_dir}/${size}.png)
        endforeach()
        add_custom_command(OUTPUT ${icns}
            COMMAND ${QUELLORA_PNG2ICNS} ${icns} ${sources}
            DEPENDS ${sources}
            VERBATIM)
    elseif(APPLE)
        message(FATAL_ERROR "A bundle needs its icon: install iconutil (Xcode) or png2icns (icnsutils)")
    else()
        set(packed "")
    endif()

    add_custom_target(${target} ALL DEPENDS ${pictures} ${entries} ${packed})
    set(QUELLORA_ICON_PNG_DIR ${png_dir} PARENT_SCOPE)
    set(QUELLORA_ICNS "${packed}" PARENT_SCOPE)
endfunction()
