# Shared by the scripts beside this file; they source it and then work in the root of the repository.
# shellcheck shell=bash

cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit 1

# Tells what is being done, apart from the output of the tools.
say() {
    printf '\n== %s\n' "$*"
}

# Configures a preset and builds it, or only the targets named after it.
build_preset() {
    local preset=$1
    shift
    say "Configuring $preset"
    cmake --preset "$preset"
    say "Building $preset"
    if (($#)); then
        cmake --build --preset "$preset" --target "$@"
    else
        cmake --build --preset "$preset"
    fi
}

# Our own C++ files, as null-terminated names.
own_sources() {
    git ls-files -z --cached --others --exclude-standard -- '*.cpp' '*.h'
}
