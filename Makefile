# Build, test, install and fuzz Tessel. Every build uses Ninja in its own folder under build/.
#   make run       build, then browse the bundled samples with the tessel tool
#   make test      every suite: release tests, installed-package consumer, ASan+UBSan, TSan,
#                  and the Windows build's tests under Wine
#   make windows   cross-build libtessel.dll, tessel.exe and the tests with MinGW-w64
#   make test-windows  the Windows build's tests under Wine
# Variables: JOBS (parallel jobs, default 2), PREFIX (install prefix, default /usr/local),
# FUZZ_SECONDS (time per fuzz target, default 30).

SHELL := /bin/bash
.SHELLFLAGS := -eu -o pipefail -c
.DEFAULT_GOAL := build

JOBS ?= 2
PREFIX ?= /usr/local
FUZZ_SECONDS ?= 30
CMAKE ?= cmake
CTEST ?= ctest

BUILD := build
RELEASE := $(BUILD)/release
ASAN := $(BUILD)/asan
TSAN := $(BUILD)/tsan
FUZZ := $(BUILD)/fuzz
WINDOWS := $(BUILD)/windows
CONSUMER_PREFIX := $(CURDIR)/$(BUILD)/consumer-prefix
CONSUMER := $(BUILD)/consumer
TOOL := $(RELEASE)/apps/tessel/tessel

# Sanitizer reports stop the test with a stack; a user's own settings win.
ASAN_OPTIONS ?= halt_on_error=1:print_stacktrace=1:detect_leaks=1
UBSAN_OPTIONS ?= halt_on_error=1:print_stacktrace=1:detect_leaks=1
TSAN_OPTIONS ?= halt_on_error=1:second_deadlock_stack=1
export ASAN_OPTIONS UBSAN_OPTIONS TSAN_OPTIONS

# TSan's runtime cannot map its shadow memory when the kernel randomises mmap with more
# than 28 bits; such machines run the TSan tests with address randomisation off.
TSAN_LAUNCH := $(shell [ "$$(cat /proc/sys/vm/mmap_rnd_bits 2>/dev/null || echo 0)" -gt 28 ] \
    && setarch "$$(uname -m)" -R true 2>/dev/null && echo setarch "$$(uname -m)" -R)

# configure FOLDER, CMAKE-ARGUMENTS: a Ninja build folder, set up again when this file changes
# (later changes to the CMake files are picked up by the build itself).
define configure
$(1)/build.ninja: Makefile | deps
	$(CMAKE) -S . -B $(1) -G Ninja $(2)
	touch $$@
endef

# Sanitizer builds: assertions on, -O1 with line tables only (enough for the reports' stacks,
# and much quicker to compile than -O2 -g), no benchmarks.
SANITIZER_ARGS := -DCMAKE_BUILD_TYPE=Debug "-DCMAKE_C_FLAGS_DEBUG=-O1 -g1" \
    "-DCMAKE_CXX_FLAGS_DEBUG=-O1 -g1" -DTESSEL_BUILD_BENCH=OFF
$(eval $(call configure,$(RELEASE),-DCMAKE_BUILD_TYPE=RelWithDebInfo))
$(eval $(call configure,$(ASAN),$(SANITIZER_ARGS) -DTESSEL_SANITIZE=address))
$(eval $(call configure,$(TSAN),$(SANITIZER_ARGS) -DTESSEL_SANITIZE=thread))
# TESSEL_BUILD_FUZZ brings coverage instrumentation, ASan and UBSan of its own.
$(eval $(call configure,$(FUZZ),-DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_COMPILER=clang \
    -DCMAKE_CXX_COMPILER=clang++ -DTESSEL_BUILD_FUZZ=ON -DTESSEL_BUILD_TESTS=OFF \
    -DTESSEL_BUILD_BENCH=OFF))

.PHONY: deps build run check test asan tsan bench install consumer consumer-install \
    consumer-cmake consumer-pkg-config fuzz format format-check update-golden clean windows test-windows \
    samples

deps:
	@scripts/install-deps

build: deps $(RELEASE)/build.ninja
	$(CMAKE) --build $(RELEASE) -j $(JOBS)

run: build
	$(TOOL) browse samples

