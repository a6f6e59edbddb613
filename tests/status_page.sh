#!/usr/bin/env bash
# The status page of a running relay and its page "inside" in a real browser: the numbers change, the
# tables are complete, nothing comes from elsewhere, and both fit a phone and a desk in light and dark.
#   status_page.sh RELAY SAMPLE [FOLDER [SECONDS]]
# FOLDER keeps pictures of the pages, which are taken when the relay has run for SECONDS.
# (docs/status-page.png is status-page-1280-light.png after 118 seconds, with a palette by ffmpeg.)
# Exit 77: skipped, because there is no browser.
set -euo pipefail
relay=$1
sample=$2
for tool in chromium chromedriver curl jq; do
    command -v "$tool" >/dev/null || { echo "skipped: no $tool"; exit 77; }
done

work=$(mktemp -d)
pictures=${3:-$work}
pids=()
cleanup() {
    [[ ! -v session ]] || curl -s -X DELETE "$session" >/dev/null || true
    kill "${pids[@]}" 2>/dev/null || true
    wait "${pids[@]}" 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT

in_port=25610 out_port=25611 page=http://127.0.0.1:25612
"$relay" --input "tcp://127.0.0.1:$in_port" --output "127.0.0.1:$out_port" \
    --status "${page#http://}" --status-token secret --inside --log "$work/relay.log" &
relay_pid=$!
pids+=("$relay_pid")
until grep -qs relaying "$work/relay.log"; do kill -0 "$relay_pid"; sleep 0.05; done
for _ in 1 2 3; do
    curl -sN "http://127.0.0.1:$out_port/stream" >/dev/null &
    pids+=($!)
done
split -b 18800 "$sample" "$work/part."
while :; do
    for part in "$work"/part.*; do
        cat "$part"
        sleep "0.0$((3 + RANDOM % 5))"
    done
done >"/dev/tcp/127.0.0.1/$in_port" 2>/dev/null &
pids+=($!)

# The browser is driven as https://www.w3.org/TR/webdriver/ says.
chromedriver --port=0 >"$work/driver.log" 2>&1 &
pids+=($!)
until port=$(grep -soP 'successfully on port \K\d+' "$work/driver.log"); do sleep 0.05; done
post() { curl -sSf --max-time 30 -H 'Content-Type: application/json' -d "$2" "$1" | jq -e .value; }
options='{"binary": "'$(command -v chromium)'", "args": ["--headless=new", "--no-sandbox",
    "--disable-gpu", "--hide-scrollbars", "--user-data-dir='$work/profile'"]}'
session=http://127.0.0.1:$port/session/$(post "http://127.0.0.1:$port/session" '{"capabilities":
    {"alwaysMatch": {"goog:chromeOptions": '"$options"',
                     "goog:loggingPrefs": {"browser": "ALL", "performance": "ALL"}}}}' | jq -r .sessionId)

devtools() { post "$session/goog/cdp/execute" "{\"cmd\": \"$1\", \"params\": $2}" >/dev/null; }
script() { post "$session/execute/sync" "$(jq -n --arg script "return $1" '{$script, args: []}')"; }
logged() { post "$session/se/log" "{\"type\": \"$1\"}"; }
# holds WHAT EXPRESSION: waits until EXPRESSION is true in the page.
holds() {
    for _ in {1..300}; do
        [[ $(script "$2" || true) != true ]] || return 0
        sleep 0.1
    done
    echo "not so: $1: $2" >&2
    script 'document.body.innerText' >&2
    return 1
}
# agrees WHAT ROWS FILE LIST: waits until the page shows as many ROWS as LIST has in FILE at that moment.
agrees() {
    local rows="document.querySelectorAll('$2').length"
    holds "$1" "fetch('$3').then(answer => answer.json()).then(now => $rows > 0 && $rows === $4.length)"
}
text() { echo "document.getElementById('$1').textContent"; }
part() { echo "document.querySelector('#channels [data-part=\"$1\"]')"; }

