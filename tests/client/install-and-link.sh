#!/bin/sh
# Installs the build tree into a temporary prefix, then builds a C program and
# checks the C++ header with the flags pkg-config gives for tessel-services,
# as an application would.
set -eu
build=$1
here=$(cd "$(dirname "$0")" && pwd)
prefix=$(mktemp -d "${TMPDIR:-/tmp}/tessel-install-XXXXXX")
trap 'rm -rf "$prefix"' EXIT

cmake --install "$build" --component tessel-services --prefix "$prefix" >/dev/null
pc=$(find "$prefix" -name tessel-services.pc)
export PKG_CONFIG_PATH="$(dirname "$pc")"
cflags=$(pkg-config --cflags tessel-services)
libs=$(pkg-config --libs tessel-services)
libdir=$(pkg-config --variable=libdir tessel-services)

# shellcheck disable=SC2086
"${CC:-cc}" -std=c11 -Wall -Wextra -Werror ${SANITIZE_FLAGS:-} $cflags -c -o "$prefix/link-check.o" "$here/link-check.c"
# Sanitizer runtimes for C++ code come with the C++ driver; a plain build links
# the same way with either.
# shellcheck disable=SC2086
"${CXX:-c++}" ${SANITIZE_FLAGS:-} -o "$prefix/link-check" "$prefix/link-check.o" $libs
LD_LIBRARY_PATH="$libdir" "$prefix/link-check" "unix:path=$prefix/no-bus"
# shellcheck disable=SC2086
echo '#include <tessel/TesselServices.h>' | "${CXX:-c++}" -std=c++20 -Wall -Werror $cflags -fsyntax-only -x c++ -
# Applications never see D-Bus types.
if grep -rl sdbus "$prefix/include"; then
    echo "public headers name sdbus" >&2
    exit 1
fi
test -f "$prefix/share/dbus-1/interfaces/com.tamber.Tessel.Registrar1.xml"
test -f "$prefix/share/dbus-1/interfaces/com.tamber.Tessel.Scheduler1.xml"
