# Sourced by the other scripts. need PACKAGE...: installs those Debian packages that are missing and says so.
need() {
  local missing=() package
  for package in "$@"; do
    [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return
  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null; then
      echo "These packages are missing; install them as root and start again: ${missing[*]}" >&2
      exit 2
    fi
    as_root=(sudo)
  fi
  echo "Installing missing packages: ${missing[*]}" >&2
  "${as_root[@]}" apt-get update -qq
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
}
