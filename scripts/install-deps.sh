#!/usr/bin/env bash
# Installs what a fresh Debian machine lacks for the given jobs, from Debian's
# packages. Usage: install-deps.sh [build] [windows] [wine] [bench] [valgrind]
#   [python] [browser] [multilib] [fuzz]
set -euo pipefail

declare -A groups=(
  [build]="cmake ninja-build g++ pkg-config libgtest-dev libbenchmark-dev libstb-dev libx11-dev"
  [windows]="g++-mingw-w64-i686 g++-mingw-w64-x86-64 googletest"
  [wine]="wine64"
  [bench]="libopencv-dev libopencv-contrib-dev"
  [valgrind]="valgrind"
  # The Python binding, its dask helper and its tests (run by /usr/bin/python3).
  [python]="python3 python3-venv python3-pip python3-setuptools python3-numpy python3-dask python3-pytest"
  # The gallery page opened in a headless browser.
  [browser]="chromium"
  # 32-bit x86 builds on a 64-bit machine (-m32).
  [multilib]="gcc-multilib g++-multilib"
  # libFuzzer with address and undefined-behaviour sanitizers.
  [fuzz]="clang libclang-rt-14-dev"
)

want=()
for job in "${@:-build}"; do want+=(${groups[$job]}); done

missing=()
for pkg in "${want[@]}"; do
  dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed" || missing+=("$pkg")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "installing: ${missing[*]}"
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" > /dev/null
