# Thin wrappers over the CMake presets; CMake users need none of this.
PREFIX ?= /usr/local
PRESETS := release dev asan tsan

.PHONY: all deps $(PRESETS) test demo bench install clean

all: release

deps:
	scripts/deps.sh

$(PRESETS):
	cmake --preset $@
	cmake --build --preset $@

test: deps
	scripts/test.sh

demo:
	scripts/deps.sh build demo
	cmake --preset release
	cmake --build --preset release --target rtsptap_cli rtsptap_demo_server
	build/release/tools/rtsptap demo --auth
	build/release/tools/rtsptap demo --auth --tcp

bench: release
	for program in build/release/bench/*_bench; do $$program || exit 1; done

install: release
	cmake --install build/release --prefix $(PREFIX)
	if [ "$$(id -u)" -eq 0 ]; then ldconfig; fi

clean:
	rm -rf build
