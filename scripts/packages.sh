# Sourced by run and test: makes sure that Debian packages are there.

build_packages="g++ cmake ninja-build pkg-config libopenjp2-7-dev libpng-dev libtiff-dev
  libjpeg62-turbo-dev libcli11-dev"
test_packages="libgtest-dev binutils valgrind clang clang-format libclang-rt-14-dev"
all_packages="clang-tidy cppcheck gcc-aarch64-linux-gnu g++-aarch64-linux-gnu qemu-user llvm"

# Installs what is missing of the packages named, or says what to install.
need_packages() {
  local missing="" package
  for package in "$@"; do
    if [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" != installed ]; then
      missing="$missing $package"
    fi
  done
  [ -z "$missing" ] && return 0
  if [ "$(id -u)" -ne 0 ]; then
    echo "$0: these Debian packages are missing; install them as root and start again:" >&2
    echo "  apt-get install$missing" >&2
    exit 1
  fi
  echo "Installing:$missing" >&2
  export DEBIAN_FRONTEND=noninteractive
  # shellcheck disable=SC2086
  if ! { apt-get update -qq && apt-get install -y -qq --no-install-recommends $missing; } \
      >/tmp/kvjpx-packages.log 2>&1; then
    tail -n 20 /tmp/kvjpx-packages.log >&2
    echo "$0: installing failed; see above" >&2
    exit 1
  fi
}

# Configures (once) and builds a preset.
build_preset() {
  local preset=$1 dir=$2
  shift 2
  mkdir -p "$dir"
  cmake --preset "$preset" -G Ninja "$@" >"$dir/configure.log" 2>&1 ||
    { cat "$dir/configure.log" >&2; exit 1; }
  cmake --build "$dir" >"$dir/build.log" 2>&1 || { cat "$dir/build.log" >&2; exit 1; }
}
