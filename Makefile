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

.PHONY: deps build test run bench clean

deps:
	@scripts/install-deps

build: deps
	cmake -S . -B build $(GENERATOR) $(PLAIN_FLAGS)
	cmake --build build

test: deps
	cmake -S . -B build $(GENERATOR) $(PLAIN_FLAGS)
	cmake --build build
	$(CTEST) build
	cmake -S . -B build-asan $(GENERATOR) $(SANITIZER_FLAGS) -DVEXEL_SANITIZE=address
	cmake --build build-asan
	$(CTEST) build-asan
	cmake -S . -B build-tsan $(GENERATOR) $(SANITIZER_FLAGS) -DVEXEL_SANITIZE=thread
	cmake --build build-tsan
	$(NO_ASLR) $(CTEST) build-tsan

run: build
	@if [ -x build/tools/vexel-play ]; then \
	    build/tools/vexel-play; \
	else \
	    echo "nothing to play yet: the player arrives with the playback work"; \
	fi

bench: build
	@if [ -x build/bench/vexel_bench ]; then \
	    build/bench/vexel_bench; \
	else \
	    echo "no benchmarks yet"; \
	fi

clean:
	rm -rf build build-asan build-tsan
