# shellcheck shell=bash
# OpenSSL for Windows; elsewhere the system's is used.
source "$ROOT/deps/recipes/common.sh"

options=(
  mingw64 --prefix=/openssl --libdir=lib
  no-shared no-tests no-docs no-apps no-legacy no-engine no-module
  # A library that is unloaded again: it must not pin itself in the process,
  # nor leave an exit handler behind.
  no-pinshared no-atexit
  # No settings file, wherever OPENSSL_CONF points.
  no-autoload-config
)

cd "$SOURCE"
tools=x86_64-w64-mingw32
CC=$tools-gcc-posix AR=$tools-gcc-ar-posix RANLIB=$tools-gcc-ranlib-posix RC=$tools-windres \
  ./Configure "${options[@]}"
# Where OpenSSL would look for settings, certificates and modules: a folder that
# only administrators can write to. Nothing is ever installed there. Configure
# would not take it for an absolute path.
home='C:/Program Files/Common Files/SSL'
folders=(OPENSSLDIR="$home" ENGINESDIR="$home/engines" MODULESDIR="$home/modules")
make -j "$JOBS" build_libs "${folders[@]}"
make install_dev "${folders[@]}" DESTDIR="$WORK/stage"
mv "$WORK/stage/openssl" "$PREFIX"
finish_prefix
add_licence openssl LICENSE.txt
