# Two commands matter: "make demo" shows the tool at work, "make test" runs every test.
# Each installs the Debian packages that are missing, configures, builds and runs.

PACKAGES := g++ clang clang-format cmake ninja-build nlohmann-json3-dev libcli11-dev \
            libgtest-dev libbenchmark-dev
SUDO := $(shell [ "$$(id -u)" = 0 ] || echo sudo)
TOOL := build/release/velatable
SOURCES = $(shell git ls-files '*.h' '*.cpp')

.PHONY: demo test bench format check packages release clean

demo: release
	$(TOOL) run examples/first-light.jsonl

# Release build, the sanitizers' build and clang's build; all tests run under each.
test: packages check
	cmake --preset release && cmake --build --preset release && ctest --preset release
	cmake --preset sanitize && cmake --build --preset sanitize && ctest --preset sanitize
	cmake --preset clang && cmake --build --preset clang && ctest --preset clang

bench: release
	build/release/bench/vela_bench --benchmark_repetitions=7 --benchmark_min_time=0.05 \
	    --benchmark_enable_random_interleaving=true --benchmark_report_aggregates_only=true

release: packages
	cmake --preset release
	cmake --build --preset release

packages:
	@missing=$$(for p in $(PACKAGES); do \
	    dpkg-query -W -f='$${Status}' $$p 2>/dev/null | grep -q 'ok installed' || echo $$p; done); \
	if [ -n "$$missing" ]; then \
	    echo "installing" $$missing; \
	    $(SUDO) apt-get update -qq && $(SUDO) apt-get install -y -qq --no-install-recommends $$missing; \
	fi

format:
	clang-format -i $(SOURCES)

check:
	clang-format --dry-run --Werror $(SOURCES)
	tests/check-layers.sh

clean:
	rm -rf build
