#!/usr/bin/env bash
# Whether sources are formatted, scripts are clean under shellcheck, and every source is part of a build. Names what is
# not and fails. A tool that is not installed is passed over: scripts/deps.sh style installs them.
set -uo pipefail
cd "$(dirname "$0")/.." || exit
failed=0

# Other versions lay some lines out differently.
clang_format=$(command -v clang-format-14 || command -v clang-format)
if [[ $(${clang_format:+"$clang_format"} --version 2>/dev/null) == *" version 14."* ]]; then
    git ls-files -z '*.cpp' '*.h' '*.c' | xargs -0 "$clang_format" --dry-run -Werror || failed=1
else
    echo "formatting not checked: no clang-format 14"
fi

if command -v shellcheck >/dev/null; then
    git ls-files -z '*.sh' | xargs -0 shellcheck || failed=1
else
    echo "scripts not checked: no shellcheck"
fi

# Nobody would miss a test that is in no list. A list stands in the nearest folder above, and may go without suffixes.
while read -r source; do
    folder=$(dirname "$source")
    until [ -e "$folder/CMakeLists.txt" ]; do folder=$(dirname "$folder"); done
    name=${source%.*}
    name=${name#"$folder/"}
    grep -qwF -e "$name" -e "${name%_fuzz}" "$folder/CMakeLists.txt" && continue
    echo "$source: not in $folder/CMakeLists.txt"
    failed=1
done < <(git ls-files '*.cpp' '*.c')
exit "$failed"
