# Flags shared by the libraries, their tests and their benchmarks, what makes a library, and what is left out.
#
# KORLA_X86_LEVEL picks the instruction set on x86-64: "auto" takes x86-64-v3 (AVX2 and FMA) when the building machine
# runs it and the baseline otherwise; "v3" and "baseline" force one. Both give the same bits: the baseline rounds its
# fused steps through libm's fma, which is slower. aarch64 builds always target the armv8-a baseline.
set(KORLA_X86_LEVEL "auto" CACHE STRING "x86-64 instruction set: auto, v3 or baseline")
set_property(CACHE KORLA_X86_LEVEL PROPERTY STRINGS auto v3 baseline)

add_library(korla_options INTERFACE)
target_compile_features(korla_options INTERFACE cxx_std_20 c_std_99)
target_compile_options(korla_options INTERFACE -ffp-contract=off -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/= # no folder in a binary
  -Wall -Wextra -Wconversion -Wno-sign-conversion -Wshadow -Wno-psabi)
option(KORLA_WARNINGS_ARE_ERRORS "A warning ends the build" OFF)
if(KORLA_WARNINGS_ARE_ERRORS)
  target_compile_options(korla_options INTERFACE -Werror)
endif()
set(CMAKE_CXX_EXTENSIONS OFF)

if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
  set(korla_level ${KORLA_X86_LEVEL})
  if(korla_level STREQUAL "auto")
    if(NOT CMAKE_CROSSCOMPILING)
      include(CheckCSourceRuns)
      check_c_source_runs([[int main(void) {
          return !(__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") && __builtin_cpu_supports("bmi2"));
        }]] KORLA_MACHINE_RUNS_V3)
    endif()
    if(KORLA_MACHINE_RUNS_V3)
      set(korla_level v3)
    else()
      set(korla_level baseline)
    endif()
  endif()
  if(korla_level STREQUAL "v3")
    target_compile_options(korla_options INTERFACE -march=x86-64-v3)
  endif()
  message(STATUS "x86-64 instruction set: ${korla_level}")
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "aarch64|arm64")
  # Atomics in line: those out of line come with start-up code that asks the system for the CPU's features.
  target_compile_options(korla_options INTERFACE -march=armv8-a -mno-outline-atomics)
endif()

option(KORLA_SANITIZE "Build with AddressSanitizer and UndefinedBehaviorSanitizer" OFF)
option(KORLA_SANITIZE_THREADS "Build with ThreadSanitizer" OFF)
if(KORLA_SANITIZE_THREADS)
  add_compile_options(-fsanitize=thread)
  add_link_options(-fsanitize=thread)
endif()
if(KORLA_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()

# korla_library(NAME [FAMILY...]): a library without a C++ runtime that shows nothing but what exports/NAME lists, without
# the families that are named here. Its sources come from src/.
function(korla_library name)
  add_library(${name} ${korla_type})
  add_library(Korla::${name} ALIAS ${name})
  target_link_libraries(${name} PRIVATE $<BUILD_INTERFACE:korla_options> m)
  target_compile_definitions(${name} PRIVATE KORLA_BUILDING_LIBRARY)
  target_compile_options(${name} PRIVATE
    $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions;-fno-rtti;-fno-threadsafe-statics>
    ${korla_hardening} -fno-math-errno -fno-trapping-math -ffunction-sections -fdata-sections
    $<$<CONFIG:>:-O3;-DNDEBUG>)      # inside a project that names no build type the kernels are optimised all the same
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/src PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  set_target_properties(${name} PROPERTIES
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON POSITION_INDEPENDENT_CODE ON
    DEFINE_SYMBOL ""                 # shared or static: the same objects
    LINKER_LANGUAGE C)               # the C driver links no C++ runtime: libc and libm are all a library needs
  korla_link_library(${name})
  korla_version_script(${name} ${name} WITHOUT ${ARGN})
endfunction()
# Flags that make a fault in a program harder to exploit and cost nothing that the benchmarks show: landing pads for indirect
# branches and signed return addresses (no-ops on CPUs without them), stack protector, checked libc calls.
set(korla_hardening -fstack-protector-strong $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
  list(APPEND korla_hardening -fcf-protection=full)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "aarch64|arm64")
  list(APPEND korla_hardening -mbranch-protection=standard)
endif()

# How a library is linked.
# - No C++ runtime: CMake adds it all the same; nothing of it is needed, so that --as-needed drops it again.
# - No start files: loading runs no code of the library's, and nothing is in it that was built without landing pads.
# - What the library reads of its own data is bound when it is linked, so that no other library's symbol of the same name
#   takes its place; but for the two that a host may write to, which a program that links them may have a copy of.
function(korla_link_library target)
  target_link_options(${target} PRIVATE -static-libgcc -Wl,--as-needed -Wl,-z,relro,-z,now,-z,noexecstack
    -Wl,--gc-sections -Wl,-Bsymbolic-functions -Wl,--dynamic-list=${PROJECT_SOURCE_DIR}/cmake/interposable.txt)
  if(NOT KORLA_SANITIZE AND NOT KORLA_SANITIZE_THREADS)
    target_link_options(${target} PRIVATE -nostartfiles)
  endif()
endfunction()

# What is left out for want of something, and of what: said in one line at the end of a configuration.
function(korla_leave_out what)
  set_property(GLOBAL APPEND PROPERTY KORLA_LEFT_OUT "${what}")
endfunction()
