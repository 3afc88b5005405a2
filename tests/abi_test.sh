#!/bin/bash
# The binary interface is that of the last release: what was there is unchanged, what was added is listed.
# usage: abi_test.sh SURFACE_LIBRARY RELEASED.abi.gz
#        abi_test.sh SURFACE_LIBRARY --describe > RELEASED.abi.gz      at a release
# The surface library has a pointer abi_NAME to every exported NAME, and every type of the headers in its debug information.
set -euo pipefail
if [[ $2 == --describe ]]; then
  abidw --load-all-types --no-corpus-path --no-comp-dir-path --no-show-locs "$1" | gzip -n9
  exit
fi
folder=$(mktemp -d)
trap 'rm -r "$folder"' EXIT
gunzip -c "$2" >"$folder/released.abi"
"$0" "$1" --describe | gunzip >"$folder/now.abi"

# Enumerations without a name are told apart by their order: their constants are compared one by one.
printf '[suppress_type]\n  name_regexp = ^__anonymous_enum__\n' >"$folder/unnamed"
status=0
abidiff --suppressions "$folder/unnamed" --non-reachable-types "$folder/released.abi" "$folder/now.abi" >"$folder/report" ||
  status=$?
sed 's/\babi_//' "$folder/report"
if (( status & 3 )); then
  echo "abidiff failed"
  exit 1
fi
constants() { sed -n "s/.*<enumerator name='\([^']*\)' value='\([^']*\)'.*/\1 = \2/p" "$1" | sort -u; }
lost=$(comm -23 <(constants "$folder/released.abi") <(constants "$folder/now.abi"))
printf '%s' "${lost:+Constants removed or changed: $lost$'\n'}"
if [[ -n $lost ]] || grep -qiE "summary:.*\b[1-9][0-9]* (removed|changed)" "$folder/report"; then
  echo "What programs were built against has changed."
  exit 1
fi
