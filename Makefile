# SPDX-License-Identifier: MIT
# The project's two commands: `make demo` and `make test`. Each installs what
# is missing (Debian 12, as root or with sudo), builds and runs.
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?=
TSAN_RUN = setarch $(shell uname -m) -R
# The test-only builds keep line tables only (-g1): enough for the sanitizers'
# and gdb's backtraces, and they compile about a fifth faster than full -g.
LINE_TABLES_DEBUG = -DCMAKE_C_FLAGS_DEBUG=-g1 -DCMAKE_CXX_FLAGS_DEBUG=-g1
LINE_TABLES_RELEASE = -DCMAKE_C_FLAGS_RELWITHDEBINFO="-O2 -g1 -DNDEBUG" \
	-DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O2 -g1 -DNDEBUG"

FORMAT_FILES = $(shell git ls-files '*.cpp' '*.h' '*.c' 2>/dev/null)

.PHONY: format format-check tidy test-clang all deps deps-web deps-armhf deps-docs docs build test test-native test-asan test-tsan test-armhf soak demo demo-web bench fuzz-build fuzz fuzz-ci clean

all: build

deps:
	@scripts/install-deps.sh host

# Chromium, Node and the locked Node modules of the browser test.
deps-web:
	@scripts/install-deps.sh web

deps-armhf:
	@scripts/install-deps.sh armhf

deps-docs:
	@scripts/install-deps.sh docs

build: deps
	cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_FLAGS)
	cmake --build build -j $(JOBS)

test: build deps-web
	$(MAKE) --no-print-directory test-native test-asan test-tsan

test-native:
	ctest --test-dir build --output-on-failure -j $(JOBS)

# The whole suite under AddressSanitizer and UndefinedBehaviorSanitizer.
test-asan:
	cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DZOR_SANITIZE=address $(LINE_TABLES_DEBUG) $(CMAKE_FLAGS)
	cmake --build build-asan -j $(JOBS)
	ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
		ctest --test-dir build-asan --output-on-failure -LE web -E package_install -j $(JOBS)

# The threaded tests under ThreadSanitizer (address randomisation off, which
# some kernels need for its shadow memory). Only their programs are built
# (the configuration lists them in threaded-test-targets.txt; the programs
# they start are dependencies).
test-tsan:
	cmake -S . -B build-tsan -DCMAKE_BUILD_TYPE=Debug -DZOR_SANITIZE=thread $(LINE_TABLES_DEBUG) $(CMAKE_FLAGS)
	cmake --build build-tsan -j $(JOBS) --target $$(cat build-tsan/threaded-test-targets.txt)
	TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
		$(TSAN_RUN) ctest --test-dir build-tsan --output-on-failure -L threaded -LE web -j $(JOBS)

# The far-field soak at length: 20,000 wake words served as fast as the
# capture reads (the test runs 1,000 of them, 20 under the sanitizers and
# qemu-arm). Prints one line; fails on any sample lost, repeated or out of
# place, or on descriptors, threads or memory that grow.
SOAK_WAKE_WORDS ?= 20000
soak: build
	build/tests/audio/ffm_soak --wake-words=$(SOAK_WAKE_WORDS)

# The suite built with clang as well as gcc (other warnings, other code
# generation), run natively; the installing package tests are left to the
# gcc build.
CLANG_CONFIGURE = cmake -S . -B build-clang -DCMAKE_BUILD_TYPE=Debug -DCMAKE_C_COMPILER=clang \
	-DCMAKE_CXX_COMPILER=clang++ $(LINE_TABLES_DEBUG) $(CMAKE_FLAGS)
test-clang: deps
	$(CLANG_CONFIGURE)
	cmake --build build-clang -j $(JOBS)
	ctest --test-dir build-clang --output-on-failure -LE web -E package_install -j $(JOBS)

# clang-tidy with the checks of .clang-tidy over every unit of the project's
# own directories (the clang configuration's compile commands); any finding
# fails it.
TIDY_DIRS = base|mup|transport|api|server|audio|sim|tools|tests|bench|fuzz
tidy: deps
	$(CLANG_CONFIGURE) > /dev/null
	run-clang-tidy -p build-clang -quiet -j $(JOBS) '^$(CURDIR)/($(TIDY_DIRS))/' > build-clang/tidy.log 2>&1 \
		|| { grep -E 'warning:|error:' build-clang/tidy.log; echo "clang-tidy: findings (build-clang/tidy.log)" >&2; exit 1; }
	@echo "clang-tidy: no findings"

# Cross-build for armhf and run the tests under qemu-arm.
test-armhf: deps-armhf
	cmake -S . -B build-armhf -DCMAKE_BUILD_TYPE=RelWithDebInfo $(LINE_TABLES_RELEASE) \
		-DCMAKE_TOOLCHAIN_FILE=cmake/armhf-toolchain.cmake $(CMAKE_FLAGS)
	cmake --build build-armhf -j $(JOBS)
	ctest --test-dir build-armhf --output-on-failure -LE web -j $(JOBS)

# The API reference from the public headers, into build-docs/html; any
# Doxygen warning fails it.
docs: deps-docs
	cmake -S docs -B build-docs
	cmake --build build-docs --target docs

demo: build
	scripts/demo.sh build

# The virtual television in a browser: prints the page's address and runs
# until Ctrl-C (WEB_PORT=8480 by default).
demo-web: build
	scripts/demo-web.sh build

bench: deps
	cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DZOR_BUILD_BENCH=ON -DZOR_BUILD_TESTS=OFF $(CMAKE_FLAGS)
	cmake --build build-bench -j $(JOBS)
	scripts/run-bench.sh build-bench

# libFuzzer over the inbound server and the frame decoder (clang).
# fuzz: 10 minutes per target; fuzz-ci: 60 s per target, fails on any finding.
FUZZ_SECONDS ?= 600
fuzz-build: deps
	cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_C_COMPILER=clang \
		-DCMAKE_CXX_COMPILER=clang++ -DZOR_BUILD_FUZZ=ON -DZOR_BUILD_TESTS=OFF \
		-DZOR_BUILD_TOOLS=OFF -DZOR_WERROR=OFF $(CMAKE_FLAGS)
	cmake --build build-fuzz --target fuzz_inbound_command fuzz_frame_decoder -j $(JOBS)

fuzz: fuzz-build
	scripts/run-fuzz.sh build-fuzz $(FUZZ_SECONDS)

fuzz-ci: fuzz-build
	scripts/run-fuzz.sh build-fuzz 60

# Every C and C++ file follows .clang-format, and every source file starts
# with the licence line; format-check fails on the first file that does not
# (CI), format rewrites them in place and adds missing licence lines.
format:
	clang-format -i $(FORMAT_FILES)
	scripts/spdx.sh add

format-check: deps
	@clang-format --dry-run -Werror $(FORMAT_FILES) && echo "clang-format: $(words $(FORMAT_FILES)) files clean"
	@scripts/spdx.sh check

clean:
	rm -rf build build-asan build-tsan build-armhf build-bench build-fuzz build-docs build-clang
