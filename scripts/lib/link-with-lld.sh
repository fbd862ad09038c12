#!/usr/bin/env bash
# link-with-lld.sh COMMAND [ARGUMENT...]: for GCC's option -wrapper. Links with LLD what GCC would link with the linker
# it was built for, which takes 20 seconds for a program of the tests where LLD takes a quarter of one.

set -eu
case $1 in
    */collect2 | */collect2.exe) shift ;;
    *) exec "$@" ;;
esac
arguments=()
while [ $# -gt 0 ]; do
    case $1 in
        -plugin) shift ;; # that of GCC's link-time optimisation
        -plugin-opt=*) ;;
        *) arguments+=("$1") ;;
    esac
    shift
done
# The stack that programs get from GCC's linker; LLD would give them half of it.
exec ld.lld-14 --stack=0x200000 "${arguments[@]}"
