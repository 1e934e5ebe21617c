# Entry points for a new machine. `make test` installs missing build dependencies,
# configures, builds and runs every test; `make asan-test` does the same under
# AddressSanitizer and UndefinedBehaviorSanitizer (unit tests only); `make run` builds
# and starts the agent host with the example state file until Ctrl-C; `make demo` (as
# root) runs two hosts' traffic through the agent and the forwarding-plane emulator.
# `make fuzz` builds the fuzz targets with clang and libFuzzer in build/fuzz and runs
# each for FUZZ_SECONDS (fuzz/README.md); `make fuzz-build` only builds them (CI does,
# so that the code keeps building with clang); `make test` replays their corpora
# without clang.
.PHONY: deps build test run demo asan asan-test bench bench-netns fuzz fuzz-build clean

FUZZ_SECONDS ?= 60
FUZZ_CXX ?= clang++

deps:
	./scripts/install-deps.sh

build: deps
	cmake --preset release
	cmake --build --preset release

test: build
	ctest --preset release

run: build
	./build/release/bin/vxrelay-host --state examples/switch.json

# As root: two hosts in network namespaces talking through the agent and the
# forwarding-plane emulator (scripts/demo.sh; DEMO_ARGS="--peer vxrelay --keep", "--mlag").
demo: build
	./scripts/demo.sh $(DEMO_ARGS)

asan: deps
	cmake --preset asan
	cmake --build --preset asan

asan-test: asan
	ctest --preset asan

bench: build
	./build/release/bench/r2l_frame_path_bench
	./build/release/bench/l2r_frame_path_bench
	./build/release/bench/counter_add_bench
	./build/release/bench/ringlog_bench

# The agent's forwarding paths against the kernel's own VXLAN in network namespaces,
# frames per second, and instructions per frame under callgrind; a few minutes. Needs
# root (it makes network namespaces and devices). bench/netns/README.md says more.
bench-netns: build
	./scripts/install-deps.sh bench
	./build/release/bench/netns/netns_bench

# New inputs go to build/fuzz/corpus/<name>, never into the committed seeds; a failing
# input is written to build/fuzz/artifacts/<name>/ and the run stops there.
fuzz-build:
	./scripts/install-deps.sh fuzz
	cmake -S . -B build/fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DCMAKE_CXX_COMPILER=$(FUZZ_CXX) -DVXRELAY_LIBFUZZER=ON
	cmake --build build/fuzz -j2 --target fuzz_targets

fuzz: fuzz-build
	set -e; for program in build/fuzz/fuzz/*_fuzz; do \
	  name=$$(basename $$program _fuzz); \
	  mkdir -p build/fuzz/corpus/$$name build/fuzz/artifacts/$$name; \
	  echo "fuzzing $$name for $(FUZZ_SECONDS) s"; \
	  $$program -max_total_time=$(FUZZ_SECONDS) -print_final_stats=1 \
	    -artifact_prefix=build/fuzz/artifacts/$$name/ \
	    build/fuzz/corpus/$$name fuzz/corpus/$$name fuzz/regressions/$$name; \
	done

clean:
	rm -rf build
