#!/bin/sh
# usage: with-display.sh COMMAND...
# Runs a command on a private display with a window manager, without the user's settings. The process of
# the display's server is $DISPLAY_SERVER.
set -eu
. "$(dirname "$0")/setup.sh"
folder=$(mktemp -d)
export HOME="$folder" XDG_RUNTIME_DIR="$folder" XDG_CONFIG_HOME="$folder/settings"
trap 'end_started; rm -rf "$folder"' EXIT
start_private_display "$folder"
status=0
"$@" || status=$?
exit "$status"
