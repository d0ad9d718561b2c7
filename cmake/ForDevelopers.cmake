# SPDX-License-Identifier: MIT
# What the presets add to a build, and packages do without: what makes the next build fast.
find_program(CCACHE ccache)
if(CCACHE)
    # Paths below the checkout count as relative ones, so that any other checkout shares the results.
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env
        CCACHE_BASEDIR=${PROJECT_SOURCE_DIR} CCACHE_NOHASHDIR=1
        CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime ${CCACHE})
    # Without it, GCC does not tell ccache of the precompiled header that it has read.
    add_compile_options($<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>)
else()
    message(NOTICE "There is no ccache, so nothing of this build helps the next one.")
endif()

# A Release is linked as packages are.
find_program(MOLD mold)
if(MOLD AND NOT CMAKE_BUILD_TYPE STREQUAL Release)
    add_link_options(-fuse-ld=mold)
endif()