# fits NAME: looks at the page on a phone and a desk, in light and dark, and takes pictures of it.
fits() {
    local width scheme height
    for width in 1280 390; do
        for scheme in light dark; do
            devtools Emulation.setEmulatedMedia \
                '{"features": [{"name": "prefers-color-scheme", "value": "'$scheme'"}]}'
            devtools Emulation.setDeviceMetricsOverride \
                '{"width": '$width', "height": 800, "deviceScaleFactor": 1, "mobile": false}'
            holds "the page fits $width pixels" "document.documentElement.scrollWidth <= $width"
            height=$(script 'document.documentElement.scrollHeight')
            devtools Emulation.setDeviceMetricsOverride \
                '{"width": '$width', "height": '"$height"', "deviceScaleFactor": 1, "mobile": false}'
            sleep 0.5  # colours fade
            curl -sSf "$session/screenshot" | jq -r .value | base64 -d >"$pictures/$1-$width-$scheme.png"
        done
    done
}

devtools Emulation.setDeviceMetricsOverride '{"width": 1280, "height": 800, "deviceScaleFactor": 1, "mobile": false}'
post "$session/url" "{\"url\": \"$page/\"}" >/dev/null || true  # the answer is null
holds "the page is alive" "$(text state) === 'Running'"
holds "the stream flows in" "/^[1-9]/.test($(part in-rate).textContent)"
holds "and out" "/^[1-9]/.test($(part out-rate).textContent)"
holds "there are three clients" "$(part clients).querySelectorAll('td:nth-child(6)').length === 3"
before=$(script "$(part in-bytes).textContent")
holds "the numbers run" "$(part in-bytes).textContent !== $before"
holds "the chart has its lines" "$(part chart).querySelectorAll('.line').length === 2"

agrees "all locks are shown" '#locks tbody tr' status.json now.locks
agrees "all buffers are shown" '#memory tr + tr' status.json now.memory.rows

sleep "${4:-0}"
fits status-page

post "$session/url" "{\"url\": \"$page/inside\"}" >/dev/null || true
agrees "all locks are shown inside" '#locks tbody tr' inside.json now.locks.locks
agrees "all FIFOs are shown" '#fifos tbody tr' inside.json now.fifos.fifos
agrees "buffers are shown by place" '#places tbody tr' inside.json \
    'now.memory.places.filter(place => place.buffers > 0)'
holds "locks are counted" "[...document.querySelectorAll('#locks td:nth-child(3)')].some(cell => /[1-9]/.test(cell.textContent))"
fits inside-page
post "$session/url" "{\"url\": \"$page/\"}" >/dev/null || true

errors=$(logged browser)
[[ $(jq length <<<"$errors") == 0 ]] || { echo "the browser complains: $errors" >&2; exit 1; }
# The browser's own start page makes requests, too.
asked=$(logged performance | jq -r --arg page "$page" '.[].message | fromjson.message
    | select(.method == "Network.requestWillBeSent").params
    | select(.documentURL | startswith($page)).request.url' | sort -u)
grep -q /live.json <<<"$asked"
elsewhere=$(grep -vE "^($page/|data:)" <<<"$asked" || true)
[[ -z $elsewhere ]] || { echo "asked elsewhere: $elsewhere" >&2; exit 1; }

# disconnect TOKEN: clicks the button of the first client, and answers the dialog.
disconnect() {
    script "$(part clients).querySelector('button').click(),
        document.getElementById('token').value = '$1',
        document.querySelector('#disconnect button').click(), true" >/dev/null
}
disconnect wrong
holds "a wrong token is refused" "$(text message).includes('missing or wrong')"
disconnect secret
holds "two clients are left" "$(part clients).querySelectorAll('td:nth-child(6)').length === 2"

kill -TERM "$relay_pid"
wait "$relay_pid"
holds "the end is seen" "$(text state).startsWith('No answer since') && document.body.dataset.state === 'lost'"
