# Two commands for newcomers (see README.md):
#   make demo   install what is missing, build, run `ncodec demo` (results in out/demo/)
#   make check  install what is missing, build, run the test suite
# Everything else goes through the CMake presets (release, asan, tsan, fuzz).

.PHONY: demo check deps build asan-check tsan-check fuzz-smoke clean

deps:
	@scripts/install-deps

build: deps
	cmake --preset release
	cmake --build --preset release

demo: build
	build/release/tools/ncodec/ncodec demo --out out/demo

check: build
	ctest --preset release

asan-check: deps
	cmake --preset asan
	cmake --build --preset asan
	ctest --preset asan

# Every fuzz target gets a short run over its seed corpus (CI uses 10 s each).
fuzz-smoke: deps
	scripts/fuzz-run $(or $(FUZZ_SECONDS),10)

tsan-check: deps
	cmake --preset tsan
	cmake --build --preset tsan
	ctest --preset tsan

clean:
	rm -rf build out
