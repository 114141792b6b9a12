# The options that all of the project's own code is compiled with: those of what is shipped, and
# with them those that look at it from inside while it runs.
add_library(shipped_options INTERFACE)
add_library(compile_options INTERFACE)
target_link_libraries(compile_options INTERFACE shipped_options)
target_compile_options(shipped_options INTERFACE
    -Wall -Wextra -Wconversion -Wshadow
    # File names in log lines and in debug data are those of the source tree.
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=
    -ffile-prefix-map=${PROJECT_BINARY_DIR}/=)
# A file is a file on 32-bit devices too, whatever its size, its inode number and, from 2038 on,
# its time: where `stat` fails on a document, a restart puts it back to its default text.
target_compile_definitions(shipped_options INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)

set(SANITIZE "" CACHE STRING "Sanitizers to build with, as for -fsanitize=")
if(SANITIZE)
    target_compile_options(compile_options INTERFACE
        -fsanitize=${SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(compile_options INTERFACE -fsanitize=${SANITIZE})
endif()

option(HARDEN "Build with the compiler's and the linker's protections" OFF)
if(HARDEN)
    target_compile_options(shipped_options INTERFACE
        -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -D_GLIBCXX_ASSERTIONS
        -fstack-protector-strong -fstack-clash-protection)
    target_link_options(shipped_options INTERFACE
        $<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-pie> -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack -Wl,--as-needed)
endif()

option(COVERAGE "Build with clang's source-based coverage" OFF)
if(COVERAGE)
    # The counters of a process that is killed count as well: they live in the profile's file.
    # All processes of an executable share it, so that they count atomically: whether a branch was
    # taken is the difference of two counters, which one lost count can make zero.
    target_compile_options(compile_options INTERFACE
        -fprofile-instr-generate -fprofile-update=atomic -fcoverage-mapping
        "SHELL:-mllvm -runtime-counter-relocation")
    target_link_options(compile_options INTERFACE -fprofile-instr-generate)
endif()
