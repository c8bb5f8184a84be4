# zentadbpp_room(<name> [SEES <room>...] [LINKS <library>...] [WITHOUT <file>...] [DEFINES <macro>...])
#
# One object library from src/<name>. Its include path holds itself, the rooms that it sees and what those see, each
# through a directory of links of its own, so that an include of any other room does not compile although all of them
# are written relative to src/.
function(zentadbpp_room name)
    cmake_parse_arguments(ARG "" "" "SEES;LINKS;WITHOUT;DEFINES" ${ARGN})

    set(links "${PROJECT_BINARY_DIR}/include/${name}")
    file(MAKE_DIRECTORY "${links}")
    file(CREATE_LINK "${PROJECT_SOURCE_DIR}/src/${name}" "${links}/${name}" SYMBOLIC)
    list(TRANSFORM ARG_SEES REPLACE "(.+)" "room_\\1_headers" OUTPUT_VARIABLE seen)
    add_library(room_${name}_headers INTERFACE)
    target_include_directories(room_${name}_headers INTERFACE "${links}")
    target_compile_options(room_${name}_headers INTERFACE "-ffile-prefix-map=${links}/=src/")
    target_link_libraries(room_${name}_headers INTERFACE ${seen})

    set_property(GLOBAL APPEND PROPERTY ZENTADBPP_ROOM_HEADERS room_${name}_headers)
    set_property(GLOBAL APPEND PROPERTY ZENTADBPP_ROOM_LINKS ${ARG_LINKS})

    file(GLOB sources CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/src/${name}/*.cpp")
    list(TRANSFORM ARG_WITHOUT PREPEND "${PROJECT_SOURCE_DIR}/src/${name}/")
    list(REMOVE_ITEM sources "" ${ARG_WITHOUT})
    add_library(room_${name} OBJECT ${sources})
    target_link_libraries(room_${name} PRIVATE zentadbpp_compile room_${name}_headers ${ARG_LINKS})
    target_compile_definitions(room_${name} PRIVATE ${ARG_DEFINES})
    set_property(GLOBAL APPEND PROPERTY ZENTADBPP_ROOM_OBJECTS $<TARGET_OBJECTS:room_${name}>)
endfunction()
