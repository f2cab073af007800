# shellcheck shell=bash
# Answers windows by keyboard; to be sourced. Needs a display with a window manager.

# wait_for TITLE: waits until the window with the keyboard has this title, and has drawn itself.
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
    echo "The window '$1' did not appear; '$title' has the keyboard." >&2
    return 1
}

# answer TITLE: presses Return in the window with this title, once it is there.
answer() {
    wait_for "$1"
    xdotool key Return
}

# in_language LANGUAGE LOCALE-FOLDER TEXT: the text as the catalogue has it. The gettext command would
# need a locale that is installed.
in_language() {
    python3 -c 'import gettext, sys
language, folder, text = sys.argv[1:]
print(gettext.translation("kestrel", folder, [language]).gettext(text))' "$@"
}
