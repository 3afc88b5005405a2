#!/bin/bash
# Uses the library in every way that the README names, as its users do: an installed tree by pkg-config, by find_package and
# by the installed host; the sources inside a project of their own, by add_subdirectory and by FetchContent; shared and
# static. The user is a C program in a C project.
# usage: packaging_test.sh SOURCE_DIR BUILD_DIR C_COMPILER CXX_COMPILER
set -euo pipefail
source=$1 build=$2 compiler=$3
export CC=$3 CXX=$4
unset DESTDIR CMAKE_GENERATOR CFLAGS CXXFLAGS LDFLAGS
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() { echo "FAILED: $*"; exit 1; }
quietly() { "$@" >"$work/log" 2>&1 </dev/null || { cat "$work/log"; fail "$*"; }; }

exports() { cat "$source"/exports/korladownmixer/*.txt | sed '/^#/d; s/ .*//' | sort; }
# expect_exports LIBRARY: what the dynamic linker sees of it is what exports/ lists.
expect_exports() { diff <(nm -D --defined-only "$1" | awk '{print $3}' | sort) <(exports) || fail "exports of $1"; }

# expect_no_cpp PROGRAM
expect_no_cpp() { if ldd "$1" | grep -E 'libstdc|libc\+\+|libgcc'; then fail "$1 needs a C++ runtime"; fi }

mkdir "$work/user"
cat >"$work/user/user.c" <<'ENDC'
#include <korla/acli.h>
#include <korla/dsp/fft.h>
#include <korla/stream.h>
#include <stdio.h>
#include <string.h>

int main(void) {
    void* stream;
    float in[4] = {1, 2, 3, 4}, out[4];
    if (ACLI.create(0, 0, &stream) != ACLI_OK || ACLI.destroy(stream) != ACLI_OK)
        return 1;
    KRL_r4_fft_2(out, in, 2);
    if (out[0] != 4 || out[3] != -2)
        return 2;
    if (korla_speaker_by_name("SL") != 4 || korla_stream_memory(NULL) != 0)
        return 3;
    puts(ACLI.name);
    return strcmp(ACLI.name, session_identity);
}
ENDC
# WAY: how this project finds the library. Whatever the way, nothing of it but the targets may reach this project.
cat >"$work/user/CMakeLists.txt" <<'ENDC'
cmake_minimum_required(VERSION 3.22)
project(user C)
include(FetchContent)
get_cmake_property(before CACHE_VARIABLES)
if(WAY STREQUAL "find_package")
  find_package(Korla 2.0 QUIET)
  if(Korla_FOUND)
    message(FATAL_ERROR "version 1 answers for version 2")
  endif()
  find_package(Korla 1.0 REQUIRED)
elseif(WAY STREQUAL "add_subdirectory")
  add_subdirectory(${KORLA_SOURCE} korla)
elseif(WAY STREQUAL "FetchContent")
  FetchContent_Declare(korla SOURCE_DIR ${KORLA_SOURCE} BINARY_DIR ${PROJECT_BINARY_DIR}/korla)
  FetchContent_MakeAvailable(korla)
endif()
add_executable(user user.c)
target_link_libraries(user PRIVATE Korla::korlastream Korla::korladownmixer)

get_cmake_property(after CACHE_VARIABLES)
list(REMOVE_ITEM after ${before})
list(FILTER after EXCLUDE REGEX "^(KORLA_|Korla_|korladownmixer_|CMAKE_|_GNUInstallDirs_|FETCHCONTENT_)")
if(NOT after STREQUAL "")
  message(FATAL_ERROR "the cache received ${after}")
endif()
foreach(variable IN ITEMS BUILD_TYPE RUNTIME_OUTPUT_DIRECTORY LIBRARY_OUTPUT_DIRECTORY CXX_EXTENSIONS)
  if(NOT "${CMAKE_${variable}}" STREQUAL "")
    message(FATAL_ERROR "CMAKE_${variable} became ${CMAKE_${variable}}")
  endif()
endforeach()
if(NOT WAY STREQUAL "find_package")
  get_property(targets DIRECTORY ${KORLA_SOURCE} PROPERTY BUILDSYSTEM_TARGETS)
  get_property(parts DIRECTORY ${KORLA_SOURCE} PROPERTY SUBDIRECTORIES)
  if(NOT targets STREQUAL "korla_options;korladownmixer;korlastream" OR NOT parts STREQUAL "${KORLA_SOURCE}/src")
    message(FATAL_ERROR "not the library alone: targets ${targets}, folders ${parts}")
  endif()
endif()
ENDC

# use NAME WAY [CMAKE_OPTION...]: builds the user in $work/NAME and runs it.
use() {
  local name=$1 way=$2
  shift 2
  quietly cmake -S "$work/user" -B "$work/$name" -G Ninja -DWAY="$way" -DKORLA_SOURCE="$source" "$@"
  quietly cmake --build "$work/$name" -j2
  [[ $("$work/$name/user") == KorlaDownmixer ]] || fail "$name: user"
  expect_no_cpp "$work/$name/user"
}

# use_installed PREFIX: by pkg-config and by find_package.
use_installed() {
  local library_folder
  library_folder=$(dirname "$(find "$1" -name 'libkorladownmixer.*' -print -quit)")
  export PKG_CONFIG_PATH=$library_folder/pkgconfig
  # shellcheck disable=SC2046
  quietly "$compiler" -std=c99 -Wall -Werror "$work/user/user.c" -o "$1/user" $(pkg-config --cflags --libs korlastream korladownmixer)
  [[ $(LD_LIBRARY_PATH=$library_folder "$1/user") == KorlaDownmixer ]] || fail "pkg-config: user"
  LD_LIBRARY_PATH=$library_folder expect_no_cpp "$1/user"
  use "$(basename "$1")-find_package" find_package -DCMAKE_PREFIX_PATH="$1"
}

# ---- the shared library of this build, installed ------------------------------------------------------------------------
shared=$work/shared
quietly cmake --install "$build" --prefix "$shared"
use_installed "$shared"
[[ $(pkg-config --modversion korladownmixer) == $(sed -n '/^## /{s///p;q}' "$source/CHANGELOG.md") ]] ||
  fail "the change log begins with another version"
if [[ -x $shared/bin/korla-host ]]; then
  grep -q "^Library .*$shared/" <<<"$("$shared/bin/korla-host" info)" || fail "the installed host takes another library"
fi
# Wrappers of this build stand below the prefix and find the library there.
for wrapper in "$build"/gstreamer-1.0/*.so "$build"/lv2/korla.lv2/*.so "$build"/alsa-lib/*.so "$build"/python/korla/*.so; do
  if [[ -e $wrapper ]]; then
    installed=$(find "$shared" -name "$(basename "$wrapper")")
    [[ -n $installed ]] || fail "$(basename "$wrapper") is not installed below the prefix"
    grep -q "libkorlastream.* => $shared/" <<<"$(ldd "$installed")" || fail "$(basename "$wrapper") takes another library"
  fi
done
echo "installed: pkg-config, find_package, korla-host, wrappers"

documents=$shared/share/doc/korladownmixer
pages=$(cat "$shared"/include/korla/*.h "$shared"/include/korla/dsp/*.h "$documents/README.md" |
  grep -oE 'docs/[a-z0-9-]+\.md' | sort -u)
pages+=$'\n'$(cd "$documents" && grep -hoE '\]\([a-z][a-z0-9/.-]+\)' docs/*.md | sed 's:^](:docs/:; s:)$::' | sort -u)
for page in $pages; do
  [[ -f $documents/$page ]] || fail "$page is named and not installed"
done
[[ $pages == *docs/qmf-bank.md*docs/images/* ]] || fail "no pages found to look for"
echo "installed: the documents that headers, README and documents name"

# ---- inside a project; the second build finds the objects of the first -----------------------------------------------
use inside add_subdirectory -DBUILD_SHARED_LIBS=OFF
expect_no_cpp "$work/inside/user"
quietly cmake --install "$work/inside" --prefix "$work/nothing"
[[ ! -e $work/nothing ]] || fail "the user's install step installs the library"

archive=$work/inside/korla/libkorladownmixer.a
quietly "$compiler" -shared -Wl,--no-undefined -Wl,--whole-archive "$archive" -Wl,--no-whole-archive -lm -o "$work/all.so"
expect_exports "$work/all.so"
nm -g --defined-only "$archive" | awk '$2 ~ /[TDBRC]/ {print $3}' | sort -u | comm -23 - <(exports) | c++filt |
  grep -vE '\<(krl|korla)(::|_)' && fail "names that may be a user's, too"
echo "add_subdirectory, static: works, installs nothing, its names are apart"

quietly cmake "$work/inside" -DKORLA_INSTALL=ON
quietly cmake --install "$work/inside" --prefix "$work/static"
use_installed "$work/static"
echo "static, installed: pkg-config, find_package"

use inside FetchContent -DBUILD_SHARED_LIBS=ON -DKORLA_INSTALL=OFF
expect_exports "$(find "$work/inside/korla" -name 'libkorladownmixer.so.*.*.*')"
echo "FetchContent, shared: works"
