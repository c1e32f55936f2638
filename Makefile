# Entry points. `make demo` and `make test` are the two that matter; see README.md.
# Every build goes through a CMake preset (CMakePresets.json) and uses two jobs: the machines are shared.

SHELL := /bin/bash
.NOTPARALLEL:
.PHONY: all deps demo test debug asan tsan release bench fuzz format clean

DEPS := cmake ninja-build g++ clang-14 libclang-rt-14-dev pkg-config libboost1.81-dev \
        libxxhash-dev zlib1g-dev libbz2-dev googletest libgtest-dev libgmock-dev \
        libbenchmark-dev tshark clang-format bird2
SUDO := $(shell [ "$$(id -u)" -eq 0 ] || echo sudo)

# What `make demo` runs once the release build is done: the census over the synthetic table, then
# over the 2002 full-table dump when the shared MRT data is there.
DEMO_CMD ?= ./build/release/bgp-attr-census
DEMO_MRT ?= ../shared/data/mrt/bview.20020722.2337.gz
# Seconds each fuzz target runs under `make fuzz`.
FUZZ_SECONDS ?= 60
BENCH_ARGS ?=

banner = @printf '\n==================== %s ====================\n' "$(1)"

# configure + build + ctest for one preset; a failing step stops make.
define preset_test
	$(call banner,$(1): configure)
	cmake --preset $(1)
	$(call banner,$(1): build)
	cmake --build --preset $(1)
	$(call banner,$(1): test)
	ctest --preset $(1)
endef

define preset_build
	$(call banner,$(1): configure + build)
	cmake --preset $(1)
	cmake --build --preset $(1)
endef

all: test

# Installs only what is missing: a machine that has everything never touches apt.
deps:
	@missing=""; \
	for p in $(DEPS); do \
	    dpkg-query -W -f='$${Status}' "$$p" 2>/dev/null | grep -q 'install ok installed' \
	        || missing="$$missing $$p"; \
	done; \
	if [ -n "$$missing" ]; then \
	    echo "deps: installing$$missing"; \
	    $(SUDO) apt-get update && \
	    $(SUDO) env DEBIAN_FRONTEND=noninteractive apt-get install -y $$missing; \
	else \
	    echo "deps: all installed"; \
	fi

demo: deps
	$(call preset_build,release)
	$(call banner,demo: synthetic full table)
	$(DEMO_CMD)
	@if [ -f "$(DEMO_MRT)" ]; then \
	    printf '\n==================== %s ====================\n' "demo: $(DEMO_MRT)"; \
	    $(DEMO_CMD) "$(DEMO_MRT)"; \
	else \
	    echo "demo: $(DEMO_MRT) not found, the real-table run is skipped"; \
	fi

test: deps
	$(call preset_test,debug)
	$(call preset_test,asan)
	$(call preset_test,tsan)
	$(call banner,make test: debug asan tsan all passed)

debug: deps
	$(call preset_test,debug)

asan: deps
	$(call preset_test,asan)

tsan: deps
	$(call preset_test,tsan)

release: deps
	$(call preset_build,release)

bench: deps
	$(call preset_build,release)
	$(call banner,benchmarks)
	@if [ -x build/release/orv_bench ]; then \
	    ./build/release/orv_bench --benchmark_counters_tabular=true $(BENCH_ARGS); \
	else \
	    echo "no benchmarks yet: bench/ has no sources"; \
	fi

# Runs every fuzz_<stem> for FUZZ_SECONDS, growing fuzz/corpus-run/<stem> (seeded from
# fuzz/corpus/<stem> and fuzz/regressions/<stem> when they exist); crashers land beside it as
# crash-*. A crasher, once fixed, goes to fuzz/regressions/<stem>/: orv_tests replays it.
fuzz: deps
	$(call preset_build,fuzz)
	$(call banner,fuzz)
	@set -e; found=0; \
	for f in build/fuzz/fuzz_*; do \
	    [ -x "$$f" ] || continue; found=1; stem="$${f##*/fuzz_}"; \
	    run="fuzz/corpus-run/$$stem"; mkdir -p "$$run"; \
	    seeds=""; for d in fuzz/corpus/$$stem fuzz/regressions/$$stem; do \
	        [ -d "$$d" ] && seeds="$$seeds $$d"; done; \
	    echo "== fuzz_$$stem for $(FUZZ_SECONDS) s"; \
	    "$$f" -max_total_time=$(FUZZ_SECONDS) -timeout=10 -print_final_stats=1 \
	        -artifact_prefix="$$run/" "$$run" $$seeds; \
	done; \
	[ "$$found" = 1 ] || echo "no fuzz targets yet: fuzz/ has no sources"

format:
	git ls-files -z -co --exclude-standard -- '*.cpp' '*.h' | xargs -0 -r clang-format -i

clean:
	rm -rf build
