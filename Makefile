# Thin wrappers over the CMake presets; everything real lives in CMake.
PRESET ?= dev
JOBS ?= $(shell nproc)

.PHONY: all deps configure build test run asan release bench format docs lint fuzz valgrind clean bench-solve

all: build

deps:
	@bash scripts/install-deps.sh

configure: deps
	cmake --preset $(PRESET)

build: configure
	cmake --build --preset $(PRESET) -j $(JOBS)

test: build
	ctest --preset $(PRESET)

# The tour of kora-adhoc, then kora-solve on a real benchmark with cvc5 (which
# deps installs): the answer, the model (solve-with-model.sh adds the
# get-model) and the statistics line.
SOLVE_EXAMPLE = examples/brummayerbiere4/unconstrained01.smt2
run: configure
	cmake --build --preset $(PRESET) --target kora-adhoc kora-solve -j $(JOBS)
	./build/$(PRESET)/tools/kora-adhoc examples/tour.smt2
	@echo
	@echo "kora-solve --solver cvc5 --stats $(SOLVE_EXAMPLE), with a (get-model):"
	bash examples/solve-with-model.sh ./build/$(PRESET)/tools/kora-solve/kora-solve \
	  $(SOLVE_EXAMPLE) --solver cvc5 --stats

asan:
	$(MAKE) test PRESET=asan

release:
	$(MAKE) build PRESET=release

docs: configure
	cmake --build --preset $(PRESET) --target docs

# Benchmarks (bench/RESULTS.md): kora-bench's JSON (the SMT-LIB printer's
# output rate among them) and kora-adhoc's throughput on a generated script go
# to build/release/bench/, then a table of ratios is printed (and kept as
# summary.md); last, reading the shared QF_BV corpus against z3's parse
# (read.md, skipped when the corpus or z3 is absent). KORA_WITH_BENCH=1 also
# installs the optional comparison libraries (FLINT, abseil) and GNU time.
BENCH_DIR = build/release/bench
BENCH_ARGS ?= --benchmark_repetitions=3 --benchmark_min_time=0.2
bench: deps
	cmake --preset release
	cmake --build --preset release --target kora-bench kora-adhoc kora-smtlib-read -j $(JOBS)
	./$(BENCH_DIR)/kora-bench --benchmark_out=$(BENCH_DIR)/results.json \
	  --benchmark_out_format=json $(BENCH_ARGS)
	python3 bench/adhoc_bench.py --kora-adhoc build/release/tools/kora-adhoc \
	  --out $(BENCH_DIR)/adhoc.json
	python3 bench/summarize.py $(BENCH_DIR)/results.json $(BENCH_DIR)/adhoc.json \
	  --markdown $(BENCH_DIR)/summary.md
	python3 bench/read_bench.py --kora $(BENCH_DIR)/kora-smtlib-read \
	  --out $(BENCH_DIR)/read.json --markdown $(BENCH_DIR)/read.md
	python3 bench/wide_inputs_bench.py --kora-adhoc build/release/tools/kora-adhoc \
	  --out $(BENCH_DIR)/wide_inputs.json
	python3 bench/numeral_memory_bench.py --kora-adhoc build/release/tools/kora-adhoc \
	  --out $(BENCH_DIR)/numeral_memory.json

# kora-solve against z3, cvc5 and boolector (those installed) on
# ../shared/benchmarks/qf_bv, SOLVE_LIMIT seconds per run (bench/RESULTS.md);
# SOLVE_ARGS passes more options (e.g. --repeat 3, --filter spear).
# Not part of CI: the full run can take over an hour.
SOLVE_LIMIT ?= 20
SOLVE_ARGS ?=
bench-solve: deps
	cmake --preset release
	cmake --build --preset release --target kora-solve -j $(JOBS)
	mkdir -p $(BENCH_DIR)
	python3 bench/solve_bench.py --kora-solve build/release/tools/kora-solve/kora-solve \
	  --corpus ../shared/benchmarks/qf_bv --limit $(SOLVE_LIMIT) \
	  --out $(BENCH_DIR)/solve.json --markdown $(BENCH_DIR)/solve.md $(SOLVE_ARGS)

# clang-tidy and cppcheck over src/ and tools/ (scripts/lint.sh).
lint: configure
	@KORA_WITH_LINT=1 bash scripts/install-deps.sh
	KORA_LINT_BUILD=build/$(PRESET) bash scripts/lint.sh

# The libFuzzer targets, KORA_FUZZ_SECONDS (default 60) each (fuzz/run.sh).
fuzz: deps
	@KORA_WITH_FUZZ=1 bash scripts/install-deps.sh
	bash fuzz/run.sh

# kora-adhoc under valgrind over every end-to-end script.
valgrind: build
	@KORA_WITH_VALGRIND=1 bash scripts/install-deps.sh
	bash scripts/valgrind-scripts.sh build/$(PRESET)/tools/kora-adhoc

format:
	find src tools tests bench examples -name '*.h' -o -name '*.cpp' | xargs clang-format -i

clean:
	rm -rf build
