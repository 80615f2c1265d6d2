#!/usr/bin/env bash
# Checks the Debian package of the build, one step per CTest test:
#   build     cpack -G DEB into $PACKAGE_DIR, then unpack the package into $PACKAGE_DIR/root
#   contents  the files and their modes, the control fields, the libraries on a Debian 12 system
#   metadata  the desktop entry and the software-centre metadata through their validators
#   lintian   no lintian errors (warnings and notes are printed, not fatal)
#   start     the unpacked window starts offscreen and keeps running until it is stopped; the unpacked
#             terminal program answers --version and lists drives
# The settings come from the environment CTest gives (packaging/packagetests.cmake).
# Exit code 77: a tool is missing and the step is skipped.
set -euo pipefail

step=$1
root=$PACKAGE_DIR/root

fail() {
    echo "FAIL: $*" >&2
    exit 1
}

need() {
    command -v "$1" >/dev/null || {
        echo "Skipped: $1 is not installed (Debian package $2)"
        exit 77
    }
}

deb_file() {
    local files=("$PACKAGE_DIR/${DEB_PACKAGE}_${VERSION}"_*.deb)
    [ -f "${files[0]}" ] || fail "no ${DEB_PACKAGE} ${VERSION} package in $PACKAGE_DIR"
    echo "${files[0]}"
}

# Width and height of a PNG picture, from its header.
png_size() {
    local bytes
    read -r -a bytes < <(od -An -tu1 -j16 -N8 "$1")
    echo "$(((bytes[0] << 24) | (bytes[1] << 16) | (bytes[2] << 8) | bytes[3]))x$(((bytes[4] << 24) | (bytes[5] << 16) | (bytes[6] << 8) | bytes[7]))"
}

check_contents() {
    local deb listing path mode
    deb=$(deb_file)
    listing=$(dpkg-deb --contents "$deb")
    echo "$listing"

    declare -A expected=(
        ["./usr/share/applications/$APP_ID.desktop"]=-rw-r--r--
        ["./usr/share/metainfo/$APP_ID.metainfo.xml"]=-rw-r--r--
        ["./usr/share/doc/$DEB_PACKAGE/copyright"]=-rw-r--r--
        ["./usr/share/doc/$DEB_PACKAGE/changelog.gz"]=-rw-r--r--
    )
    # Every program on the path comes with its manual page.
    for program in $PROGRAMS; do
        expected["./usr/bin/$program"]=-rwxr-xr-x
        expected["./usr/share/man/man1/$program.1.gz"]=-rw-r--r--
    done
    for size in $ICON_SIZES; do
        expected["./usr/share/icons/hicolor/${size}x${size}/apps/$APP_ID.png"]=-rw-r--r--
    done
    for path in "${!expected[@]}"; do
        mode=$(awk -v p="$path" '$6 == p && $2 == "root/root" { print $1 }' <<<"$listing")
        [ "$mode" = "${expected[$path]}" ] || fail "$path: expected ${expected[$path]} root/root, found '${mode}'"
    done

    # Nothing but the listed programs (no test or tool of the build), and nothing outside /usr.
    local programs_found
    programs_found=$(awk '$6 ~ /^\.\/usr\/bin\/./ { sub("./usr/bin/", "", $6); print $6 }' <<<"$listing" | sort | xargs)
    [ "$programs_found" = "$(tr ' ' '\n' <<<"$PROGRAMS" | sort | xargs)" ] ||
        fail "programs in /usr/bin: '$programs_found', expected '$PROGRAMS'"
    ! awk '$6 !~ /^\.\/(usr\/.*)?$/' <<<"$listing" | grep . || fail "files outside /usr"
    awk '$1 ~ /^d/ && $1 != "drwxr-xr-x"' <<<"$listing" | grep . && fail "directories with unusual modes"

    for size in $ICON_SIZES; do
        path=$root/usr/share/icons/hicolor/${size}x${size}/apps/$APP_ID.png
        [ "$(png_size "$path")" = "${size}x${size}" ] || fail "$path is $(png_size "$path"), not ${size}x${size}"
    done

    [ "$(dpkg-deb -f "$deb" Package)" = "$DEB_PACKAGE" ] || fail "package name"
    [ "$(dpkg-deb -f "$deb" Version)" = "$VERSION" ] || fail "version is not $VERSION"
    [ "$(dpkg-deb -f "$deb" Section)" = utils ] || fail "section"
    [ -n "$(dpkg-deb -f "$deb" Maintainer)" ] || fail "no maintainer"
    dpkg-deb -f "$deb" Description | sed -n 2p | grep -q . || fail "no long description"

    # Every dependency, as dpkg-shlibdeps computed it, is a Debian 12 package present here; the
    # unpacked programs need no library from the build and carry no search path into it.
    local depends
    depends=$(dpkg-deb -f "$deb" Depends)
    echo "Depends: $depends"
    grep -q libqt6widgets6 <<<"$depends" || fail "the dependencies miss the Qt libraries"
    local group alternative found
    while read -r group; do
        found=
        while read -r alternative; do
            alternative=${alternative%% *}
            dpkg-query -W -f='${Status}\n' "$alternative" 2>/dev/null | grep -q "install ok installed" && found=1
        done < <(tr '|' '\n' <<<"$group" | sed 's/^ *//')
        [ -n "$found" ] || fail "dependency '$group' is not installed on this system"
    done < <(tr ',' '\n' <<<"$depends" | sed 's/^ *//')
    for program in $PROGRAMS; do
        ! readelf -d "$root/usr/bin/$program" | grep -E 'RPATH|RUNPATH' || fail "$program keeps a library search path"
        ! ldd "$root/usr/bin/$program" | grep 'not found' || fail "$program misses libraries"
    done
}

