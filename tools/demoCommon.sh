# What the acts of the demo share. Sourced with $work set to a directory of their own, and $logs to
# the names of the processes that write NAME.log there.

if [ -t 1 ]; then
   bold=$'\e[1m' dim=$'\e[2m' red=$'\e[31m' plain=$'\e[0m'
else
   bold='' dim='' red='' plain=''
fi

say() {
   printf '\n%s%s%s\n' "$bold" "$*" "$plain"
}

give_up() {
   printf 'demo: %s\n' "$*" >&2
   local log
   for log in $logs; do
      [ ! -e "$work/$log.log" ] || tail -n 20 "$work/$log.log" | sed "s/^/$log: /" >&2
   done
   exit 1
}

# lines_in FILE: how many complete lines there are.
lines_in() {
   wc -l <"$1"
}

# await_that COMMAND...: waits until the command succeeds, for a minute at most.
await_that() {
   local end=$((SECONDS + 60))
   until "$@"; do
      [ $SECONDS -lt $end ] || return 1
      sleep 0.02
   done
}

has_lines() {
   [ "$(lines_in "$1")" -ge "$2" ]
}

# await_line FILE COUNT: waits until the file has this many lines, for a minute at most.
await_line() {
   await_that has_lines "$1" "$2"
}

is_gone() {
   ! kill -0 "$1" 2>/dev/null
}

# end_of PID: interrupts a process as ^C does, waits for its end, and returns its exit status.
end_of() {
   kill -INT "$1"
   await_that is_gone "$1" || return 1
   wait "$1"
}

# show_watcher: what the watcher has printed in watch.log since the last time.
shown=0
show_watcher() {
   local now
   now=$(lines_in "$work/watch.log")
   sed -n "$((shown + 1)),${now}p" "$work/watch.log" | sed "s/^/${dim}   watcher | /; s/\$/$plain/"
   shown=$now
}
