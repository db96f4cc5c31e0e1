# Sourced by scripts that keep people waiting: how far a step has come, and how long it will take. Everything goes to
# standard error.

say() { printf '%s\n' "$*" >&2; }

# Seconds as people say them: "45 s", "3 min".
time_text() {
  if [ "$1" -lt 90 ]; then
    printf '%d s' "$1"
  else
    printf '%d min' "$((($1 + 30) / 60))"
  fi
}

# show_progress NAME: shows the lines "PERCENT TEXT" of standard input. A terminal has one line that is redrawn, anything
# else gets a line for each quarter.
show_progress() {
  local percent text line columns shown=-1 start=$SECONDS
  columns=$(tput cols 2>/dev/null) || columns=80
  while read -r percent text; do
    line="  $1: $percent %"
    if [ "$percent" -ge 5 ] && [ "$percent" -lt 100 ] && [ "$((SECONDS - start))" -ge 5 ]; then
      line+=", about $(time_text "$(((SECONDS - start) * (100 - percent) / percent))") left"
    fi
    if [ -t 2 ]; then
      line+="  $text"
      printf '\r\033[K%s' "${line:0:columns-1}" >&2
    elif [ "$((percent / 25))" -gt "$shown" ]; then
      shown=$((percent / 25))
      say "$line"
    fi
  done
  if [ -t 2 ]; then
    printf '\r\033[K' >&2
  fi
}
