# shellcheck shell=bash
source "$ROOT/deps/recipes/common.sh"

# UV_EXTERN would make every function visible, hidden or not by default.
[[ $PLATFORM == windows ]] || FLAGS+=(-DUV_EXTERN=)
build_with_cmake -DLIBUV_BUILD_SHARED=OFF -DBUILD_TESTING=OFF
add_licence libuv LICENSE LICENSE-extra
