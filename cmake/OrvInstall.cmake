# Installation: library (+ census tool), headers under their include paths, a CMake package
# (find_package(OrvBgpPathAttributes) -> OrvBgpPathAttributes::OrvBgpPathAttributes) and a
# pkg-config module. Both are relocatable: they find the prefix from where they are installed.
include(CMakePackageConfigHelpers)

set(ORV_CMAKE_INSTALL_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/OrvBgpPathAttributes")
set(ORV_PKGCONFIG_INSTALL_DIR "${CMAKE_INSTALL_LIBDIR}/pkgconfig")

install(TARGETS ${ORV_INSTALL_TARGETS}
        EXPORT OrvBgpPathAttributesTargets
        LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
        ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}"
        RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}"
        INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")

# "OrvBgp/X.h" stays "OrvBgp/X.h"; "runtime/Mel/Bytes.h" becomes "Mel/Bytes.h", as consumers
# include it from the build tree through the runtime/ include path.
install(DIRECTORY "${PROJECT_SOURCE_DIR}/runtime/"
        DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}"
        FILES_MATCHING PATTERN "*.h")
if(EXISTS "${PROJECT_SOURCE_DIR}/OrvBgp")
    install(DIRECTORY "${PROJECT_SOURCE_DIR}/OrvBgp/"
            DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/OrvBgp"
            FILES_MATCHING PATTERN "*.h")
endif()
if(ORV_HAVE_CENSUS_CORE)
    install(DIRECTORY "${PROJECT_SOURCE_DIR}/tools/census/"
            DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/census"
            FILES_MATCHING PATTERN "*.h")
endif()

install(EXPORT OrvBgpPathAttributesTargets
        NAMESPACE OrvBgpPathAttributes::
        DESTINATION "${ORV_CMAKE_INSTALL_DIR}")

# Dependencies the exported targets name, found again in the consumer.
set(ORV_CONFIG_EXTRA_DEPS "")
if(ORV_HAVE_CENSUS_CORE)
    string(APPEND ORV_CONFIG_EXTRA_DEPS "find_dependency(ZLIB)\nfind_dependency(BZip2)\n")
endif()

configure_package_config_file(
    "${PROJECT_SOURCE_DIR}/cmake/OrvBgpPathAttributesConfig.cmake.in"
    "${PROJECT_BINARY_DIR}/OrvBgpPathAttributesConfig.cmake"
    INSTALL_DESTINATION "${ORV_CMAKE_INSTALL_DIR}")
write_basic_package_version_file(
    "${PROJECT_BINARY_DIR}/OrvBgpPathAttributesConfigVersion.cmake"
    COMPATIBILITY SameMinorVersion)
install(FILES
        "${PROJECT_BINARY_DIR}/OrvBgpPathAttributesConfig.cmake"
        "${PROJECT_BINARY_DIR}/OrvBgpPathAttributesConfigVersion.cmake"
        "${PROJECT_SOURCE_DIR}/cmake/FindXxHash.cmake"
        DESTINATION "${ORV_CMAKE_INSTALL_DIR}")

# pkg-config: the prefix is computed from ${pcfiledir}, so the module survives `--prefix`.
file(RELATIVE_PATH ORV_PC_PREFIX_FROM_PCDIR
     "/orvprefix/${ORV_PKGCONFIG_INSTALL_DIR}" "/orvprefix")
string(REGEX REPLACE "/$" "" ORV_PC_PREFIX_FROM_PCDIR "${ORV_PC_PREFIX_FROM_PCDIR}")
configure_file("${PROJECT_SOURCE_DIR}/cmake/OrvBgpPathAttributes.pc.in"
               "${PROJECT_BINARY_DIR}/OrvBgpPathAttributes.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/OrvBgpPathAttributes.pc"
        DESTINATION "${ORV_PKGCONFIG_INSTALL_DIR}")
