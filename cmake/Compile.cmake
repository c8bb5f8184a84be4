# How everything of this project is compiled.

list(APPEND CMAKE_MODULE_PATH "${PROJECT_SOURCE_DIR}/cmake")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 99)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()

add_library(zentadbpp_compile INTERFACE)
target_compile_options(zentadbpp_compile INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow
    $<$<BOOL:${ZENTADBPP_WERROR}>:-Werror>
    # The same sources give the same bytes in any directory. Of several maps that fit, the last one counts.
    "-ffile-prefix-map=${PROJECT_SOURCE_DIR}/="
    "-ffile-prefix-map=${PROJECT_BINARY_DIR}=build")

# GCC's own checks see trouble inside the standard library: -Wrestrict in any string addition before GCC 13, and
# -Wmaybe-uninitialized in what sanitizers add.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    target_compile_options(zentadbpp_compile INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wno-restrict>)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND ZENTADBPP_SANITIZE)
    target_compile_options(zentadbpp_compile INTERFACE -Wno-maybe-uninitialized)
endif()

if(ZENTADBPP_SANITIZE)
    add_compile_options(-fsanitize=${ZENTADBPP_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${ZENTADBPP_SANITIZE})
endif()
