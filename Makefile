# Two commands matter: "make demo" shows the tool at work, "make test" runs every test.
# Each installs the Debian packages that are missing, configures, builds and runs.

PACKAGES := g++ clang clang-format clang-tidy cmake ninja-build nlohmann-json3-dev libcli11-dev \
            libsimdjson-dev libgtest-dev libbenchmark-dev llvm pkgconf libmnl-dev libuv1-dev libsystemd-dev \
            prometheus-cpp-dev libcivetweb-dev libhiredis-dev
PROMTOOL := build/live/usr/bin/promtool
LIVE := abigail-tools bird2 chromium debootstrap fonts-dejavu-core frr iproute2 python3 redis-server xz-utils
PEERS := pkgconf libdpdk-dev libcuckoo-dev
SUDO := $(shell [ "$$(id -u)" = 0 ] || echo sudo)
JOBS := $(shell nproc)
SOURCES = $(shell git ls-files '*.h' '*.cpp')

# Seconds that each fuzz target runs.
FUZZ_SECONDS := 60

.PHONY: demo live test test-live abi-baseline docs soak bench bench-velad peers fuzz coverage deb format check lint \
        packages release clean

# Builds what it needs of the release, no more.
demo: release-velatable
	build/release/velatable run examples/first-light.jsonl --results build/first-light.results

# A routing daemon, velad and a switch in namespaces of their own: shows what one change costs.
live: packages
	@$(MAKE) --no-print-directory packages PACKAGES="frr iproute2"
	$(MAKE) --no-print-directory release-velad release-velatable
	tests/live/show.sh

# Release build by GCC, and clang's under the sanitizers; all tests run under each. The end tells how
# many seconds each part took.
LEGS := release sanitize
test: packages
	@mkdir -p build && rm -f build/times
	$(call timed,check,$(MAKE) --no-print-directory check)
	$(call timed,lint,tests/lint.sh)
	$(foreach leg,$(LEGS),$(call test-leg,$(leg)))
	@cat build/times

define test-leg
	$(call timed,$(1): configure,cmake --preset $(1))
	$(call timed,$(1): build,cmake --build --preset $(1))
	$(call timed,$(1): tests,ctest --preset $(1) --parallel $(JOBS))

endef
timed = @start=$$(date +%s); echo "== $(1)"; $(2) && \
	    printf '%-20s %5d s\n' '$(1)' $$(($$(date +%s) - start)) >> build/times

# What needs more than the code: packages that are installed, the thread sanitizer, other releases, a
# routing daemon, a stream server.
test-live: packages deb
	@$(MAKE) --no-print-directory packages PACKAGES="$(LIVE)"
	@rm -f build/times
	$(call timed,threads: build,cmake --preset threads && cmake --build --preset threads)
	$(call timed,threads: tests,build/threads/tests/thread_tests --gtest_repeat=5)
	$(call timed,abi,tests/live/abi.sh)
	$(call timed,packages,tests/live/packages.sh)
	$(call timed,consumers,tests/consumer.sh static $(CURDIR)/build/release c++ && \
	    tests/consumer.sh subproject $(CURDIR)/build/release c++)
	$(call timed,docs,$(MAKE) --no-print-directory docs)
	$(call timed,frr,$(MAKE) --no-print-directory release-velad release-velatable && \
	    tests/live/frr.sh && tests/live/bird.sh && tests/live/offer.py build/release/velad 500000 && \
	    tests/live/offload.py build/release/velad && \
	    tests/live/kill.py build/release/velad build/release/velatable 50)
	$(call timed,operate,$(MAKE) --no-print-directory $(PROMTOOL) && \
	    tests/live/operate.py build/release/velad $(PROMTOOL))
	$(call timed,fleet,$(MAKE) --no-print-directory release-velad release-velatable && \
	    tests/live/fleet.py build/release)
	$(call timed,page,tests/live/report.py build/release/velatable build/release/velad)
	@cat build/times

# The checker of metrics, without the server that it comes with, which would be started.
$(PROMTOOL):
	@mkdir -p build/live && cd build/live && apt-get download -qq prometheus && \
	    dpkg-deb --fsys-tarfile prometheus_*.deb | tar x ./usr/bin/promtool && rm prometheus_*.deb

