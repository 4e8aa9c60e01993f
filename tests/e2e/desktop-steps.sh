# Steps shared by the scripts that drive Mendwise on a real desktop (sourced, not run).
# Expects: app (the program), fake (fake-messages-api), port, work (a scratch directory).
pids=()
failures=0 passed=0

check() { # check NAME CONDITION-COMMAND...
    local name=$1; shift
    if "$@"; then
        passed=$((passed + 1)); echo "ok: $name"
    else
        failures=$((failures + 1)); echo "FAILED: $name"
    fi
}
summary() { # the counts, Mendwise's log after a failure; fails when a check did
    if [ "$failures" -ne 0 ]; then
        echo "--- Mendwise log"; cat "$work/app.log"
    fi
    echo "$passed passed, $failures failed"
    [ "$failures" -eq 0 ]
}

wait_for() { # wait_for SECONDS COMMAND...
    local deadline=$((SECONDS + $1)); shift
    until "$@" >/dev/null 2>&1; do
        [ "$SECONDS" -ge "$deadline" ] && return 1
        sleep 0.05
    done
}
stop_all() {
    local pid
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null; done
    wait 2>/dev/null
}
clean_up() { # the exit trap of a test: the scratch directory is kept after a failure
    stop_all
    if [ "$failures" -eq 0 ]; then rm -rf "$work"; else echo "kept $work"; fi
}
log_has() { grep -qF -- "$1" "$work/app.log"; }
log_count() { grep -cF -- "$1" "$work/app.log"; }

start_fake() { # start_fake ARGS...: (re)start the fake API
    if [ -n "${fake_pid:-}" ]; then kill "$fake_pid"; wait "$fake_pid" 2>/dev/null; fi
    "$fake" --port "$port" --log "$work/requests.jsonl" "$@" >>"$work/fake.log" 2>&1 &
    fake_pid=$!
    pids+=("$fake_pid")
    wait_for 10 bash -c "exec 3<>/dev/tcp/127.0.0.1/$port" || { echo "fake API did not start"; exit 1; }
    kill -0 "$fake_pid" 2>/dev/null ||
        { echo "fake API could not listen on port $port (is an earlier one still running?)"; exit 1; }
}

start_editor() { # start_editor TEXT: mousepad holding TEXT, in front
    printf '%s' "$1" >"$work/note.txt"
    mousepad "$work/note.txt" >"$work/mousepad.log" 2>&1 &
    pids+=($!)
    wait_for 20 sh -c 'xdotool getactivewindow getwindowname | grep -q note' ||
        { echo "mousepad did not come up"; exit 1; }
}

start_mendwise() { # with an API key stored, until the shortcut is bound
    mkdir -p "$XDG_CONFIG_HOME/Mendwise"
    printf '[General]\nanthropic_api_key=sk-ant-e2e\n' >"$XDG_CONFIG_HOME/Mendwise/Mendwise.conf"
    "$app" >"$work/app.log" 2>&1 &
    app_pid=$!
    pids+=("$app_pid")
    wait_for 20 log_has '[HotkeyManager] Registered shortcut using Hotkeys library' ||
        { echo "Mendwise did not start"; cat "$work/app.log"; exit 1; }
}

# Whether Mendwise shows any window (with no tray and no settings open, that is the panel).
panel_visible() { xdotool search --onlyvisible --pid "$app_pid" >/dev/null 2>&1; }
panel_hidden() { ! panel_visible; }
panel_geometry() { # sets X and Y to the panel's position
    eval "$(xdotool getwindowgeometry --shell "$(xdotool search --onlyvisible --pid "$app_pid" 2>/dev/null | head -n1)")"
}

trigger() { # selects the whole text and presses the trigger; waits for the picker
    local before
    before=$(log_count '[AppDelegate] 🚀 showPicker')
    xdotool key --clearmodifiers ctrl+a
    sleep 0.2
    xdotool key --clearmodifiers ctrl+shift+j
    wait_for 5 test "$(log_count '[AppDelegate] 🚀 showPicker')" -gt "$before"
    sleep 0.4 # the keyboard grab and the fade-in
}
