#!/bin/sh
# preprocess.sh COMPILER...: lets a compiler only tell what a file includes.
exec "$@" -E
