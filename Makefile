# Front door: `make demo`, `make test`, `make bench`, `make install`,
# `make fuzz`. Each
# target installs what it needs (scripts/setup-deps), then configures and
# builds.
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?=
BUILD_DIR ?= build
ASAN_DIR ?= build-asan
RELEASE_DIR ?= build-release
FUZZ_DIR ?= build-fuzz
# `make fuzz`: seconds per target, and the targets (all by default).
FUZZ_SECONDS ?= 600
FUZZ_TARGETS ?=
# `make test`: seconds per target over its checked-in corpus.
FUZZ_SMOKE_SECONDS ?= 5
PREFIX ?= /usr/local
# What `cmake --install` installs; built alone for an install.
INSTALL_TARGETS = orbplatform orb softchip

.PHONY: all deps demo test test-normal test-asan test-install test-fuzz fuzz fuzz-build install bench soak format clean

all: test

deps:
	@scripts/setup-deps

# The test build compiles the benchmark programs too (without running them),
# so that a change to an interface they use cannot leave them broken.
$(BUILD_DIR)/build.ninja: | deps
	cmake -S . -B $(BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DORB_BUILD_BENCH=ON $(CMAKE_FLAGS)

$(ASAN_DIR)/build.ninja: | deps
	cmake -S . -B $(ASAN_DIR) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS=-O1 -DORB_SANITIZE=ON -DORB_BUILD_BENCH=OFF $(CMAKE_FLAGS)

# libFuzzer targets: clang, coverage for the fuzzer, ASan and UBSan.
$(FUZZ_DIR)/build.ninja: | deps
	cmake -S . -B $(FUZZ_DIR) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_CXX_FLAGS=-O1 \
	  -DORB_FUZZ=ON -DORB_BUILD_TESTS=OFF -DORB_BUILD_BENCH=OFF $(CMAKE_FLAGS)

$(RELEASE_DIR)/build.ninja: | deps
	cmake -S . -B $(RELEASE_DIR) -G Ninja -DCMAKE_BUILD_TYPE=Release -DORB_BUILD_TESTS=OFF $(CMAKE_FLAGS)

demo: deps $(RELEASE_DIR)/build.ninja
	cmake --build $(RELEASE_DIR) -j $(JOBS) --target orb-agent
	$(RELEASE_DIR)/agent/orb-agent run examples/demo.orb

test: test-normal test-asan test-install test-fuzz

test-normal: deps $(BUILD_DIR)/build.ninja
	cmake --build $(BUILD_DIR) -j $(JOBS)
	cd $(BUILD_DIR) && ctest --output-on-failure -j $(JOBS)

test-asan: deps $(ASAN_DIR)/build.ninja
	cmake --build $(ASAN_DIR) -j $(JOBS)
	cd $(ASAN_DIR) && ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 UBSAN_OPTIONS=print_stacktrace=1 \
	  ctest --output-on-failure -j $(JOBS)

# Installs into a prefix under the build tree and builds a chip layer
# against the installed package alone (CMake package and pkg-config).
test-install: deps $(BUILD_DIR)/build.ninja
	cmake --build $(BUILD_DIR) -j $(JOBS) --target $(INSTALL_TARGETS)
	JOBS=$(JOBS) scripts/test-install $(BUILD_DIR)

fuzz-build: deps $(FUZZ_DIR)/build.ninja
	cmake --build $(FUZZ_DIR) -j $(JOBS) --target fuzz_all

# Every fuzz target a few seconds over its checked-in corpus, new inputs
# kept in a scratch directory that goes afterwards.
test-fuzz: fuzz-build
	scripts/fuzz --fresh $(FUZZ_DIR) $(FUZZ_SMOKE_SECONDS)

# Every fuzz target (or FUZZ_TARGETS) for FUZZ_SECONDS each, one at a time;
# what they find collects in $(FUZZ_DIR)/fuzz-corpus, outside the repository.
fuzz: fuzz-build
	scripts/fuzz $(FUZZ_DIR) $(FUZZ_SECONDS) $(FUZZ_TARGETS)

# make install [PREFIX=/usr/local] [DESTDIR=...]: a Release build of the
# libraries, headers, CMake package and liborb.pc.
install: deps
	cmake -S . -B $(RELEASE_DIR) -G Ninja -DCMAKE_BUILD_TYPE=Release -DORB_BUILD_TESTS=OFF \
	  -DCMAKE_INSTALL_PREFIX=$(PREFIX) $(CMAKE_FLAGS)
	cmake --build $(RELEASE_DIR) -j $(JOBS) --target $(INSTALL_TARGETS)
	DESTDIR=$(DESTDIR) cmake --install $(RELEASE_DIR)

bench: deps $(RELEASE_DIR)/build.ninja
	cmake --build $(RELEASE_DIR) -j $(JOBS) --target bench_all
	@set -e; for b in $(RELEASE_DIR)/bench/bench_*; do \
	  [ -x "$$b" ] && [ -f "$$b" ] || continue; \
	  echo "== $$b"; $$b --benchmark_min_time=0.2 2>&1 | tee $(RELEASE_DIR)/$$(basename $$b).log; \
	done

# The long soak: 10^6 generated commands over five seeds through the agent
# and the reference model, learns and flushes included, with frames compared
# at every quiescent point, in Release. A difference stops it and leaves a
# shrunk scenario in $(RELEASE_DIR)/soak-seedN.orb. SOAK_FLAGS=--no-learning
# keeps to the tables the configuration alone decides.
SOAK_SEEDS ?= 1,2,3,4,5
SOAK_OPS ?= 200000
SOAK_FLAGS ?=
soak: deps $(RELEASE_DIR)/build.ninja
	cmake --build $(RELEASE_DIR) -j $(JOBS) --target soak
	$(RELEASE_DIR)/tests/soak/soak --seeds $(SOAK_SEEDS) --ops $(SOAK_OPS) $(SOAK_FLAGS) --dir $(RELEASE_DIR)

format:
	git ls-files '*.h' '*.cpp' | xargs clang-format -i

clean:
	rm -rf $(BUILD_DIR) $(ASAN_DIR) $(RELEASE_DIR) $(FUZZ_DIR)