# Writes samples/ again from the card fixtures (tests/samples/MakeSamples.cpp).
samples: build
	find samples -mindepth 1 -maxdepth 1 ! -name README.txt -exec rm -rf {} +
	$(RELEASE)/tests/tessel_make_samples samples

# The release build's tests.
check: build
	$(CTEST) --test-dir $(RELEASE) --output-on-failure -j $(JOBS)

# Every suite in turn; the last line printed is the total "N passed, N failed".
test: deps
	@scripts/test-all format-check check consumer-cmake consumer-pkg-config asan tsan test-windows

asan: deps $(ASAN)/build.ninja
	$(CMAKE) --build $(ASAN) -j $(JOBS)
	$(CTEST) --test-dir $(ASAN) --output-on-failure -j $(JOBS)

tsan: deps $(TSAN)/build.ninja
	$(CMAKE) --build $(TSAN) -j $(JOBS)
	$(TSAN_LAUNCH) $(CTEST) --test-dir $(TSAN) --output-on-failure -j $(JOBS)

# Google Benchmark programs, then bench/compare.sh if present (the tool's path in TESSEL).
bench: build
	@scripts/install-deps --bench
	@found=0; \
	for program in $$(find $(RELEASE)/bench -maxdepth 1 -type f -perm -u+x 2>/dev/null | sort); do \
	    found=1; echo "==> $$program"; "$$program"; \
	done; \
	[ $$found = 1 ] || echo "bench: no benchmark programs in $(RELEASE)/bench"
	@if [ -x bench/compare.sh ]; then TESSEL="$(CURDIR)/$(TOOL)" bench/compare.sh; fi

install: build
	$(CMAKE) --install $(RELEASE) --prefix $(PREFIX)
	@if [ -z "$${DESTDIR:-}" ] && [ "$$(id -u)" = 0 ] && command -v ldconfig >/dev/null; then \
	    ldconfig; fi

# An installed copy in a private prefix, used the ways a user would: through the CMake
# package and through pkg-config. The installed tool must start without help.
consumer: consumer-cmake consumer-pkg-config

consumer-install: build
	rm -rf $(CONSUMER_PREFIX)
	$(CMAKE) --install $(RELEASE) --prefix $(CONSUMER_PREFIX)
	$(CONSUMER_PREFIX)/bin/tessel --version

consumer-cmake: consumer-install
	rm -rf $(CONSUMER)/cmake
	$(CMAKE) -S tests/consumer -B $(CONSUMER)/cmake -G Ninja \
	    -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_PREFIX_PATH=$(CONSUMER_PREFIX)
	$(CMAKE) --build $(CONSUMER)/cmake
	$(call run_consumer,$(CONSUMER)/cmake/tessel_consumer)

consumer-pkg-config: consumer-install
	rm -rf $(CONSUMER)/pkg-config && mkdir -p $(CONSUMER)/pkg-config
	libdir=$$(sed -n 's/^CMAKE_INSTALL_LIBDIR:[A-Z]*=//p' $(RELEASE)/CMakeCache.txt); \
	flags=$$(PKG_CONFIG_PATH=$(CONSUMER_PREFIX)/$$libdir/pkgconfig pkg-config --cflags --libs tessel); \
	echo "pkg-config --cflags --libs tessel: $$flags"; \
	$(CXX) -std=c++20 -Wall -Wextra -Werror -o $(CONSUMER)/pkg-config/tessel_consumer \
	    tests/consumer/main.cpp $$flags
	$(call run_consumer,$(CONSUMER)/pkg-config/tessel_consumer)

# run_consumer PROGRAM: runs it against the private prefix, with preferences of its own.
define run_consumer
libdir=$$(sed -n 's/^CMAKE_INSTALL_LIBDIR:[A-Z]*=//p' $(RELEASE)/CMakeCache.txt); \
LD_LIBRARY_PATH=$(CONSUMER_PREFIX)/$$libdir TESSEL_PREFS=$(CURDIR)/$(dir $(1))preferences.json $(1)
endef

