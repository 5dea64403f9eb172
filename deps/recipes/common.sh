# shellcheck shell=bash
# What the recipes share. A recipe is run with
#   ROOT      the checkout
#   PLATFORM  linux, windows, linux-asan, linux-tsan or linux-fuzz
#   WORK      its own folder, which holds the unpacked and patched `source`
#   NEEDED    the prefixes of the libraries that this one is built on
# and leaves the finished library in WORK/prefix. That folder is moved
# afterwards and may move again: nothing in it names its own place. None of
# these paths has a blank in it.
# shellcheck disable=SC2034  # some are for the recipes that source this file
set -euo pipefail
export LC_ALL=C SOURCE_DATE_EPOCH=1
SOURCE=$WORK/source
PREFIX=$WORK/prefix
JOBS=$(nproc)

# Nothing that is linked from the objects tells where they were built.
FLAGS=(-fvisibility=hidden "-ffile-prefix-map=$WORK=/usr/src/http_interface")
case $PLATFORM in
  linux | windows)
    BUILD_TYPE=Release
    # Machine code and link-time optimisation data side by side: whoever links
    # decides which of the two is used.
    FLAGS+=(-flto -ffat-lto-objects)
    ;;
  linux-asan)
    BUILD_TYPE=RelWithDebInfo
    FLAGS+=(-fsanitize=address -fno-omit-frame-pointer)
    ;;
  linux-tsan)
    BUILD_TYPE=RelWithDebInfo
    FLAGS+=(-fsanitize=thread -fno-omit-frame-pointer)
    ;;
  linux-fuzz)
    BUILD_TYPE=RelWithDebInfo
    # Counts which branches run, so that the fuzzer sees into the libraries.
    FLAGS+=("-fsanitize=fuzzer-no-link,address,undefined" -fno-sanitize-recover=undefined
            -fno-omit-frame-pointer)
    ;;
esac

# The same as a list of CMake's.
NEEDED_LIST=${NEEDED# }
NEEDED_LIST=${NEEDED_LIST// /;}
case $PLATFORM in
  windows)
    OPTIONS=(
      -DCMAKE_TOOLCHAIN_FILE="$ROOT/cmake/toolchains/mingw-w64.cmake"
      -DCMAKE_FIND_ROOT_PATH="$NEEDED_LIST")
    ;;
  linux-fuzz)
    OPTIONS=(-DCMAKE_C_COMPILER=clang-14 -DCMAKE_POSITION_INDEPENDENT_CODE=ON)
    ;;
  *)
    # The archivers that know link-time optimisation data.
    OPTIONS=(
      -DCMAKE_C_COMPILER=gcc -DCMAKE_AR=/usr/bin/gcc-ar -DCMAKE_RANLIB=/usr/bin/gcc-ranlib
      -DCMAKE_POSITION_INDEPENDENT_CODE=ON)
    ;;
esac

# An option that this version doesn't know would be ignored by CMake with no
# more than a warning.
refuse_unknown_options() {
  ! grep -A 20 'Manually-specified variables were not used' "$1"
}

# Leaves headers, libraries and their descriptions, all of which find the
# prefix from where they are themselves.
finish_prefix() {
  local prefix
  rm -rf "${PREFIX:?}/bin" "${PREFIX:?}/share"
  for prefix in "$PREFIX" $NEEDED; do
    sed -i "s#$prefix#\${prefix}#g" "$PREFIX"/lib/pkgconfig/*.pc
    find "$PREFIX/lib/cmake" -name '*Config.cmake' -exec \
      sed -i "s#$prefix#\${PACKAGE_PREFIX_DIR}#g" {} +
  done
  # shellcheck disable=SC2016  # pcfiledir is for pkg-config to fill in
  sed -i 's#^prefix=.*#prefix=${pcfiledir}/../..#' "$PREFIX"/lib/pkgconfig/*.pc
}

# build_with_cmake OPTION...
build_with_cmake() {
  cmake -G Ninja -S "$SOURCE" -B "$WORK/build" \
    -DCMAKE_C_FLAGS="${FLAGS[*]}" -DCMAKE_INSTALL_PREFIX="$PREFIX" -DCMAKE_INSTALL_LIBDIR=lib \
    -DCMAKE_PREFIX_PATH="$NEEDED_LIST" -DCMAKE_BUILD_TYPE="$BUILD_TYPE" \
    -DCMAKE_PROJECT_INCLUDE="$ROOT/deps/recipes/common.cmake" \
    "${OPTIONS[@]}" "$@" 2>&1 | tee "$WORK/configure.log"
  refuse_unknown_options "$WORK/configure.log"
  cmake --build "$WORK/build" -j "$JOBS"
  cmake --install "$WORK/build"
  finish_prefix
}

# add_licence NAME FILE...: the texts that go into the third-party notices.
add_licence() {
  local name=$1
  shift
  mkdir -p "$PREFIX/licenses"
  cat "${@/#/$SOURCE/}" >"$PREFIX/licenses/$name.txt"
}
