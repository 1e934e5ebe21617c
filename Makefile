# Entry points for a new machine. `make test` installs missing build dependencies,
# configures, builds and runs every test; `make asan-test` does the same under
# AddressSanitizer and UndefinedBehaviorSanitizer (unit tests only); `make run` builds
# and starts the agent host with the example state file until Ctrl-C.
.PHONY: deps build test run asan asan-test bench clean

deps:
	./scripts/install-deps.sh

build: deps
	cmake --preset release
	cmake --build --preset release

test: build
	ctest --preset release

run: build
	./build/release/bin/vxrelay-host --state examples/switch.json

asan: deps
	cmake --preset asan
	cmake --build --preset asan

asan-test: asan
	ctest --preset asan

bench: build
	./build/release/bench/r2l_frame_path_bench
	./build/release/bench/counter_add_bench

clean:
	rm -rf build
