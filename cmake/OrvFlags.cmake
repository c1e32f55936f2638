# Warning and sanitizer flags for every target of this project.
#   ORV_WERROR=ON                    -Wall -Wextra become errors
#   ORV_SANITIZE=address;undefined   ASan + UBSan, no recovery: the first report fails the run
#   ORV_SANITIZE=thread              TSan
#   ORV_SANITIZE=fuzzer              libFuzzer coverage + ASan + UBSan (clang only); fuzz_* link -fsanitize=fuzzer
# Sets ORV_SANITIZER_COMPILE_FLAGS_STRING / ORV_SANITIZER_LINK_FLAGS_STRING so that code built
# outside this tree against it (the packaging check) can use the same runtime.

add_compile_options(-Wall -Wextra)
if(ORV_WERROR)
    add_compile_options(-Werror)
endif()

set(_orv_cflags)
set(_orv_lflags)
if(ORV_SANITIZE STREQUAL "")
elseif(ORV_SANITIZE STREQUAL "address;undefined" OR ORV_SANITIZE STREQUAL "address,undefined")
    set(_orv_cflags -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
    set(_orv_lflags -fsanitize=address,undefined -fno-sanitize-recover=all)
elseif(ORV_SANITIZE STREQUAL "thread")
    set(_orv_cflags -fsanitize=thread -fno-omit-frame-pointer)
    set(_orv_lflags -fsanitize=thread)
elseif(ORV_SANITIZE STREQUAL "fuzzer")
    if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
        message(FATAL_ERROR "ORV_SANITIZE=fuzzer needs clang (the 'fuzz' preset uses clang++-14)")
    endif()
    set(_orv_cflags -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all
                    -fno-omit-frame-pointer)
    set(_orv_lflags -fsanitize=address,undefined -fno-sanitize-recover=all)
else()
    message(FATAL_ERROR "ORV_SANITIZE='${ORV_SANITIZE}': expected empty, 'address;undefined', "
                        "'thread' or 'fuzzer'")
endif()

add_compile_options(${_orv_cflags})
add_link_options(${_orv_lflags})
list(JOIN _orv_cflags " " ORV_SANITIZER_COMPILE_FLAGS_STRING)
list(JOIN _orv_lflags " " ORV_SANITIZER_LINK_FLAGS_STRING)
