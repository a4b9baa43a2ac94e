# What the scripts share: packages, the builds, Wine and a display. Scripts source this file.
#
# All output is in the build directory, which one script uses at a time. A script that starts Wine
# or a display ends them in a trap:
#
#   trap 'stop_wine; stop_display' EXIT
#
# shellcheck shell=bash

TOLVARINE_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
TOLVARINE_BUILD=$TOLVARINE_ROOT/build

packages_updated=
wine_prefix=$TOLVARINE_BUILD/wine
wine_started=
display_process=

say() { printf '%s\n' "$*"; }

# run_quietly NAME COMMAND...: the output goes to logs/NAME.log, and is shown if the command fails.
run_quietly() {
  local log=$TOLVARINE_BUILD/logs/$1.log
  shift
  mkdir -p "$TOLVARINE_BUILD/logs" || return
  if ! "$@" >"$log" 2>&1 </dev/null; then
    tail -n 100 "$log" >&2
    say "failed: $* (all of its output: $log)" >&2
    return 1
  fi
}

as_root() {
  if [[ $(id -u) -eq 0 ]]; then "$@"; else sudo "$@"; fi
}

is_installed() {
  # One line for each architecture of the package.
  grep -qx 'installed' <<<"$(dpkg-query -W -f='${db:Status-Status}\n' "$1" 2>/dev/null || true)"
}

# need_packages PACKAGE...: installs the missing ones; needs neither network nor root if none is.
need_packages() {
  local package missing=()
  for package in "$@"; do
    is_installed "$package" || missing+=("$package")
  done
  if [[ ${#missing[@]} -eq 0 ]]; then return 0; fi

  say "installing ${missing[*]}"
  if [[ -z $packages_updated ]]; then
    run_quietly apt-update as_root apt-get update || return
    packages_updated=yes
  fi
  run_quietly apt-install as_root env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y --no-install-recommends "${missing[@]}"
}

# build_preset PRESET [TARGET...]
build_preset() {
  local preset=$1 targets=()
  shift
  if [[ $# -gt 0 ]]; then targets=(--target "$@"); fi
  say "building $preset"
  # CMake reads the presets of its working directory.
  run_quietly "configure-$preset" env -C "$TOLVARINE_ROOT" cmake --preset "$preset" || return
  run_quietly "build-$preset" env -C "$TOLVARINE_ROOT" cmake --build --preset "$preset" \
    --parallel "${TOLVARINE_JOBS:-$(nproc)}" "${targets[@]}"
}

# build_host [TARGET...]: the native build with its tests, in build/host.
build_host() {
  need_packages g++ cmake ninja-build googletest libgtest-dev \
    nlohmann-json3-dev libssl-dev || return
  build_preset host "$@"
}

# build_release [TARGET...]: the native build at full speed, with the benchmarks, in
# build/host-release.
build_release() {
  need_packages g++ cmake ninja-build googletest libgtest-dev libbenchmark-dev \
    nlohmann-json3-dev libssl-dev || return
  build_preset host-release "$@"
}

# build_windows [TARGET...]: the Windows program with its tests, in build/windows.
build_windows() {
  need_packages g++-mingw-w64-x86-64-posix cmake ninja-build googletest nlohmann-json3-dev || return
  build_preset windows "$@"
}

# Ends every Windows program in our prefix. The server fails when there is none. When a program is
# killed while it starts another one, the server does not know the new process.
end_wine_programs() {
  local process
  wineserver -k >/dev/null 2>&1 || true
  wineserver -w >/dev/null 2>&1 || true
  for process in $(find /proc -maxdepth 2 -name exe -lname '*/wine64*' 2>/dev/null); do
    process=${process%/exe}
    if grep -qzxF "WINEPREFIX=$wine_prefix" "$process/environ" 2>/dev/null; then
      kill -KILL "${process#/proc/}" 2>/dev/null || true
    fi
  done
}

# A permanent server: without it, each program waits seconds for a new one. It gets none of our
# output, since a reader of a pipe would wait for it.
start_wine_server() { wineserver -p >/dev/null 2>&1 </dev/null; }

# The system's services start with the first program and inherit its output, so that this one gets
# none of ours.
start_wine_services() { wineboot >/dev/null 2>&1 </dev/null; }

# Our display has no window manager: without this setting Wine waits for one after each box.
expect_no_window_manager() {
  wine reg add 'HKCU\Software\Wine\X11 Driver' /v Managed /d N /f >/dev/null 2>&1 </dev/null
}

# The mark comes last: a prefix whose creation was interrupted has none, and is created again.
create_wine_prefix() {
  if [[ -e $wine_prefix/.complete ]]; then return 0; fi
  say "creating the Wine prefix"
  rm -rf "$wine_prefix" && mkdir -p "$wine_prefix" || return
  start_wine_server && run_quietly wineboot wineboot -i || return
  expect_no_window_manager || return
  end_wine_programs  # The server writes the registry as it ends.
  touch "$wine_prefix/.complete"
}

# Wine with a prefix of our own, not the user's, and a server until stop_wine.
start_wine() {
  need_packages wine wine64 || return
  export WINEPREFIX=$wine_prefix WINEDEBUG=-all
  # Without the two downloads that Wine offers, and without entries in the user's menus.
  export WINEDLLOVERRIDES='mscoree=;mshtml=;winemenubuilder.exe='
  # Wine takes the encoding of file names from the locale.
  export LC_ALL=C.UTF-8
  wine_started=yes
  if [[ -d $wine_prefix ]]; then end_wine_programs; fi  # Those of an interrupted run.
  create_wine_prefix && start_wine_server && start_wine_services
}

stop_wine() {
  if [[ -z $wine_started ]]; then return 0; fi
  end_wine_programs
  wine_started=
  # The server does not remove the directory of its socket, whose name is in the prefix.
  local socket_directory
  socket_directory=$(cat "$wine_prefix/wineserver" 2>/dev/null || true)
  if [[ $socket_directory == wine-?????? ]]; then
    rm -rf "${TMPDIR:-/tmp}/$socket_directory" "$wine_prefix/wineserver"
  fi
}

# start_display: a display of our own, for programs that show message boxes. Sets DISPLAY.
start_display() {
  need_packages xvfb fonts-dejavu-core || return
  local number='' announced=$TOLVARINE_BUILD/display.$$
  mkdir -p "$TOLVARINE_BUILD/logs" && rm -f "$announced" && mkfifo "$announced" || return
  # Xvfb takes the first free number and writes it to the pipe when it is ready; if it fails, the
  # pipe ends. It also ends when we are killed and no trap runs (--pdeathsig).
  setpriv --pdeathsig TERM Xvfb -displayfd 3 -screen 0 1280x800x24 \
    -nolisten tcp 3>"$announced" >"$TOLVARINE_BUILD/logs/display.log" 2>&1 </dev/null &
  display_process=$!
  read -r -t 30 number <"$announced" || true
  rm -f "$announced"
  if [[ -z $number ]]; then
    stop_display
    say "no display (see $TOLVARINE_BUILD/logs/display.log)" >&2
    return 1
  fi
  export DISPLAY=:$number
}

stop_display() {
  if [[ -z $display_process ]]; then return 0; fi
  kill "$display_process" 2>/dev/null || true
  wait "$display_process" 2>/dev/null || true
  display_process=
  unset DISPLAY
}

# windows_path PATH: the path for a Windows program. The file need not exist.
windows_path() {
  local path
  path=$(realpath -ms -- "$1") || return
  printf 'Z:%s\n' "${path//\//\\}"
}
