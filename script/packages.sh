# Sourced by the other scripts.

# Debian packages for: the libraries and examples; the tool as well; the tests as well.
build_packages=(g++ cmake make libjsoncpp-dev)
tool_packages=("${build_packages[@]}" libcli11-dev libfmt-dev libutf8proc-dev nlohmann-json3-dev)
test_packages=("${tool_packages[@]}" pkg-config libgtest-dev libgmock-dev locales)

# Runs a command as root, or asks the user to.
as_root() {
  if [ "$(id -u)" -eq 0 ]; then
    "$@"
  elif command -v sudo >/dev/null; then
    sudo "$@"
  else
    echo "Run this as root and start again: $*" >&2
    exit 2
  fi
}

# is_installed PACKAGE[:ARCHITECTURE]; without one it is this machine's.
is_installed() {
  local architecture
  architecture=$(dpkg --print-architecture)
  [[ $1 == *:* ]] && architecture=${1#*:}
  dpkg-query -W -f '${Architecture} ${db:Status-Status}\n' "$1" 2>/dev/null | grep -qxE "(all|$architecture) installed"
}

# need PACKAGE[:ARCHITECTURE]...: installs those Debian packages that are missing and says so.
need() {
  local missing=() package
  for package in "$@"; do
    is_installed "$package" || missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return
  echo "Installing missing packages: ${missing[*]}" >&2
  # If a list could not be fetched and is needed, the installation fails.
  as_root apt-get update -qq || true
  as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
}

# need_architecture ARCHITECTURE: lets packages of another architecture be installed.
need_architecture() {
  [ "$1" = "$(dpkg --print-architecture)" ] || dpkg --print-foreign-architectures | grep -qxF "$1" ||
    as_root dpkg --add-architecture "$1"
}
