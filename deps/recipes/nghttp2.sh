# shellcheck shell=bash
source "$ROOT/deps/recipes/common.sh"

build_with_cmake -DENABLE_LIB_ONLY=ON -DBUILD_SHARED_LIBS=OFF -DBUILD_STATIC_LIBS=ON \
  -DBUILD_TESTING=OFF -DENABLE_DOC=OFF
add_licence nghttp2 COPYING
