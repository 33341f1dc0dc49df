# shellcheck shell=bash
# Sourced by scripts that run Windows programs: a private, headless Wine
# prefix inside the build tree, and a persistent wineserver while they run
# (without one every .exe start costs seconds).
ov_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
export WINEPREFIX="$ov_root/build/_wine"
export WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree,mshtml="
unset DISPLAY

ov_wine_start() {
  if [ ! -f "$WINEPREFIX/system.reg" ]; then
    mkdir -p "$WINEPREFIX"
    wineboot -i >/dev/null 2>&1 || true
    wineserver -w || true
  fi
  wineserver -p
  # The first program of a session starts Wine's background services; start
  # them here with their output detached, or they keep the caller's output
  # pipe open and every test run looks hung until its time-out.
  wine cmd.exe /c exit >/dev/null 2>&1 </dev/null || true
}

ov_wine_stop() {
  wineserver -k >/dev/null 2>&1 || true
}
