# Front of the CMake build: each verb does all it needs, set-up included.
CMAKE ?= cmake
BUILD ?= build
JOBS ?= $(shell nproc)

.PHONY: all try demo lab test bench check format clean install

all:
	! command -v dpkg-query >/dev/null || scripts/bootstrap build
	$(CMAKE) -S . -B $(BUILD) -G Ninja -DLUMENHARBOUR_TESTS=OFF $(CMAKE_FLAGS)
	$(CMAKE) --build $(BUILD) -j $(JOBS)

try:
	scripts/bootstrap demo
	$(MAKE) all
	scripts/try

demo:
	scripts/bootstrap demo
	$(MAKE) all
	lab/demo

# LAB holds options of lab/lab run.
lab:
	scripts/bootstrap dhcp
	$(MAKE) all
	lab/lab run $(LAB)

# TEST=--all adds Clang, the sanitizers and a static daemon.
test:
	scripts/bootstrap test
	scripts/test $(TEST)

bench:
	scripts/bootstrap test
	scripts/bench

check:
	scripts/bootstrap test
	scripts/check

format:
	scripts/check --fix

install: all
	$(CMAKE) --install $(BUILD) --strip

clean:
	rm -rf $(BUILD) build-*
