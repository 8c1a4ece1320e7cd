# Times are computed in single precision step by step: no compiler may fuse two of the steps.
add_compile_options(-ffp-contract=off)

# Warnings are errors, for both compilers. -Wnon-virtual-dtor stays off: some interfaces keep a non-virtual
# destructor on purpose.
add_library(warnings INTERFACE)
target_compile_options(
    warnings
    INTERFACE -Wall
              -Wextra
              -Werror
              -Wpedantic
              -Wshadow=local
              -Wconversion
              -Wold-style-cast
              -Woverloaded-virtual
              $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety;-Wreserved-identifier>)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    target_compile_options(warnings INTERFACE -Wno-unknown-warning-option -Wno-delete-non-abstract-non-virtual-dtor)
endif()