check_metadata() {
    need desktop-file-validate desktop-file-utils
    need appstreamcli appstream
    local desktop=$root/usr/share/applications/$APP_ID.desktop
    local metainfo=$root/usr/share/metainfo/$APP_ID.metainfo.xml
    desktop-file-validate "$desktop"
    appstreamcli validate --no-net "$metainfo"
    grep -qx 'Name=Tavrinox - Gerenciador' "$desktop" || fail "desktop entry name"
    grep -qx 'Categories=Utility;' "$desktop" || fail "desktop entry categories"
    grep -qx "Icon=$APP_ID" "$desktop" || fail "desktop entry icon"
    grep -q "<release version=\"$VERSION\"" "$metainfo" || fail "metainfo release is not $VERSION"
    grep -q "<launchable type=\"desktop-id\">$APP_ID.desktop</launchable>" "$metainfo" || fail "metainfo launchable"
}

check_start() {
    # Global, for the exit trap.
    home=$(mktemp -d)
    pid=
    trap '[ -z "$pid" ] || kill "$pid" 2>/dev/null || true; rm -rf "$home"' EXIT
    local log=$home/output.txt status
    # A clean environment, as a fresh session would give: only the system's own libraries and plugins.
    env -i PATH=/usr/bin:/bin HOME="$home" LANG=C.UTF-8 QT_QPA_PLATFORM=offscreen \
        "$root/usr/bin/TavrinoxConfig" >"$log" 2>&1 &
    pid=$!
    sleep 4
    if ! kill -0 "$pid" 2>/dev/null; then
        cat "$log"
        wait "$pid" && status=0 || status=$?
        fail "the installed program ended by itself (status $status)"
    fi
    kill "$pid"
    wait "$pid" || true
    cat "$log"
    echo "The installed program ran for 4 seconds and was stopped."

    # The terminal program needs no display: it answers and lists drives in the same clean environment.
    env -i PATH=/usr/bin:/bin HOME="$home" LANG=C.UTF-8 "$root/usr/bin/tavrinox-cli" --version |
        grep -qx "tavrinox-cli $VERSION" || fail "tavrinox-cli --version"
    env -i PATH=/usr/bin:/bin HOME="$home" LANG=C.UTF-8 "$root/usr/bin/tavrinox-cli" list ||
        fail "tavrinox-cli list ended with status $?"
}

case $step in
build)
    need dpkg-shlibdeps dpkg-dev
    rm -rf "$PACKAGE_DIR"
    mkdir -p "$PACKAGE_DIR"
    "$CPACK_COMMAND" -G DEB --config "$CPACK_CONFIG" -B "$PACKAGE_DIR"
    dpkg-deb -x "$(deb_file)" "$root"
    ;;
contents) check_contents ;;
metadata) check_metadata ;;
lintian)
    need lintian lintian
    lintian --fail-on error --display-info "$(deb_file)"
    ;;
start) check_start ;;
*) fail "unknown step $step" ;;
esac
