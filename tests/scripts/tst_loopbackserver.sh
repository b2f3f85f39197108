#!/usr/bin/env bash
# The web server of the demonstration, the tests and the benchmarks: several start at once, and each
# answers from its first moment with what is in its own folder.
set -euo pipefail

# shellcheck source=/dev/null
. "$(dirname "${BASH_SOURCE[0]}")/../support/expectations.bash"

server=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)/scripts/loopback-server
scratch=$(mktemp -d "${TMPDIR:-/tmp}/tst_loopbackserver.XXXXXX")
started=()
clean_up()
{
    [ ${#started[@]} -eq 0 ] || kill "${started[@]}" 2>/dev/null || true
    wait
    rm -rf "$scratch"
}
trap clean_up EXIT
unset http_proxy HTTP_PROXY no_proxy NO_PROXY

# With a blank in the path, which goes into nginx's configuration.
count=8
folder()
{
    echo "$scratch/folder $1"
}

answer()
{
    curl -sS --max-time 60 "$@"
}

for ((number = 0; number < count; number++)); do
    mkdir -p "$(folder "$number")/www/vt_updater"
    echo "index $number" >"$(folder "$number")/www/vt_updater/file_list.txt"
    mkfifo "$(folder "$number")/address"
    "$server" "$(folder "$number")" >"$(folder "$number")/address" \
    2>"$(folder "$number")/complaints" &
    started+=($!)
done
addresses=()
for ((number = 0; number < count; number++)); do
    read -r address <"$(folder "$number")/address" \
        || fail "server $number starts: $(cat "$(folder "$number")/complaints")"
    addresses+=("$address")
    expect_text "server $number answers at once, at $address" "index $number" \
        answer "$address/vt_updater/file_list.txt"
done
expect_text "each has its own address" "$count" \
    sh -c 'printf "%s\n" "$@" | sort -u | wc -l' sh "${addresses[@]}"
expect_text "it is a proxy for any address" "index 0" \
    answer --proxy "${addresses[0]}" http://updates.example/vt_updater/file_list.txt
expect_text "what is not in the folder is missing" 404 \
    answer -o "$scratch/body" -w '%{http_code}\n' "${addresses[0]}/vt_updater/other"

cat >"$scratch/other.conf" <<'TEXT'
daemon off;
events {}
http {
    access_log "@FOLDER@/access.log";
    server {
        listen 127.0.0.1:@PORT@;
        return 418;
    }
}
TEXT
mkdir "$scratch/other"
mkfifo "$scratch/address"
"$server" --configuration "$scratch/other.conf" "$scratch/other" >"$scratch/address" &
started+=($!)
read -r address <"$scratch/address"
expect_text "it takes another configuration" 418 \
    answer -o "$scratch/body" -w '%{http_code}\n' "$address"
expect_soon "with its places in the folder" test -s "$scratch/other/access.log"

kill "${started[0]}"
wait "${started[0]}" || fail "a server that is terminated ends well"
refuses_connections()
{
    ! answer "${addresses[0]}/" 2>/dev/null
}
expect "no part of it is left" refuses_connections
expect_text "the others are not concerned" "index 1" answer "${addresses[1]}/vt_updater/file_list.txt"
