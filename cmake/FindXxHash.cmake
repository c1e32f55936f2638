# Finds libxxhash (XXH3) and defines the imported target xxHash::xxhash.
#   find_package(XxHash REQUIRED)
#   target_link_libraries(mine PRIVATE xxHash::xxhash)
# Uses pkg-config's libxxhash module as a hint when pkg-config is there; plain search otherwise.

find_package(PkgConfig QUIET)
if(PKG_CONFIG_FOUND)
    pkg_check_modules(PC_XXHASH QUIET libxxhash)
endif()

find_path(XxHash_INCLUDE_DIR NAMES xxhash.h HINTS ${PC_XXHASH_INCLUDEDIR} ${PC_XXHASH_INCLUDE_DIRS})
find_library(XxHash_LIBRARY NAMES xxhash HINTS ${PC_XXHASH_LIBDIR} ${PC_XXHASH_LIBRARY_DIRS})
set(XxHash_VERSION "${PC_XXHASH_VERSION}")

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(XxHash
    REQUIRED_VARS XxHash_LIBRARY XxHash_INCLUDE_DIR
    VERSION_VAR XxHash_VERSION)
mark_as_advanced(XxHash_INCLUDE_DIR XxHash_LIBRARY)

if(XxHash_FOUND AND NOT TARGET xxHash::xxhash)
    add_library(xxHash::xxhash UNKNOWN IMPORTED)
    set_target_properties(xxHash::xxhash PROPERTIES
        IMPORTED_LOCATION "${XxHash_LIBRARY}"
        INTERFACE_INCLUDE_DIRECTORIES "${XxHash_INCLUDE_DIR}")
endif()
