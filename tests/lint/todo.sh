#!/usr/bin/env bash
# TODO(now) marks what must be done before a change is complete.
set -u
. "$(dirname "$0")/common.sh"

own_files '*.h' '*.cpp' '*.kiv' '*.cmake' CMakeLists.txt | xargs -r grep -HnF 'TODO(now)' |
   fail_if_any
