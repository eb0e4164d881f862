#!/bin/bash
echo "Install.sh: not available in this build" >&2
exit 1
