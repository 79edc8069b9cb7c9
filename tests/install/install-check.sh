#!/usr/bin/env bash
# Installs a build tree into a scratch prefix and checks what a user gets: every
# file in its place, the systemd user unit accepted by systemd-analyze, the
# D-Bus activation files loaded by a private bus, whose first call starts the
# daemon, and the library usable through pkg-config.
# Usage: tests/install/install-check.sh BUILD_DIR
set -euo pipefail

build=$(cd "${1:?usage: install-check.sh BUILD_DIR}" && pwd)
scratch=$(mktemp -d)
bus_pid=""
cleanup() {
    if [ -n "$bus_pid" ]; then
        kill "$bus_pid" 2>/dev/null || true
        wait "$bus_pid" 2>/dev/null || true
    fi
    rm -rf "$scratch"
}
trap cleanup EXIT
prefix=$scratch/prefix
failures=0

fail() {
    echo "install-check: FAIL: $*" >&2
    failures=$((failures + 1))
}
mark=0
# Reports a passed step when nothing failed since the last report.
ok() {
    [ "$failures" -eq "$mark" ] && echo "install-check: ok: $*"
    mark=$failures
}

# An install directory as configured, under the scratch prefix.
installed_dir() {
    local value
    value=$(sed -n "s/^$1:[A-Z]*=//p" "$build/CMakeCache.txt")
    value=${value:-$2}
    case $value in
    /*)
        echo "install-check: $1 is absolute ($value); only prefix-relative trees can be checked" >&2
        exit 2
        ;;
    esac
    echo "$prefix/$value"
}

if ! cmake --install "$build" --prefix "$prefix" >"$scratch/install.log" 2>&1; then
    cat "$scratch/install.log" >&2
    echo "install-check: FAIL: cmake --install" >&2
    exit 1
fi

bin=$(installed_dir CMAKE_INSTALL_BINDIR bin)
lib=$(installed_dir CMAKE_INSTALL_LIBDIR lib)
include=$(installed_dir CMAKE_INSTALL_INCLUDEDIR include)
dataroot=$(installed_dir CMAKE_INSTALL_DATAROOTDIR share)
data=$(installed_dir CMAKE_INSTALL_DATADIR "${dataroot#"$prefix/"}")
man=$(installed_dir CMAKE_INSTALL_MANDIR "${dataroot#"$prefix/"}/man")
units=$(installed_dir TESSEL_SYSTEMD_USER_UNIT_DIR lib/systemd/user)
bundles=$prefix/lib/tessel/Applications
names=(com.tamber.Tessel.Registrar com.tamber.Tessel.Scheduler com.tamber.Tessel.Control)

# --- files -------------------------------------------------------------------
# Kind: x executable, f regular file (links to either count), l symbolic link.
expected=(
    "x $bin/tesseld"
    "x $bin/tesselctl"
    "l $bin/tesselctl"
    "x $bundles/tesselctl.tapp/tesselctl"
    "f $bundles/tesselctl.tapp/Manifest.plist"
    "f $lib/libtessel.so.1"
    "l $lib/libtessel.so"
    "f $lib/libtessel-services.so.1"
    "f $lib/pkgconfig/tessel.pc"
    "f $lib/pkgconfig/tessel-services.pc"
    "f $include/tessel/Tessel.h"
    "f $include/tessel/TesselExport.h"
    "f $include/tessel/TesselServices.h"
    "f $units/tesseld.service"
    "f $data/dbus-1/interfaces/com.tamber.Tessel.Control1.xml"
    "f $data/dbus-1/interfaces/com.tamber.Tessel.Registrar1.xml"
    "f $data/dbus-1/interfaces/com.tamber.Tessel.Scheduler1.xml"
    "f $data/tessel/examples/README.md"
)
for name in "${names[@]}"; do
    expected+=("f $data/dbus-1/services/$name.service")
done
for app in Chat Reminders News; do
    expected+=("f $data/tessel/examples/$app.tapp/Manifest.plist"
        "f $data/tessel/examples/$app.tapp/categories.json")
done
if grep -q '^HELP2MAN:FILEPATH=/' "$build/CMakeCache.txt"; then
    expected+=("f $man/man1/tesseld.1" "f $man/man1/tesselctl.1")
fi
for entry in "${expected[@]}"; do
    kind=${entry%% *}
    path=${entry#* }
    case $kind in
    x) [ -x "$path" ] && [ -f "$path" ] ;;
    l) [ -L "$path" ] ;;
    f) [ -f "$path" ] ;;
    esac || fail "missing or not $kind: ${path#"$prefix/"}"
done
ok "${#expected[@]} installed files checked"

# --- the systemd user unit -----------------------------------------------------
unit=$units/tesseld.service
if [ -f "$unit" ]; then
    for line in "Type=dbus" "BusName=com.tamber.Tessel.Control" "ExecStart=$bin/tesseld" \
        "Restart=on-failure" "Documentation=man:tesseld(1)" "NoNewPrivileges=yes"; do
        grep -qxF "$line" "$unit" || fail "tesseld.service lacks $line"
    done
    if command -v systemd-analyze >/dev/null; then
        # The user manager needs a runtime directory; any warning counts as a
        # failure, since systemd ignores what it does not understand.
        mkdir -m 700 "$scratch/run"
        man_check=(--man=no)
        if [ -f "$man/man1/tesseld.1" ] && command -v man >/dev/null; then
            man_check=(--man=yes)
        fi
        if XDG_RUNTIME_DIR=$scratch/run MANPATH=$man systemd-analyze verify --user "${man_check[@]}" "$unit" \
            >"$scratch/verify.log" 2>&1 && [ ! -s "$scratch/verify.log" ]; then
            ok "systemd-analyze verify --user ${man_check[*]} accepts tesseld.service"
        else
            cat "$scratch/verify.log" >&2
            fail "systemd-analyze verify --user rejects tesseld.service"
        fi
    else
        echo "install-check: skipped: systemd-analyze is not installed"
    fi
fi

# --- D-Bus activation files ----------------------------------------------------
for name in "${names[@]}"; do
    file=$data/dbus-1/services/$name.service
    [ -f "$file" ] || continue
    header=$(grep -v '^#' "$file" | grep -v '^[[:space:]]*$' | head -1)
    [ "$header" = "[D-BUS Service]" ] || fail "$name.service does not start with [D-BUS Service]"
    for line in "Name=$name" "Exec=$bin/tesseld" "SystemdService=tesseld.service"; do
        grep -qxF "$line" "$file" || fail "$name.service lacks $line"
    done
done

call_bus() { # METHOD ARGUMENTS...: a call to the bus itself, bounded in time
    local method=$1
    shift
    timeout 30 dbus-send --bus="$address" --print-reply --reply-timeout=20000 --dest=org.freedesktop.DBus \
        /org/freedesktop/DBus "org.freedesktop.DBus.$method" "$@"
}
owned() { # NAME: whether a connection owns it
    local answer
    answer=$(call_bus NameHasOwner "string:$1") || return 1
    [[ $answer == *"boolean true"* ]]
}

if command -v dbus-daemon >/dev/null && command -v dbus-send >/dev/null; then
    # Only the installed services, so that an installed copy elsewhere on the
    # machine cannot stand in for them. The daemon it starts keeps its files
    # in the scratch directory.
    address=unix:path=$scratch/bus
    cat >"$scratch/bus.conf" <<EOF
<busconfig>
  <type>session</type>
  <keep_umask/>
  <listen>$address</listen>
  <auth>EXTERNAL</auth>
  <servicedir>$data/dbus-1/services</servicedir>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
  <limit name="service_start_timeout">20000</limit>
</busconfig>
EOF
    mkdir -p "$scratch/home"
    HOME=$scratch/home XDG_DATA_HOME=$scratch/home/data XDG_CONFIG_HOME=$scratch/home/config \
        XDG_STATE_HOME=$scratch/home/state DBUS_SESSION_BUS_ADDRESS=$address \
        dbus-daemon --config-file="$scratch/bus.conf" --nofork --nopidfile >"$scratch/bus.log" 2>&1 &
    bus_pid=$!
    for _ in $(seq 50); do
        [ -S "$scratch/bus" ] && break
        sleep 0.1
    done
    activatable=$(call_bus ListActivatableNames 2>&1 || true)
    for name in "${names[@]}"; do
        [[ $activatable == *"\"$name\""* ]] || fail "the bus does not load $name.service"
    done
    ok "a private bus loads the activation files"

    # The first call starts the daemon; it is ready once it owns the control name.
    if started=$(call_bus StartServiceByName string:com.tamber.Tessel.Control uint32:0 2>&1) \
        && [[ $started == *"uint32 1"* ]]; then
        for name in "${names[@]}"; do
            owned "$name" || fail "the started daemon does not own $name"
        done
        pid=$(call_bus GetConnectionUnixProcessID string:com.tamber.Tessel.Control | sed -n 's/.*uint32 //p')
        if [ -n "$pid" ] && kill -TERM "$pid"; then
            for _ in $(seq 100); do
                owned com.tamber.Tessel.Control || break
                sleep 0.1
            done
            ! owned com.tamber.Tessel.Control || fail "the daemon did not stop on SIGTERM"
        else
            fail "no process owns com.tamber.Tessel.Control"
        fi
        ok "the first call on the bus starts the daemon; SIGTERM stops it"
    else
        echo "$started" >&2
        cat "$scratch/bus.log" >&2
        fail "activating com.tamber.Tessel.Control"
    fi
else
    echo "install-check: skipped: dbus-daemon or dbus-send is not installed"
fi

# --- the library through pkg-config ----------------------------------------------
if command -v pkg-config >/dev/null && command -v cc >/dev/null; then
    export PKG_CONFIG_PATH=$lib/pkgconfig
    cat >"$scratch/host.c" <<'EOF'
#include <tessel/Tessel.h>
#include <stdio.h>

int main(void)
{
    printf("%s", (const char*)TesselVersionString);
    return TesselVersionNumber > 0 ? 0 : 1;
}
EOF
    # shellcheck disable=SC2046 # pkg-config answers several words
    # A sanitized library needs the sanitizers' runtimes, which the C++ driver links.
    compiler=(cc)
    if [ -n "${SANITIZE_FLAGS:-}" ]; then
        # shellcheck disable=SC2206 # the flags are several words
        compiler=("${CXX:-c++}" $SANITIZE_FLAGS -x c)
    fi
    if "${compiler[@]}" -o "$scratch/host" "$scratch/host.c" -x none $(pkg-config --cflags --libs tessel) \
        2>"$scratch/cc.log" \
        && LD_LIBRARY_PATH=$lib "$scratch/host" >"$scratch/host.out"; then
        ok "a C host builds against tessel.pc and runs ($(head -c 60 "$scratch/host.out" | tr '\n' ' '))"
    else
        cat "$scratch/cc.log" >&2
        fail "building or running a C host with tessel.pc"
    fi
    pkg-config --exists tessel-services || fail "pkg-config does not find tessel-services"
else
    echo "install-check: skipped: pkg-config or cc is not installed"
fi

if [ "$failures" -ne 0 ]; then
    echo "install-check: $failures failures" >&2
    exit 1
fi
echo "install-check: everything in place"
