#!/usr/bin/env bash
# Install test of the Debian package: builds the .deb with cpack (or takes the
# one named by $OV_INSTALL_TEST_DEB), unpacks it into a fresh directory, checks
# its control fields and file list, and runs the unpacked pdtool against the
# unpacked agentsim on a private socket directory, every example of the manual
# page included. Cleans up after itself.
#
# Usage: install_test.sh BUILD_DIR SOURCE_DIR
set -euo pipefail

build=$(cd "${1:?build directory}" && pwd)
source_dir=$(cd "${2:?source directory}" && pwd)

# shellcheck source=scripts/private-agent.sh
source "$source_dir/scripts/private-agent.sh"
ov_private_work pdtool-install

failures=0
fail() {
    echo "FAIL: $*"
    failures=$((failures + 1))
}

version=$(sed -n 's/^#define OV_VERSION_STRING "\(.*\)"$/\1/p' "$build/generated/ov_version.h")
[ -n "$version" ] || { echo "FAIL: no version in $build/generated/ov_version.h"; exit 1; }

# --- the package -----------------------------------------------------------
if [ -n "${OV_INSTALL_TEST_DEB:-}" ]; then
    deb=$OV_INSTALL_TEST_DEB
else
    if ! cpack --config "$build/CPackConfig.cmake" -G DEB -B "$work/pkg" >"$work/cpack.log" 2>&1; then
        cat "$work/cpack.log"
        echo "FAIL: cpack"
        exit 1
    fi
    deb=$(ls "$work"/pkg/pdtool_*.deb)
fi
echo "package: $(basename "$deb")"

field() { dpkg-deb -f "$deb" "$1"; }
[ "$(field Package)" = pdtool ] || fail "Package is '$(field Package)'"
[ "$(field Version)" = "$version" ] || fail "Version is '$(field Version)', the build says $version"
[ "$(field Section)" = admin ] || fail "Section is '$(field Section)'"
[ "$(field Architecture)" = "$(dpkg --print-architecture)" ] || fail "Architecture is '$(field Architecture)'"
[ -n "$(field Maintainer)" ] || fail "no Maintainer"
depends=$(field Depends)
echo "depends: $depends"
# The package names alone, one a line.
depends_names=$(tr ',|' '\n' <<<"$depends" | sed 's/(.*//; s/[[:space:]]//g')

# Exactly these files, nothing of the tests.
expected="./usr/bin/agentsim
./usr/bin/pdctl
./usr/bin/pdtool
./usr/share/bash-completion/completions/agentsim
./usr/share/bash-completion/completions/pdctl
./usr/share/bash-completion/completions/pdtool
./usr/share/doc/pdtool/README.md
./usr/share/man/man1/agentsim.1.gz
./usr/share/man/man1/pdctl.1.gz
./usr/share/man/man1/pdtool.1.gz"
actual=$(dpkg-deb -c "$deb" | awk '$1 !~ /^d/ {print $6}' | sort)
if [ "$actual" != "$expected" ]; then
    fail "file list differs"
    diff <(echo "$expected") <(echo "$actual") || true
fi

root="$work/root"
dpkg-deb -x "$deb" "$root"
pdtool="$root/usr/bin/pdtool"
agentsim="$root/usr/bin/agentsim"
pdctl="$root/usr/bin/pdctl"

# Every library the programs load comes from a package that Depends names.
for prog in "$pdtool" "$agentsim" "$pdctl"; do
    if ldd "$prog" | grep -q 'not found'; then
        fail "$(basename "$prog") misses libraries: $(ldd "$prog" | grep 'not found')"
    fi
    for lib in $(ldd "$prog" | awk '$2 == "=>" && $3 ~ /^\// {print $3}'); do
        case $(basename "$lib") in ld-linux*) continue ;; esac
        owner=""
        for path in "$lib" "$(readlink -f "$lib")" "${lib#/usr}" "/usr$lib"; do
            owner=$(dpkg -S "$path" 2>/dev/null | head -n 1 | cut -d: -f1) && [ -n "$owner" ] && break
        done
        if [ -z "$owner" ]; then
            fail "no package owns $lib"
        elif ! grep -qxF "$owner" <<<"$depends_names"; then
            fail "$(basename "$prog") loads $lib of $owner, which Depends does not name"
        fi
    done
done

# --- the programs from the unpacked tree ----------------------------------
out=$("$agentsim" --version) || fail "agentsim --version exits $?"
[ "$out" = "agentsim $version" ] || fail "agentsim --version prints '$out'"
out=$("$pdctl" --version) || fail "pdctl --version exits $?"
[ "$out" = "pdctl $version" ] || fail "pdctl --version prints '$out'"

set +e
usage=$("$pdtool")
status=$?
set -e
[ "$status" -eq 234 ] || fail "pdtool without argument exits $status, not 234"
[ "$(head -n 1 <<<"$usage")" = "pdtool Version: version v1.0" ] ||
    fail "usage text begins '$(head -n 1 <<<"$usage")'"

set +e
out=$(OV_PIPE_DIR="$work/nobody" "$pdtool" get_shaper_tbl)
status=$?
set -e
[ "$status" -eq 254 ] || fail "pdtool without an agent exits $status, not 254"
grep -q '^Imc configure client init failed -2 ' <<<"$out" || fail "no start-up failure line: $out"

if ! ov_private_agent "$agentsim" --journal "$work/journal.jsonl"; then
    echo "FAIL: the unpacked agentsim did not start"
    exit 1
fi
grep -q "^agentsim $version, pid " "$work/agentsim.err" || fail "banner: $(cat "$work/agentsim.err")"

