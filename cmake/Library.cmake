# The shared library, and beside it the same objects as a static one through which tests reach the internals.

get_property(room_objects GLOBAL PROPERTY ZENTADBPP_ROOM_OBJECTS)
get_property(room_headers GLOBAL PROPERTY ZENTADBPP_ROOM_HEADERS)
get_property(room_links GLOBAL PROPERTY ZENTADBPP_ROOM_LINKS)

# exports.txt is the one list of what the library exports: a name a line, # begins a comment.
set(ZENTADBPP_EXPORTS "${PROJECT_SOURCE_DIR}/src/libzentadbpp/exports.txt")
set(ZENTADBPP_HEADER "${PROJECT_SOURCE_DIR}/src/libzentadbpp/zentadbpp.h")
file(GLOB ZENTADBPP_CPP_HEADERS CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/bindings/cpp/*.hpp")
set(version_script "${PROJECT_BINARY_DIR}/exports.map")

set(exported "")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${ZENTADBPP_EXPORTS}")
file(STRINGS "${ZENTADBPP_EXPORTS}" lines)
foreach(line IN LISTS lines)
    string(REGEX REPLACE "#.*" "" name "${line}")
    string(STRIP "${name}" name)
    if(name)
        string(APPEND exported "    ${name};\n")
    endif()
endforeach()
file(CONFIGURE OUTPUT "${version_script}" CONTENT "{\nglobal:\n@exported@local:\n    *;\n};\n" @ONLY)

add_library(zentadbpp SHARED ${room_objects})
add_library(zentadbpp::zentadbpp ALIAS zentadbpp)
set_target_properties(zentadbpp PROPERTIES
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}
    LINKER_LANGUAGE CXX
    LINK_DEPENDS "${version_script}"
    LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}")
target_link_libraries(zentadbpp PRIVATE ${room_links} $<BUILD_INTERFACE:zentadbpp_compile>)
target_link_options(zentadbpp PRIVATE "-Wl,--version-script=${version_script}" -Wl,--as-needed)
if(NOT ZENTADBPP_SANITIZE)
    target_link_options(zentadbpp PRIVATE -Wl,-z,defs)
endif()

# Hosts see the public header, those for C++ over it, and nothing beside them.
set(public_include "${PROJECT_BINARY_DIR}/include/public")
file(MAKE_DIRECTORY "${public_include}")
foreach(header IN LISTS ZENTADBPP_HEADER ZENTADBPP_CPP_HEADERS)
    cmake_path(GET header FILENAME name)
    file(CREATE_LINK "${header}" "${public_include}/${name}" SYMBOLIC)
endforeach()
target_include_directories(zentadbpp INTERFACE
    $<BUILD_INTERFACE:${public_include}> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
# What zentadbpp.hpp needs.
target_compile_features(zentadbpp INTERFACE cxx_std_17)

add_library(zentadbpp_internals STATIC EXCLUDE_FROM_ALL ${room_objects})
set_target_properties(zentadbpp_internals PROPERTIES LINKER_LANGUAGE CXX)
target_link_libraries(zentadbpp_internals PUBLIC ${room_headers} ${room_links})
