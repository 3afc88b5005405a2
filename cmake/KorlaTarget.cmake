# Flags shared by the library, its tests and its benchmarks.
#
# KORLA_X86_LEVEL picks the instruction set on x86-64: "auto" takes x86-64-v3 (AVX2 and FMA) when the building machine
# runs it and the baseline otherwise; "v3" and "baseline" force one. Both give the same bits: the baseline rounds its
# fused steps through libm's fma, which is slower. aarch64 builds always target the armv8-a baseline.
set(KORLA_X86_LEVEL "auto" CACHE STRING "x86-64 instruction set: auto, v3 or baseline")
set_property(CACHE KORLA_X86_LEVEL PROPERTY STRINGS auto v3 baseline)

add_library(korla_options INTERFACE)
target_compile_features(korla_options INTERFACE cxx_std_20 c_std_99)
target_compile_options(korla_options INTERFACE -ffp-contract=off -Wall -Wextra -Wno-psabi)
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
  target_compile_options(korla_options INTERFACE -march=armv8-a)
endif()

option(KORLA_SANITIZE "Build with AddressSanitizer and UndefinedBehaviorSanitizer" OFF)
if(KORLA_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()
