#!/usr/bin/env bash
# scripts/abi.sh against x86_64 baselines altered to stand for changes of the interface: the
# incompatible ones must fail with abidiff's report naming them, an addition must pass with a
# note to update the baseline.
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
baseline="$root/abi/x86_64.abi"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
errors=0

# check NAME STATUS PATTERN...: abi.sh against $scratch/NAME/x86_64.abi exits with STATUS (0 or
# non-zero) and prints every PATTERN (fixed strings).
check() {
    local name=$1 want=$2 out status=0 before=$errors
    shift 2
    out=$("$root/scripts/abi.sh" --arch x86_64 --baseline-dir "$scratch/$name" 2>&1) || status=$?
    if [[ $want -eq 0 && $status -ne 0 ]] || [[ $want -ne 0 && $status -eq 0 ]]; then
        echo "FAIL $name: abi.sh exited with $status"
        errors=$((errors + 1))
    fi
    for pattern in "$@"; do
        if ! grep -qF -- "$pattern" <<<"$out"; then
            echo "FAIL $name: no \"$pattern\" in the output"
            errors=$((errors + 1))
        fi
    done
    [[ $errors -eq $before ]] || echo "$out"
}

# alter NAME PROGRAM: writes $scratch/NAME/x86_64.abi, the baseline through awk PROGRAM, which
# must change it.
alter() {
    mkdir -p "$scratch/$1"
    awk "$2" "$baseline" >"$scratch/$1/x86_64.abi"
    if cmp -s "$baseline" "$scratch/$1/x86_64.abi"; then
        echo "FAIL $1: the alteration matched nothing in $baseline"
        errors=$((errors + 1))
    fi
}

reset="_ZN5NSCam5Utils12DurationTool5resetEv"

# A public class of another size.
alter grown "{ sub(/<class-decl name='DurationTool' size-in-bits='[0-9]+'/,
                   \"<class-decl name='DurationTool' size-in-bits='4096'\"); print }"
check grown 1 "class NSCam::Utils::DurationTool" "type size changed from 4096 to"

# A virtual function of a public class in another vtable slot.
alter moved "/<member-function/ { held = \$0; next }
             held != \"\" { if (\$0 ~ /IFence4waitEi'/) sub(/vtable-offset='[0-9]+'/,
                                                           \"vtable-offset='7'\", held)
                          print held; held = \"\" }
             { print }"
check moved 1 "vtable offset of method virtual int NSCam::Utils::Sync::IFence::wait(int) changed"

# An exported function the library does not have: the baseline names reset() pause().
alter removed "/$reset/ { gsub(/reset/, \"pause\") } { print }"
check removed 1 "1 Removed function" "NSCam::Utils::DurationTool::pause()"

# A function the baseline lacks: reset() is new to it, which is compatible.
alter added "/elf-symbol name='$reset'/ { next }
             /<member-function/ { held = \$0; next }
             held != \"\" { if (\$0 ~ /$reset/) { skip = 1 } else { print held }; held = \"\" }
             skip { if (\$0 ~ /<\\/member-function>/) skip = 0; next }
             { print }"
check added 0 "1 Added function" "NSCam::Utils::DurationTool::reset()" "update the baseline"

[[ $errors -eq 0 ]] && echo "abi check: grown, moved and removed fail, added passes"
[[ $errors -eq 0 ]]