# libFuzzer targets (clang, ASan+UBSan), each run for FUZZ_SECONDS on its own corpus folder
# (seeded from fuzz/corpus/NAME when present); crashes are saved in build/fuzz/artifacts.
fuzz: deps $(FUZZ)/build.ninja
	$(CMAKE) --build $(FUZZ) -j $(JOBS)
	@failed=(); found=0; mkdir -p $(FUZZ)/artifacts; \
	for target in $$(find $(FUZZ)/fuzz -maxdepth 1 -type f -perm -u+x 2>/dev/null | sort); do \
	    found=1; name=$$(basename "$$target"); corpus=$(FUZZ)/corpus/$$name; mkdir -p "$$corpus"; \
	    seeds=(); [ -d fuzz/corpus/$$name ] && seeds=(fuzz/corpus/$$name); \
	    echo "==> $$name for $(FUZZ_SECONDS) s"; \
	    "$$target" -max_total_time=$(FUZZ_SECONDS) -artifact_prefix=$(FUZZ)/artifacts/$$name- \
	        "$$corpus" "$${seeds[@]}" || failed+=("$$name"); \
	done; \
	[ $$found = 1 ] || echo "fuzz: no fuzz targets in $(FUZZ)/fuzz"; \
	if [ $${#failed[@]} -gt 0 ]; then echo "fuzz: crashes in: $${failed[*]}" >&2; exit 1; fi

# The Windows build: its libraries come from scripts/build-windows-deps (built once into a
# cache outside the tree); the folder is set up afresh when that prefix changes, so no
# library is still taken from the old one.
WINDOWS_ARGS := -DCMAKE_TOOLCHAIN_FILE=$(CURDIR)/cmake/toolchains/x86_64-w64-mingw32.cmake \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O2 -g1 -DNDEBUG" \
    "-DCMAKE_C_FLAGS_RELWITHDEBINFO=-O2 -g1 -DNDEBUG" -DTESSEL_BUILD_BENCH=OFF

windows: deps
	@prefix=$$(scripts/build-windows-deps) || exit; \
	configured=$$(sed -n 's/^TESSEL_WINDOWS_DEPS:PATH=//p' $(WINDOWS)/CMakeCache.txt \
	    2>/dev/null || true); \
	if [ ! -f $(WINDOWS)/build.ninja ] || [ "$$configured" != "$$prefix" ] || \
	    [ Makefile -nt $(WINDOWS)/build.ninja ]; then \
	    echo "$(CMAKE) -S . -B $(WINDOWS) -G Ninja ... -DTESSEL_WINDOWS_DEPS=$$prefix"; \
	    if [ -n "$$configured" ] && [ "$$configured" != "$$prefix" ]; then \
	        rm -f $(WINDOWS)/CMakeCache.txt; fi; \
	    $(CMAKE) -S . -B $(WINDOWS) -G Ninja $(WINDOWS_ARGS) -DTESSEL_WINDOWS_DEPS=$$prefix && \
	    touch $(WINDOWS)/build.ninja; \
	fi
	$(CMAKE) --build $(WINDOWS) -j $(JOBS)

test-windows: windows
	$(CTEST) --test-dir $(WINDOWS) --output-on-failure -j $(JOBS)

# The sources clang-format looks after.
FORMAT_SOURCES = find src apps tests bench fuzz -type f \( -name '*.h' -o -name '*.cpp' \) -print0

# Rewrites the tool's golden reference files (tests/golden/expected) from what the tool prints
# now, on Linux and, when the Windows build is there, under Wine; review them with git diff.
update-golden: build
	$(CMAKE) --build $(RELEASE) --target tessel_golden_tree
	bash tests/golden/run --update --tool $(TOOL) --tree-maker $(RELEASE)/tests/tessel_golden_tree
	@if [ -f $(WINDOWS)/build.ninja ]; then \
	    $(CMAKE) --build $(WINDOWS) --target tessel_cli tessel_golden_tree && \
	    bash tests/golden/run --update --platform windows --emulator scripts/wine-run \
	        --tool $(WINDOWS)/bin/tessel.exe --tree-maker $(WINDOWS)/bin/tessel_golden_tree.exe; \
	fi

format: deps
	$(FORMAT_SOURCES) | xargs -0 -r clang-format -i

# Fails, naming each file and line, when a source is not laid out as .clang-format says.
format-check: deps
	$(FORMAT_SOURCES) | xargs -0 -r clang-format --dry-run -Werror
	@echo "format-check: every source is formatted"

clean:
	rm -rf $(BUILD)
