#!/bin/sh
# Stands in for pkexec in tests. Records the command it was asked to run, one argument after
# another, each ended by a NUL byte, in $NESTORA_STANDIN_RECORD, then runs it without elevation.
#   NESTORA_STANDIN_DISMISS=1  answers like a dismissed authentication dialog (status 126)
#   NESTORA_STANDIN_REFUSE=1   answers like pkexec without an authentication agent (status 127)
#   NESTORA_STANDIN_BEFORE     a shell command run first: a test that made a folder unwritable
#                              for the user lifts that here, as root could write it anyway
if [ -n "${NESTORA_STANDIN_RECORD:-}" ]; then
    printf '%s\0' "$@" >"$NESTORA_STANDIN_RECORD"
fi
if [ "${NESTORA_STANDIN_DISMISS:-}" = 1 ]; then
    exit 126
fi
if [ "${NESTORA_STANDIN_REFUSE:-}" = 1 ]; then
    echo "Error executing command as another user: No authentication agent found." >&2
    exit 127
fi
if [ -n "${NESTORA_STANDIN_BEFORE:-}" ]; then
    sh -c "$NESTORA_STANDIN_BEFORE"
fi
exec "$@"
