# Set-up and everyday commands; each installs what a fresh Debian machine
# lacks before it builds.
JOBS ?= 2
GALLERY ?= gallery

.PHONY: demo test valgrind bench windows gallery-check fuzz clean

# Main job: build the library and the host, and write the gallery page.
demo:
	bash scripts/install-deps.sh build
	cmake --preset release > /dev/null
	cmake --build build/release -j $(JOBS)
	./build/release/velomar gallery --out $(GALLERY)
	@echo "open $(GALLERY)/index.html"

# The whole test suite, plain and with address + undefined-behaviour sanitizers.
test:
	bash scripts/install-deps.sh build
	cmake --preset release > /dev/null
	cmake --build build/release -j $(JOBS)
	ctest --test-dir build/release --output-on-failure
	cmake --preset sanitize > /dev/null
	cmake --build build/sanitize -j $(JOBS)
	ctest --test-dir build/sanitize --output-on-failure

# The whole suite under valgrind's memcheck (uninitialised values, leaks).
valgrind:
	bash scripts/install-deps.sh build valgrind
	cmake --preset release > /dev/null
	cmake --build build/release -j $(JOBS)
	bash scripts/valgrind.sh build/release

# Benchmarks at 1920x1080 with OpenCV peers side by side (peers are skipped
# when OpenCV cannot be installed).
bench:
	bash scripts/install-deps.sh build
	-bash scripts/install-deps.sh bench
	cmake --preset bench > /dev/null
	cmake --build build/bench -j $(JOBS)
	./build/bench/bench/velomar_bench $(BENCH_ARGS)

# 32-bit DLL with its export-table check, and the 64-bit suite under wine.
windows:
	bash scripts/windows-legs.sh

# The gallery page opened in headless Chromium (no console errors, no missing
# images, a screenshot in build/gallery-check/).
gallery-check:
	bash scripts/gallery-browser.sh

# The libFuzzer harnesses for FUZZ_SECONDS each (default an hour) on FUZZ_JOBS
# processes; CI runs them for seconds.
FUZZ_SECONDS ?= 3600
FUZZ_JOBS ?= 2
fuzz:
	bash scripts/fuzz.sh --seconds $(FUZZ_SECONDS) --jobs $(FUZZ_JOBS)

clean:
	rm -rf build $(GALLERY)
