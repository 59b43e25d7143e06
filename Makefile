# Entry points: make build | test | run | bench | clean
SHELL := /bin/bash

GENERATOR := -G Ninja
PLAIN_FLAGS := -DCMAKE_BUILD_TYPE=RelWithDebInfo
# Sanitizer builds are Debug with light optimisation, so they stay fast enough to run every test.
SANITIZER_FLAGS := -DCMAKE_BUILD_TYPE=Debug -DCMAKE_C_FLAGS_DEBUG="-g -O1" \
                   -DCMAKE_CXX_FLAGS_DEBUG="-g -O1"

export ASAN_OPTIONS := detect_leaks=1
export UBSAN_OPTIONS := print_stacktrace=1:halt_on_error=1
export TSAN_OPTIONS := halt_on_error=1:second_deadlock_stack=1

# ThreadSanitizer cannot cope with some kernels' address-space randomisation ("unexpected memory
# mapping"); running without it avoids that wherever setarch is allowed to switch it off.
NO_ASLR := $(shell setarch $$(uname -m) -R true >/dev/null 2>&1 && echo setarch $$(uname -m) -R)

CTEST := ctest --output-on-failure -j2 --test-dir

# make test builds with warnings as errors; so does its clang tree (Release, with libFuzzer's
# coverage, ASan, UBSan and clang's implicit-conversion checks), which keeps the library and
# modules building with a second compiler and -O3, and builds the fuzz targets. make test fuzzes
# each target for about 20 s there and runs the arithmetic unit tests (label clang);
# make fuzz for FUZZ_SECONDS each (make fuzz FUZZ_SECONDS=60).
WERROR := -DVEXEL_WERROR=ON
FUZZ_FLAGS := -DCMAKE_BUILD_TYPE=Release -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
              -DVEXEL_SANITIZE=fuzz
CLANG_TARGETS := VexelPlayer DecodeHost PixelConvert SphereUnwrap LensParams AudioFeedFilter fuzz_all \
                 vexel_clang_tests
FUZZ_SECONDS ?= 600
FUZZ_TARGETS := decode_fuzzer projector_fuzzer time_freeze_fuzzer audio_plan_fuzzer

.PHONY: deps build test fuzz run view bench package clean

deps:
	@scripts/install-deps

build: deps
	cmake -S . -B build $(GENERATOR) $(PLAIN_FLAGS)
	cmake --build build

test: deps
	cmake -S . -B build $(GENERATOR) $(PLAIN_FLAGS) $(WERROR)
	cmake --build build
	$(CTEST) build
	cmake -S . -B build-asan $(GENERATOR) $(SANITIZER_FLAGS) $(WERROR) -DVEXEL_SANITIZE=address
	cmake --build build-asan
	VEXEL_CPU=plain $(CTEST) build-asan
	cmake -S . -B build-tsan $(GENERATOR) $(SANITIZER_FLAGS) $(WERROR) -DVEXEL_SANITIZE=thread
	cmake --build build-tsan
	$(NO_ASLR) $(CTEST) build-tsan
	cmake -S . -B build-fuzz $(GENERATOR) $(FUZZ_FLAGS) $(WERROR)
	cmake --build build-fuzz --target $(CLANG_TARGETS)
	$(CTEST) build-fuzz -L 'fuzz|clang'

# Each fuzz target for FUZZ_SECONDS, one after the other; failing inputs are kept in
# build-fuzz/fuzz/findings/<target>/ (to keep one, copy it to fuzz/regressions/<target>/).
fuzz: deps
	cmake -S . -B build-fuzz $(GENERATOR) $(FUZZ_FLAGS) $(WERROR)
	cmake --build build-fuzz --target fuzz_all
	$(CTEST) build-fuzz -R fuzz.make_corpus
	@status=0; for target in $(FUZZ_TARGETS); do \
	    fuzz/run_fuzz.sh build-fuzz/fuzz/$$target build-fuzz/fuzz/corpus/$$target \
	        fuzz/regressions/$$target build-fuzz/fuzz/findings/$$target $(FUZZ_SECONDS) || status=1; \
	done; exit $$status

# The bundled sample: made once by the project's generator, then played with a view that follows
# the marker round the horizon.
SAMPLE := build/sample/vexel-sample.mp4
VIEW_PATH := 0=0,0,90;4=144,10,100;6=216,-10,100;10=360,0,90

run: build
	@test -f $(SAMPLE) || build/tools/vexel-make-sample $(SAMPLE)
	build/tools/vexel-play --out out --path "$(VIEW_PATH)" $(SAMPLE)
	@echo "make run: the presented views are in out/view.mp4, the contact sheet in out/contact-sheet.png"

# The Debian package of the plain build: build/vexel_<version>_<arch>.deb.
package: build
	cd build && cpack -G DEB

# The bundled sample in a window: drag to look around (build/tools/vexel-view --help for the keys).
view: build
	@test -f $(SAMPLE) || build/tools/vexel-make-sample $(SAMPLE)
	build/tools/vexel-view $(SAMPLE)

bench: build
	@if [ -x build/bench/vexel_bench ]; then build/bench/vexel_bench; fi
	build/bench/playback/vexel_playback_bench
	build/bench/latency/vexel_latency_bench

clean:
	rm -rf build build-asan build-tsan build-fuzz