# Describes the libraries as they are for those of later releases to be compared with.
abi-baseline: packages
	@$(MAKE) --no-print-directory packages PACKAGES="$(LIVE)"
	tests/live/abi.sh baseline

# The reference of the public names, in build/docs/html. One without documentation is an error.
docs:
	@$(MAKE) --no-print-directory packages PACKAGES=doxygen
	@mkdir -p build
	doxygen docs/reference/Doxyfile

# The tests of crashes, faults and damage at full length: an hour of processor time.
soak: release-agent_tests
	VELA_KILLS=1000 VELA_SCHEDULES=10000 VELA_ALL_BITS=1 build/release/tests/agent_tests \
	    --gtest_filter='Profiles/*'

# Every input that is found goes to build/fuzz/corpus; the ones to start from are in fuzz/corpus.
# Leaks are looked for at the end: before, an index leads to its records by addresses of six bytes, which
# are not known for such.
fuzz: packages
	cmake --preset fuzz && cmake --build --preset fuzz
	for target in events fpm profile image rows stream; do \
	    mkdir -p build/fuzz/corpus/$$target && \
	    build/fuzz/fuzz/fuzz_$$target -max_total_time=$(FUZZ_SECONDS) -print_final_stats=1 -detect_leaks=0 \
	        -artifact_prefix=build/fuzz/$$target- \
	        $$([ -f fuzz/$$target.dict ] && echo -dict=fuzz/$$target.dict) \
	        build/fuzz/corpus/$$target fuzz/corpus/$$target || exit 1; \
	done

coverage: packages
	cmake --preset coverage && cmake --build --preset coverage
	tests/coverage.sh build/coverage

# Peers to compare with are installed when they are to be had. QUICK=1 takes half a minute, for checks.
bench: peers
	$(MAKE) --no-print-directory release-vela_bench
	build/release/bench/vela_bench --json=build/bench.json $(if $(QUICK),--quick)

# What velad takes from a message to the registers, and FRR until its routes are there.
bench-velad: packages
	@$(MAKE) --no-print-directory packages PACKAGES="frr iproute2"
	$(MAKE) --no-print-directory release-velad release-velatable
	bench/velad.py build/release/velad
	bench/frr.sh

peers:
	@for p in $(PEERS); do \
	    $(call installed,$$p) && continue; \
	    echo "installing $$p"; \
	    { $(SUDO) apt-get update -qq && \
	      $(SUDO) apt-get install -y -qq --no-install-recommends $$p; } >/dev/null 2>&1 || \
	        echo "$$p is not to be had: the benchmarks go on without it"; \
	done

release: release-all
release-%: packages
	cmake --preset release
	cmake --build --preset release --target $*

installed = dpkg-query -W -f='$${Status}' $(1) 2>/dev/null | grep -q 'ok installed'
packages:
	@missing=$$(for p in $(PACKAGES); do $(call installed,$$p) || echo $$p; done); \
	if [ -n "$$missing" ]; then \
	    echo "installing" $$missing; \
	    $(SUDO) apt-get update -qq && $(SUDO) apt-get install -y -qq --no-install-recommends $$missing; \
	fi

# Debian packages of what is committed or about to be, in build/deb, free of lintian's complaints.
DEB_PACKAGES := dpkg-dev debhelper fakeroot lintian
deb: packages
	@$(MAKE) --no-print-directory packages PACKAGES="$(DEB_PACKAGES)"
	rm -rf build/deb && mkdir -p build/deb/source
	git ls-files -z --cached --others --exclude-standard | tar c --null -T - | tar x -C build/deb/source
	cd build/deb/source && dpkg-buildpackage -us -uc --build=full --no-sign
	lintian --fail-on error,warning build/deb/*.changes

format:
	clang-format -i $(SOURCES)

check:
	clang-format --dry-run --Werror $(SOURCES)
	tests/check-layers.sh

lint: packages
	tests/lint.sh all

clean:
	rm -rf build
