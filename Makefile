# Entry points for users and CI. Each target installs what is missing first.
JOBS ?= $(shell nproc)

.PHONY: all setup build test test-release test-asan clean format

all: build

setup:
	@scripts/setup.sh

build: setup
	cmake --preset release
	cmake --build --preset release -j $(JOBS)

test-release: setup
	cmake --preset release
	cmake --build --preset release -j $(JOBS)
	ctest --preset release

test-asan: setup
	cmake --preset asan
	cmake --build --preset asan -j $(JOBS)
	ctest --preset asan

# ARMv7 NEON cross build; the test programs run under qemu-arm.
.PHONY: armhf-setup armhf-test size
armhf-setup:
	@scripts/setup-armhf.sh

armhf-test: setup armhf-setup
	cmake --preset armhf
	cmake --build --preset armhf -j $(JOBS)
	ctest --preset armhf

test: test-release test-asan armhf-test

# Embedded footprint: ARM shared-object sections, working buffer per target, stack frames.
size: setup armhf-setup
	cmake --preset release
	cmake --build --preset release -j $(JOBS) --target qenaec_footprint
	cmake --preset armhf
	cmake --build --preset armhf -j $(JOBS) --target qenaec qenaec_footprint
	@scripts/footprint.sh

format:
	clang-format -i $$(git ls-files '*.cpp' '*.h' '*.c')

clean:
	rm -rf build

# Quality evaluation: speech scenarios through the built library and an NLMS baseline;
# writes eval/out/report.html and eval/out/results.json.
.PHONY: eval
eval:
	@scripts/setup.sh python3-matplotlib
	cmake --preset release
	cmake --build --preset release -j $(JOBS) --target qenaec
	QENAEC_LIBRARY=$(CURDIR)/build/release/src/libqenaec.so /usr/bin/python3 eval/run.py
