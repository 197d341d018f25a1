# The two commands of the README. Both install what is missing first.
.PHONY: demo test bench build bootstrap clean

# The demo needs no test tools: it builds and installs only what it runs.
demo:
	scripts/bootstrap --no-browser-tests
	scripts/demo

test: bootstrap
	scripts/test-all

bench: bootstrap
	scripts/bench

build: bootstrap
	cmake --preset dev >/dev/null && cmake --build --preset dev

bootstrap:
	scripts/bootstrap

clean:
	rm -rf build
