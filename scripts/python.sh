#!/usr/bin/env bash
# CI leg: the API reference and the binding's header table are current with
# include/velomar.h; then the library is built and installed into a throw-away
# virtual environment (Debian's Python, --system-site-packages for numpy, dask
# and pytest), the binding pip-installed there without network, and its tests
# run against the installed package, which finds the library in the
# environment's prefix.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh build python
py=/usr/bin/python3
$py scripts/gen-api.py --check

build=build/python
venv=$(mktemp -d /tmp/velomar-venv.XXXXXX)
trap 'rm -rf "$venv"' EXIT
cmake -S . -B $build -G Ninja -DCMAKE_BUILD_TYPE=Release -DVELOMAR_TESTS=OFF -DVELOMAR_HOST=OFF > /dev/null
cmake --build $build -j "${JOBS:-2}"
$py -m venv --system-site-packages "$venv"
cmake --install $build --prefix "$venv" > /dev/null
"$venv/bin/python" -m pip install -q --no-index --no-build-isolation --disable-pip-version-check ./python
rm -rf python/build python/velomar.egg-info
cd python/tests
env -u VELOMAR_LIBRARY "$venv/bin/python" -m pytest -q -p no:cacheprovider
