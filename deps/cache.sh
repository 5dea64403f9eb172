# shellcheck shell=bash
# The cache of built libraries. Sourced by scripts/deps, which sets ROOT and
# CACHE. Below CACHE:
#   archives/                         verified source archives
#   PLATFORM/NAME-VERSION-KEY/        one built library
#   PLATFORM/prefix-KEY/              the libraries of a platform in one prefix
#   unfinished/, locks/, logs/        what a running build needs
# An entry is made in unfinished/ and renamed into place when it is complete:
# an interrupted build leaves nothing that could be taken for an entry.

# lock_cache NAME: waits until no other run makes the thing of that name. The
# lock ends with the shell that took it, so that what takes one is a subshell.
lock_cache() {
  local lock
  mkdir -p "$CACHE/locks"
  exec {lock}>"$CACHE/locks/$1"
  flock --nonblock "$lock" && return
  say "waiting for another run that makes $1"
  flock "$lock"
}

# What the compiler and the system's own libraries add to a key. Objects that
# carry link-time optimisation data fit only the very compiler that made them.
tools_of() {
  case $1 in
    windows) x86_64-w64-mingw32-gcc-posix --version | sed -n 1p ;;
    linux-fuzz) clang-14 --version | sed -n 1p && dpkg-query -W libssl-dev ;;
    *) gcc --version | sed -n 1p && dpkg-query -W libssl-dev ;;
  esac
}

patches_of() { find "$ROOT/deps/patches" -name "$1-*.patch" | LC_ALL=C sort; }

# all_that_decides NAME PLATFORM: prints what makes a build differ, which the
# comments in a recipe do not.
all_that_decides() {
  local recipe=("$ROOT/deps/recipes/$1.sh" "$ROOT"/deps/recipes/common.*) needed
  [[ $2 != windows ]] || recipe+=("$ROOT/cmake/toolchains/mingw-w64.cmake")
  grep "^$1 " "$ROOT/deps/sources.txt"
  patches_of "$1" | xargs -r cat
  sed '/^[[:space:]]*#/d' "${recipe[@]}"
  tools_of "$2"
  options_of "$1"
  for needed in $(needs_of "$1" "$2"); do
    all_that_decides "$needed" "$2"
  done
}

digest() { sha256sum | cut -c1-16; }

# entry_of NAME PLATFORM: prints the entry's place in the cache.
entry_of() {
  local key
  pin_of "$1"
  key=$(all_that_decides "$1" "$2" | digest)
  # shellcheck disable=SC2154  # set by pin_of
  printf '%s/%s-%s-%s' "$2" "$1" "$pin_version" "$key"
}

# unpack_source NAME ARCHIVE FOLDER
unpack_source() {
  local patch
  mkdir -p "$3"
  tar -xf "$2" -C "$3" --strip-components=1
  for patch in $(patches_of "$1"); do
    patch -d "$3" -p1 --batch --forward --fuzz=0 --silent <"$patch" >/dev/null ||
      die "deps/patches/${patch##*/} does not fit $1 $pin_version"
  done
}

# build_entry NAME PLATFORM: makes the library's entry unless it is there.
build_entry() (
  entry=$(entry_of "$1" "$2")
  [[ ! -d $CACHE/$entry ]] || return 0
  archive=$(fetch_source "$1")
  lock_cache "${entry//\//-}"
  [[ ! -d $CACHE/$entry ]] || return 0

  export ROOT PLATFORM=$2 WORK=$CACHE/unfinished/$entry NEEDED=
  log=$CACHE/logs/$entry.log
  rm -rf "$WORK"
  mkdir -p "$WORK" "${log%/*}" "$CACHE/$2"
  pin_of "$1"
  unpack_source "$1" "$archive" "$WORK/source"
  for needed in $(needs_of "$1" "$2"); do
    NEEDED+=" $CACHE/$(entry_of "$needed" "$2")"
  done
  say "building $1 $pin_version for $2"
  SECONDS=0
  bash "$ROOT/deps/recipes/$1.sh" >"$log" 2>&1 </dev/null || {
    tail -n 20 "$log" >&2
    die "building $1 for $2 failed; the whole log is $log"
  }
  mv -T "$WORK/prefix" "$CACHE/$entry"
  rm -rf "$WORK"
  say "built $1 $pin_version for $2 in $SECONDS s"
)

# assemble_prefix PLATFORM NAME...: one prefix of all the libraries' entries,
# by hard links. Prints its path.
assemble_prefix() (
  platform=$1
  shift
  entries=()
  for name in "$@"; do
    entries+=("$(entry_of "$name" "$platform")")
  done
  prefix=$platform/prefix-$(printf '%s\n' "${entries[@]}" | digest)
  lock_cache "${prefix//\//-}"
  if [[ ! -d $CACHE/$prefix ]]; then
    work=$CACHE/unfinished/$prefix
    rm -rf "$work"
    mkdir -p "$work"
    for entry in "${entries[@]}"; do
      cp -al "$CACHE/$entry/." "$work/"
    done
    mv -T "$work" "$CACHE/$prefix"
  fi
  printf '%s' "$CACHE/$prefix"
)
