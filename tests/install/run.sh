#!/usr/bin/env bash
# Installs a build, moves it elsewhere, and uses it from there as others would.
#   run.sh CMAKE CXX SOURCES BUILD
set -euo pipefail
cmake=$1 cxx=$2 sources=$3 build=$4
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
work=$(mktemp -d "${TMPDIR:-/tmp}/install.XXXXXX")
trap 'rm -rf "$work"' EXIT
old=$work/old new=$work/new
unset LD_LIBRARY_PATH DESTDIR

step() { echo "-- $1"; }
fail() {
    echo "FAILED: $*"
    exit 1
}

# expect NAME LINES REGEX: every line matches, and there are some.
expect() {
    [[ -n $2 ]] || fail "nothing for $1"
    ! grep -Ev "$3" <<<"$2" || fail "does not belong to $1"
}

step 'components hold what they should'
for component in runtime dev tools; do
    "$cmake" --install "$build" --prefix "$old/$component" --component $component >/dev/null
done
files() (cd "$old/$1" && find . ! -type d)
expect runtime "$(files runtime)" '/lib(ostrelfxds|ostrelfxflow|ostrelks)\.so\.[0-9.]+$'
expect tools "$(files tools)" '/bin/fx[a-z]+$|/man1/fx[a-z]+\.1$|/(completions|site-functions|vendor_completions\.d)/'
expect dev "$(files dev)" '^\./include/|^\./share/(doc|gdb)/|/cmake/ostrelfx(ds|flow)/|\.pc$|\.so$'
rm -r "$old"

step 'nothing remembers where it was built or installed'
eval "$(sed -n "s|^    cmake --install build/release --prefix /opt/ostrelfxds\$|'$cmake' --install '$build' --prefix '$old'|p" \
    "$sources/README.md")" >/dev/null
mv "$old" "$new"
! grep -rIlF -e "$sources" -e "$build" -e "$old" "$new" || fail 'these texts do'

step 'the links of the documents lead to others'
lead() {
    for page in $(find "$1" -name '*.md'); do
        for link in $(grep -ohE '\]\([-A-Za-z0-9_/.]*([.]|LICENSE)[-A-Za-z0-9_/.]*[)#]' "$page" | tr -d '](#)'); do
            [[ -e ${page%/*}/$link ]] || fail "$page: a link to $link"
        done
    done
}
lead "$new/share/doc"

step 'the tools find their library'
"$new/bin/fxgrep" -c hello "$here/first.cc" >/dev/null
"$new/bin/fxflow" test "$(find "$new" -name errors.flow)" >/dev/null

step 'shells complete their options'
ask_bash() { (. "$new/share/bash-completion/completions/$1"; _$1 "$1" --h ''; echo "${COMPREPLY[@]}"); }
ask_fish() { HOME=$work fish -N -c "source $new/share/fish/vendor_completions.d/$1.fish; complete -C '$1 --h'"; }
ask_zsh() {  # READY is in no echo of what is typed
    timeout 20 zsh -f -s "$1" "$new/share/zsh/site-functions" <<'EOF'
zmodload zsh/zpty; zpty shell zsh -f -i
zpty -w shell "fpath+=$2; autoload -U compinit; compinit -u -D; echo REA''DY"
zpty -r shell shown '*READY*'; zpty -w -n shell "$1 --h"$'\t'
zpty -r shell shown '*--help*'; echo --help
EOF
}
for asked in {bash,fish,zsh}_fx{grep,dump,flow}; do
    ! command -v "${asked%_*}" >/dev/null || [[ $("ask_${asked%_*}" "${asked#*_}") == --help* ]] ||
        fail "no --help in $asked"
done

step 'pkg-config and the compiler, as README.md shows them'
pc=$(find "$new" -name ostrelfxds.pc)
libraries=$(cd "$(dirname "$pc")/.." && pwd)
export PKG_CONFIG_PATH=${pc%/*}
version=$(pkg-config --modversion ostrelfxds)
[[ -f $libraries/libostrelfxds.so.$version ]] || fail "no library of version $version"
cp "$here/first.cc" "$work/program.cc"
shown=$(sed -n '/^    export PKG_CONFIG_PATH/,/-o program$/p' "$sources/README.md" |
    sed -e "s|^ *g++|'$cxx'|" -e "s|/opt/ostrelfxds/lib|$libraries|")
(cd "$work" && eval "$shown")
[[ $("$work/program") == 'hello, 42' ]] || fail 'the program says something else'
read -ra flags <<<"$(pkg-config --cflags --libs ostrelfxflow)"
"$cxx" -std=c++17 "$here/flow.cc" "${flags[@]}" -Wl,-rpath,"$libraries" -o "$work/flow"
[[ $("$work/flow") == 'hello, 42' ]] || fail 'the flow says something else'

step 'find_package()'
configure() {
    "$cmake" -S "$1" -B "$2" -G Ninja -DCMAKE_CXX_COMPILER="$cxx" "${@:3}" >"$work/log" 2>&1 ||
        { cat "$work/log"; fail "$1 does not configure"; }
}
configure "$here" "$work/package" -DCMAKE_PREFIX_PATH="$new"
"$cmake" --build "$work/package" >"$work/log" || { cat "$work/log"; fail 'it does not build'; }
[[ $("$work/package/first") == 'hello, 42' ]] || fail 'the program says something else'
[[ $("$work/package/flow") == 'hello, 42' ]] || fail 'the flow says something else'
[[ $(ldd "$work/package/first") == *"$libraries/libostrelfxds.so"* ]] || fail 'another library is taken'

# A library with checked preconditions has its users checked, however they found it.
checked() { grep -rlF FXDS_CHECKED "$@" | wc -l; }
[[ $(checked "$pc") == $(checked "$libraries"/cmake/ostrelfxds/ostrelfxdsTargets.cmake) ]] ||
    fail 'pkg-config and CMake do not agree on FXDS_CHECKED'

step 'the examples, as they are installed'
configure "$(find "$new" -type d -name examples)" "$work/examples" -DCMAKE_PREFIX_PATH="$new"

step 'add_subdirectory()'
configure "$here" "$work/sources" -DFIRST_SOURCES="$sources"
! "$cmake" --build "$work/sources" --target help | grep -E 'Test|monitor|uninstall' ||
    fail 'it brings more than the library'

command -v dpkg-shlibdeps >/dev/null || exit 0
step 'Debian packages'
"$cmake" -E chdir "$work" cpack --config "$build/CPackConfig.cmake" -B "$work/packages" >"$work/log" 2>&1 ||
    { cat "$work/log"; fail 'cpack'; }
field() { dpkg-deb -f "$work/packages/$1"_*.deb "$2"; }
full=$(field libostrelfxds1 Version)
[[ $(field libostrelfxds-dev Depends) == "libostrelfxds1 (= $full)" ]] || fail '-dev is not exact'
dpkg-deb -x "$work"/packages/libostrelfxds-dev_*.deb "$work/unpacked"
lead "$work/unpacked/usr/share/doc"
grep -q "$(tail -n 1 "$sources/LICENSE")" "$work"/unpacked/usr/share/doc/*/LICENSE || fail 'other terms'
[[ $(field libostrelfxds1 Depends) == *libstdc++6* ]] || fail 'no dependencies were found'
[[ $(field ostrelfxds-tools Depends) == "libostrelfxds1 (>= "* ]] || fail 'tools without a library'
[[ $(dpkg-deb -I "$work"/packages/libostrelfxds1_*.deb shlibs) == 'libostrelfxds 1 '* ]] ||
    fail 'no shlibs'
