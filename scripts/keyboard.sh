# shellcheck shell=bash
# Functions that answer windows by keyboard. Source this file; it needs a display with a window manager.

# wait_for TITLE: waits until the active window has this title, and gives it time to draw itself.
wait_for() {
    local title
    for ((i = 0; i < 200; i++)); do
        title=$(xdotool getactivewindow getwindowname 2>/dev/null || echo none)
        if [[ $title == "$1" ]]; then
            sleep 0.7
            return
        fi
        sleep 0.1
    done
    echo "The window '$1' did not appear; the active window is '$title'." >&2
    return 1
}

# answer TITLE: waits for the window with this title and presses Return in it.
answer() {
    wait_for "$1"
    xdotool key Return
}

# in_language LANGUAGE LOCALE-FOLDER TEXT: prints the text as the catalogue translates it. The command
# gettext would need an installed locale.
in_language() {
    python3 -c 'import gettext, sys
language, folder, text = sys.argv[1:]
print(gettext.translation("kestrel", folder, [language]).gettext(text))' "$@"
}