set +e
out=$("$pdtool" 'set_ratelimit/{"RateLimitId": 1, "BucketRate": 0, "CBS": 0, "TokenBonus": 0, "Type": 1, "PerIpBucketRate": 0, "PerIpCBS": 0, "UpdateType": 1, "UpdateBucketRate": 0, "UpdateCBS": 0, "UpdateTokenBonus": 0, "UpdatePerIpBucketRate": 0, "UpdatePerIpCBS": 0, "PersistentFlag": true}')
status=$?
set -e
[ "$status" -eq 0 ] || fail "set_ratelimit exits $status"
grep -q '^Operation success$' <<<"$out" || fail "set_ratelimit: $out"
grep -q '"command":"set_ratelimit","status":0,"length":72' "$work/journal.jsonl" ||
    fail "the agent did not record the rate limit: $(cat "$work/journal.jsonl")"
out=$("$pdtool" del_ratelimit/id=1)
grep -q '^Operation success$' <<<"$out" || fail "del_ratelimit: $out"

# The manual page's COMMANDS examples, run as one script in their order: each
# pdtool line must succeed.
page="$source_dir/docs/pdtool.1.scd"
awk '/^# COMMANDS/ {on = 1; next} /^# / {on = 0}
     on && /^\t*```/ {block = !block; next}
     on && block {sub(/^\t+/, ""); print}' "$page" >"$work/examples.sh"
commands=$(grep -c '^pdtool ' "$work/examples.sh")
mkdir -p "$work/path"
ln -s "$pdtool" "$work/path/pdtool"
out=$(PATH="$work/path:$PATH" bash "$work/examples.sh" 2>&1) || fail "the examples script exits $?"
succeeded=$(grep -c '^Operation success$' <<<"$out" || true)
echo "manual page examples: $succeeded of $commands succeeded"
[ "$commands" -eq 46 ] || fail "the manual page shows $commands command examples, not 46"
[ "$succeeded" -eq "$commands" ] || {
    fail "manual page examples"
    grep -E 'Operation failed|invalid command|Missing expected|Invalid arg|failed' <<<"$out" || true
}

# Every command of the protocol description is an example and a completion, and the
# completion offers nothing else.
table=$(grep -o '{"[A-Za-z_]*", RecordKind::' "$source_dir/agentconf/protocol.h" | sed 's/{"//; s/", RecordKind:://')
[ "$(wc -l <<<"$table")" -eq 46 ] || fail "found $(wc -l <<<"$table") commands in agentconf/protocol.h"
for word in $table; do
    grep -Eq "^pdtool [\"']*${word}([/\" ]|\$)" "$work/examples.sh" ||
        fail "no manual page example for $word"
done
completed=$(bash -c 'source "$1"; COMP_WORDS=(pdtool ""); COMP_CWORD=1; _pdtool
                     printf "%s\n" "${COMPREPLY[@]}"' _ \
    "$root/usr/share/bash-completion/completions/pdtool" | sed 's|/$||')
[ "$completed" = "$table" ] || {
    fail "pdtool completion differs from the command table"
    diff <(echo "$table") <(echo "$completed") || true
}
completed=$(bash -c 'source "$1"; COMP_WORDS=(pdtool set_engine_s); COMP_CWORD=1; _pdtool
                     printf "%s\n" "${COMPREPLY[@]}"' _ \
    "$root/usr/share/bash-completion/completions/pdtool")
[ "$completed" = $'set_engine_subnetAccEnable/\nset_engine_shaperEnable/\nset_engine_srtt/' ] ||
    fail "completion of set_engine_s: $completed"

# agentsim's completion offers exactly the options its --help names.
options=$("$agentsim" --help | grep -o -- '--[a-z][a-z-]*' | sort -u)
completed=$(bash -c 'source "$1"; COMP_WORDS=(agentsim --); COMP_CWORD=1; _agentsim
                     printf "%s\n" "${COMPREPLY[@]}"' _ \
    "$root/usr/share/bash-completion/completions/agentsim" | sort)
[ "$completed" = "$options" ] || {
    fail "agentsim completion differs from --help"
    diff <(echo "$options") <(echo "$completed") || true
}

# The manual pages render without warnings and show what they must.
if command -v man >/dev/null 2>&1; then
    for name in pdtool agentsim; do
        file="$root/usr/share/man/man1/$name.1.gz"
        text=$(MANWIDTH=100 man --warnings -l "$file" 2>"$work/man.err") || fail "man -l $name exits $?"
        [ ! -s "$work/man.err" ] || fail "man -l $name warns: $(cat "$work/man.err")"
        for section in NAME SYNOPSIS DESCRIPTION "EXIT STATUS" ENVIRONMENT FILES EXAMPLES; do
            grep -q "^$section\$" <<<"$text" || fail "$name(1) has no $section section"
        done
        grep -q "$name $version" <<<"$text" || fail "$name(1) does not show version $version"
    done
    text=$(MANWIDTH=100 man -l "$root/usr/share/man/man1/pdtool.1.gz" 2>/dev/null)
    for word in $table OV_PIPE_DIR OV_PIPE_NAME /run/orvane/imc_config_pipe \
        '\\.\pipe\imc_config_pipe' 234 254; do
        grep -qF -- "$word" <<<"$text" || fail "pdtool(1) does not mention $word"
    done
else
    echo "man is not installed: rendering not checked"
fi

if [ "$failures" -ne 0 ]; then
    echo "$failures check(s) failed"
    exit 1
fi
echo "install test passed"
