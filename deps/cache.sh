# shellcheck shell=bash
# The cache of built libraries. Sourced by scripts/deps, which sets ROOT and
# CACHE. Below CACHE:
#   archives/                         verified source archives
#   PLATFORM/NAME-VERSION-KEY/        one built library
#   PLATFORM/prefix-KEY/              the libraries of a platform in one prefix
#   work/, locks/, logs/              what a running build needs
# An entry is made in work/ and renamed into place when it is complete, so that
# an interrupted build leaves nothing that could be taken for an entry.

# One lock at a time: every run that would make the same entry waits here.
lock_cache() {
  mkdir -p "$CACHE/locks"
  exec {lock_fd}>"$CACHE/locks/$1"
  flock --nonblock "$lock_fd" && return
  say "waiting for another run that makes $1"
  flock "$lock_fd"
}
unlock_cache() { exec {lock_fd}>&-; }

# What the compiler and the system's own libraries add to a key. Objects that
# carry link-time optimisation data fit only the very compiler that made them.
tools_of() {
  case $1 in
    windows) x86_64-w64-mingw32-gcc-posix --version | head -n1 ;;
    *) gcc --version | head -n1 && dpkg-query -W libssl-dev ;;
  esac
}

patches_of() { find "$ROOT/deps/patches" -name "$1-*.patch" | LC_ALL=C sort; }

# key_of NAME PLATFORM: a digest of all that decides what is built.
key_of() {
  local needed
  {
    grep "^$1 " "$ROOT/deps/sources.txt"
    patches_of "$1" | xargs -r cat
    cat "$ROOT/deps/recipes/$1.sh" "$ROOT"/deps/recipes/common.*
    [[ $2 != windows ]] || cat "$ROOT/cmake/toolchains/mingw-w64.cmake"
    tools_of "$2"
    options_of "$1"
    for needed in $(needs_of "$1" "$2"); do
      key_of "$needed" "$2"
    done
  } | sha256sum | cut -c1-16
}

entry_of() {
  pin_of "$1"
  printf '%s/%s-%s-%s' "$2" "$1" "$pin_version" "$(key_of "$1" "$2")"
}

unpack_source() {
  local patch
  fetch_source "$1"
  mkdir -p "$2"
  tar -xf "$archive" -C "$2" --strip-components=1
  for patch in $(patches_of "$1"); do
    patch -d "$2" -p1 --batch --forward --fuzz=0 --silent <"$patch" >/dev/null ||
      die "deps/patches/${patch##*/} does not fit $1 $pin_version"
  done
}

# build_entry NAME PLATFORM: makes the library's entry unless it is there.
build_entry() {
  local entry work log needed started=$SECONDS prefixes=()
  entry=$(entry_of "$1" "$2")
  [[ ! -d $CACHE/$entry ]] || return 0
  lock_cache "${entry//\//-}"
  if [[ ! -d $CACHE/$entry ]]; then
    work=$CACHE/work/$entry
    log=$CACHE/logs/$entry.log
    rm -rf "$work"
    mkdir -p "$work" "${log%/*}" "$CACHE/$2"
    unpack_source "$1" "$work/source"
    for needed in $(needs_of "$1" "$2"); do
      prefixes+=("$CACHE/$(entry_of "$needed" "$2")")
    done
    pin_of "$1"
    say "building $1 $pin_version for $2"
    PLATFORM=$2 WORK=$work NEEDED="${prefixes[*]}" ROOT=$ROOT \
      bash "$ROOT/deps/recipes/$1.sh" >"$log" 2>&1 </dev/null || {
      tail -n 20 "$log" >&2
      die "building $1 for $2 failed; the whole log is $log"
    }
    mv -T "$work/prefix" "$CACHE/$entry"
    rm -rf "$work"
    say "built $1 $pin_version for $2 in $((SECONDS - started)) s"
  fi
  unlock_cache
}

# assemble_prefix PLATFORM NAME...: one prefix of all the libraries' entries,
# by hard links. Prints its path.
assemble_prefix() {
  local platform=$1 name entries=() key prefix work
  shift
  for name in "$@"; do
    entries+=("$(entry_of "$name" "$platform")")
  done
  key=$(printf '%s\n' "${entries[@]}" | sha256sum | cut -c1-16)
  prefix=$platform/prefix-$key
  if [[ ! -d $CACHE/$prefix ]]; then
    lock_cache "${prefix//\//-}"
    if [[ ! -d $CACHE/$prefix ]]; then
      work=$CACHE/work/$prefix
      rm -rf "$work"
      mkdir -p "$work"
      for name in "${entries[@]}"; do
        cp -al "$CACHE/$name/." "$work/"
      done
      mv -T "$work" "$CACHE/$prefix"
    fi
    unlock_cache
  fi
  printf '%s' "$CACHE/$prefix"
}
