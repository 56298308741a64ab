# Thin wrappers over the CMake presets; CMake users need none of this.
PREFIX ?= /usr/local
PRESETS := release dev clang asan tsan

# of make fuzz: per target, whichever comes first
RUNS ?= 50000
SECONDS ?= 30
SEED ?= 1

.PHONY: all deps $(PRESETS) test style tidy fuzz trixie memcheck coverage demo bench compare impair hostile torture soak install uninstall clean

all: release

deps:
	scripts/deps.sh

$(PRESETS):
	cmake --preset $@
	cmake --build --preset $@

test: deps
	scripts/test.sh

style:
	scripts/deps.sh style
	scripts/style.sh

# The checks of .clang-tidy on the library.
tidy:
	scripts/deps.sh build fuzz style
	cmake --workflow --preset tidy

fuzz:
	scripts/deps.sh build fuzz
	cmake --workflow --preset fuzz
	scripts/fuzz.sh $(RUNS) $(SECONDS) $(SEED) $(TARGETS)

# With Debian 13's compiler, in a root of its own.
trixie:
	scripts/trixie.sh

# The unit tests under valgrind, and the share of the library's lines that they execute.
memcheck:
	scripts/deps.sh build memcheck
	cmake --workflow --preset memcheck

coverage:
	scripts/deps.sh build coverage
	cmake --preset coverage
	cmake --build --preset coverage
	find build/coverage -name '*.gcda' -delete
	ctest --preset coverage
	gcovr --root . --object-directory build/coverage --filter 'platform/|dialect/|rtp/|rtsp/|sdp/|digest/' \
	    --exclude-directories '.*CompilerId.*' --exclude-throw-branches --print-summary build/coverage

demo:
	scripts/deps.sh build
	cmake --workflow --preset demo
	build/demo/tools/rtsptap demo --auth
	build/demo/tools/rtsptap demo --auth --tcp
	@echo "This was build/demo/tools/rtsptap, built in a hurry, without GStreamer, which recordings need."
	@echo "One for use: scripts/deps.sh && make install"

bench: release
	for program in build/release/bench/*_bench; do $$program || exit 1; done

compare:
	scripts/deps.sh
	cmake --preset release
	cmake --build --preset release --target rtsptap_cli rtsptap_gst_server
	bench/compare_players.sh build/release

# The long forms of tests that every `make test` runs in short: docs/reliability.md.
impair: deps
	scripts/long_form.sh dev 'Impairment.*'

hostile: deps
	scripts/long_form.sh asan 'HostileServers.*'

# Every call of the library to the system fails once, in every session of sessions.txt.
torture: deps
	cmake --preset asan
	cmake --build --preset asan --target rtsptap_torture
	seq 0 7 | xargs -P 8 -I{} build/asan/tests/torture/rtsptap_torture tests/soak/answering_server.py \
	    tests/torture/sessions.txt {}/8

# Cycles, limits by the clock, crowds; STREAM seconds of four sessions at 4 Mbit/s each.
STREAM ?= 1800
soak: deps
	cmake --preset release
	cmake --build --preset release --target rtsptap_soak
	build/release/tests/soak/rtsptap_soak tests/soak/answering_server.py cycles 100000 sessions 10000 \
	    ports 60000 limits 1200 crowd 1 crowd 8 crowd 64 crowd 256 stream $(STREAM)

install: release
	cmake --install build/release --prefix $(PREFIX)
	if [ "$$(id -u)" -eq 0 ]; then ldconfig; fi

uninstall:
	cmake --build build/release --target uninstall

clean:
	rm -rf build
