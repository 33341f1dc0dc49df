#!/usr/bin/env bash
# Installs what the build needs on a Debian 12 machine, then cross-builds
# json-c (from Debian's source package) and GoogleTest (from the sources
# Debian's googletest package ships) for the Windows target into a
# build-local prefix. A second run finds everything in place and returns at once.
set -euo pipefail

# --linux-only: the packages for the Linux build alone (no Windows prefix).
linux_only=0
[ "${1:-}" = "--linux-only" ] && linux_only=1

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
prefix="$root/build/_deps/win64"
srcdir="$root/build/_deps/src"
toolchain="$root/cmake/mingw-w64-x86_64.cmake"

packages=(
  build-essential cmake ninja-build pkg-config git
  libjson-c-dev googletest libgtest-dev libgmock-dev libbenchmark-dev
  scdoc dpkg-dev file valgrind
  clang-14 libclang-rt-14-dev
)
if [ "$linux_only" -eq 0 ]; then
  packages+=(
    g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix
    wine64 wine
    clang-format clang-tidy
  )
fi

as_root() {
  if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "setup: installing ${missing[*]}"
  as_root apt-get update -q
  DEBIAN_FRONTEND=noninteractive as_root apt-get install -y -q --no-install-recommends "${missing[@]}"
fi

if [ "$linux_only" -eq 1 ] || [ -f "$prefix/.complete" ]; then
  exit 0
fi

echo "setup: cross-building json-c and GoogleTest for Windows into $prefix"
rm -rf "$prefix" "$srcdir"
mkdir -p "$prefix" "$srcdir"

# Debian's json-c source package, with Debian's patches applied.
if ! ls "$srcdir"/json-c-*/CMakeLists.txt >/dev/null 2>&1; then
  if ! grep -Rqs '^Types:.*deb-src' /etc/apt/sources.list.d/ 2>/dev/null &&
     ! grep -qs '^deb-src' /etc/apt/sources.list 2>/dev/null; then
    as_root sed -i 's/^Types: deb$/Types: deb deb-src/' /etc/apt/sources.list.d/debian.sources
    as_root apt-get update -q
  fi
  (cd "$srcdir" && apt-get source -q -o APT::Sandbox::User=root json-c >/dev/null)
fi
jsonc_src=$(find "$srcdir" -maxdepth 1 -type d -name "json-c-*" ! -name json-c-build | sort | head -n 1)

cmake -S "$jsonc_src" -B "$srcdir/json-c-build" -G Ninja \
  -DCMAKE_TOOLCHAIN_FILE="$toolchain" -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_INSTALL_PREFIX="$prefix" \
  -DBUILD_SHARED_LIBS=OFF -DBUILD_STATIC_LIBS=ON -DBUILD_TESTING=OFF \
  -DDISABLE_WERROR=ON >/dev/null
cmake --build "$srcdir/json-c-build" >/dev/null
cmake --install "$srcdir/json-c-build" >/dev/null

cmake -S /usr/src/googletest -B "$srcdir/gtest-build" -G Ninja \
  -DCMAKE_TOOLCHAIN_FILE="$toolchain" -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_INSTALL_PREFIX="$prefix" -Dgtest_disable_pthreads=OFF >/dev/null
cmake --build "$srcdir/gtest-build" >/dev/null
cmake --install "$srcdir/gtest-build" >/dev/null

touch "$prefix/.complete"
echo "setup: Windows dependencies ready"
