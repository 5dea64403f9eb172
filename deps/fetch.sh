# shellcheck shell=bash
# Source archives: where they come from and the check that they are the pinned
# ones. Sourced by scripts/deps, which sets ROOT and CACHE.

# pin_of NAME: sets pin_version, pin_sums, pin_file, pin_pool and pin_urls
# from the library's line in sources.txt.
pin_of() {
  local name
  # shellcheck disable=SC2034  # the version is for deps/cache.sh
  while read -r name pin_version pin_sums pin_file pin_pool pin_urls; do
    [[ $name == "$1" ]] && return
  done <"$ROOT/deps/sources.txt"
  die "$1: not in deps/sources.txt"
}

# Prints the addresses of the package archives that this machine's own apt is
# set up with, asking apt itself, which knows all formats of its settings.
apt_archives() {
  apt-get update --print-uris 2>/dev/null |
    sed -n "s#^'\(.*\)/dists/.*#\1#p" | awk '!seen[$0]++'
}

# download ADDRESS FILE, through apt, whose proxies and time limits then hold.
download() {
  /usr/lib/apt/apt-helper -qq -o APT::Sandbox::User="$(id -un)" \
    -o Acquire::Retries=1 -o Acquire::http::Timeout=20 -o Acquire::https::Timeout=20 \
    download-file "$1" "$2" </dev/null >/dev/null 2>&1
}

# Prints the places where the archive of the current pin may be, in the order
# in which they are tried.
places_of_pin() {
  local base
  [[ -z ${HTTP_INTERFACE_DISTFILES:-} ]] || printf '%s\n' "$HTTP_INTERFACE_DISTFILES/$pin_file"
  for base in $(apt_archives); do
    printf '%s\n' "$base/$pin_pool/$pin_file"
  done
  # shellcheck disable=SC2086  # several addresses, split at blanks
  printf '%s\n' $pin_urls
}

# take_from PLACE FILE: copies or downloads.
take_from() {
  case $1 in
    *://*) download "$1" "$2" ;;
    *) [[ -f $1 ]] && cp -- "$1" "$2" ;;
  esac
}

sum_of() { sha256sum <"$1" | cut -d' ' -f1; }
is_pinned() { [[ -f $1 && ,$pin_sums, == *,$(sum_of "$1"),* ]]; }

# look_for_archive ARCHIVE: finds the file of the current pin and puts it there.
look_for_archive() {
  local place tried=() incoming=$CACHE/unfinished/fetch-$pin_file
  rm -rf "$incoming"
  mkdir -p "$incoming" "${1%/*}"
  while read -r place; do
    tried+=("$place")
    take_from "$place" "$incoming/$pin_file" || continue
    is_pinned "$incoming/$pin_file" ||
      die "$pin_file: wrong SHA-256 from $place:" \
        "$(sum_of "$incoming/$pin_file"), pinned is $pin_sums"
    mv -f "$incoming/$pin_file" "$1"
    rm -rf "$incoming"
    return
  done < <(places_of_pin)
  die "$pin_file: not found; tried $(printf '%s, ' "${tried[@]}" | sed 's/, $//')"
}

# fetch_source NAME: puts the verified archive into the cache, unless it is
# there, and prints its path.
fetch_source() (
  pin_of "$1"
  archive=$CACHE/archives/$pin_file
  lock_cache "fetch-$pin_file"
  is_pinned "$archive" || look_for_archive "$archive"
  printf '%s' "$archive"
)
