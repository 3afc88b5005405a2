#!/bin/bash
# Debian packages of a build: they say one version, share no file, hold all that is installed and need nothing that they do
# not state; what they hold works from the folder that they were unpacked into.
# usage: deb_test.sh SOURCE_DIR BUILD_DIR C_COMPILER
#        deb_test.sh SOURCE_DIR PACKAGES_DIR C_COMPILER --debootstrap
# The latter installs packages of tools/make_packages into a new Debian system with apt, uses and removes them; as root, with a
# network.
set -euo pipefail
source=$1 build=$2 compiler=$3
unset DESTDIR
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAILED: $*"; exit 1; }

version=$(sed -n '/^## /{s///p;q}' "$source/CHANGELOG.md")
cat >"$work/user.c" <<'ENDC'
#include <korla/acli.h>
#include <korla/stream.h>
#include <stdio.h>
int main(void) { return puts(ACLI.name) < 0 || korla_speaker_by_name("SL") != 4; }
ENDC

if [[ ${4-} == --debootstrap ]]; then
  root=$work/root
  /usr/sbin/debootstrap --variant=minbase bookworm "$root" >"$work/log" || { tail "$work/log"; fail debootstrap; }
  files() { (cd "$root" && find . -xdev -path ./var -prune -o -path ./proc -prune -o -not -type d -print | sort); }
  in_root() { chroot "$root" env DEBIAN_FRONTEND=noninteractive "$@" >"$work/log" 2>&1 || { tail "$work/log"; fail "$*"; }; }
  in_root apt-get install -y --no-install-recommends gcc libc6-dev pkg-config python3-numpy gstreamer1.0-tools lilv-utils
  mkdir "$root/debs"
  cp "$build"/*.deb "$work/user.c" "$root/debs"
  # What they need is there first, so that what is left over is theirs.
  in_root sh -c 'apt-get install -y --no-install-recommends /debs/*.deb && apt-get remove -y ".*korla.*"'
  files >"$work/before"
  in_root sh -c 'apt-get install -y --no-install-recommends /debs/*.deb'
  in_root sh -c 'gcc -std=c99 /debs/user.c -o /debs/user $(pkg-config --cflags --libs korlastream korladownmixer) && /debs/user && rm /debs/user'
  in_root korla-host info
  in_root python3 -B -c 'import korla, numpy; print(korla.downmix(numpy.ones((64, 6)), "5.1", "stereo", 48000).shape)'
  in_root gst-inspect-1.0 korladownmix
  in_root sh -c 'lv2ls | grep korla'
  in_root sh -c 'ldconfig -p | grep libkorladownmixer.so.1; ldd $(find /usr -name "libasound_module_pcm_korla.so") | grep "libkorlastream.*=> /"'
  chroot "$root" ldconfig -p | grep korla
  in_root apt-get purge -y '.*korla.*'
  rm -rf "$root/root/.cache"
  diff "$work/before" <(files) || fail "left behind"
  echo "installed by apt, used, removed"
  exit
fi

(cd "$build" && cpack -B "$work/debs" >"$work/log" 2>&1) || { cat "$work/log"; fail cpack; }
root=$work/root
mkdir "$root"
for package in "$work"/debs/*.deb; do
  [[ $(dpkg-deb -f "$package" Version) == "$version" ]] || fail "$package: version"
  dpkg-deb -c "$package" | awk '$1 !~ /^d/ {print $6}' >>"$work/files"
  dpkg-deb -x "$package" "$root"
done
sort "$work/files" | uniq -d | grep . && fail "files in two packages"
DESTDIR=$work/whole cmake --install "$build" --prefix /usr >/dev/null
diff <(cd "$work/whole" && find . -not -type d | sort) <(sort "$work/files") || fail "packages and installation differ"
for package in "$work"/debs/*.deb; do
  name=$(dpkg-deb -f "$package" Package)
  needs=$(dpkg-deb -f "$package" Depends)
  case $name in
    libkorladownmixer1 | libkorlastream1) [[ $needs == libc6* && $needs != *,* ]] || fail "$name needs $needs" ;;
    libkorla-doc) [[ -z $needs ]] || fail "$name needs $needs" ;;
    *) [[ $needs == *"libkorlastream1 (= $version)"* ]] || fail "$name needs $needs" ;;
  esac
done
for library in korladownmixer korlastream; do # the version from which a program needs a symbol is stated for each
  symbols=$(dpkg-deb --ctrl-tarfile "$work/debs/lib${library}1_${version}"_*.deb | tar -xO ./symbols)
  diff <(sed -n 's/^ \(.*\)@Base .*/\1/p' <<<"$symbols" | sort) \
    <(cat "$source/exports/$library"/*.txt | sed '/^#/d; s/ .*//' | sort) || fail "symbols of $library"
done
echo "packages: $(ls "$work"/debs/*.deb | wc -l), $(wc -l <"$work/files") files"

libraries=$(dirname "$(find "$root" -name libkorladownmixer.so.1)")
export LD_LIBRARY_PATH=$libraries PKG_CONFIG_PATH=$libraries/pkgconfig
# shellcheck disable=SC2046
"$compiler" -std=c99 "$work/user.c" -o "$work/user" $(pkg-config --cflags --libs korlastream korladownmixer)
[[ $("$work/user") == KorlaDownmixer ]] || fail user
[[ $(pkg-config --modversion korlastream) == "$version" ]] || fail "pkg-config: version"
[[ $(readlink "$libraries/libkorladownmixer.so.1") == "libkorladownmixer.so.$version" ]] || fail "soname"
if [[ -x $root/usr/bin/korla-host ]]; then
  [[ $("$root/usr/bin/korla-host" --version) == "korla-host $version,"* ]] || fail "korla-host --version"
fi
python=$(find "$root" -path '*packages/korla' -type d)
if [[ -n $python ]]; then
  [[ $(PYTHONPATH=$(dirname "$python") /usr/bin/python3 -B -c 'import korla; print(korla.__version__)') == "$version" ]] ||
    fail "korla.__version__"
fi
echo "unpacked: a program, korla-host and Python run and say $version"
