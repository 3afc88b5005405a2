#!/bin/bash
# Installs the build into a fresh prefix and uses it from there as its users do: by pkg-config, by find_package and by
# the installed host.
# usage: packaging_test.sh BUILD_DIR C_COMPILER
set -euo pipefail
build=$1 compiler=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

DESTDIR='' cmake --install "$build" --prefix "$prefix" >"$work/install.log"
library_folder=$(dirname "$(find "$prefix" -name libkorladownmixer.so)")

cat >"$work/user.c" <<'END'
#include <korla/acli.h>
#include <stdio.h>
#include <string.h>

int main(void) {
    void* stream;
    if (ACLI.create(0, 0, &stream) != ACLI_OK || ACLI.destroy(stream) != ACLI_OK)
        return 1;
    puts(ACLI.name);
    return strcmp(ACLI.name, session_identity);
}
END

export PKG_CONFIG_PATH=$library_folder/pkgconfig
# shellcheck disable=SC2046
"$compiler" -std=c99 -Wall -Werror "$work/user.c" -o "$work/by-pkg-config" $(pkg-config --cflags --libs korladownmixer)
[[ $(LD_LIBRARY_PATH=$library_folder "$work/by-pkg-config") == KorlaDownmixer ]]
echo "pkg-config: works"

mkdir "$work/project"
cp "$work/user.c" "$work/project"
cat >"$work/project/CMakeLists.txt" <<'END'
cmake_minimum_required(VERSION 3.22)
project(user C)
find_package(Korla 1.0 REQUIRED)
add_executable(user user.c)
target_link_libraries(user PRIVATE Korla::korladownmixer)
END
cmake -S "$work/project" -B "$work/project/build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_C_COMPILER="$compiler" \
  >"$work/configure.log"
cmake --build "$work/project/build" >"$work/build.log"
[[ $("$work/project/build/user") == KorlaDownmixer ]]
echo "find_package: works"

if [[ -x $prefix/bin/korla-host ]]; then
  "$prefix/bin/korla-host" info | grep -q "^Library .*$prefix/"
  echo "installed host: finds the installed library"
fi
