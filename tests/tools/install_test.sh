#!/bin/sh
# Installs a build into a prefix, moves the prefix elsewhere, builds a host
# program against the moved tree with pkg-config (C) and with find_package
# (C++ layer), runs both and the installed paximg. Windows builds are linked
# with mingw-w64 and run under Wine; their MSVC import library must list every
# export of the module definition.
#   install_test.sh BUILD_DIR SOURCE_DIR linux|windows
set -eu
build=$1 source=$2 platform=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/installed" >/dev/null
mv "$work/installed" "$work/moved"
prefix=$work/moved
export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"

expect() { # WHAT OUTPUT TEXT
    case "$2" in
    *"$3"*) echo "$1: ok" ;;
    *) echo "$1: wanted '$3', got: $2" >&2; exit 1 ;;
    esac
}

if [ "$platform" = windows ]; then
    cc="x86_64-w64-mingw32-gcc-posix -static"
    toolchain="-DCMAKE_TOOLCHAIN_FILE=$source/cmake/mingw-w64.cmake"
    # Programs find PAXIMGUser.dll in the moved prefix through Wine's PATH.
    WINEPATH="Z:$(printf '%s' "$prefix/bin" | tr / '\\')"
    export WINEPATH
    run="$build/wine-run.sh"
    exe=.exe
    def="$source/resources/PAXIMGUser.def"
    # Every name of the module definition, and nothing else, is imported.
    grep -E '^[[:space:]]+[A-Za-z_][A-Za-z_0-9]*[[:space:]]+@[0-9]+' "$def" | awk '{print $1}' | sort >"$work/def"
    llvm-nm "$prefix/lib/PAXIMGUser.lib" | sed -n 's/.* T __imp_//p' | sort >"$work/lib"
    expect "PAXIMGUser.lib lists the $(wc -l <"$work/def") exports" "$(diff "$work/def" "$work/lib" && wc -l <"$work/lib")" "93"
    # A host linked by an MSVC-compatible linker against PAXIMGUser.lib.
    clang --target=x86_64-pc-windows-msvc -O1 -c "$source/tests/tools/install_host/msvc_host.c" -o "$work/msvc_host.obj"
    lld-link /nologo /entry:mainCRTStartup /subsystem:console /nodefaultlib /out:"$work/msvc_host.exe" \
        "$work/msvc_host.obj" "$prefix/lib/PAXIMGUser.lib" /usr/x86_64-w64-mingw32/lib/libkernel32.a
    status=0
    "$run" "$work/msvc_host.exe" || status=$?
    expect "host linked with lld-link against PAXIMGUser.lib" "$status" 42
else
    cc="${CC:-cc}"
    toolchain=""
    run=env
    exe=""
    export LD_LIBRARY_PATH="$prefix/lib"
fi

# shellcheck disable=SC2046
$cc -o "$work/host_c$exe" "$source/tools/example/host_example.c" $(pkg-config --define-prefix --cflags --libs paximage)
expect "pkg-config host" "$($run "$work/host_c$exe")" "tag 14, bottom-left pixel H 0 S 255 V 255, code 0"

unset LD_LIBRARY_PATH
cmake -S "$source/tests/tools/install_host" -B "$work/host" -G Ninja -DCMAKE_BUILD_TYPE=Release \
      -DCMAKE_PREFIX_PATH="$prefix" $toolchain >/dev/null
cmake --build "$work/host" >/dev/null
out=$($run "$work/host/host$exe")
expect "find_package host" "$out" "tag 14 H 0 S 255 V 255"
expect "find_package host error" "$out" "CCE_BADMODEL 2"

expect "installed paximg" "$($run "$prefix/bin/paximg$exe" color --from rgb --to hsv 255,0,0)" "hsv 0,255,255"
