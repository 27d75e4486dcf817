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

test: test-release test-asan

format:
	clang-format -i $$(git ls-files '*.cpp' '*.h' '*.c')

clean:
	rm -rf build
