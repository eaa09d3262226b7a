# Flags shared by all targets (kipx_flags) and by the two libraries (kipx_library_flags).
#
# Same bits everywhere: contraction off, no fast-math. -fno-math-errno and -fno-trapping-math change
# no value; they only let the compiler vectorise conversions and selections.
add_library(kipx_flags INTERFACE)
target_compile_options(kipx_flags INTERFACE -Wall -Wextra -Wshadow -ffp-contract=off
    $<$<BOOL:${KIPX_WERROR}>:-Werror>
    $<$<CONFIG:>:-O2>) # within a project that names no build type
if(KIPX_SANITIZE)
    target_compile_options(kipx_flags INTERFACE -fsanitize=${KIPX_SANITIZE}
        -fno-sanitize-recover=all -fno-omit-frame-pointer -g1) # more costs half of the build's time
    target_link_options(kipx_flags INTERFACE -fsanitize=${KIPX_SANITIZE})
endif()

add_library(kipx_library_flags INTERFACE)
target_link_libraries(kipx_library_flags INTERFACE kipx_flags)
target_compile_options(kipx_library_flags INTERFACE
    -fvisibility=hidden -fno-math-errno -fno-trapping-math
    $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fvisibility-inlines-hidden>
    $<$<C_COMPILER_ID:GNU>:-fno-semantic-interposition>
    $<$<CXX_COMPILER_ID:Clang>:-Wno-dollar-in-identifier-extension>)
target_link_options(kipx_library_flags INTERFACE -Wl,-Bsymbolic-functions)
# What the loader writes it writes before anything runs, and then never again.
target_link_options(kipx_library_flags INTERFACE -Wl,-z,relro,-z,now,-z,noexecstack,-z,text)
if(NOT KIPX_SANITIZE)
    target_link_options(kipx_library_flags INTERFACE -Wl,--no-undefined)
endif()

# kipx_rows(FILE...): compile each file once per instruction set of the target processor, each time
# into the namespace that KIPX_SET names, and add the objects to the library.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
    set(KIPX_SETS baseline avx2 avx512)
else()
    set(KIPX_SETS baseline)
endif()
set(KIPX_SET_FLAGS_baseline "")
# Just what src/core/simd.cpp looks for in the processor.
set(KIPX_SET_FLAGS_avx2 -mavx2 -mbmi -mbmi2)
set(KIPX_SET_FLAGS_avx512 ${KIPX_SET_FLAGS_avx2} -mavx512f -mavx512bw -mavx512cd -mavx512dq
    -mavx512vl -mavx512vbmi -mprefer-vector-width=512)
# g++ 12 takes the deliberately undefined vectors of its own intrinsics for mistakes.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    list(APPEND KIPX_SET_FLAGS_avx512 -Wno-uninitialized -Wno-maybe-uninitialized)
endif()

# Unrolled and instrumented, row files would take longer to compile than all else. That addresses of
# rows are neither null nor wrap is checked before a row begins, and not again at every element; and
# what a fuzzer is to reach is decided before, too. This stands behind the flags that it takes from.
add_library(kipx_row_flags INTERFACE)
if(KIPX_SANITIZE MATCHES fuzzer)
    target_compile_options(kipx_row_flags INTERFACE -fno-sanitize=fuzzer-no-link)
endif()
if(KIPX_SANITIZE)
    target_compile_options(kipx_row_flags INTERFACE -fno-sanitize=null,pointer-overflow)
else()
    target_compile_options(kipx_row_flags INTERFACE $<$<NOT:$<CONFIG:Debug>>:-O3>)
endif()

function(kipx_rows)
    foreach(file IN LISTS ARGN)
        get_filename_component(stem ${file} NAME_WE)
        foreach(set IN LISTS KIPX_SETS)
            set(target kipx_${stem}_${set})
            add_library(${target} OBJECT ${CMAKE_CURRENT_SOURCE_DIR}/${file})
            target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/src
                                                         ${PROJECT_SOURCE_DIR}/include)
            target_link_libraries(${target} PRIVATE kipx_library_flags kipx_row_flags)
            target_compile_definitions(${target} PRIVATE KIPX_SET=${set} KIPX_SET_${set}=1)
            target_compile_options(${target} PRIVATE ${KIPX_SET_FLAGS_${set}}
                $<$<CXX_COMPILER_ID:Clang>:-Wno-pass-failed>)
            target_sources(Kipx PRIVATE $<TARGET_OBJECTS:${target}>)
        endforeach()
    endforeach()
endfunction()
