# Sourced by run, test and the scripts beside this one: installs packages, builds and tests, and shows
# on standard error how far it is. Standard output is the caller's, who has set -o pipefail.

build_packages="g++ cmake ninja-build pkg-config libopenjp2-7-dev libpng-dev libtiff-dev
  libjpeg62-turbo-dev libcli11-dev nlohmann-json3-dev libexpat1-dev liblcms2-dev nettle-dev"
test_packages="libgtest-dev binutils valgrind clang clang-format libclang-rt-14-dev man-db parallel
  python3-jsonschema python3-numpy python3-setuptools python3-wheel mypy chromium"
all_packages="doxygen lintian dpkg-dev clang-tidy cppcheck gcc-aarch64-linux-gnu g++-aarch64-linux-gnu qemu-user llvm"

# Keeps a command's output in a file and shows the last line of it: in place on a terminal, in a log
# every ten seconds. usage: command 2>&1 | progress FILE
progress() {
  local line columns=80 due=$((SECONDS + 10))
  [ ! -t 2 ] || columns=$(stty size <&2 2>/dev/null | cut -d ' ' -f 2)
  while IFS= read -r line; do
    printf '%s\n' "$line"
    if [ -t 2 ]; then
      printf '\r\033[K%.*s' $((${columns:-80} - 1)) "$line" >&2
    elif [ "$SECONDS" -ge "$due" ]; then
      printf '  %s\n' "$line" >&2
      due=$((SECONDS + 10))
    fi
  done >"$1"
  [ ! -t 2 ] || printf '\r\033[K' >&2
}

# Runs a command with its progress shown, and shows all that it said when it fails.
# usage: step FILE command [arguments]
step() {
  local log=$1
  shift
  : >"$log" || return 1
  "$@" 2>&1 </dev/null | progress "$log" || { cat "$log" >&2; return 1; }
}

# Installs what is missing of the packages named, or says what to install.
need_packages() {
  local missing="" package log
  if ! command -v dpkg-query >/dev/null; then
    echo "$0: no Debian system; going on with what is installed" >&2
    return 0
  fi
  for package in "$@"; do
    if [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" != installed ]; then
      missing="$missing $package"
    fi
  done
  [ -n "$missing" ] || return 0
  if [ "$(id -u)" -ne 0 ]; then
    echo "$0: these Debian packages are missing; install them as root and start again:" >&2
    echo "  apt-get install$missing" >&2
    exit 1
  fi
  echo "Installing Debian packages:$missing" >&2
  log=$(mktemp)
  # shellcheck disable=SC2086
  if ! { step "$log" apt-get update -q &&
      step "$log" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -q --no-install-recommends $missing; }; then
    echo "$0: installing failed; see above" >&2
    exit 1
  fi
  rm "$log"
}

# Configures a build folder. usage: configure_tree FOLDER [cmake arguments]
configure_tree() {
  local dir=$1
  shift
  [ -f "$dir/build.ninja" ] || echo "Configuring $dir/" >&2
  mkdir -p "$dir"
  step "$dir/configure.log" cmake -S . -B "$dir" -G Ninja "$@"
}

# Builds in a folder. usage: build_tree FOLDER [arguments of cmake --build]
build_tree() {
  [ -f "$1/.ninja_log" ] || echo "Building in $1/ (takes minutes the first time)" >&2
  step "$1/build.log" cmake --build "$@"
}

# Runs the tests of a build folder, one more at a time than there are processors, as some wait.
# Leaves out what passed, except for the counts. usage: run_tests FOLDER [arguments of ctest]
run_tests() {
  local dir=$1 failed=0
  shift
  ctest --test-dir "$dir" --output-on-failure -j$(($(nproc) + 1)) "$@" 2>&1 </dev/null |
    progress "$dir/tests.log" || failed=1
  grep -avE '^ +Start +[0-9]+: |^ *[0-9]+/[0-9]+ Test +#[0-9]+: .* Passed +[0-9.]+ sec$|^$' \
    "$dir/tests.log"
  return $failed
}
