#!/usr/bin/env bash
# CI leg: the gallery page in a real browser. Writes the gallery with the
# release host and opens it in headless Chromium: every image must load and
# the page must write nothing on its console. The screenshot and the browser's
# log stay in build/gallery-check/.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh build browser
cmake --preset release > /dev/null
cmake --build build/release -j "${JOBS:-2}" --target velomar_cli
out=$PWD/build/gallery-check
rm -rf "$out"
mkdir -p "$out"
./build/release/velomar gallery --out "$out/gallery"
url="file://$out/gallery/index.html"
browser=(chromium --headless --no-sandbox --disable-gpu --virtual-time-budget=30000)
"${browser[@]}" --enable-logging=stderr --v=0 --dump-dom "$url" > "$out/dom.html" 2> "$out/browser.log"
"${browser[@]}" --window-size=1280,2400 --screenshot="$out/screenshot.png" "$url" 2>> "$out/browser.log"
body=$(grep -o '<body[^>]*>' "$out/dom.html" || true)
if [[ ! $body =~ data-images=\"([0-9]+)\"\ data-broken=\"([0-9]+)\" ]]; then
  echo "FAIL: the page did not finish loading in the browser (see $out/browser.log)"
  exit 1
fi
images=${BASH_REMATCH[1]} broken=${BASH_REMATCH[2]}
console=$(grep ':CONSOLE' "$out/browser.log" || true)
if [ "$broken" != 0 ] || [ -n "$console" ] || [ ! -s "$out/screenshot.png" ]; then
  echo "FAIL: $broken of $images images missing; console:"
  echo "$console"
  exit 1
fi
echo "gallery OK in the browser: $images images, console clean, screenshot $out/screenshot.png"
