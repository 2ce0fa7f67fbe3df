# shellcheck shell=bash
# For the scripts that compile, which source it: what is compiled is remembered where ccache is there, and `launcher` are
# CMake's options for it. Work trees share what they have compiled.
launcher=()
if command -v ccache >/dev/null; then
    # shellcheck disable=SC2034
    launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
    # Precompiled headers carry their time; ccache has to be told that this is no difference.
    export CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime
    # A debugger wants the tree's own paths; nobody debugs a CI run.
    export CCACHE_BASEDIR=${CCACHE_BASEDIR:-$PWD}
    [[ ${CI:-} != true ]] || export CCACHE_NOHASHDIR=1
fi
