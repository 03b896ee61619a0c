#!/usr/bin/env bash
# Consumer check: installs the library into a scratch prefix, builds and runs
# examples/hello against it through the CMake package and through pkg-config,
# compiles every installed header on its own, and checks the installed shared
# library: it has a SONAME and exports nothing that is not ours (classes CN*,
# free functions N*, C or C++, and the namespaces nplat:: and ncb::).
#
# Run by ctest (tests/packaging/tests.cmake); a sanitized tree passes
# --sanitize so the consumer is built with the same runtime as the library.
set -euo pipefail

sanitize=""
generator="Ninja"
while [ $# -gt 0 ]; do
    case $1 in
        --build) build=$2 ;;
        --source) source=$2 ;;
        --scratch) scratch=$2 ;;
        --cmake) cmake=$2 ;;
        --cxx) cxx=$2 ;;
        --generator) generator=$2 ;;
        --sanitize) sanitize=$2 ;;
        *) echo "unknown argument $1" >&2; exit 2 ;;
    esac
    shift 2
done

fail() {
    echo "FAIL: $*" >&2
    exit 1
}

# Runs a step quietly; shows its output only when it fails.
step() {
    local name=$1
    shift
    if ! "$@" >"$scratch/$name.log" 2>&1; then
        cat "$scratch/$name.log" >&2
        fail "$name"
    fi
}

build=$(realpath "$build")
source=$(realpath "$source")
scratch=$(realpath -m "$scratch")
rm -rf "$scratch"
mkdir -p "$scratch"
prefix=$scratch/prefix
flags=()
[ -n "$sanitize" ] && flags=("-fsanitize=$sanitize")

# (a) install
step install "$cmake" --install "$build" --prefix "$prefix"
libdir=""
for dir in lib lib64 lib/x86_64-linux-gnu; do
    [ -e "$prefix/$dir/libncodecbase.so" ] && libdir=$prefix/$dir
done
[ -n "$libdir" ] || fail "no libncodecbase.so under $prefix"
[ -f "$prefix/include/ncodecbase/ncodecbase.h" ] || fail "umbrella header not installed"

# (b) the CMake package
step configure-hello "$cmake" -S "$source/examples/hello" -B "$scratch/hello-cmake" \
    -G "$generator" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$cxx" \
    -DCMAKE_CXX_FLAGS="${flags[*]}" -DCMAKE_EXE_LINKER_FLAGS="${flags[*]}"
step build-hello "$cmake" --build "$scratch/hello-cmake"
out=$("$scratch/hello-cmake/hello") || fail "hello (CMake package) exited with $?"
[ "$out" = ok ] || fail "hello (CMake package) printed '$out'"

# (c) pkg-config
pc=$(PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --cflags --libs ncodecbase) ||
    fail "pkg-config cannot find ncodecbase in $libdir/pkgconfig"
# shellcheck disable=SC2086  # pkg-config output is a list of flags
step compile-hello-pc "$cxx" -std=c++20 "${flags[@]}" "$source/examples/hello/main.cpp" $pc \
    -o "$scratch/hello-pc"
out=$(LD_LIBRARY_PATH="$libdir" "$scratch/hello-pc") || fail "hello (pkg-config) exited with $?"
[ "$out" = ok ] || fail "hello (pkg-config) printed '$out'"

# (d) every installed header compiles on its own (no private includes), with
# the warnings a strict host builds with
for header in "$prefix"/include/ncodecbase/*.h; do
    name=$(basename "$header")
    echo "#include <ncodecbase/$name>" >"$scratch/include_$name.cpp"
    step "header-$name" "$cxx" -std=c++20 -fsyntax-only -Wall -Wextra -Wpedantic \
        -Werror -I"$prefix/include" "$scratch/include_$name.cpp"
done

# (e) SONAME and exported symbols
library=$(readlink -f "$libdir/libncodecbase.so")
soname=$(readelf -d "$library" | sed -n 's/.*Library soname: \[\(.*\)\].*/\1/p')
[ -n "$soname" ] || fail "$library has no SONAME"
[ -e "$libdir/$soname" ] || fail "no $soname link beside the library"

ours='^(CN|N[A-Z]|nplat::|ncb::)'
foreign=()
count=0
while read -r mangled; do
    count=$((count + 1))
    name=$(c++filt "$mangled")
    for prefix_text in "typeinfo name for " "typeinfo for " "construction vtable for " \
        "vtable for " "VTT for " "guard variable for " "non-virtual thunk to " \
        "virtual thunk to "; do
        name=${name#"$prefix_text"}
    done
    # Function templates demangle with their return type first.
    head=${name%%(*}
    head=${head%%<*}
    case $mangled in
        _Z*) [[ $name =~ $ours || ($head == *" "* && ${head##* } =~ $ours) ]] && continue ;;
        N[A-Z]*) continue ;;
    esac
    # Instrumented builds export the sanitizer's own module hooks.
    if [ -n "$sanitize" ] && [[ $mangled =~ ^_*(asan|odr_asan|ubsan|sanitizer|tsan) ]]; then
        continue
    fi
    foreign+=("$mangled ($name)")
done < <(nm -D --defined-only "$library" | awk '{print $NF}' | sed 's/@.*//')
[ "$count" -gt 0 ] || fail "no exported symbols found in $library"
if [ ${#foreign[@]} -gt 0 ]; then
    printf '  %s\n' "${foreign[@]}" >&2
    fail "${#foreign[@]} exported symbols are not ours"
fi
echo "ok: $soname, $count exported symbols, hello built through CMake and pkg-config"
