# The front door. `make help` lists what can be asked for.

# What `make test` builds and tests: any of release, asan (with UBSan), tsan.
PRESETS ?= release asan tsan
JOBS ?= $(shell nproc)
sources = $(shell git ls-files '*.cpp' '*.h' '*.bpf.c')

.DEFAULT_GOAL := build
.PHONY: build setup demo lab test test-% bench plots format check-format lint install packages check-packages clean help

build: setup ## Build programs into build/bin and libraries into build/lib
	@cmake --preset release >/dev/null
	@cmake --build --preset release -j $(JOBS) --target programs

setup: ## Install missing packages (asks before it uses sudo)
	@scripts/setup

demo: setup build ## Show a profile at work, in a network of its own
	@scripts/world scripts/demo

lab: setup build ## Build a switch of namespaces, and show control protocols cross it or not
	@cmake --build --preset release --target lab
	@scripts/lab/run

test: setup check-format $(addprefix test-,$(PRESETS)) lint ## Check the format, test every preset, lint

test-%: ## Build and test one preset: test-release, test-asan or test-tsan
	@cmake --preset $* >/dev/null
	@cmake --build --preset $* -j $(JOBS)
	@ctest --preset $* -j $$((4 * $(JOBS)))

bench: ## Measure, each figure as a ratio within one run (installs what it compares with)
	@scripts/setup --bench
	@cmake --preset release >/dev/null
	@cmake --build --preset release -j $(JOBS) --target programs benchmarks
	@bench/run

plots: bench ## Measure, and put the figures into docs/performance.md and its plots
	@bench/report

format: ## Format the sources
	@clang-format -i $(sources)

check-format: ## Fail if a source is not formatted
	@clang-format --dry-run -Werror $(sources)

lint: ## Fail on what clang-tidy finds
	@cmake --preset release >/dev/null
	@cmake --build --preset release -j $(JOBS) --target rpc_generated
	@scripts/lint

install: build ## Install; DESTDIR and PREFIX as usual
	@cmake --install build $(if $(PREFIX),--prefix $(PREFIX))

packages: setup ## Build Debian packages into the folder build-packages
	@scripts/packages build-packages

check-packages: setup ## Build the packages, install, use and remove them in a layer over this system
	@tests/packaging/packages_test

clean: ## Remove the build folders
	@rm -rf build build-asan build-tsan build-packages

help: ## This list
	@sed -n 's/^\([a-z%-]*\):.*## \(.*\)/  make \1\t\2/p' Makefile | expand -t 22
