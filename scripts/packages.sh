# shellcheck shell=bash disable=SC2034,SC2015
# Sourced by the other scripts: makes sure that Debian packages are there.

# need_packages PACKAGE...: installs what is missing, as root or through sudo; names it where it cannot.
need_packages() {
  local missing=() package
  for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    if command -v sudo >/dev/null && sudo -n true 2>/dev/null; then
      as_root=(sudo -n)
    else
      echo "Missing Debian packages. Install them as root and run this again:" >&2
      echo "  apt-get install ${missing[*]}" >&2
      return 1
    fi
  fi
  echo "Installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  "${as_root[@]}" apt-get update -q >/dev/null &&
    "${as_root[@]}" apt-get install -q -y --no-install-recommends "${missing[@]}" >/dev/null || {
    echo "Could not install: ${missing[*]}" >&2
    return 1
  }
}

# libfuse3-dev is for tolven-mount, which is left out without it.
BUILD_PACKAGES=(cmake ninja-build g++ libssl-dev openssl pkg-config libfuse3-dev)
TEST_PACKAGES=(libgtest-dev zlib1g-dev ncompress python3 fuse3 strace softhsm2 libengine-pkcs11-openssl mandoc file zsh fish)
PACKAGE_PACKAGES=(dpkg-dev rpm file gzip lintian rpmlint)
CHECK_PACKAGES=(clang-format pycodestyle shellcheck)
BENCH_PACKAGES=(libbenchmark-dev zlib1g-dev zip unzip tar gzip ncompress python3)
# Peers that scripts/bench leaves out when they are missing: pigz tabix libdeflate-tools isal squashfs-tools zstd
FUZZ_PACKAGES=(clang libclang-rt-14-dev llvm-14 zlib1g-dev ncompress python3)
