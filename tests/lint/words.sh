#!/usr/bin/env bash
# Texts that are valid on one machine only: absolute paths in somebody's home or work directory.
set -u
. "$(dirname "$0")/common.sh"

own_files '*' | grep -v '^LICENSE$' |
   xargs -r grep -HnIE '(^|[^[:alnum:]_.])/(home|root|work|Users|mnt)/[[:alnum:]_.]' |
   grep -v '^tests/lint/words\.sh:' | fail_if_any
