# Sourced by the scripts that build for WebAssembly, where Debian has no libraries: they build them from its source
# packages.

# debian_source PACKAGE FOLDER: prints the folder of the unpacked source package, which is fetched into FOLDER if it is
# not there yet. The machine's own package lists stay as they are.
debian_source() {
  local folder=$2/$1
  if [ ! -d "$folder"/source ]; then
    rm -rf "$folder"
    mkdir -p "$folder/lists/partial"
    local mirror
    . /etc/os-release
    mirror=$(apt-get indextargets --format '$(REPO_URI)' "Codename: $VERSION_CODENAME" "Component: main" | head -1)
    echo "deb-src ${mirror:-http://deb.debian.org/debian} $VERSION_CODENAME main" >"$folder/sources.list"
    local options=(-qq -o "Dir::Etc::sourcelist=$folder/sources.list" -o Dir::Etc::sourceparts=/dev/null
      -o "Dir::State::lists=$folder/lists" -o APT::Sandbox::User=)
    apt-get "${options[@]}" update
    (cd "$folder" && apt-get "${options[@]}" source "$1" >/dev/null && mv ./"$1"-*/ source)
    rm -rf "$folder/lists"
  fi
  echo "$folder/source"
}
