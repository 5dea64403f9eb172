# shellcheck shell=bash
# Helpers of the scripts in this folder. Sourced, never run:
#   source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

# The checkout that holds this file, whatever the current folder is.
# shellcheck disable=SC2034  # for the scripts that source this file
ROOT=$(cd -P "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# Both write to standard error, so that a caller may capture a function's
# output and still show what is going on.
say() { printf '%s: %s\n' "${0##*/}" "$*" >&2; }
die() {
  say "$*"
  exit 1
}

as_root() {
  if ((EUID == 0)); then
    "$@"
  elif command -v sudo >/dev/null; then
    sudo "$@"
  else
    return 1
  fi
}

# Prints those of the named Debian packages that are not installed.
missing_packages() {
  local package
  for package in "$@"; do
    [[ $(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) == installed ]] ||
      printf '%s\n' "$package"
  done
}

apt_quietly() {
  as_root env DEBIAN_FRONTEND=noninteractive \
    apt-get -qq -y -o DPkg::Lock::Timeout=300 "$@" </dev/null
}

# need_packages PACKAGE...: installs what is missing, says so, and is silent
# where nothing is.
need_packages() {
  local missing log
  mapfile -t missing < <(missing_packages "$@")
  ((${#missing[@]})) || return 0
  ((EUID == 0)) || command -v sudo >/dev/null ||
    die "missing packages: ${missing[*]} (install them, or run as root or with sudo)"
  say "installing packages: ${missing[*]}"
  log=$(mktemp)
  if [[ -z ${APT_LISTS_FRESH:-} ]]; then
    apt_quietly update >"$log" 2>&1 ||
      die "apt-get update failed: $(grep -m1 '^E:' "$log") (log: $log)"
    export APT_LISTS_FRESH=1
  fi
  apt_quietly install --no-install-recommends "${missing[@]}" >"$log" 2>&1 ||
    die "could not install ${missing[*]}: $(grep -m1 '^E:' "$log") (log: $log)"
  rm -f "$log"
}

# need_test_servers: installs what tests/servers runs: Debian packages, and
# Node's ws at the version that its lock file pins.
need_test_servers() {
  local node=$ROOT/tests/servers/node log
  need_packages nginx-light python3-cryptography gunicorn python3-httpbin python3-websockets \
    libwebsockets-test-server
  command -v node >/dev/null || need_packages nodejs
  command -v npm >/dev/null || need_packages npm
  [[ ! $node/node_modules/.package-lock.json -nt $node/package-lock.json ]] || return 0
  say "installing Node packages: ws"
  log=$(mktemp)
  npm ci --prefix "$node" --no-audit --no-fund >"$log" 2>&1 ||
    die "npm ci failed: $(grep -m1 'npm ERR\|npm error' "$log") (log: $log)"
  rm -f "$log"
}
