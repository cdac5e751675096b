# Thin wrappers over the CMake presets; everything real lives in CMake.
PRESET ?= dev
JOBS ?= $(shell nproc)

.PHONY: all deps configure build test run asan release bench format docs clean

all: build

deps:
	@bash scripts/install-deps.sh

configure: deps
	cmake --preset $(PRESET)

build: configure
	cmake --build --preset $(PRESET) -j $(JOBS)

test: build
	ctest --preset $(PRESET)

run: configure
	cmake --build --preset $(PRESET) --target kora-adhoc -j $(JOBS)
	./build/$(PRESET)/tools/kora-adhoc examples/tour.smt2

asan:
	$(MAKE) test PRESET=asan

release:
	$(MAKE) build PRESET=release

docs: configure
	cmake --build --preset $(PRESET) --target docs

format:
	find src tools tests bench examples -name '*.h' -o -name '*.cpp' | xargs clang-format -i

clean:
	rm -rf build
