# shellcheck shell=bash
# Functions that answer windows by keyboard. Source this file; it needs a display with a window manager.

# shellcheck source=scripts/server.sh
. "$(dirname "${BASH_SOURCE[0]}")/server.sh"

# has_keyboard TITLE: returns whether the active window has this title. Sets $window to that window.
has_keyboard() {
    window=$(xdotool getactivewindow 2>/dev/null) && [[ $(xdotool getwindowname "$window" 2>/dev/null) == "$1" ]]
}

# wait_for TITLE: waits until the active window has this title.
wait_for() {
    wait_until 20 has_keyboard "$1" && return
    echo "The window '$1' did not appear; the active window is '$(xdotool getactivewindow getwindowname 2>&1)'." >&2
    return 1
}

# answer TITLE: waits for the window with this title and presses Return in it until it is gone. A window
# that has just appeared ignores keys.
answer() {
    wait_for "$1" && wait_until 20 press_return "$window"
}
press_return() {
    xdotool key Return
    wait_until 1 is_gone "$1"
}
is_gone() {
    ! xdotool getwindowname "$1" >/dev/null 2>&1
}

# in_language LANGUAGE LOCALE-FOLDER TEXT: prints the text as the catalogue translates it. The command
# gettext would need an installed locale.
in_language() {
    python3 -c 'import gettext, sys
language, folder, text = sys.argv[1:]
print(gettext.translation("kestrel", folder, [language]).gettext(text))' "$@"
}
