#!/usr/bin/env bash
# The package as a user gets it.
#   install BUILD SOURCE   cmake --install into a scratch prefix; a separate
#                          host project built against it with find_package and
#                          with pkg-config, run; the installed mivo4 exports.
#   deb BUILD SOURCE       cpack -G DEB; the package's dependencies; unpacked
#                          into a scratch root, its mivo4 runs and exports.
set -euo pipefail
mode=$1 build=$(cd "$2" && pwd) source=$(cd "$3" && pwd)
scratch=$(mktemp -d "${TMPDIR:-/tmp}/mivo4-package.XXXXXX")
trap 'rm -rf "$scratch"' EXIT
example=$source/tests/host/readme_example.c

# The installed host exports the test chart, and its own info checks it;
# its picture libraries' module (found where it was installed) writes the
# chart as a PNG and reads it back for an export of the same pixels.
check_host() {
  local mivo4=$1
  "$mivo4" --version | grep -q "^mivo4 [0-9]*\.[0-9]*\.[0-9]*$" || { echo "no version from $mivo4"; exit 1; }
  "$mivo4" --version | grep -q "^module: $2, file version 0x" || { echo "$mivo4 did not find the module $2"; "$mivo4" --version; exit 1; }
  env -u MIVO4_MODULE -u MIVO4_CODECS "$mivo4" export --demo "$scratch/demo.cal"
  env -u MIVO4_MODULE -u MIVO4_CODECS "$mivo4" info "$scratch/demo.cal" | grep -q "check: ok"
  env -u MIVO4_MODULE -u MIVO4_CODECS "$mivo4" decode "$scratch/demo.cal" "$scratch/demo.png"
  env -u MIVO4_MODULE -u MIVO4_CODECS "$mivo4" export -q "$scratch/demo.png" "$scratch/again.cal"
  env -u MIVO4_MODULE -u MIVO4_CODECS "$mivo4" info "$scratch/again.cal" | grep -q "check: ok"
}

# The README's host, built and run: it writes a 192 x 144 picture.
run_host() {
  local program=$1 module=$2 mivo4=$3
  "$program" "$module" "$scratch/host.cal"
  "$mivo4" info "$scratch/host.cal" | grep -q "check: ok, decodes to exactly 192 x 144 pixels"
}

case $mode in
install)
  prefix=$scratch/prefix
  cmake --install "$build" --prefix "$prefix" >/dev/null
  for f in bin/mivo4 lib/mivo4/mivo42.flt lib/mivo4/mivo4-png.so lib/mivo4/mivo4-jpeg.so \
           lib/mivo4/mivo4-tiff.so include/mivo4/raster.h include/mivo4/version.h \
           lib/pkgconfig/mivo4.pc lib/cmake/mivo4/mivo4Config.cmake lib/cmake/mivo4/mivo4ConfigVersion.cmake \
           share/man/man1/mivo4.1 share/doc/mivo4/README.md; do
    [ -e "$prefix/$f" ] || { echo "not installed: $f"; exit 1; }
  done
  check_host "$prefix/bin/mivo4" "$prefix/lib/mivo4/mivo42.flt"

  # find_package(mivo4 CONFIG)
  cmake -S "$source/tests/package/host" -B "$scratch/cmake-host" -G Ninja \
    -DCMAKE_PREFIX_PATH="$prefix" -DEXAMPLE_SOURCE="$example" >/dev/null
  cmake --build "$scratch/cmake-host" >/dev/null
  module=$(cat "$scratch/cmake-host/module_path.txt")
  [ "$module" = "$prefix/lib/mivo4/mivo42.flt" ] || { echo "find_package gave the module $module"; exit 1; }
  run_host "$scratch/cmake-host/installed_host" "$module" "$prefix/bin/mivo4"

  # pkg-config --cflags mivo4
  export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
  [ "$(pkg-config --modversion mivo4)" = "$(sed -n 's/^mivo4 //p' <("$prefix/bin/mivo4" --version))" ]
  module=$(pkg-config --variable=module mivo4)
  [ "$(realpath "$module")" = "$(realpath "$prefix/lib/mivo4/mivo42.flt")" ] || { echo "pkg-config gave the module $module"; exit 1; }
  cc -std=c11 $(pkg-config --cflags mivo4) "$example" -o "$scratch/pc-host" $(pkg-config --libs mivo4)
  run_host "$scratch/pc-host" "$module" "$prefix/bin/mivo4"
  ;;
deb)
  (cd "$scratch" && cpack --config "$build/CPackConfig.cmake" -G DEB >/dev/null)
  deb=$(ls "$scratch"/*.deb)
  depends=$(dpkg-deb -f "$deb" Depends)
  for lib in libpng libjpeg libtiff libstdc++ libc6; do
    grep -q "$lib" <<<"$depends" || { echo "the package does not depend on $lib: $depends"; exit 1; }
  done
  contents=$(dpkg-deb -c "$deb")
  grep -q "./usr/lib/mivo4/mivo42.flt" <<<"$contents" || { echo "the package has no module"; exit 1; }
  for codec in png jpeg tiff; do
    grep -q "./usr/lib/mivo4/mivo4-$codec.so" <<<"$contents" || { echo "the package has no mivo4-$codec.so"; exit 1; }
  done
  root=$scratch/root
  dpkg -x "$deb" "$root"
  check_host "$root/usr/bin/mivo4" "$root/usr/lib/mivo4/mivo42.flt"
  ;;
*)
  echo "usage: package_test.sh install|deb BUILD SOURCE" >&2
  exit 2
  ;;
esac
echo "package $mode: ok"
