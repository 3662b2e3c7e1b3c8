# The front door. Needs git, make and the right to install packages (root or sudo) beforehand.
#
#   make run [REPO=DIR] [DB=FILE] [TEXT=WORDS]   index a repository, print its statistics and one search
#   make test                                    build everything and run every test

REPO ?= .
DB ?=
TEXT ?= main
TREE ?= /usr/include
PREFIX ?= /usr/local
JOBS ?= $(shell nproc)

BUILD := build/release
TOOL := $(BUILD)/tools/veldra-index
SHELL := /bin/bash
.DEFAULT_GOAL := help
.PHONY: help deps configure build run test check check-tree coverage format bench reference install package clean

help: ## this list
	@awk -F ':.*## ' '/^[a-z]+:.*## / { printf "  make %-10s%s\n", $$1, $$2 }' Makefile

deps: ## install the packages that are missing
	@scripts/install-deps.sh

configure: deps
	@scripts/quietly.sh "Configure" cmake --preset release

build: configure ## the library, the tool, tests and benchmarks, optimised
	@scripts/quietly.sh "Build" cmake --build --preset release --parallel $(JOBS)

# Only the tool is built. A shell may leave the ~ of REPO=~/src as it stands.
run: override REPO := $(patsubst ~/%,$(HOME)/%,$(REPO))
run: configure ## index REPO (default: this one) into DB, then print its statistics and a search for TEXT
	@scripts/quietly.sh "Build" cmake --build --preset release --parallel $(JOBS) --target veldra-index
	@$(TOOL) rebuild "$(REPO)" $(if $(DB),--db "$(DB)")
	@$(TOOL) stats "$(REPO)" $(if $(DB),--db "$(DB)")
	@$(TOOL) search "$(TEXT)" "$(REPO)" $(if $(DB),--db "$(DB)")

test: build ## run every test
	@scripts/run-tests.sh release

check: deps ## what is to pass before a commit: format, lint, tests with assertions (needs the packages of --ci)
	@scripts/check-format.sh
	@$(MAKE) --no-print-directory check-tree
	@scripts/quietly.sh "Configure" cmake --preset clang
	@scripts/quietly.sh "Build" cmake --build --preset clang --parallel $(JOBS)
	@scripts/quietly.sh "Lint" scripts/check-tidy.sh build/clang src tools
	@scripts/run-tests.sh clang -LE slow

check-tree: ## the part of it that needs no build: the floors, the version, the scripts
	@scripts/check-floors.sh
	@scripts/check-version.sh
	@shellcheck -x scripts/*.sh bench/*.sh tests/*.sh tests/install/*.sh examples/fleet/publish examples/fleet/follow .ci/run

coverage: deps ## which lines the quick tests run: build/coverage/report/index.html (needs the packages of --ci)
	@scripts/quietly.sh "Configure" cmake --preset coverage
	@scripts/quietly.sh "Build" cmake --build --preset coverage --parallel $(JOBS)
	@find build/coverage -name '*.gcda' -delete
	@scripts/run-tests.sh coverage -LE slow
	@mkdir -p build/coverage/report
	@gcovr --root . --filter src/ --filter tools/ --exclude-unreachable-branches --print-summary \
		--html-details build/coverage/report/index.html build/coverage | grep '^lines'

format: ## write every C++ file as .clang-format has it
	@scripts/check-format.sh --fix

bench: build ## compare with the bare SQLite library, a rebuild of TREE with its floor; plots in bench/report.html
	@scripts/quietly.sh "Benchmarks" $(BUILD)/bench/veldra_bench \
		--benchmark_out=$(BUILD)/bench/results.json --benchmark_out_format=json
	@python3 bench/rebuild_floor.py $(TOOL) "$(TREE)" >$(BUILD)/bench/rebuild_floor.md
	@python3 bench/report.py $(BUILD)/bench/results.json bench/report.html $(BUILD)/bench/rebuild_floor.md

reference: ## the API reference, build/reference/html/index.html (needs doxygen)
	@mkdir -p build
	@scripts/quietly.sh "Reference" doxygen docs/Doxyfile

install: build ## install under PREFIX (default /usr/local); DESTDIR is honoured
	@cmake --install $(BUILD) --prefix "$(PREFIX)"

package: build ## build/release/*.deb: veldra-index, the tool, and libveldra-storage-dev
	@scripts/quietly.sh "Package" cpack --config $(BUILD)/CPackConfig.cmake -B $(BUILD)

clean: ## remove everything that was built
	rm -rf build
