# Sourced by scripts that build from Debian's source packages: for WebAssembly, for which it has no libraries, and to
# compare with a library at other flags.

# debian_sources FOLDER PACKAGE...: unpacks each source package into FOLDER/PACKAGE, unless it is there already. The
# machine's own package lists stay as they are.
debian_sources() {
  local folder package missing=()
  folder=$(realpath -m "$1")
  for package in "${@:2}"; do
    [ -d "$folder/$package" ] || missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return
  local work=$folder/work mirror
  rm -rf "$work"
  mkdir -p "$work/lists/partial"
  . /etc/os-release
  mirror=$(apt-get indextargets --format '$(REPO_URI)' "Codename: $VERSION_CODENAME" "Component: main" | head -1)
  if [ -z "$mirror" ]; then
    echo "apt knows no mirror of Debian $VERSION_CODENAME to fetch the sources of ${missing[*]} from" >&2
    exit 1
  fi
  echo "deb-src $mirror $VERSION_CODENAME main" >"$work/sources.list"
  local options=(-qq -o "Dir::Etc::sourcelist=$work/sources.list" -o Dir::Etc::sourceparts=/dev/null
    -o "Dir::State::lists=$work/lists" -o APT::Sandbox::User=)
  apt-get "${options[@]}" update
  for package in "${missing[@]}"; do
    (cd "$work" && apt-get "${options[@]}" source "$package" >/dev/null)
    mv "$work/$package"-*/ "$folder/$package"
  done
  rm -rf "$work"
}
