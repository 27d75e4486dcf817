# Entry points for users and CI. Each target installs what is missing first.
JOBS ?= $(shell nproc)

.PHONY: all setup build test test-release test-asan clean format demo

all: build

setup:
	@scripts/setup.sh

build: setup
	cmake --preset release
	cmake --build --preset release -j $(JOBS)

# The command-line tool on the bundled example recordings; writes demo-out.wav here.
demo: setup
	cmake --preset release
	cmake --build --preset release -j $(JOBS) --target qenaec_cli
	build/release/tools/qenaec/qenaec demo

# Every part of `make test`, in the order it runs: the release, asan and armhf (qemu-arm)
# suites, the ThreadSanitizer suite, and a short run of each fuzzer.
test: test-release test-asan armhf-test test-tsan fuzz-smoke

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

# ThreadSanitizer: the threaded tests (the API's and `qenaec tune`'s) and the suites of the
# process-wide state only.
.PHONY: test-tsan
test-tsan: setup
	cmake --preset tsan
	cmake --build --preset tsan -j $(JOBS)
	ctest --preset tsan

# libFuzzer targets (clang, address and undefined sanitizers). `make fuzz` runs each target for
# FUZZ_SECONDS on a working corpus in build/fuzz, seeded from tests/fuzz/corpus; crashes land in
# build/fuzz/artifacts. `fuzz-smoke` is the short run per target that `make test` makes.
FUZZ_SECONDS ?= 600
FUZZERS ?= api_fuzzer tool_fuzzer
.PHONY: fuzz fuzz-build fuzz-smoke
fuzz-build: setup
	cmake --preset fuzz
	cmake --build --preset fuzz -j $(JOBS)

fuzz: fuzz-build
	@mkdir -p build/fuzz/artifacts
	@for f in $(FUZZERS); do \
	    mkdir -p build/fuzz/corpus-long/$$f; \
	    build/fuzz/tests/fuzz/$$f -max_total_time=$(FUZZ_SECONDS) -timeout=30 -print_final_stats=1 \
	        -artifact_prefix=build/fuzz/artifacts/$$f- \
	        build/fuzz/corpus-long/$$f tests/fuzz/corpus/$$f || exit 1; \
	done

fuzz-smoke: fuzz-build
	ctest --preset fuzz

# Quality evaluation: speech scenarios through the built library and an NLMS baseline, and
# `qenaec tune` on two of them;
# writes eval/out/report.html and eval/out/results.json.
.PHONY: eval
eval:
	@scripts/setup.sh python3-matplotlib
	cmake --preset release
	cmake --build --preset release -j $(JOBS) --target qenaec qenaec_cli
	QENAEC_LIBRARY=$(CURDIR)/build/release/src/libqenaec.so /usr/bin/python3 eval/run.py

# Benchmarks (release build): timings, then the deterministic instruction count per frame.
.PHONY: bench bench-instructions bench-outputs
bench: setup
	cmake --preset release
	cmake --build --preset release -j $(JOBS) --target qenaec_bench
	build/release/bench/qenaec_bench $(BENCH_ARGS)

bench-instructions: setup
	@scripts/setup.sh valgrind
	cmake --preset release
	cmake --build --preset release -j $(JOBS) --target qenaec_run_frames
	@bench/instructions.sh

# Outputs against another commit (BASE, default main): ADF_Run bit-exact, Run within an SNR.
bench-outputs: setup
	cmake --preset release
	@bench/compare_outputs.sh $(or $(BASE),main)

# The same on the ARMv7 builds under qemu-arm (a few minutes): BASE must have the ARM engine.
.PHONY: bench-outputs-arm
bench-outputs-arm: setup armhf-setup
	cmake --preset armhf
	@ARM=1 bench/compare_outputs.sh $(or $(BASE),main)

# ARM instructions per frame under qemu-arm in the armhf release tree: Run at 16 and 48 kHz,
# the FFT pair and the floor (bench/arm_instructions.sh; several minutes).
.PHONY: bench-arm
bench-arm: setup armhf-setup
	cmake --preset armhf
	cmake --build --preset armhf -j $(JOBS) --target qenaec_run_frames
	@bench/arm_instructions.sh
