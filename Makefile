# Thin wrapper over CMake presets. `make demo` and `make test` work on a fresh machine.
PRESET ?= release
JOBS ?= $(shell nproc)

.PHONY: all deps configure build install demo test test-preset test-release test-asan test-tracked bench fuzz format clean screenshot

all: build

deps:
	@scripts/install-deps.sh

configure: deps
	@cmake --preset $(PRESET) >/dev/null

build: configure
	@cmake --build --preset $(PRESET) -j $(JOBS)

# The tools, their manual pages and completion, and the sample map under PREFIX.
PREFIX ?= /usr/local
install:
	@$(MAKE) --no-print-directory build PRESET=release
	@cmake --install build/release --prefix $(PREFIX)

# Bakes a copy of the bundled sample map with its morning script in build/demo; prints where the
# results are. Builds only the baker, so a first run stays short.
demo: configure
	@cmake --build --preset release -j $(JOBS) --target tenebrix-bake
	@rm -rf build/demo/sample && mkdir -p build/demo && cp -r data/sample build/demo/sample
	@build/release/apps/tenebrix-bake build/demo/sample --config build/demo/sample/resource.cfg \
	    --script morning --png build/demo/sample.png --stats

# The setup dialog mid-bake under a virtual X server, as a PNG.
screenshot:
	@$(MAKE) --no-print-directory build PRESET=release
	@scripts/screenshot.sh build/release/apps/tenebrix build/screenshot/dialog.png

# The whole suite, built as released and again under AddressSanitizer and UBSan.
test:
	@$(MAKE) --no-print-directory test-preset PRESET=release
	@$(MAKE) --no-print-directory test-preset PRESET=asan

test-preset: build
	@ctest --preset $(PRESET) -j $(JOBS)

test-release:
	@$(MAKE) --no-print-directory test-preset PRESET=release

test-asan:
	@$(MAKE) --no-print-directory test-preset PRESET=asan

test-tracked:
	@$(MAKE) --no-print-directory test-preset PRESET=tracked

bench:
	@$(MAKE) --no-print-directory build PRESET=release
	@build/release/bench/tenebrix-bench

fuzz:
	@scripts/fuzz.sh

format:
	@git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	@rm -rf build
