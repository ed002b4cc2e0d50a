# Sourced by the build scripts: sets the array `launcher` to the CMake arguments that put the
# compiler cache in front of the compilers, when ccache is installed and the caller did not
# choose a launcher. Paths are taken relative to the checkout, so clones and build directories
# share one cache (a rebuild after a small change, or CI after a local build, is quick).
launcher=()
if command -v ccache >/dev/null && [ -z "${CMAKE_CXX_COMPILER_LAUNCHER:-}" ]; then
  export CCACHE_BASEDIR="$PWD" CCACHE_NOHASHDIR=1
  launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
