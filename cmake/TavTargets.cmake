# What every target of this project is built with. Nothing here changes a directory-wide setting: a
# target gets it by linking tav_build_flags, through the functions below.

add_library(tav_build_flags INTERFACE)
target_compile_features(tav_build_flags INTERFACE cxx_std_20)
target_compile_options(tav_build_flags INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wnon-virtual-dtor)
if(TAVDEVICE_WARNINGS_AS_ERRORS)
    target_compile_options(tav_build_flags INTERFACE -Werror)
endif()

# On a 32-bit target the C library's own widths end in 2038: times beyond are refused or wrong, and so are the
# files that carry them. The macros are for the targets of this tree alone. Handed on to applications they would
# change the applications' interfaces to other libraries; kept here they may change no type in a public header, which
# tests/consumer/dates.sh looks after. Elsewhere the widths are 64 bits anyway, and the macros would only make other
# names of the same functions (open64), which those who stand in for them would have to know.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    target_compile_definitions(tav_build_flags INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
endif()

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # A test is mostly instances of templates; the compiler takes a tenth of its time to look for memory to give back.
    target_compile_options(tav_build_flags INTERFACE
        $<$<BOOL:$<TARGET_PROPERTY:TAV_IS_TEST>>:--param=ggc-min-expand=1000>
        $<$<BOOL:$<TARGET_PROPERTY:TAV_IS_TEST>>:--param=ggc-min-heapsize=2000000>)
endif()

if(TAVDEVICE_HARDENED)
    # _FORTIFY_SOURCE needs an optimised build; a distribution may have set another level already.
    target_compile_options(tav_build_flags INTERFACE
        -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -fstack-protector-strong)
    target_link_options(tav_build_flags INTERFACE
        LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
endif()

if(TAVDEVICE_SANITIZE)
    target_compile_options(tav_build_flags INTERFACE
        -fsanitize=${TAVDEVICE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer
        # A test is compiled in three quarters of the time so; what it tests is checked.
        $<$<BOOL:$<TARGET_PROPERTY:TAV_IS_TEST>>:-fno-sanitize=undefined>)
    target_link_options(tav_build_flags INTERFACE -fsanitize=${TAVDEVICE_SANITIZE})
endif()

if(TAVDEVICE_COVERAGE)
    # Atomically, for many threads run the same lines. What tests are made of is not looked at.
    target_compile_options(tav_build_flags INTERFACE
        $<$<NOT:$<BOOL:$<TARGET_PROPERTY:TAV_IS_TEST>>>:--coverage>
        $<$<NOT:$<BOOL:$<TARGET_PROPERTY:TAV_IS_TEST>>>:-fprofile-update=atomic>)
    target_link_options(tav_build_flags INTERFACE --coverage)
endif()

# tav_add_library(<target>): one of the three shared libraries. Its symbols are hidden
# but for what carries the export macro; its headers are found from the root of the tree.
function(tav_add_library target)
    add_library(${target} SHARED)
    add_library(Tavdevice::${target} ALIAS ${target})
    set_target_properties(${target} PROPERTIES
        VERSION ${PROJECT_VERSION}
        SOVERSION ${PROJECT_VERSION_MAJOR}
        CXX_EXTENSIONS OFF
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON)
    target_compile_features(${target} PUBLIC cxx_std_20)
    target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:tav_build_flags>)
    target_link_options(${target} PRIVATE LINKER:--as-needed LINKER:--no-undefined)
    target_sources(${target} PUBLIC
        FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR})
    if(TAVDEVICE_SANITIZE)
        # The sanitizer's runtime is found in the program, not in the library.
        set_property(TARGET ${target} APPEND PROPERTY LINK_OPTIONS LINKER:-z,undefs)
    endif()
endfunction()

# tav_add_program(<target> SOURCE...): a program of this tree (example, tool, benchmark).
function(tav_add_program target)
    add_executable(${target} ${ARGN})
    set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF)
    target_link_libraries(${target} PRIVATE tav_build_flags)
endfunction()
