# Installs a finished build into a scratch prefix, then builds and runs the consumer in
# consumer/ against it twice: through find_package, and through pkg-config.
#   cmake -DORV_BUILD_DIR=... -DORV_WORK_DIR=... -DORV_CONSUMER_DIR=... -DORV_GENERATOR=Ninja
#         -DORV_CXX_COMPILER=g++ [-DORV_CXX_FLAGS=...] [-DORV_LINK_FLAGS=...] -P PackagingCheck.cmake
cmake_minimum_required(VERSION 3.25)

foreach(_var ORV_BUILD_DIR ORV_WORK_DIR ORV_CONSUMER_DIR ORV_GENERATOR ORV_CXX_COMPILER)
    if(NOT DEFINED ${_var} OR "${${_var}}" STREQUAL "")
        message(FATAL_ERROR "packaging check: ${_var} is not set")
    endif()
endforeach()

set(_expected "consumer ok c00804fde80001")

function(orv_run what)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE _rc OUTPUT_VARIABLE _out ERROR_VARIABLE _err)
    if(NOT _rc EQUAL 0)
        message(FATAL_ERROR "packaging check: ${what} failed (${_rc})\n"
                            "command: ${ARGN}\n${_out}\n${_err}")
    endif()
    set(ORV_LAST_OUTPUT "${_out}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE "${ORV_WORK_DIR}")
set(_prefix "${ORV_WORK_DIR}/prefix")

orv_run("install" "${CMAKE_COMMAND}" --install "${ORV_BUILD_DIR}" --prefix "${_prefix}")
foreach(_hdr include/Mel/Bytes.h include/Keel/Assert.h)
    if(NOT EXISTS "${_prefix}/${_hdr}")
        message(FATAL_ERROR "packaging check: ${_hdr} not installed under ${_prefix}")
    endif()
endforeach()
file(GLOB_RECURSE _sos "${_prefix}/*/libOrvBgpPathAttributes.so")
file(GLOB_RECURSE _pcs "${_prefix}/*/OrvBgpPathAttributes.pc")
file(GLOB_RECURSE _cfgs "${_prefix}/*/OrvBgpPathAttributesConfig.cmake")
foreach(_what _sos _pcs _cfgs)
    list(LENGTH ${_what} _n)
    if(NOT _n EQUAL 1)
        message(FATAL_ERROR "packaging check: expected one match for ${_what}, got '${${_what}}'")
    endif()
endforeach()
cmake_path(GET _sos PARENT_PATH _libdir)
cmake_path(GET _pcs PARENT_PATH _pcdir)

# 1. find_package
set(_cbuild "${ORV_WORK_DIR}/consumer-cmake")
orv_run("consumer configure" "${CMAKE_COMMAND}" -S "${ORV_CONSUMER_DIR}" -B "${_cbuild}"
        -G "${ORV_GENERATOR}"
        "-DCMAKE_BUILD_TYPE=${ORV_BUILD_TYPE}"
        "-DCMAKE_PREFIX_PATH=${_prefix}"
        "-DCMAKE_FIND_PACKAGE_NO_PACKAGE_REGISTRY=ON"
        "-DCMAKE_CXX_COMPILER=${ORV_CXX_COMPILER}"
        "-DCMAKE_CXX_FLAGS=${ORV_CXX_FLAGS}"
        "-DCMAKE_EXE_LINKER_FLAGS=${ORV_LINK_FLAGS}")
orv_run("consumer build" "${CMAKE_COMMAND}" --build "${_cbuild}")
orv_run("consumer run (find_package)" "${_cbuild}/orv_consumer")
if(NOT ORV_LAST_OUTPUT MATCHES "${_expected}")
    message(FATAL_ERROR "packaging check: find_package consumer printed '${ORV_LAST_OUTPUT}'")
endif()
message(STATUS "find_package consumer: ${ORV_LAST_OUTPUT}")

# 2. pkg-config
find_program(_pkgconfig NAMES pkg-config pkgconf REQUIRED)
set(ENV{PKG_CONFIG_PATH} "${_pcdir}")
orv_run("pkg-config" "${_pkgconfig}" --cflags --libs OrvBgpPathAttributes)
string(STRIP "${ORV_LAST_OUTPUT}" _pcflags)
message(STATUS "pkg-config --cflags --libs: ${_pcflags}")
separate_arguments(_pcflags UNIX_COMMAND "${_pcflags}")
separate_arguments(_cxxflags UNIX_COMMAND "${ORV_CXX_FLAGS}")
separate_arguments(_ldflags UNIX_COMMAND "${ORV_LINK_FLAGS}")
set(_pexe "${ORV_WORK_DIR}/orv_consumer_pkgconfig")
orv_run("pkg-config consumer build" "${ORV_CXX_COMPILER}" -std=c++20 ${_cxxflags}
        "${ORV_CONSUMER_DIR}/main.cpp" -o "${_pexe}" ${_pcflags} ${_ldflags}
        "-Wl,-rpath,${_libdir}")
orv_run("consumer run (pkg-config)" "${_pexe}")
if(NOT ORV_LAST_OUTPUT MATCHES "${_expected}")
    message(FATAL_ERROR "packaging check: pkg-config consumer printed '${ORV_LAST_OUTPUT}'")
endif()
message(STATUS "pkg-config consumer: ${ORV_LAST_OUTPUT}")
