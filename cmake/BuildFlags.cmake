# Flags every target of the project shares, as targets to link rather than global settings.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE RelWithDebInfo)
endif()

option(ZEM_WARNINGS_AS_ERRORS "Stop at warnings; OFF for compilers that warn of more" ON)
option(ZEM_COVERAGE "Count the lines and branches that run" OFF)
# "address,undefined" or "thread"
set(ZEM_SANITIZE "" CACHE STRING "Sanitizers to build with, as the compiler's -fsanitize takes them")

add_library(zem_build_flags INTERFACE)
target_compile_options(
    zem_build_flags
    INTERFACE -Wall
              -Wextra
              -Wpedantic
              # A constructor's parameter may have its member's name; g++ has no finer switch.
              $<IF:$<CXX_COMPILER_ID:GNU>,-Wshadow=local,-Wshadow>
              -Wconversion
              -Wno-sign-conversion # which clang alone counts among the former
              -Wformat=2
              $<$<BOOL:${ZEM_WARNINGS_AS_ERRORS}>:-Werror>
              $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>
              $<$<COMPILE_LANGUAGE:CXX>:-Woverloaded-virtual>
              $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-Wthread-safety>)

# Hardened: a broken stack stops the process, what the loader has bound is read only, nothing that is
# written runs.
target_compile_options(
    zem_build_flags
    INTERFACE -fstack-protector-strong
              $<$<CXX_COMPILER_ID:GNU>:-fstack-clash-protection>
              $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE>
              $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>
              $<$<STREQUAL:${CMAKE_SYSTEM_PROCESSOR},aarch64>:-mbranch-protection=standard>)
target_link_options(zem_build_flags INTERFACE LINKER:-z,relro,-z,now,-z,noexecstack,-z,text)

if(ZEM_SANITIZE)
    # Instrumented, the standard library's own headers look as if they used uninitialised values.
    target_compile_options(
        zem_build_flags INTERFACE -fsanitize=${ZEM_SANITIZE} -fno-sanitize-recover=all
                                  -fno-omit-frame-pointer -O1 $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
    target_link_options(zem_build_flags INTERFACE -fsanitize=${ZEM_SANITIZE})
endif()
if(ZEM_COVERAGE)
    # Counted atomically, as the library has threads.
    target_compile_options(zem_build_flags INTERFACE --coverage -fprofile-update=atomic)
    target_link_options(zem_build_flags INTERFACE --coverage)
endif()

# What ships is built for size, all units as one, but for the units that every request runs through,
# which src/CMakeLists.txt names. On a host the objects serve tests as well, which link them one by one.
add_library(zem_small_flags INTERFACE)
set(in_one $<$<CXX_COMPILER_ID:GNU>:-flto=auto;-ffat-lto-objects>$<$<BOOL:${ANDROID}>:-flto>)
target_compile_options(zem_small_flags INTERFACE $<$<NOT:$<CONFIG:Debug>>:-Os;${in_one}> -ffunction-sections
                                                 -fdata-sections)

# For what does not ship, and is compiled more often than it runs: half the time for each unit. Named
# after zem_build_flags, whose level of optimisation it takes back.
add_library(zem_quick_flags INTERFACE)
target_compile_options(zem_quick_flags INTERFACE "SHELL:-O0 -U_FORTIFY_SOURCE")
target_link_options(zem_quick_flags INTERFACE $<$<CXX_COMPILER_ID:GNU>:-fno-lto>)

if(ANDROID)
    # Pages of 16 KiB, relocations packed as platform 30 can read them, and equal functions folded,
    # for which clang must say whose addresses are taken.
    target_compile_options(zem_build_flags INTERFACE -faddrsig)
    target_link_options(
        zem_build_flags INTERFACE LINKER:-z,max-page-size=16384 LINKER:--pack-dyn-relocs=relr LINKER:--icf=safe)
endif()
